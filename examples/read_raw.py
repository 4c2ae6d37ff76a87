"""Reads a KORA RAW file with vxrcomn, line by line, the way a VXR conversion
tool reads one: header, then each record group up to its "0" line, until the
"Q" line.  Reports each group's record count and every message the module
sends.

    python examples/read_raw.py [FILE.raw ...]

Without a file name it reads the bundled samples.
"""
import collections
import glob
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
try:
    import winreg  # noqa: F401  (vxrcomn imports it, as on Windows)
except ImportError:
    sys.path.insert(0, os.path.join(ROOT, "standin"))
if ROOT not in sys.path:
    sys.path.insert(0, ROOT)

import vxrcomn as vx  # noqa: E402

Group = collections.namedtuple("Group", "name first_name first_type shape")


def group(name, shape="one", first_name="I", first_type="int"):
    return Group(name, first_name, first_type, shape)


# Record groups in file order.  Shapes: "one" line a record, "three" lines,
# "transformer" (four lines, five for three windings), "mtdc" (a header and
# its converter, bus and link lines), "zcorr" (table rows up to the row that
# ends the table), "system" (key=value and rating records) and "substation"
# (blocks with node, switching device and terminal sub-groups).
BODY = [
    group("area"), group("two-terminal dc", "three", "NAME", "str"), group("vsc dc line", "three", "NAME", "str"),
]
TAIL = [
    group("multi-terminal dc", "mtdc", "NAME", "str"), group("multi-section line"), group("zone"),
    group("inter-area transfer", first_name="ARFROM"), group("owner"), group("facts device", first_name="NAME", first_type="str"),
    group("switched shunt"), group("gne device", first_name="NAME", first_type="str"), group("induction machine"),
]
GROUPS = {
    32: [group("bus"), group("load"), group("fixed shunt"), group("generator"), group("branch"),
         group("transformer", "transformer")] + BODY + [group("impedance correction")] + TAIL,
    34: [group("system-wide", "system"), group("bus"), group("load"), group("fixed shunt"), group("generator"),
         group("branch"), group("system switching device"), group("transformer", "transformer")]
        + BODY + [group("impedance correction", "zcorr")] + TAIL + [group("substation", "substation")],
}
GROUPS[33] = GROUPS[32]

# Format dictionaries of the system-wide key=value records and of ratings.
def fields(*specs):
    return collections.OrderedDict((name, {"defval": default, "type": kind}) for name, default, kind in specs)


SYSTEM_FORMATS = {
    "GENERAL": fields(("THRSHZ", 0.0001, "float"), ("PQBRAK", 0.7, "float"), ("BLOWUP", 5.0, "float")),
    "GAUSS": fields(("ITMX", 100, "int"), ("ACCP", 1.6, "float"), ("ACCQ", 1.6, "float"), ("ACCM", 1.0, "float"),
                    ("TOL", 0.0001, "float")),
    "NEWTON": fields(("ITMXN", 20, "int"), ("ACCN", 1.0, "float"), ("TOLN", 0.1, "float"), ("VCTOLQ", 0.1, "float"),
                     ("VCTOLV", 0.00001, "float"), ("DVLIM", 0.99, "float"), ("NDVFCT", 0.99, "float")),
    "ADJUST": fields(("ADJTHR", 0.005, "float"), ("ACCTAP", 1.0, "float"), ("TAPLIM", 0.05, "float"),
                     ("SWVBND", 100.0, "float"), ("MXTPSS", 99, "int"), ("MXSWIM", 10, "int")),
    "TYSL": fields(("ITMXTY", 20, "int"), ("ACCTY", 1.0, "float"), ("TOLTY", 0.00001, "float")),
    "SOLVER": fields(("ACTAPS", 0, "int"), ("AREAIN", 0, "int"), ("PHSHFT", 0, "int"), ("DCTAPS", 1, "int"),
                     ("SWSHNT", 1, "int"), ("FLATST", 0, "int"), ("VARLIM", 99, "int"), ("NONDIV", 0, "int")),
}
RATING_FORMAT = fields(("NUM", 0, "int"), ("NAME", "", "str"), ("DESC", "", "str"))


class RawReader:
    """One pass over a RAW file; `progress` receives every message."""

    def __init__(self, path, progress):
        self.path = path
        self.progress = progress
        self.counts = collections.OrderedDict()
        self.version = None
        self.system = collections.OrderedDict()
        self.ratings = collections.OrderedDict()
        self.substations = collections.OrderedDict()
        self.first_records = collections.defaultdict(list)  # a few item lists per group
        self.end = "eof"

    # -- lines ---------------------------------------------------------------
    def next_line(self):
        """The next line that is neither blank nor a comment, or None at the
        end of the file."""
        while True:
            line = self.file.readline()
            eof, blank = vx._check_eof_blank_line_kora(line)
            if eof:
                return None
            if not blank:
                return line

    def read(self):
        with open(self.path, encoding="latin-1") as self.file:
            self.read_header()
            groups = GROUPS[self.version]
            for number in range(10 ** 6):
                spec = groups[number] if number < len(groups) else group("group %d" % (number + 1))
                self.end = self.read_group(spec)
                if self.end != "0":
                    break
        return self

    def read_header(self):
        first = self.next_line() or ""  # "@!" column headings may come first
        items = vx._split_textline_kora(first)
        self.stated_version = int(items[2]) if len(items) > 2 and items[2].isdigit() else None
        # A version the module does not support is read as the newest one,
        # with the module's notice.
        self.version = vx._check_kora_version(self.stated_version)
        self.titles = [self.file.readline().rstrip("\n"), self.file.readline().rstrip("\n")]

    # -- groups --------------------------------------------------------------
    def read_group(self, spec):
        """Reads one record group; returns "0" at its end line, "Q" at the
        end of data, "eof" at the end of the file."""
        count = 0
        announced = False
        while True:
            line = self.next_line()
            if not announced and line is not None and not is_data_end(line):
                vx._recgrp_name_prgmsg(spec.name, self.progress)  # not for a group the data ends before
                announced = True
            end = "eof" if line is None else self.system_record(line) if spec.shape == "system" else self.record(spec, line)
            if end is not None:
                if announced:
                    vx._recgrp_name_prgmsg_numrecs(count, self.progress)
                    self.counts[spec.name] = count
                return end
            count += self.last_ok

    def split_first(self, recgrp, line, first_name="I", first_type="int"):
        """(end, vlist): end is "Q", "0" or None for a data record; vlist is
        None for a record the module refused."""
        try:
            found_q, error, first, vlist = vx._split_txtline_to_values_kora(
                recgrp, line, first_name, first_type, self.progress)
        except Exception as e:  # a line the tokenizer cannot read, e.g. an unclosed quote
            self.progress(" %s%s, record ignored.\n" % (vx._PRG_INDENT, e))
            return None, None
        if found_q:
            return "Q", vlist
        if error:
            return None, None
        if first == 0:
            return "0", vlist
        return None, vlist

    def record(self, spec, line):
        self.last_ok = 0
        end, vlist = self.split_first(spec.name, line, spec.first_name, spec.first_type)
        if end is not None or vlist is None:
            return end
        if len(self.first_records[spec.name]) < 3:
            self.first_records[spec.name].append(vlist)
        if spec.shape == "three":
            self.continuation(2)
        elif spec.shape == "transformer":
            three_windings = len(vlist) > 2 and vlist[2].strip() not in ("0", "_ifc")
            self.continuation(4 if three_windings else 3)
        elif spec.shape == "mtdc":
            self.continuation(sum(int(v) for v in vlist[1:4]))
        elif spec.shape == "zcorr":
            self.correction_table(vlist[1:])
        elif spec.shape == "substation":
            self.substation_block(vlist)
        self.last_ok = 1
        return None

    def continuation(self, lines):
        for _ in range(lines):
            line = self.next_line()
            if line is not None:
                vx._split_textline_kora(line)

    def correction_table(self, first_row):
        endtbl, values = vx._check_zcorec_table_kora(first_row)
        while not endtbl:
            line = self.next_line()
            if line is None:
                return
            endtbl, values = vx._check_zcorec_table_kora(vx._split_textline_kora(line))
            if not values:  # a row that is not all numbers ends nothing; stop here
                return

    def system_record(self, line):
        self.last_ok = 0
        found_q, error, first, vlist = vx._split_textline_kora_keyvalue_pair("system-wide", line, self.progress)
        if found_q:
            return "Q"
        if error:
            return None
        if first == 0:
            return "0"
        word = first.upper()
        if word == "RATING":
            number, rating = vx._list_of_ratings_items_to_dict_kora("rating", vlist[1:], RATING_FORMAT, line,
                                                                      self.progress)
            if number is None:
                return None
            self.ratings[number] = rating
        elif word in SYSTEM_FORMATS:
            pairs = [item for item in vlist[1:] if "=" in item]  # the solver method item has no name
            self.system[word] = vx._list_of_key_value_pairs_to_dict_kora(pairs, SYSTEM_FORMATS[word])
        else:
            self.progress(" %sUnknown system-wide record '%s' ignored.\n" % (vx._PRG_INDENT, first))
            return None
        self.last_ok = 1
        return None

    def substation_block(self, vlist):
        """The substation record in vlist, then its node, switching device
        and terminal sub-groups, each ended by its "0" line."""
        number = int(vlist[0])
        block = collections.OrderedDict()
        block["id"] = {"IS": number, "NAME": vlist[1], "LATI": float(vlist[2]), "LONG": float(vlist[3]),
                       "SGR": float(vlist[4])}
        block["node"], block["swd"], block["term"] = [], [], []
        for kind, recgrp in (("node", "substation node"), ("swd", "substation switching device"),
                             ("term", "substation terminal")):
            while True:
                line = self.next_line()
                if line is None:
                    break
                end, items = self.split_first(recgrp, line, "I" if kind == "term" else "NI")
                if end is not None:
                    break
                if items is not None:
                    block[kind].append(substation_record(kind, items))
        self.substations[number] = block


def is_data_end(line):
    """The "Q" line that ends the data (an unreadable line is not)."""
    try:
        return vx._split_txtline_to_values_kora_no_check_00(line)[0]
    except Exception:
        return False


def substation_record(kind, v):
    if kind == "node":
        return {"NI": int(v[0]), "NAME": v[1], "I": int(v[2]), "STAT": int(v[3])}
    if kind == "swd":
        return {"NI": int(v[0]), "NJ": int(v[1]), "ID": v[2], "NAME": v[3], "SWDTYP": int(v[4]), "STAT": int(v[5]),
                "NSTAT": int(v[6]), "X": float(v[7]), "RATE1": float(v[8]), "RATE2": float(v[9]),
                "RATE3": float(v[10])}
    record = {"I": int(v[0]), "NI": int(v[1]), "TERTYP": v[2], "ID": v[-1]}
    if v[2] in ("2", "3"):
        record["J"] = int(v[3])
    if v[2] == "3":
        record["K"] = int(v[4])
    return record


OPTIONS = {
    "workdir": os.path.join(ROOT, "build", "demo"),
    "listing": {"value": "console", "allowed": ("console", "none")},
    "buses_written_back": 3,
}


def write_back(reader, progress):
    """A few bus records written back as RAW field text."""
    progress(" %sBus records written back:\n" % vx._PRG_INDENT)
    for items in reader.first_records["bus"]:
        number, name, basekv, kind = items[:4]
        fields = ["%6d" % int(number), vx._get_sized_string(name, 12), vx._convert_float_to_string(float(basekv)),
                  kind]
        progress(" %s%s\n" % (vx._PRG_INDENT2, ",".join(fields)))


def report(reader, options, progress):
    name = os.path.basename(reader.path)
    progress("\n %s%s%s: KORA RAW version %s (stated %s)\n"
             % (vx._PRG_INDENT, vx._get_time_stamp(), name, reader.version, reader.stated_version))
    summary = collections.OrderedDict((group, count) for group, count in reader.counts.items() if count)
    summary["data ended by"] = {"Q": "the Q line", "0": "the last group", "eof": "the end of the file"}[reader.end]
    if options.listing == "console":
        vx._print_dict("Records read per group", summary, progress)
    listing = vx._get_file_name(name, suffix="_summary", path=options.workdir)
    vx._print_dict_to_file("Records read per group in %s" % name, summary, listing)
    progress(" %sListing written to %s\n" % (vx._PRG_INDENT, vx._file_PNX(listing)[1]))
    generators = [int(items[0]) for items in reader.first_records["generator"]]
    if generators:
        vx._progress_message_format_print(" First generator buses:\n", generators, "int", fmtsz=vx._LEN_BUSNUM,
                                          progress=progress)
    if reader.substations:
        progress(" %sSubstation blocks as stored:" % vx._PRG_INDENT)
        vx._print_kora_substation_block_data_as_stored(reader.substations, progress)
    write_back(reader, progress)


def main(argv=None, **kwds):
    paths = list(argv if argv is not None else sys.argv[1:])
    if not paths:
        paths = sorted(glob.glob(os.path.join(HERE, "samples", "*.raw")))
    options = vx._get_arguments_as_attr(OPTIONS, kwds)  # creates the work folder when missing
    for path in paths:
        sys.stdout.write("\n==== %s\n" % path)
        reader = RawReader(path, sys.stdout.write).read()
        report(reader, options, sys.stdout.write)
    return 0


if __name__ == "__main__":
    sys.exit(main())
