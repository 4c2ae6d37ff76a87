"""Reads KORA RAW files with vxrcomn, line by line, the way a VXR conversion
tool reads one: the header and its version (where it states none, the
layout the file shows), then each record group up to its "0" line, until
the "Q" line.  Every record is typed through its group's
format dictionary; bad records are reported with the module's messages and
skipped.  Each group is announced and closed with its record count; the
report (records per group, records ignored, the first substation blocks, the
first bus records written back) goes to the console and to a listing file,
and every message to a log file as well.

    python examples/read_raw.py [--name=value ...] [FILE.raw ...]

Without a file name it reads the bundled samples; --help lists the options.
"""
import collections
import glob
import itertools
import os
import re
import sys

import vxrtool
from vxrtool import (SAMPLES, CannotRead, command_line, file_encoding, input_lines, plural, read_all, read_with_log,
                     run, vx)

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


def fields(*specs):
    """A format dictionary, as the module's dictionary readers take it:
    name -> {"defval": default, "type": "int" | "float" | "str"}."""
    return collections.OrderedDict((name, {"defval": default, "type": kind}) for name, default, kind in specs)


def layout(text):
    """A format dictionary from "NAME:t" words, t one of i, f, s, with an
    optional "=default" (else 0, 0.0 or the empty string)."""
    kinds = {"i": ("int", int), "f": ("float", float), "s": ("str", str)}
    specs = []
    for word in text.split():
        name, _, rest = word.partition(":")
        kind, _, default = rest.partition("=")
        type_word, convert = kinds[kind]
        specs.append((name, convert(default) if default else convert(), type_word))
    return fields(*specs)


OWNERS = " O1:i=1 F1:f=1 O2:i F2:f O3:i F3:f O4:i F4:f"
RATES12 = " ".join("RATE%d:f" % k for k in range(1, 13))
# The first line of each group's records (version 33; 32 files leave the
# last items out, which then take their defaults).
FORMATS = {
    "bus": layout("I:i NAME:s BASKV:f IDE:i=1 AREA:i=1 ZONE:i=1 OWNER:i=1 VM:f=1 VA:f NVHI:f=1.1 NVLO:f=0.9"
                  " EVHI:f=1.1 EVLO:f=0.9"),
    "load": layout("I:i ID:s=1 STATUS:i=1 AREA:i ZONE:i PL:f QL:f IP:f IQ:f YP:f YQ:f OWNER:i SCALE:i=1 INTRPT:i"),
    "fixed shunt": layout("I:i ID:s=1 STATUS:i=1 GL:f BL:f"),
    "generator": layout("I:i ID:s=1 PG:f QG:f QT:f=9999 QB:f=-9999 VS:f=1 IREG:i MBASE:f=100 ZR:f ZX:f=1 RT:f XT:f"
                        " GTAP:f=1 STAT:i=1 RMPCT:f=100 PT:f=9999 PB:f=-9999" + OWNERS + " WMOD:i WPF:f=1"),
    "branch": layout("I:i J:i CKT:s=1 R:f X:f B:f RATEA:f RATEB:f RATEC:f GI:f BI:f GJ:f BJ:f ST:i=1 MET:i=1 LEN:f"
                     + OWNERS),
    "transformer": layout("I:i J:i K:i CKT:s=1 CW:i=1 CZ:i=1 CM:i=1 MAG1:f MAG2:f NMETR:i=2 NAME:s STAT:i=1"
                          + OWNERS + " VECGRP:s"),
    "area": layout("I:i ISW:i PDES:f PTOL:f=10 ARNAME:s"),
    "two-terminal dc": layout("NAME:s MDC:i RDC:f SETVL:f VSCHD:f VCMOD:f RCOMP:f DELTI:f METER:s=I DCVMIN:f"
                              " CCCITMX:i=20 CCCACC:f=1"),
    "vsc dc line": layout("NAME:s MDC:i=1 RDC:f" + OWNERS),
    "impedance correction": layout("I:i"),
    "multi-terminal dc": layout("NAME:s NCONV:i NDCBS:i NDCLN:i MDC:i VCONV:i VCMOD:f VCONVN:i"),
    "multi-section line": layout("I:i J:i ID:s=&1 MET:i=1 " + " ".join("DUM%d:i" % k for k in range(1, 10))),
    "zone": layout("I:i ZONAME:s"),
    "inter-area transfer": layout("ARFROM:i ARTO:i TRID:s=1 PTRAN:f"),
    "owner": layout("I:i OWNAME:s"),
    "facts device": layout("NAME:s I:i J:i MODE:i=1 PDES:f QDES:f VSET:f=1 SHMX:f=9999 TRMX:f=9999 VTMN:f=0.9"
                           " VTMX:f=1.1 VSMX:f=1 IMX:f LINX:f=0.05 RMPCT:f=100 OWNER:i=1 SET1:f SET2:f VSREF:i"
                           " REMOT:i MNAME:s"),
    "switched shunt": layout("I:i MODSW:i=1 ADJM:i STAT:i=1 VSWHI:f=1 VSWLO:f=1 SWREM:i RMPCT:f=100 RMIDNT:s BINIT:f "
                             + " ".join("N%d:i B%d:f" % (k, k) for k in range(1, 9))),
    "gne device": layout("NAME:s MODEL:s NTERM:i"),
    "induction machine": layout("I:i ID:s=1 STAT:i=1 SCODE:i=1 DCODE:i=2 AREA:i ZONE:i OWNER:i TCODE:i=1 BCODE:i=1"
                                " MBASE:f=100 RATEKV:f PCODE:i=1 PSET:f H:f=1 A:f B:f D:f E:f RA:f XA:f XM:f=2.5 R1:f"
                                " X1:f R2:f X2:f X3:f E1:f=1 SE1:f E2:f=1.2 SE2:f IA1:f IA2:f XAMULT:f=1"),
    "system switching device": layout("I:i J:i CKT:s=1 X:f=0.0001 " + RATES12 + " STAT:i=1 NSTAT:i=1 MET:i=1"
                                      " STYPE:i=1 NAME:s"),
    # Substation blocks, under the field names of the module's echo.
    "substation": layout("IS:i NAME:s LATI:f LONG:f SGR:f"),
    "substation node": layout("NI:i NAME:s I:i STAT:i=1 VM:f=1 VA:f"),
    "substation switching device": layout("NI:i NJ:i ID:s=1 NAME:s SWDTYP:i=1 STAT:i=1 NSTAT:i=1 X:f=0.0001"
                                          " RATE1:f RATE2:f RATE3:f"),
    "substation terminal": layout("I:i NI:i TERTYP:s"),
}
# What version 34 changed.
FORMATS_34 = dict(FORMATS)
FORMATS_34["load"] = layout("I:i ID:s=1 STATUS:i=1 AREA:i ZONE:i PL:f QL:f IP:f IQ:f YP:f YQ:f OWNER:i SCALE:i=1"
                            " INTRPT:i DGENP:f DGENQ:f DGENM:i LOADTYPE:s")
FORMATS_34["branch"] = layout("I:i J:i CKT:s=1 R:f X:f B:f NAME:s " + RATES12 + " GI:f BI:f GJ:f BJ:f ST:i=1"
                              " MET:i=1 LEN:f" + OWNERS)
FORMATS_34["transformer"] = layout("I:i J:i K:i CKT:s=1 CW:i=1 CZ:i=1 CM:i=1 MAG1:f MAG2:f NMETR:i=2 NAME:s STAT:i=1"
                                   + OWNERS + " VECGRP:s ZCOD:i")

# Format dictionaries of the system-wide key=value records and of ratings.
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


class Typer:
    """A format dictionary made ready for millions of records: converters
    and defaults in item order."""
    CONVERT = {"int": int, "float": float}

    def __init__(self, recgrp, frmt_dict):
        self.recgrp = recgrp.title()
        self.names = list(frmt_dict)
        self.steps = [(self.CONVERT.get(d["type"], str), d["defval"]) for d in frmt_dict.values()]
        self.defaults = [d["defval"] for d in frmt_dict.values()]
        self.types = [d["type"] for d in frmt_dict.values()]

    def __call__(self, vlist, line, progress):
        """The record as a dictionary, or None after a message in the
        module's words.  "_ifc" (an empty item) and missing items take the
        default; items beyond the format are left out."""
        try:
            values = [default if item == "_ifc" else convert(item) for (convert, default), item in zip(self.steps, vlist)]
        except ValueError:
            # Some writers put integers as 1.0: taken, as any whole number.
            values = []
            for name, kind, (convert, default), item in zip(self.names, self.types, self.steps, vlist):
                try:
                    values.append(default if item == "_ifc" else convert(item))
                except ValueError:
                    number = float(item) if kind == "int" and is_number(item) else None
                    if number is None or not number.is_integer():
                        progress(" %sError - Reading '%s', %s=%s, %s value required, record ignored.\n %s%s"
                                 % (vx._PRG_INDENT, self.recgrp, name, item, "integer" if kind == "int" else kind,
                                    vx._PRG_INDENT2, line))
                        return None
                    values.append(int(number))
        if len(values) < len(self.names):
            values += self.defaults[len(values):]
        return dict(zip(self.names, values))


class RawReader:
    """One pass over a RAW file.  `progress` receives every message;
    `announce` (progress when not given) the group headings and counts;
    `ticker(lines, chars)` is called every 16384 lines."""

    KEEP = 3  # records kept per group for the report

    def __init__(self, path, progress, announce=None, ticker=None, read_as=0):
        self.path = path
        self.read_as = read_as  # a version to read the file as, whatever it states; 0: as stated
        self.progress = progress
        self.announce = announce or progress
        self.ticker = ticker
        self.counts = collections.OrderedDict()
        self.version = None
        self.layout = None
        self.system = collections.OrderedDict()
        self.ratings = collections.OrderedDict()
        self.substations = collections.OrderedDict()
        self.first_records = collections.defaultdict(list)  # a few typed records per group
        self.totals = collections.Counter()
        self.ignored = []  # (group, line number) of every record ignored
        self.end = "eof"
        self.lnum = self.chars = 0
        self.pushed = None
        self.whole_line = ""  # the last line next_line read, with its comment

    # -- lines ---------------------------------------------------------------
    def raw_line(self):
        line = next(self.lines, "")
        self.lnum += 1
        self.chars += len(line)
        if self.ticker is not None and not self.lnum & 16383:
            self.ticker(self.lnum, self.chars)
        return line

    def next_line(self):
        """The next line that is neither blank nor a comment, without the
        comment after its items, or None at the end of the file."""
        if self.pushed is not None:
            line, self.pushed = self.pushed, None
            return line
        while True:
            line = self.whole_line = self.raw_line()
            eof, blank = vx._check_eof_blank_line_kora(line)
            if eof:
                return None
            if not blank and "/" in line:
                line = items_part(line)
                blank = not line.strip()
            if not blank:
                return line

    def read(self, encoding=None):
        """Reads the file in `encoding` (by default the one file_encoding
        finds); raises CannotRead for a file that cannot be read or is not a
        RAW file."""
        self.encoding = encoding or file_encoding(self.path)
        self.lines = input_lines(self.path, self.encoding)
        try:
            self.read_header()
            groups = GROUPS[self.layout]
            self.formats = FORMATS_34 if self.layout == 34 else FORMATS
            self.typers = {name: Typer(name, frmt) for name, frmt in self.formats.items()}
            for number in range(10 ** 6):
                grp = groups[number] if number < len(groups) else group("group %d" % (number + 1))
                self.end = self.read_group(grp)
                if self.end != "0":
                    break
            if self.end == "Q":
                after = sum(1 for line in self.lines if line.strip())
                if after:
                    self.progress(" %s%s after the Q line, which ends the data, not read.\n"
                                  % (vx._PRG_INDENT, plural(after, "more line")))
        finally:
            self.lines.close()
        return self

    def read_header(self):
        first = self.next_line() or ""  # "@!" column headings may come first
        comment = comment_of(self.whole_line)
        try:
            items = vx._split_textline_kora(first)
        except Exception:
            items = []
        if not items or not (items[0] == "_ifc" or is_number(items[0])):  # IC, SBASE, version, ...
            raise CannotRead("%s is not a KORA RAW file: its first line is not a RAW header (IC, SBASE, version, ...).\n"
                             " %s%s" % (self.path, vx._PRG_INDENT2, first.rstrip("\n") or "(an empty file)"))
        self.stated_version = int(items[2]) if len(items) > 2 and items[2].isdigit() else None
        if self.read_as:
            self.version = self.read_as
        elif self.stated_version is None:
            self.version = vx._LATEST_KORA_VRSN  # the first record tells the layout below
        elif self.stated_version in vx._ALLOWED_KORA_VRSNS:
            self.version = self.stated_version
        else:
            # Other versions move items within records: read with these
            # groups, most of their records would be lost or misread.
            raise CannotRead("%s: KORA RAW version %d is not read (versions read: %s); --read_as=N reads it with the"
                             " record groups of version N." % (self.path, self.stated_version,
                                                               ", ".join(map(str, vx._ALLOWED_KORA_VRSNS))))
        self.titles = [self.raw_line().rstrip("\n"), self.raw_line().rstrip("\n")]
        self.layout = self.version
        why = ", as its first record is a bus record" * (self.layout == 33)
        if self.stated_version is None and not self.read_as:
            # Without a version the file may be laid out as 34 or as 33:
            # then its first record is a bus record, not system-wide data.
            self.pushed = self.next_line()
            first = first_record_kind(self.pushed)
            if first == "bus":
                self.layout, why = 33, ", as its first record is a bus record"
            if self.shown_layout(comment, first):
                self.version = self.layout
                why = ", as its header's comment names it"
        if self.stated_version is None:
            self.progress(" %sNo version stated in the header: the file is read with the record groups of version %d%s.\n"
                          % (vx._PRG_INDENT, self.layout, why))
        elif self.layout != self.stated_version:
            self.progress(" %sVersion %d stated in the header: the file is read with the record groups of version %d,"
                          " as --read_as asks.\n" % (vx._PRG_INDENT, self.stated_version, self.layout))

    def shown_layout(self, comment, first):
        """For a file that states no version: takes the version its header's
        comment names, else keeps the layout its first record shows (`first`,
        as first_record_kind tells it), and checks the first records of its
        bus group and of the group after its loads against it.  A file laid
        out otherwise is refused in one line (CannotRead): read with these
        groups, most of its records would be reported one by one, or
        misread.  True when the comment named the version."""
        match = NAMED_VERSION.search(comment)
        named = int(match.group(1)) if match else None
        if named is not None and named not in vx._ALLOWED_KORA_VRSNS:
            self.refuse("its header's comment names version %d" % named)
        if named == 34 and first == "bus" or named in (32, 33) and first == "other":
            self.refuse("its header's comment names version %d, but its first record is%s a bus record"
                        % (named, " not" * (first == "other")))
        if named is not None:
            self.layout = named
        buses, shunts = self.items_of_first_records(1 if self.layout == 34 else 0, 2)
        if buses == OLDER_BUS_ITEMS:
            self.refuse("its bus records have %d items, as versions 26 to 31 write them" % buses)
        if buses > len(FORMATS["bus"]):
            self.refuse("its bus records have %d items, more than versions 32 to 34 write" % buses)
        if shunts > len(FORMATS["fixed shunt"]):
            self.refuse("it has no fixed shunt group, as versions 23 to 31 write them: the group after its loads holds"
                        " records of %d items" % shunts)
        return named is not None

    def items_of_first_records(self, bus_group, after):
        """The most items given (items_given) by the first three records of
        the bus group, the file's group number bus_group (from 0), and the
        same of the group `after` groups later.  Read ahead on a pass of its
        own over the file, which reports nothing."""
        probe = RawReader(self.path, lambda text: None)
        probe.lines = input_lines(self.path, self.encoding)
        given = {bus_group: [], bus_group + after: []}
        try:
            probe.next_line()
            probe.raw_line(), probe.raw_line()  # the title lines
            number = 0
            while number <= bus_group + after:
                line = probe.next_line()
                end, items = (None, None) if line is None else probe.split_first("bus", line)
                if line is None or end == "Q":
                    break
                if end == "0":
                    number += 1
                elif number in given and items is not None and len(given[number]) < 3:
                    given[number].append(items_given(items))
        finally:
            probe.lines.close()
        return [max(counts, default=0) for counts in given.values()]

    def refuse(self, what):
        raise CannotRead("%s: KORA RAW file that states no version; %s. It is not read (versions read: %s); --read_as=N"
                         " reads it with the record groups of version N."
                         % (self.path, what, ", ".join(map(str, vx._ALLOWED_KORA_VRSNS))))

    # -- groups --------------------------------------------------------------
    def read_group(self, grp):
        """Reads one record group; returns "0" at its end line, "Q" at the
        end of data, "eof" at the end of the file."""
        count = 0
        announced = False
        while True:
            line = self.next_line()
            if not announced and line is not None and not is_data_end(line):
                vx._recgrp_name_prgmsg(grp.name, self.announce)  # not for a group the data ends before
                announced = True
            end = "eof" if line is None else self.system_record(line) if grp.shape == "system" else self.record(grp, line)
            if end is not None:
                if announced:
                    vx._recgrp_name_prgmsg_numrecs(count, self.announce)
                    self.counts[grp.name] = count
                return end
            count += self.last_ok

    def split_first(self, recgrp, line, first_name="I", first_type="int"):
        """(end, vlist): end is "Q", "0" or None for a data record; vlist is
        None for a record the module refused."""
        try:
            found_q, error, first, vlist = vx._split_txtline_to_values_kora(
                recgrp, line, first_name, first_type, self.progress)
        except Exception as e:  # a line the tokenizer cannot read, e.g. an unclosed quote
            self.progress(cannot_split(recgrp, line, e))
            return None, None
        if found_q:
            return "Q", vlist
        if error:
            return None, None
        if first == 0:
            return "0", vlist
        return None, vlist

    def record(self, grp, line):
        self.last_ok = 0
        first_lnum = self.lnum
        end, vlist = self.split_first(grp.name, line, grp.first_name, grp.first_type)
        if end is not None:
            return end
        rec = None if vlist is None else self.typers[grp.name](vlist, line, self.progress)
        if rec is None:
            self.ignored.append((grp.name, first_lnum))
            more = {"three": 2, "transformer": 3}.get(grp.shape, 0)  # two windings, if it cannot be told
            if more:
                self.progress(" %sThe %d lines that follow it belong to the same record and are skipped with it.\n"
                              % (vx._PRG_INDENT, more))
                self.continuation(grp.name, more)
            return None
        if grp.shape == "three":
            rec["lines"] = self.continuation(grp.name, 2)
        elif grp.shape == "transformer":
            rec["lines"] = self.continuation(grp.name, 4 if rec["K"] != 0 else 3)
        elif grp.shape == "mtdc":
            rec["lines"] = self.continuation(grp.name, rec["NCONV"] + rec["NDCBS"] + rec["NDCLN"])
        elif grp.shape == "zcorr":
            rec["rows"] = self.correction_table(vlist[1:])
        elif grp.shape == "substation":
            if not self.substation_block(rec):
                return None
        self.tally(grp.name, rec)
        self.last_ok = 1
        return None

    def tally(self, name, rec):
        if len(self.first_records[name]) < self.KEEP:
            self.first_records[name].append(rec)
        if name == "load" and rec["STATUS"] == 1:
            self.totals["load MW"] += rec["PL"]
            self.totals["load Mvar"] += rec["QL"]
        elif name == "generator" and rec["STAT"] == 1:
            self.totals["generation MW"] += rec["PG"]
            self.totals["generation Mvar"] += rec["QG"]

    def continuation(self, recgrp, lines):
        """The item lists of a record's further lines."""
        vlists = []
        for _ in range(lines):
            line = self.next_line()
            if line is None:
                break
            try:
                vlists.append(vx._split_textline_kora(line))
            except Exception as e:
                self.progress(cannot_split(recgrp, line, e, "the items of this line of the record left out"))
        return vlists

    def correction_table(self, first_row):
        endtbl, values = vx._check_zcorec_table_kora(first_row)
        rows = [values]
        while not endtbl:
            line = self.next_line()
            if line is None:
                break
            try:
                row = vx._split_textline_kora(line)
            except Exception as e:
                self.progress(cannot_split("impedance correction", line, e, "the table ends before it"))
                break
            endtbl, values = vx._check_zcorec_table_kora(row)
            if not values or row == ["0"]:  # not a row (the group's end, the Q line): the table ends before it
                self.pushed = line
                break
            rows.append(values)
        return rows

    def system_record(self, line):
        self.last_ok = 0
        try:
            found_q, error, first, vlist = vx._split_textline_kora_keyvalue_pair("system-wide", line, self.progress)
        except Exception as e:
            self.progress(cannot_split("system-wide", line, e))
            found_q, error = False, True
        if found_q:
            return "Q"
        if error:
            self.ignored.append(("system-wide", self.lnum))
            return None
        if first == 0:
            return "0"
        word = first.upper()
        if word == "RATING":
            number, rating = vx._list_of_ratings_items_to_dict_kora("rating", vlist[1:], RATING_FORMAT, line,
                                                                      self.progress)
            if number is None:
                self.ignored.append(("rating", self.lnum))
                return None
            self.ratings[number] = rating
        elif word in SYSTEM_FORMATS:
            pairs = [item for item in vlist[1:] if "=" in item]  # the solver method item has no name
            self.system[word] = vx._list_of_key_value_pairs_to_dict_kora(pairs, SYSTEM_FORMATS[word])
        else:
            self.progress(" %sUnknown system-wide record '%s' ignored.\n" % (vx._PRG_INDENT, first))
            self.ignored.append(("system-wide", self.lnum))
            return None
        self.last_ok = 1
        return None

    def substation_block(self, rec):
        """The substation record, then its node, switching device and
        terminal sub-groups, each ended by its "0" line: stored as the
        module's echo takes them."""
        block = collections.OrderedDict()
        block["id"] = rec
        block["node"], block["swd"], block["term"] = [], [], []
        for kind, recgrp in (("node", "substation node"), ("swd", "substation switching device"),
                             ("term", "substation terminal")):
            while True:
                line = self.next_line()
                if line is None:
                    return False
                end, items = self.split_first(recgrp, line, "I" if kind == "term" else "NI")
                if end == "Q":
                    self.pushed = line  # the data end closes the substation group too
                    return False
                if end is not None:
                    break
                sub = None if items is None else self.typers[recgrp](items, line, self.progress)
                if sub is None:
                    self.ignored.append((recgrp, self.lnum))
                    continue
                if kind == "term":
                    sub.update(terminal_rest(sub["TERTYP"], items))
                block[kind].append(sub)
        self.substations[rec["IS"]] = block
        return True


def cannot_split(recgrp, line, e, outcome="record ignored"):
    """The message for a line the module's splitter raised on, laid out as
    its own record errors."""
    why = "unclosed quote" if str(e).startswith("Error reading line") else "%s: %s" % (type(e).__name__, e)
    return " %sError - Reading '%s', %s, %s.\n %s%s\n" % (vx._PRG_INDENT, recgrp.title(), why, outcome, vx._PRG_INDENT2,
                                                         line.rstrip("\n"))


# What comes before the first "/" outside quotes: a "/" ends a record's
# items ("0 / END OF BUS DATA"), and the rest of the line, "/* ... */" or a
# "//" line, is a comment.  A "/" after an unclosed quote is left where it
# is: the module's splitter reports the line.
ITEMS_PART = re.compile(r"""(?:[^'"/]|'[^']*'|"[^"]*")*/""")


def items_part(line):
    part = ITEMS_PART.match(line)
    return line if part is None else part.group()[:-1] + "\n"


def comment_of(line):
    """What follows the first "/" outside quotes, or ""."""
    part = ITEMS_PART.match(line) if "/" in line else None
    return "" if part is None else line[part.end():]


# The version a header's comment names ("/ KORA-29.4 ...", "/ RAW29 (REV 30)")
# when the header's items state none; and the items of a bus record of
# versions 26 to 31, which carry GL and BL between IDE and AREA.
NAMED_VERSION = re.compile(r"\b(?:KORA|RAW)[-_ ]*(\d{1,2})(?!\d)", re.IGNORECASE)
OLDER_BUS_ITEMS = 11


def items_given(items):
    """How many items a record gives: a trailing run of empty items is as
    good as left out."""
    given = len(items)
    while given and items[given - 1] == "_ifc":
        given -= 1
    return given


def is_number(text):
    try:
        float(text)
        return True
    except ValueError:
        return False


def first_record_kind(line):
    """"bus" for a bus record, "end" for a group's end line, the Q line or
    the end of the file (None), else "other"."""
    try:
        found_q, first = (True, None) if line is None else vx._split_txtline_to_values_kora_no_check(line)
    except Exception:
        return "other"
    if found_q or first == 0:
        return "end"
    return "bus" if str(first).strip().lstrip("-").isdigit() else "other"


def is_data_end(line):
    """The "Q" line that ends the data (an unreadable line is not)."""
    try:
        return vx._split_txtline_to_values_kora_no_check_00(line)[0]
    except Exception:
        return False


def terminal_rest(tertyp, items):
    """A terminal's further items: the other buses of branches ("2") and
    three-winding transformers ("3"), then the identifier."""
    kind = vx._get_unwrapped_string(tertyp)
    rest = {"ID": items[-1]} if kind != "S" else {}
    if kind in ("2", "3"):
        rest["J"] = int(items[3])
    if kind == "3":
        rest["K"] = int(items[4])
    return rest


OPTIONS = dict(vxrtool.OPTIONS, buses_written_back=3, read_as={"value": 0, "allowed": [0] + vx._ALLOWED_KORA_VRSNS})
HELP = dict(vxrtool.HELP, buses_written_back="how many of the first bus records to write back as RAW field text",
            read_as="0: each file as the version its header states (a version not listed here is refused), a file"
                    " that states none as the layout it shows (another layout is refused); a version: every file with"
                    " the record groups of that version, whatever its header states")
HELP["console"] += "; the substation blocks echoed stay off the console likewise"
USAGE = """usage: python examples/read_raw.py [--name=value ...] [FILE.raw ...]

Reads KORA RAW files (without FILE, the bundled samples) as a VXR conversion
tool does, and reports what it found: records per group, records ignored, the
first substation blocks and bus records written back."""
ECHOED_SUBSTATIONS = 3


def write_back(reader, progress, count=3):
    """The first bus records written back as RAW field text."""
    buses = reader.first_records["bus"][:count]
    if not buses:
        return
    progress(" %sBus records written back:\n" % vx._PRG_INDENT)
    for bus in buses:
        fields = ["%6d" % bus["I"], vx._get_sized_string(bus["NAME"], 12), vx._convert_float_to_string(bus["BASKV"]),
                  "%d" % bus["IDE"]]
        progress(" %s%s\n" % (vx._PRG_INDENT2, ",".join(fields)))


def version_read(reader):
    if reader.stated_version is None:
        return "no version stated, read with the record groups of version %d" % reader.layout
    if reader.stated_version == reader.layout:
        return "version %d" % reader.layout
    return "version %d stated, read with the record groups of version %d" % (reader.stated_version, reader.layout)


def report(reader, options, out):
    name = os.path.basename(reader.path)
    out("\n %s%s%s: KORA RAW, %s\n" % (vx._PRG_INDENT, vx._get_time_stamp(), name, version_read(reader)))
    summary = collections.OrderedDict((group, count) for group, count in reader.counts.items() if count)
    for what, total in sorted(reader.totals.items()):
        summary[what] = "%.1f" % total
    summary["records ignored"] = len(reader.ignored)
    summary["data ended by"] = {"Q": "the Q line", "0": "the last group", "eof": "the end of the file"}[reader.end]
    summary["text encoding"] = reader.encoding
    vx._print_dict("Records read per group", summary, out if options.listing == "console" else out.quietly)
    out.ignored(reader.ignored)
    generators = [rec["I"] for rec in reader.first_records["generator"]]
    if generators:
        vx._progress_message_format_print(" First generator buses:\n", generators, "int", fmtsz=vx._LEN_BUSNUM,
                                          progress=out)
    if reader.substations:
        # A large case has thousands: a few show what is stored.
        echo = out.quietly if options.console == "summary" else out
        total = len(reader.substations)
        which = "all " if total <= ECHOED_SUBSTATIONS else "the first %d of " % ECHOED_SUBSTATIONS
        echo(" %sSubstation blocks as stored (%s%d):" % (vx._PRG_INDENT, which, total))
        vx._print_kora_substation_block_data_as_stored(
            collections.OrderedDict(itertools.islice(reader.substations.items(), ECHOED_SUBSTATIONS)), echo)
    write_back(reader, out, options.buses_written_back)


def read_file(path, options, console=None):
    return read_with_log(path, options,
                         lambda log, encoding: RawReader(path, log, log.announce, log.ticker.update,
                                                         options.read_as).read(encoding),
                         lambda reader, out: report(reader, options, out), console)


def main(argv=None, **kwds):
    paths, given = command_line(sys.argv[1:] if argv is None else argv, OPTIONS, USAGE, HELP)
    given.update(kwds)
    if not paths:
        paths = sorted(glob.glob(os.path.join(SAMPLES, "*.raw")))
    options = vx._get_arguments_as_attr(OPTIONS, given)  # creates the work folder when missing
    return read_all(paths, options, read_file)


if __name__ == "__main__":
    run(main)
