"""The example readers on the bundled samples: what they read, the messages
(every one explained), the files they leave, the console and progress line."""
import codecs
import io
import os
import re
import subprocess
import sys

import pytest

from conftest import MODULE_DIR, ROOT, STANDIN

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
    r" {6}Error - Reading '[^']+', unclosed quote, (record ignored|the .*)\.\n {10}.*\n",
    r" {6}The \d lines that follow it belong to the same record and are skipped with it\.\n",
    r" {6}(Version \d+ stated in the header: .*, as --read_as asks|No version stated in the header: .*)\.\n",
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


def read(path, read_as=0):
    """The RAW reader and its record messages (headings and counts apart)."""
    messages = []
    return read_raw.RawReader(path, messages.append, lambda text: None, read_as=read_as).read(), messages


def read_pslf(path):
    messages, announced = [], []
    return read_epc.Reader(messages.append, announced.append).read_file(path), messages, announced


def test_v33_sample_records_are_typed_and_bad_ones_reported():
    reader, messages = read(os.path.join(SAMPLES, "sample_v33.raw"))
    assert reader.version == 33 and reader.end == "Q"
    assert [reader.counts[g] for g in ("bus", "load", "branch", "transformer", "facts device")] == [32, 10, 31, 2, 1]
    bus = reader.first_records["bus"][0]
    assert (bus["I"], bus["NAME"], bus["BASKV"], bus["IDE"], bus["EVLO"]) == (101, "RIVER, EAST ", 230.0, 3, 0.9)
    assert reader.first_records["facts device"][0]["OWNER"] == 0  # written 0.0: a whole number is taken
    assert [len(t["lines"]) for t in reader.first_records["transformer"]] == [3, 4]  # two, then three windings
    assert reader.ignored == [("bus", 17), ("load", 43), ("zone", 119)]
    assert messages[3] == IND + " Error - Reading 'Zone', unclosed quote, record ignored.\n%s 3,'ZONE THREE\n" % IND2
    assert unexplained(messages) == []


def test_v34_sample_system_wide_ratings_and_substations():
    reader, messages = read(os.path.join(SAMPLES, "sample_v34.raw"))
    assert reader.version == 34 and reader.end == "Q"
    assert (reader.counts["system-wide"], reader.counts["substation"], reader.counts["bus"]) == (9, 2, 32)
    assert list(reader.ratings) == [1, 2, 3]
    assert reader.system["TYSL"]["TOLTY"] == 0.00001      # "oops" falls back to the default
    block = reader.substations[1]
    assert block["id"] == {"IS": 1, "NAME": "NORTH HILL SS", "LATI": 40.12, "LONG": -105.2, "SGR": 0.1}
    assert reader.first_records["branch"][0]["NAME"] == "LINE 101-102"  # the version 34 branch layout
    assert [m.split("'")[1] for m in messages] == ["Rating", "Rating", "System-Wide", "Bus", "Load", "Load"]
    assert "RATING number 'X' not recognized, record ignored." in messages[0]
    assert unexplained(messages) == []


def test_main_reads_the_samples_into_log_and_listing_files(tmp_path, capsys, monkeypatch):
    workdir = tmp_path / "work"
    monkeypatch.setattr(read_raw, "ECHOED_SUBSTATIONS", 1)
    assert read_raw.main(["--workdir=%s" % workdir, "--console=summary", "--buses_written_back=1"]) == 0
    out = capsys.readouterr().out
    assert sorted(os.listdir(workdir)) == ["sample_v3" + v + f for v in "34" for f in ("_read.log", "_summary.txt")]
    log = (workdir / "sample_v33_read.log").read_text("utf-8")
    assert "Error - Reading 'Bus', I=10.5" in log and "Error - Reading" not in out  # messages: the log only
    assert "Reading KORA record group: Bus" in log and "Reading KORA record group: Bus" in out
    assert out.count("Bus records written back") == 2 and "102,'OAK" not in out and "as stored" not in out
    listing = (workdir / "sample_v34_summary.txt").read_text("cp1252")
    assert re.match(r"\n {6}[-0-9: ]+[AP]M sample_v34.raw: KORA RAW, version 34\n {5}Records read per group\n", listing)
    assert " load MW " in listing and "blocks as stored (the first 1 of 2):\n1, NORTH" in listing
    assert "RIVER, EAST SS" not in listing and log.endswith(" 4 messages\n")
    assert read_raw.main([str(tmp_path / "missing.raw"), "--workdir=%s" % workdir]) == 1


def test_the_progress_line_shows_on_a_terminal_only():
    for tty in (True, False):
        stream = type("Stream", (io.StringIO,), {"isatty": lambda self: tty})()
        line = vxrtool.ProgressLine(stream, 1000)
        line.update(16384, 500)
        line.clear()
        assert ("reading line 16384 (50%)" in stream.getvalue()) is tty


def test_epc_samples():
    reader, messages, announced = read_pslf(os.path.join(SAMPLES, "sample_a.epc"))
    groups = {g.name: g for g in reader.groups}
    assert (groups["bus"].read, groups["bus"].ignored, groups["load"].kept, groups["dc bus"].ignored) == (30, 2, 1, 2)
    # Not line 162: a shunt on a line, its other bus before "ck".
    assert reader.ignored == [("bus", 51), ("bus", 52), ("load", 159), ("svd", 174), ("svd", 176), ("dc bus", 191),
                              ("dc bus", 192)]
    bus = reader.first_records["bus"][0]
    assert (bus["bus"], bus["name"], bus["kv"]) == (101, "'RIVERSIDE   '", 345.0)
    assert read_epc.kora_bus_line(bus) == "   101,'RIVERSIDE   ',345.0,3,1,1,1,0.985907,0.0"
    assert unexplained(messages) == []
    reader, messages, _ = read_pslf(os.path.join(SAMPLES, "sample_b.epc"))
    assert messages == [] and sum(g.read for g in reader.groups) == 24
    # Each reader given the other's file says so, once.
    with pytest.raises(vxrtool.CannotRead, match="sample_a.epc is not a KORA RAW file: its first line .*\n.*# VXR"):
        read(os.path.join(SAMPLES, "sample_a.epc"))
    with pytest.raises(vxrtool.CannotRead, match="sample_v33.raw is not a PSLF EPC file: it has no record group"):
        read_pslf(os.path.join(SAMPLES, "sample_v33.raw"))


def unversioned(text, comment=""):  # the version left out of the header, a comment put before its own
    return re.sub(r" 3[34],(.*?)/ ", r",\1/ " + comment, text, count=1)


def changed_copy(tmp_path, sample, change):
    original, path = os.path.join(SAMPLES, sample), str(tmp_path / os.path.basename(sample))
    encoding = vxrtool.file_encoding(original)
    data = change(open(original, encoding=encoding).read())
    open(path, "wb").write(data if type(data) is bytes else data.encode(encoding))
    return path


@pytest.mark.parametrize("sample, change, refused, notices", [  # notices: how many more messages than the sample's
    ("sample_v33.raw", lambda text: text.replace(" 33,", " 26,", 1), "version 26 is not read", 1),  # unless forced
    ("sample_v33.raw", unversioned, None, 1),  # its first record shows the layout
    ("sample_v34.raw", unversioned, None, 1),
    ("sample_v33.raw", lambda text: re.sub(r"(?m)^( +1\d\d,'.*?', *\d+\.0000,\d),.*$", r"\1,,,,,,,,,",
                                           unversioned(text)), None, 1),  # bus records: the nine items after IDE empty
    ("sample_v33.raw", lambda text: unversioned(text, "KORA-33.2 "), None, 1),
    ("sample_v34.raw", lambda text: unversioned(text, "KORA-33.2 "), "comment names version 33, but its first record"
                                                                     " is not a bus record", 1),
    # UTF-16 after its byte-order mark, an impedance correction table ended by its group's "0" line
    ("sample_v34.raw", lambda t: codecs.BOM_UTF16_BE + t.replace("   0.0, 0.0, 0.0\n", "").encode("utf-16-be"),
     None, 0),
] + [(sample, lambda text: re.sub(r"(?m)^([^@/\n]+)$", r"\1 /* note */", text.replace("\nQ\n", "\n// no Q\n")), None, 0)
     for sample in ("sample_v33.raw", "sample_v34.raw")])  # "/* ... */" after the items; a "//" line, no Q line
def test_a_changed_copy_of_a_sample_reads_as_the_sample(tmp_path, sample, change, refused, notices):
    path = changed_copy(tmp_path, sample, change)
    read_as = int(sample[-6:-4]) if refused else 0  # a refused copy is read as the sample's version
    assert read_raw.main([path, "--workdir=%s" % tmp_path, "--read_as=%d" % read_as]) == 0
    if refused:
        pytest.raises(vxrtool.CannotRead, read, path).match(refused + r".* \(versions read: 34, 33, 32\); --read_as=N"
                                                                      r" reads it with the record groups of version N")
    (reader, messages), (plain, before) = read(path, read_as), read(os.path.join(SAMPLES, sample))
    assert (reader.counts, reader.ignored, len(messages)) == (plain.counts, plain.ignored, len(before) + notices)
    assert unexplained(messages) == []


@pytest.mark.parametrize("sample, change, refusal", [  # files that state no version
    ("no_version/v33_records.raw", None, None),  # its second bus record: 13 items, the last nine empty
    ("no_version/older_buses.raw", None, "its bus records have 11 items, as versions 26 to 31 write them"),
    ("no_version/comment_names_29.raw", None, "its header's comment names version 29"),  # "RAW29 (REV 30)"
    ("sample_v33.raw", lambda text: re.sub(r"(?m)^(   102,.*)$", r"\1,1", unversioned(text)),  # its second bus record
     "its bus records have 14 items, more than versions 32 to 34 write"),
    ("sample_v33.raw", lambda text: re.sub(r"(?s)\n0 / END OF LOAD.*?(?=\n0 / END OF FIXED)", "", unversioned(text)),
     "it has no fixed shunt group, as versions 23 to 31 write them: the group after its loads holds records of"
     " 20 items"),
])
def test_a_file_that_states_no_version_is_read_by_its_layout_or_refused(tmp_path, capsys, sample, change, refusal):
    path = changed_copy(tmp_path, sample, change) if change else os.path.join(SAMPLES, sample)
    status, out = read_raw.main([path, "--workdir=%s" % tmp_path]), capsys.readouterr().out
    if refusal:
        assert (status, "Reading KORA record group" in out) == (1, False)
        assert ("\n%s %s: KORA RAW file that states no version; %s. It is not read (versions read: 34, 33, 32);"
                " --read_as=N reads it with the record groups of version N.\n" % (IND, path, refusal)) in out
    else:  # as with --read_as=33, its faulty record reported
        (reader, messages), (as_33, _) = read(path), read(path, 33)
        assert (status, reader.layout, reader.counts, reader.ignored) == (0, 33, as_33.counts, [("branch", 21)])
        assert (reader.counts["bus"], len(messages), unexplained(messages)) == (6, 2, [])


def test_epc_main_on_the_samples(tmp_path, capsys):
    assert read_epc.main(["--workdir=%s" % tmp_path, "--kora_vrsn=35"]) == 0
    out = capsys.readouterr().out
    assert out.startswith(" %sKORA version 35 specified. Allowed versions:34,33,32, Set version to 34\n" % IND)
    assert sorted(os.listdir(tmp_path)) == ["sample_" + v + f for v in "ab" for f in ("_read.log", "_summary.txt")]
    for text in [
        "uneven number (1) of double quotes found.\n     'BUS' record specified on line 51 ignored.",  # as the module words it
        " ------------- Reading PSLF record group: Generator [5]\n      5 records\n      (2 items written as '!', kept",
        "      18 records\n      (1 ignored; 1 item written as '!', kept as text)\n",
        "         records ignored : 7\n         messages        : 9\n", "Bus records as KORA RAW version 34 bus lines:",
    ]:
        assert text in out


def run_example(tmp_path, sample, *options, stdout=subprocess.PIPE, **env):
    env = dict(os.environ, PYTHONPATH=os.pathsep.join([MODULE_DIR, STANDIN]), **env)
    return subprocess.run([sys.executable, os.path.join(ROOT, "examples", "read_%s.py" % sample[-3:]),
                           "--workdir=%s" % tmp_path, os.path.join(SAMPLES, sample)] + list(options),
                          env=env, stdout=stdout, stderr=subprocess.PIPE)


# Both settings poison freed memory, so that a write into it shows.  Under memcheck, which
# cannot follow the small-object allocator, the debug hooks go on malloc.
DEBUG_MALLOC = "malloc_debug" if os.environ.get("PYTHONMALLOC") == "malloc" else "debug"


@pytest.mark.parametrize("checked", [{"PYTHONDEVMODE": "1"}, {"PYTHONMALLOC": DEBUG_MALLOC}], ids=["dev", "malloc"])
@pytest.mark.parametrize("sample, encoding, shown", [  # the console's encoding; the log has the name as written
    ("sample_v33.raw", "cp1252", ("   103,'MÜNSTER     ',69.0,1\n", "MÜNSTER")),  # UTF-8 text
    ("sample_v34.raw", "ascii", ("   103,'O\\u2019NEIL TAP  ',69.0,1\n", "O’NEIL")),  # cp1252 text
    ("sample_v34.raw", "utf-8", ("   103,'O’NEIL TAP  ',69.0,1\n", "O’NEIL")),
    ("sample_a.epc", "utf-8", ("102,'ŠUMPERK     ',345.0", "ŠUMPERK")),
    ("sample_b.epc", "cp1252", ("1,'ÉCLUSE \\u0141ÓD\\u0179 ',20.0", "ÉCLUSE ŁÓDŹ")),
    ("sample_b.epc", "ascii", ("1,'\\xc9CLUSE \\u0141\\xd3D\\u0179 ',20.0", "ÉCLUSE ŁÓDŹ")),
])
def test_the_console_shows_what_it_cannot_encode_escaped(tmp_path, sample, encoding, shown, checked):
    proc = run_example(tmp_path, sample, PYTHONIOENCODING=encoding, **checked)
    out = proc.stdout.decode(encoding)
    log = (tmp_path / (sample[:-4] + "_read.log")).read_text(vxrtool.file_encoding(os.path.join(SAMPLES, sample)))
    assert (proc.returncode, proc.stderr, out.endswith("_read.log\n"), shown[0] in out, shown[1] in log) == (
        0, b"", True, True, True)


@pytest.mark.parametrize("module, sample, name, utf8", [
    (read_raw, "sample_v34.raw", "'O’NEIL TAP  '", "utf-8-sig"),
    (read_epc, "sample_a.epc", "'ŠUMPERK     '", "utf-8"),
])
def test_a_cp1252_file_and_its_utf8_copy_give_the_same_names(tmp_path, capsys, module, sample, name, utf8):
    text, seen = open(os.path.join(SAMPLES, sample), "rb").read().decode("cp1252"), []
    for encoding in ("cp1252", utf8, "utf-16"):
        folder = tmp_path / encoding
        folder.mkdir()
        (folder / sample).write_bytes(text.encode(encoding))
        assert module.main([str(folder / sample), "--workdir=%s" % folder]) == 0
        outputs = [capsys.readouterr().out] + [(folder / (sample[:-4] + end)).read_text(encoding)
                                                for end in ("_read.log", "_summary.txt")]
        assert all(name in output for output in outputs)
        seen.append([re.sub(r"\d\d-\d\d-\d{4} [\d:]+ [AP]M", "", output.replace(str(folder), "").replace(encoding, ""))
                     for output in outputs])
    assert seen[0] == seen[1] == seen[2]


def test_a_closed_console_ends_the_reading_quietly(tmp_path):
    read_end, write_end = os.pipe()
    os.close(read_end)  # `| head -1` gone before the reader writes
    with os.fdopen(write_end, "wb") as console:
        proc = run_example(tmp_path, "sample_v33.raw", stdout=console, PYTHONUNBUFFERED="1")
    log = (tmp_path / "sample_v33_read.log").read_text("utf-8")
    assert (proc.returncode, proc.stderr) == (1, b"") and "Console closed" in log and "Cannot read" not in log
