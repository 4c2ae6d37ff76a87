"""Every shared KORA RAW file read line by line as a tool reads it; both
tokenizer paths agree on every data line.  Skips in a clone without the
shared data."""
import re
import types

import pytest

from conftest import requires_shared_data, shared_files

RAW_FILES = shared_files("raw", ".raw")


def read_lines(path):
    with open(path, encoding="latin-1", newline="") as f:
        return f.readlines()


@requires_shared_data
def test_shared_raw_files_are_present():
    assert len(RAW_FILES) >= 40


@requires_shared_data
@pytest.mark.parametrize("path", RAW_FILES, ids=lambda p: p.rsplit("/", 1)[-1])
def test_both_paths_agree_on_every_line(vx, path):
    lines = read_lines(path)

    def split_all():
        out = []
        for line in lines:
            try:
                out.append(vx._split_textline_kora(line))
            except Exception as e:
                out.append((type(e), str(e)))
        return out

    fast = split_all()
    vx.re = types.SimpleNamespace(compile=re.compile)
    assert split_all() == fast


@requires_shared_data
@pytest.mark.parametrize("path", RAW_FILES, ids=lambda p: p.rsplit("/", 1)[-1])
def test_reading_loop_finds_the_end_of_data(vx, progress, path):
    lines = read_lines(path)
    found_q = groups = 0
    for number, line in enumerate(lines[3:], 4):  # three header lines
        eof, blank = vx._check_eof_blank_line_kora(line)
        if blank:
            continue
        try:
            q, frst_val = vx._split_txtline_to_values_kora_no_check(line)
        except Exception as e:  # a quote the file never closes
            assert str(e).startswith("Error reading line: "), (number, line)
            continue
        if q:
            found_q = number
            break
        groups += frst_val == 0
    # A file of fewer than four lines has its Q among the title lines.
    assert found_q or len(lines) <= 3, "no Q line"
    assert progress.messages == []
