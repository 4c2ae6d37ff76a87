"""The example readers on the bundled samples and on the shared real files:
what they read, the messages they give (every one explained), the files
they leave and the progress line."""
import io
import os
import re
import subprocess
import sys

import pytest

from conftest import MODULE_DIR, ROOT, STANDIN, requires_shared_data, shared_files

sys.path.insert(0, os.path.join(ROOT, "examples"))
import read_epc  # noqa: E402
import read_raw  # noqa: E402
import vxrtool  # noqa: E402

vx = read_raw.vx
SAMPLES = os.path.join(ROOT, "examples", "samples")
IND, IND2 = " " * 5, " " * 9

# Every message a reader may give, the module's and the readers' own: a
# message that matches none of these is unexplained.
EXPLAINED = [re.compile(p) for p in (
    r" {6}Error - Reading '[^']+', (data item '\w+' not provided|\w*=.*, (integer|float) value required"
    r"|RATING number ('.*' not recognized|not provided)), record ignored\.\n {10}.*\n?",
    r" {6}Error - Reading '[^']+', record ignored\.\n {10}.*\n?",
    r" {6}Error - Reading '[^']+', Error reading line: .*, record ignored\.\n",
    r" {6}The \d lines that follow it belong to the same record and are skipped with it\.\n",
    r" {6}KORA version \S+ specified\. Allowed versions:34,33,32, Set version to 34\n",
    r"\n",  # print's own line end after the version notice
    r" {6}No system-wide data: the first record is a bus record, .*\n",
    r" {6}\d+ more lines? after the Q line, which ends the data, not read\.\n",
    r" (Integer|Float) Data item '\w+' not specified correctly\. Input specified= .*\n {5}'[A-Z ]+' record specified"
    r" on line \d+ ignored\.\n",
    r" Character Data items not specified correctly using double quotes, .*\n {5}'[A-Z ]+' record .* ignored\.\n",
    r" SVD type found is '.*'\. It should be between 0 through 7\.\n {5}'SVD' record .* ignored\.\n",
    r" Checking DC Bus Data format:\n {4}(Found semicolon .* position \d+, it is not correct|No semicolon found"
    r" on data record)\.\n",
    r" {6}'DC BUS' record specified on line \d+ ignored\.\n",
    r" {6}\(Line \d+ has no ':' separator: most likely the rest of the record before it, .*\)\n",
)]


def unexplained(messages):
    return [m for m in messages if not any(p.fullmatch(m) for p in EXPLAINED)]


def read(path):
    """The RAW reader with its record messages apart from the headings and
    counts."""
    messages, announced = [], []
    reader = read_raw.RawReader(path, messages.append, announced.append).read()
    reader.headings = [m for m in announced if m.startswith(" ------------- Reading KORA record group: ")]
    reader.count_lines = [m for m in announced if m not in reader.headings]
    return reader, messages


def read_pslf(path):
    messages, announced = [], []
    reader = read_epc.Reader(messages.append, announced.append).read_file(path)
    return reader, messages, announced


def test_v33_sample_records_are_typed_and_bad_ones_reported():
    reader, messages = read(os.path.join(SAMPLES, "sample_v33.raw"))
    assert reader.version == 33 and reader.end == "Q"
    assert [reader.counts[g] for g in ("bus", "load", "branch", "transformer", "facts device")] == [32, 10, 31, 2, 1]
    assert len(reader.counts) == 19 == len(reader.headings) == len(reader.count_lines)
    assert reader.headings[5] == " ------------- Reading KORA record group: Transformer\n"
    assert reader.count_lines[5] == " " * 6 + "2 records\n"
    bus = reader.first_records["bus"][0]
    assert (bus["I"], bus["NAME"], bus["BASKV"], bus["IDE"], bus["EVLO"]) == (101, "RIVER, EAST ", 230.0, 3, 0.9)
    assert [type(bus[k]) for k in ("I", "NAME", "VM")] == [int, str, float]
    assert reader.first_records["facts device"][0]["OWNER"] == 0  # written 0.0: a whole number is taken
    assert [len(t["lines"]) for t in reader.first_records["transformer"]] == [3, 4]  # two, then three windings
    assert reader.ignored == [("bus", 17), ("load", 43), ("zone", 119)]
    assert [m.split("\n")[0] for m in messages] == [
        " %sError - Reading 'Bus', I=10.5, integer value required, record ignored." % IND,
        " %sError - Reading 'Load', data item 'I' not provided, record ignored." % IND,
        " %sError - Reading 'Load', I=, integer value required, record ignored." % IND,
        " %sError - Reading 'Zone', Error reading line: 3,'ZONE THREE, record ignored." % IND,
    ]
    assert unexplained(messages) == []


def test_v34_sample_system_wide_ratings_and_substations():
    reader, messages = read(os.path.join(SAMPLES, "sample_v34.raw"))
    assert reader.version == 34 and reader.end == "Q"
    assert (reader.counts["system-wide"], reader.counts["substation"], reader.counts["bus"]) == (9, 2, 32)
    assert list(reader.ratings) == [1, 2, 3]
    assert reader.ratings[3] == {"NUM": 3, "NAME": "RATE3", "DESC": ""}
    assert reader.system["TYSL"]["TOLTY"] == 0.00001      # "oops" falls back to the default
    assert reader.system["NEWTON"]["ITMXN"] == 20
    block = reader.substations[1]
    assert block["id"] == {"IS": 1, "NAME": "NORTH HILL SS", "LATI": 40.12, "LONG": -105.2, "SGR": 0.1}
    assert [t["TERTYP"] for t in block["term"]] == ["L", "2", "M"] and block["term"][1]["J"] == 102
    assert reader.first_records["branch"][0]["NAME"] == "LINE 101-102"  # the version 34 branch layout
    assert [m.split("\n")[0].strip() for m in messages] == [
        "Error - Reading 'Rating', RATING number 'X' not recognized, record ignored.",
        "Error - Reading 'Rating', RATING number not provided, record ignored.",
        "Error - Reading 'System-Wide', record ignored.",
        "Error - Reading 'Bus', I=10.5, integer value required, record ignored.",
        "Error - Reading 'Load', data item 'I' not provided, record ignored.",
        "Error - Reading 'Load', I=, integer value required, record ignored.",
    ]
    assert unexplained(messages) == []


@pytest.mark.parametrize("items, expected, message", [
    (["7", "_ifc", "1.5"], {"I": 7, "NAME": "", "BASKV": 1.5, "IDE": 1}, None),
    (["7", "A", "1.5", "2.0"], {"I": 7, "NAME": "A", "BASKV": 1.5, "IDE": 2}, None),
    (["7", "A", "1.5", "2.5"], None, "IDE=2.5, integer value required"),
    (["7", "A", "kV"], None, "BASKV=kV, float value required"),
])
def test_typing_through_a_format_dictionary(items, expected, message):
    messages = []
    typer = read_raw.Typer("bus", read_raw.layout("I:i NAME:s BASKV:f IDE:i=1"))
    assert typer(items, "the line\n", messages.append) == expected
    assert messages == ([] if message is None else
                        [" %sError - Reading 'Bus', %s, record ignored.\n %sthe line\n" % (IND, message, IND2)])


def test_a_file_without_version_or_system_wide_data_is_read_as_version_33(tmp_path):
    path = tmp_path / "old.raw"
    path.write_text("0, 100.0\nTITLE\n\n1,'A',230.0\n2,'B',230.0\n0 / END OF BUS DATA\n3,'1',1,1,1,5.0,1.0\n0\nQ\n"
                    "after\n")
    reader, messages = read(str(path))
    assert (reader.version, reader.layout, reader.counts["bus"], reader.counts["load"]) == (34, 33, 2, 1)
    assert unexplained(messages) == [] and len(messages) == 4  # notice, print's "\n", layout, line after Q


def test_report_lists_writes_back_and_leaves_one_file(tmp_path, capsys):
    options = vx._get_arguments_as_attr(read_raw.OPTIONS, {"workdir": str(tmp_path / "out")})
    out = []
    reader, _ = read(os.path.join(SAMPLES, "sample_v34.raw"))
    read_raw.report(reader, options, out.append)
    text = "".join(out)
    assert os.listdir(str(tmp_path / "out")) == ["sample_v34_summary.txt"]
    listing = open(str(tmp_path / "out" / "sample_v34_summary.txt")).read()
    assert listing.startswith(IND + "Records read per group in sample_v34.raw\n")
    assert listing in text.replace("Records read per group\n", "Records read per group in sample_v34.raw\n")
    assert re.search(r"\n {9}load MW +: \d+\.\d\n", listing)
    assert "101, 2, 2, 102, 1 \n" in out                      # a substation terminal echoed
    assert " %s   101,'RIVER, EAST ',230.0,3\n" % IND2 in out  # field text written back
    assert capsys.readouterr().out == ""                       # everything went through progress


def test_main_reads_the_samples_into_log_and_listing_files(tmp_path, capsys):
    workdir = tmp_path / "work"
    assert read_raw.main(["--workdir=%s" % workdir, "--console=summary", "--buses_written_back=1"]) == 0
    out = capsys.readouterr().out
    assert sorted(os.listdir(str(workdir))) == ["sample_v33_read.log", "sample_v33_summary.txt",
                                                 "sample_v34_read.log", "sample_v34_summary.txt"]
    log = (workdir / "sample_v33_read.log").read_text()
    assert "Error - Reading 'Bus', I=10.5" in log and "Error - Reading" not in out  # messages: the log only
    assert "Reading KORA record group: Bus" in log and "Reading KORA record group: Bus" in out
    assert out.count("Bus records written back") == 2 and "102,'OAK" not in out
    assert read_raw.main([str(tmp_path / "missing.raw"), "--workdir=%s" % workdir]) == 1


def test_the_progress_line_shows_on_a_terminal_only():
    class Terminal(io.StringIO):
        def isatty(self):
            return True

    for stream, shown in ((Terminal(), True), (io.StringIO(), False)):
        line = vxrtool.ProgressLine(stream, 1000)
        line.update(16384, 500)
        line.clear()
        assert ("reading line 16384 (50%)" in stream.getvalue()) is shown


def test_options_from_the_command_line_take_the_types_of_their_defaults(capsys):
    files, kwds = vxrtool.command_line(["a.epc", "--kora-vrsn=33.0", "--colour=red", "--pslf_vrsn=20"],
                                       read_epc.OPTIONS, "")
    options = vx._get_arguments_as_attr(read_epc.OPTIONS, kwds)
    assert files == ["a.epc"] and "unknown option --colour ignored" in capsys.readouterr().err
    assert (options.kora_vrsn, options.pslf_vrsn) == (33.0, 21)  # 20 is not allowed: the default
    with vxrtool.print_notices(lambda text: None):
        assert vx._check_kora_version(options.kora_vrsn) == 33


def test_epc_samples():
    reader, messages, announced = read_pslf(os.path.join(SAMPLES, "sample_a.epc"))
    groups = {g.name: g for g in reader.groups}
    assert (groups["bus"].read, groups["bus"].ignored, groups["load"].kept, groups["dc bus"].ignored) == (30, 2, 1, 2)
    assert reader.ignored == [("bus", 51), ("bus", 52), ("load", 159), ("svd", 174), ("svd", 176), ("dc bus", 191),
                              ("dc bus", 192)]
    bus = reader.first_records["bus"][0]
    assert (bus["bus"], bus["name"], bus["kv"]) == (101, "'RIVERSIDE   '", 345.0)
    assert read_epc.kora_bus_line(bus) == "   101,'RIVERSIDE   ',345.0,3,1,1,1,0.985907,0.0"
    assert announced[:2] == [" ------------- Reading PSLF record group: Bus [32]\n", " " * 6 + "30 records\n"]
    assert unexplained(messages) == []
    reader, messages, _ = read_pslf(os.path.join(SAMPLES, "sample_b.epc"))
    assert messages == [] and sum(g.read for g in reader.groups) == 24


def test_epc_main_checks_the_kora_version(tmp_path, capsys):
    assert read_epc.main(["--workdir=%s" % tmp_path, "--kora_vrsn=35",
                          os.path.join(SAMPLES, "sample_b.epc")]) == 0
    out = capsys.readouterr().out
    assert out.startswith(" %sKORA version 35 specified. Allowed versions:34,33,32, Set version to 34\n" % IND)
    assert "Bus records as KORA RAW version 34 bus lines:" in out
    assert sorted(os.listdir(str(tmp_path))) == ["sample_b_read.log", "sample_b_summary.txt"]


@requires_shared_data
@pytest.mark.parametrize("path", shared_files("raw", ".raw"), ids=os.path.basename)
def test_raw_reader_explains_every_message_on_the_shared_files(path):
    reader, messages = read(path)
    assert reader.counts.get("bus", 0) > 0 or os.path.getsize(path) < 1000
    assert unexplained(messages) == []
    if reader.stated_version not in (32, 33, 34):
        assert "KORA version %s specified. Allowed versions:34,33,32, Set version to 34\n" % reader.stated_version \
            in messages[0]


@requires_shared_data
@pytest.mark.parametrize("path", shared_files("epc", ".epc"), ids=os.path.basename)
def test_epc_reader_explains_every_message_on_the_shared_files(path):
    reader, messages, announced = read_pslf(path)
    assert reader.groups and reader.groups[0].name == "bus" and reader.groups[0].read > 0
    assert unexplained(messages) == []
    for group in reader.groups:
        if group.records != group.declared:  # a heading whose count the file does not keep is said so
            assert any("the heading says %d, the group holds %d" % (group.declared, group.records) in m
                       for m in announced)


@pytest.mark.parametrize("sample, encoding, shown, logged", [  # UTF-8 names; RAW text is read as latin-1
    ("sample_v33.raw", "cp1252", "   103,'MÃ\\x9cNSTER    ',69.0,1\n", "   103,'MÃ\x9cNSTER    ',69.0,1\n"),
    ("sample_b.epc", "cp1252", "1,'ÉCLUSE \\u0141ÓD\\u0179 ',20.0", "1,'ÉCLUSE ŁÓDŹ ',20.0"),
    ("sample_b.epc", "ascii", "1,'\\xc9CLUSE \\u0141\\xd3D\\u0179 ',20.0", "1,'ÉCLUSE ŁÓDŹ ',20.0"),
])
def test_the_console_shows_what_it_cannot_encode_escaped(tmp_path, sample, encoding, shown, logged):
    env = dict(os.environ, PYTHONIOENCODING=encoding, PYTHONPATH=os.pathsep.join([MODULE_DIR, STANDIN]))
    proc = subprocess.run([sys.executable, os.path.join(ROOT, "examples", "read_%s.py" % sample[-3:]),
                           "--workdir=%s" % tmp_path, os.path.join(SAMPLES, sample)], env=env, capture_output=True)
    out, log = proc.stdout.decode(encoding), (tmp_path / (sample[:-4] + "_read.log")).read_text("utf-8")
    assert (proc.returncode, proc.stderr, out.endswith("_read.log\n")) == (0, b"", True)
    assert shown in out and logged in log
