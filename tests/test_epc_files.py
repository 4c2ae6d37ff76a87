"""EPC files read line by line: the real files split alike on the fast and
the generic path, and the example reader reads them and its samples."""
import io
import os
import sys

import pytest

from conftest import ROOT, requires_shared_data, shared_files
from test_epc_split import outcome

sys.path.insert(0, os.path.join(ROOT, "examples"))
import read_epc  # noqa: E402


@requires_shared_data
@pytest.mark.parametrize("path", shared_files("epc", ".epc"))
def test_real_files(vx, path):
    with open(path, encoding="latin-1", newline="") as f:
        lines = f.read().splitlines()
    assert lines
    for line in lines:
        assert outcome(vx, line) == outcome(vx, line, generic=True), line
    reader = read_epc.Reader(progress=io.StringIO().write)
    reader.read_file(path)
    assert reader.groups and sum(g.read for g in reader.groups) > 0


def test_reader_on_the_bundled_samples(capsys, tmp_path):
    assert read_epc.main(["--workdir=%s" % tmp_path]) == 0
    out = capsys.readouterr().out
    for text in [
        "uneven number (1) of double quotes found.\n     'BUS' record specified on line 51 ignored.",
        "Integer Data item 'zone' not specified correctly. Input specified= 3.5\n     'BUS' record specified on line 52",
        "Float Data item 'mw' not specified correctly. Input specified= 12.5.0\n     'LOAD' record specified",
        "SVD type found is 'S'.", "SVD type found is '9'.",
        "Found semicolon on data record at position 2", "No semicolon found on data record.",
        " ------------- Reading PSLF record group: Generator [5]\n      5 records\n"
        "      (2 items '!' kept as written)\n",
        " ------------- Reading PSLF record group: Qtable [3]\n      3 records\n",
        "         records ignored : 7\n         messages        : 9\n",
        "         records ignored : 0\n         messages        : 0\n",
    ]:
        assert text in out
