"""The real files of ../shared/data (when present): every line split as the
baseline splits it, on both paths; each file read, every message explained,
and refused by the other format's reader."""
import os

import pytest

from conftest import shared_files
from test_docs import readme_code
from test_examples import read, read_pslf, unexplained, vxrtool
from test_fuzz import same, values

@pytest.mark.parametrize("path", shared_files(), ids=os.path.basename)
def test_shared_file(vx, path):
    with open(path, encoding=vxrtool.file_encoding(path), newline="") as f:
        lines = f.read().splitlines(True)
    if path.lower().endswith(".raw"):
        for line in lines:
            same("_split_txtline_to_values_kora", "bus", line, "I", "int", print)
        try:
            reader, messages = read(path)
        except vxrtool.CannotRead as e:  # a version the reader does not read, unless forced
            assert "KORA RAW version" in str(e)  # those that state none are all read
            reader, messages = read(path, read_as=34)
        assert reader.counts.get("bus", 0) > 0 or len(lines) < 30
        if reader.stated_version is not None:  # the README's Usage example reads the same buses
            assert len(readme_code()["read_buses"](path)) == reader.counts.get("bus", 0)
    else:
        for line in lines:
            assert values(line.rstrip("\r\n")) == values(line.rstrip("\r\n"), generic=True), line
        reader, messages, announced = read_pslf(path)
        assert reader.groups[0].name == "bus" and reader.groups[0].read > 0
        for group in reader.groups:  # a heading whose count the file does not keep is said so
            assert group.records == group.declared or any(
                "the heading says %d, the group holds %d" % (group.declared, group.records) in m for m in announced)
    assert unexplained(messages) == []
    pytest.raises(vxrtool.CannotRead, read if path.lower().endswith(".epc") else read_pslf, path)  # the other reader
