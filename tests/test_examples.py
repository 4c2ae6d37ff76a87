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
    """The reader and its messages: the record errors apart from the group
    headings and counts."""
    messages = []
    reader = read_raw.RawReader(path, messages.append).read()
    headings = [m for m in messages if m.startswith(" ------------- Reading KORA record group: ")]
    counts = [m for m in messages if m.strip().endswith(("record", "records")) and m.startswith(" " * 6)]
    reader.headings, reader.count_lines = headings, counts
    return reader, [m for m in messages if m not in headings and m not in counts]


def test_v33_sample(progress):
    reader, messages = read(os.path.join(SAMPLES, "sample_v33.raw"))
    assert reader.version == 33 and reader.end == "Q"
    assert (reader.counts["bus"], reader.counts["load"], reader.counts["branch"], reader.counts["transformer"]) == (32, 10, 31, 2)
    assert len(reader.counts) == 19 == len(reader.headings) == len(reader.count_lines)
    assert reader.headings[5] == " ------------- Reading KORA record group: Transformer\n"
    assert reader.count_lines[5] == " " * 6 + "2 records\n"
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


def test_report_lists_writes_back_and_leaves_one_file(tmp_path, capsys):
    options = read_raw.vx._get_arguments_as_attr(read_raw.OPTIONS, {"workdir": str(tmp_path / "out")})
    out = []
    reader, _ = read(os.path.join(SAMPLES, "sample_v34.raw"))
    read_raw.report(reader, options, out.append)
    text = "".join(out)
    assert os.listdir(str(tmp_path / "out")) == ["sample_v34_summary.txt"]
    listing = open(str(tmp_path / "out" / "sample_v34_summary.txt")).read()
    assert listing.startswith(IND + "Records read per group in sample_v34.raw\n")
    assert listing in text.replace("Records read per group\n", "Records read per group in sample_v34.raw\n")
    assert "101, 2, 2, 102, 1 \n" in out                      # a substation terminal echoed
    assert " %s   101,'RIVER, EAST ',230.0,3\n" % IND2 in out  # field text written back
    assert capsys.readouterr().out == ""                       # everything went through progress


def test_unsupported_version_is_read_as_the_newest(capsys):
    reader, _ = read(os.path.join(SAMPLES, "sample_v33.raw"))
    assert capsys.readouterr().out == ""
    assert reader.version == 33


@requires_shared_data
@pytest.mark.parametrize("path", shared_files("raw", ".raw"), ids=os.path.basename)
def test_reader_reads_every_shared_raw_file(path, capsys):
    reader, messages = read(path)
    assert reader.counts.get("bus", 0) > 0 or os.path.getsize(path) < 1000
    notice = capsys.readouterr().out
    if reader.stated_version not in (32, 33, 34):
        assert "KORA version %s specified. Allowed versions:34,33,32, Set version to 34" % reader.stated_version in notice
