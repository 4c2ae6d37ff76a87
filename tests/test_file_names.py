"""File names, unique temporary names and time stamps."""
import os
import re
import time
import types

import pytest

from conftest import IMPORT_CWD

FIXED = time.struct_time((2024, 3, 7, 14, 5, 9, 3, 67, 0))


@pytest.fixture
def fixed_clock(vx):
    """The module's time global stopped at FIXED (the test restores it)."""
    vx.time = types.SimpleNamespace(localtime=lambda: FIXED, strftime=time.strftime)


@pytest.mark.parametrize("name, parts", [
    ("case.raw", ("", "case.raw", "case", ".raw", ".raw")),
    ("C:/data/Case.EPC", ("C:/data", "Case.EPC", "Case", ".EPC", ".epc")),
    ("noext", ("", "noext", "noext", "", "")),
    ("a.b.RAW", ("", "a.b.RAW", "a.b", ".RAW", ".raw")),
    ("dir/", ("dir", "", "", "", "")),
    (b"x/y.Z", (b"x", b"y.Z", b"y", b".Z", b".z")),
])
def test_file_pnx(vx, name, parts):
    assert vx._file_PNX(name) == parts


@pytest.mark.parametrize("func, args, kwargs, expected", [
    ("_get_file_name", ("D:/in/Case.EPC",), {"prefix": "new_"}, os.path.join(IMPORT_CWD, "new_Case.txt")),
    ("_get_file_name", ("Case.EPC",), {"extn": "raw"}, os.path.join(IMPORT_CWD, "Caseraw.raw")),  # doubled
    ("_get_file_name", ("Case.EPC",), {"extn": " .RAW "}, os.path.join(IMPORT_CWD, "Case.RAW")),
    ("_get_file_name", ("Case", "p_", "_s", ".log", "/out"), {}, "/out/p_Case_s.log"),
    ("_validate_file_extension", ("Case.RAW", ".raw"), {}, "Case.RAW"),   # its own letter case kept
    ("_validate_file_extension", ("Case.txt", ".raw"), {}, "Case.raw"),
    ("_validate_file_extension", ("Case.RAW", "raw"), {}, "Caseraw.raw"),  # doubled, then replaced
    ("_validate_file_extension", ("d/Case", " .RAW"), {}, "d/Case.raw"),
])
def test_names(vx, func, args, kwargs, expected):
    assert getattr(vx, func)(*args, **kwargs) == expected


@pytest.mark.parametrize("func, args, error", [
    ("_get_file_name", ("a", "", "", "  "), IndexError),
    ("_get_file_name", ("a", "", "", None), AttributeError),
    ("_validate_file_extension", ("a", ""), IndexError),
    ("_validate_file_extension", (None, ".raw"), TypeError),
    ("_file_PNX", (5,), TypeError),
])
def test_name_errors(vx, func, args, error):
    with pytest.raises(error):
        getattr(vx, func)(*args)


def test_folder_defaults_are_those_current_at_import(vx, tmp_path, monkeypatch, fixed_clock):
    monkeypatch.chdir(tmp_path)
    assert vx._get_file_name("a") == os.path.join(IMPORT_CWD, "a.txt")
    assert vx._get_unique_tmp_file_name("a", "") == os.path.join(IMPORT_CWD, "a_20240307_140509")
    assert os.listdir(tmp_path) == []


@pytest.mark.parametrize("name, extn, expected", [
    ("a?b|c.log", "txt", "a_b_c_20240307_140509.txt"),
    ('x\\y:"z"<1>*', ".dat", "x_y__z__1_*_20240307_140509.dat"),
    ("dir/plain", "", "plain_20240307_140509"),
])
def test_unique_name_when_the_plain_name_is_free(vx, tmp_path, fixed_clock, name, extn, expected):
    assert vx._get_unique_tmp_file_name(name, extn, str(tmp_path)) == str(tmp_path / expected)
    assert os.listdir(tmp_path) == []
    # A missing folder is neither made nor needed.
    assert vx._get_unique_tmp_file_name(name, extn, str(tmp_path / "no")) == str(tmp_path / "no" / expected)


def test_unique_name_when_the_plain_name_exists_leaves_no_file(vx, tmp_path, fixed_clock):
    (tmp_path / "a_b_20240307_140509.txt").write_text("")
    name = vx._get_unique_tmp_file_name("a:b", "txt", workdir=str(tmp_path))
    assert os.path.dirname(name) == str(tmp_path)
    assert re.fullmatch(r"a_b_20240307_140509\.txt\w+\.txt", os.path.basename(name))
    assert os.listdir(tmp_path) == ["a_b_20240307_140509.txt"]


def test_time_stamp(vx, fixed_clock):
    assert vx._get_time_stamp() == "03-07-2024 02:05:09 PM "


def test_time_stamp_of_the_real_clock(vx):
    assert re.fullmatch(r"\d\d-\d\d-\d{4} \d\d:\d\d:\d\d [AP]M ", vx._get_time_stamp())
