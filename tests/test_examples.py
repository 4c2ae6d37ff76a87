"""The example readers on the bundled samples and on the shared real files."""
import os
import sys

import pytest

from conftest import ROOT, requires_shared_data, shared_files

sys.path.insert(0, os.path.join(ROOT, "examples"))
import read_raw  # noqa: E402

SAMPLES = os.path.join(ROOT, "examples", "samples")
IND, IND2 = " " * 5, " " * 9


def read(path):
    messages = []
    return read_raw.RawReader(path, messages.append).read(), messages


def test_v33_sample(progress):
    reader, messages = read(os.path.join(SAMPLES, "sample_v33.raw"))
    assert reader.version == 33 and reader.end == "Q"
    assert (reader.counts["bus"], reader.counts["load"], reader.counts["branch"], reader.counts["transformer"]) == (32, 10, 31, 2)
    assert len(reader.counts) == 19
    assert [m.split("\n")[0] for m in messages] == [
        " %sError - Reading 'Bus', I=10.5, integer value required, record ignored." % IND,
        " %sError - Reading 'Load', data item 'I' not provided, record ignored." % IND,
        " %sError - Reading 'Load', I=, integer value required, record ignored." % IND,
        " %sError reading line: 3,'ZONE THREE, record ignored." % IND,
    ]


def test_v34_sample():
    reader, messages = read(os.path.join(SAMPLES, "sample_v34.raw"))
    assert reader.version == 34 and reader.end == "Q"
    assert (reader.counts["system-wide"], reader.counts["substation"], reader.counts["bus"]) == (9, 2, 32)
    assert list(reader.ratings) == [1, 2, 3]
    assert reader.ratings[3] == {"NUM": 3, "NAME": "RATE3", "DESC": ""}
    assert reader.system["TYSL"]["TOLTY"] == 0.00001      # "oops" falls back to the default
    assert reader.system["NEWTON"]["ITMXN"] == 20
    assert [len(b["term"]) for b in reader.substations.values()] == [3, 3]
    assert [m.split("\n")[0].strip() for m in messages] == [
        "Error - Reading 'Rating', RATING number 'X' not recognized, record ignored.",
        "Error - Reading 'Rating', RATING number not provided, record ignored.",
        "Error - Reading 'System-Wide', record ignored.",
        "Error - Reading 'Bus', I=10.5, integer value required, record ignored.",
        "Error - Reading 'Load', data item 'I' not provided, record ignored.",
        "Error - Reading 'Load', I=, integer value required, record ignored.",
    ]


@requires_shared_data
@pytest.mark.parametrize("path", shared_files("raw", ".raw"), ids=os.path.basename)
def test_reader_reads_every_shared_raw_file(path):
    reader, messages = read(path)
    assert reader.counts.get("bus", 0) > 0 or os.path.getsize(path) < 1000
