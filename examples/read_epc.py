"""Reads PSLF EPC files with vxrcomn, the way a VXR conversion tool does.

Each data line is split into its items with
_get_values_from_data_line_text_pslf, and the items are typed through the
format dictionary of the line's record group:

  - ordinary records with _epc_assign_data_values,
  - generator and load records by position with _pslf_seq_assign_data_values
    (there an item "!" keeps its text as it stands),
  - DC bus records after the separator check of _epc_check_frmt_dc_bus_rec,
  - SVD records with _epc_assign_data_values_svd (their items depend on
    their type) and Q table records with _epc_assign_data_values_qtable.

The versions are checked first: the PSLF version the file is read as, and
the KORA version a conversion would write (_check_kora_version).  Each
record group is announced and closed with its record count; every message
the module sends is shown and written to a log file; the report (records
per group, records ignored, the first bus records written back as KORA RAW
bus lines, as the conversion would write them) goes to the console and to a
listing file.

    python examples/read_epc.py [--name=value ...] [FILE.epc ...]

Without a file the bundled samples are read; --help lists the options.
"""
import collections
import glob
import os
import re
import sys

import vxrtool
from vxrtool import (SAMPLES, CannotRead, command_line, file_encoding, input_lines, plural, print_notices, read_all,
                     read_with_log, run, vx)


# ---------------------------------------------------------------------------
# Data items of the record groups: name:type, "i" int, "f" float, "s" text.
# HEAD holds the items before the ":" separator, TAIL those after it; the
# groups without a separator have a head only.
# ---------------------------------------------------------------------------

BUS_ID = "bus:i name:s kv:f"
HEAD = {
    "bus": BUS_ID,
    "branch": "from:i from_name:s from_kv:f to:i to_name:s to_kv:f ck:s se:i long_id:s",
    "transformer": "from:i from_name:s from_kv:f to:i to_name:s to_kv:f ck:s long_id:s",
    "generator": BUS_ID + " id:s long_id:s",
    "load": BUS_ID + " id:s long_id:s",
    "shunt": BUS_ID + " id:s ck:s se:i long_id:s",
    "svd": BUS_ID + " id:s long_id:s",
    "dc bus": BUS_ID + " long_id:s",
    "owner": "owner:i name:s sname:s",
    "qtable": BUS_ID + " id:s",
    "area": "area:i name:s swing:i desired:f tol:f pnet:f qnet:f",
    "zone": "zone:i name:s pnet:f qnet:f",
}
# A shunt on a line names the line's other bus before its circuit: nine or
# ten items before the ":", where a bus shunt has six or seven.
LINE_SHUNT = BUS_ID + " id:s to:i to_name:s to_kv:f ck:s se:i long_id:s"
DATES = " date_in:i date_out:i pid:i N:i"
TAIL = {
    "bus": "ty:i vsched:f volt:f angle:f ar:i zone:i vmax:f vmin:f" + DATES.replace("N:i", "L:i") + " own:i",
    "branch": ("st:i resist:f react:f charge:f rate1:f rate2:f rate3:f rate4:f aloss:f lngth:f ar:i zone:i"
               " trangi:f tap:f phas:f" + DATES),
    "transformer": ("st:i ty:i reg_bus:i reg_name:s reg_kv:f zt:i int_bus:i int_name:s int_kv:f tert_bus:i"
                    " tert_name:s tert_kv:f ar:i zone:i tbase:f ps_r:f ps_x:f pt_r:f pt_x:f ts_r:f ts_x:f"
                    " vnomp:f vnoms:f vnomt:f anstar:f mag1:f mag2:f rate1:f rate2:f rate3:f rate4:f aloss:f"
                    " tmax:f tmin:f vtmax:f vtmin:f stepp:f tapp:f tapfp:f tapfs:f tapt:f" + DATES),
    "generator": ("st:i reg_bus:i reg_name:s reg_kv:f prf:f qrf:f ar:i zone:i pgen:f pmax:f pmin:f qgen:f"
                  " qmax:f qmin:f mbase:f cmp_r:f cmp_x:f gen_r:f gen_x:f hbus:i hbus_name:s hbus_kv:f"
                  " tbus:i tbus_name:s tbus_kv:f" + DATES),
    "load": "st:i mw:f mvar:f mw_i:f mvar_i:f mw_z:f mvar_z:f ar:i zone:i" + DATES + " own:i",
    "shunt": "st:i ar:i zone:i pu_mw:f pu_mvar:f" + DATES,
    "dc bus": "ty:i ar:i zone:i vsched:f dc_volt:f date_in:i date_out:i pid:i own:i",
    "owner": "net_mw:f net_mvar:f sch_mw:f sch_mvar:f ar:i",
    "qtable": " ".join("p%d:f qmx%d:f qmn%d:f" % (k, k, k) for k in range(10)),
}
# SVD records: the items after "ty" depend on the type.
SVD_TAIL = {
    "begin_all": "st:i ty:i reg_bus:i reg_name:s reg_kv:f ar:i zone:i g:f b:f",
    "ty_012": "min_c:f max_c:f vband:f bmin:f bmax:f",
    "ty_34": "vband:f bmin:f bmax:f xc:f",
    "ty_56": "vband:f bmin:f bmax:f imax:f bsh:f",
    "ty_7": "vband:f qmin:f qmax:f imax:f vref:f",
    "end_all": DATES + " own1:i part1:f",
}
BY_POSITION = {"generator", "load"}  # read with the sequential assigner
TYPES = {"i": "int", "f": "float", "s": "char"}


def items_of(text):
    return [tuple(item.split(":")) for item in text.split()]


class Layouts:
    """Name lists and format dictionaries per group and number of head
    items: files of other layouts put more or fewer items before the ":",
    so the head is cut or extended (extra items are read as text)."""

    def __init__(self):
        self._cache = {}

    def head(self, group, nhead):
        known = items_of(LINE_SHUNT if group == "shunt" and nhead >= 9 else HEAD[group])
        extra = [("head%d" % k, "s") for k in range(len(known) + 1, nhead + 1)]
        return (known + extra)[:nhead]

    def get(self, group, nhead):
        key = (group, nhead)
        if key not in self._cache:
            self._cache[key] = self._make(group, nhead)
        return self._cache[key]

    def _make(self, group, nhead):
        items = self.head(group, nhead)
        if group in TAIL:
            items = items + [("semi", "s")] + items_of(TAIL[group])
        # The separator is a data item only where items go by position.
        frmtdct = collections.OrderedDict(
            (n, {"type": TYPES[t]}) for n, t in items if n != "semi" or group in BY_POSITION)
        return [n for n, _ in items], frmtdct

    def svd(self, nhead):
        key = ("svd", nhead)
        if key not in self._cache:
            names = {k: [n for n, _ in items_of(v)] for k, v in SVD_TAIL.items()}
            names["begin_all"] = [n for n, _ in self.head("svd", nhead)] + ["semi"] + names["begin_all"]
            frmtdct = collections.OrderedDict(
                (n, {"type": TYPES[t]})
                for n, t in self.head("svd", nhead) + [i for v in SVD_TAIL.values() for i in items_of(v)])
            self._cache[key] = names, frmtdct
        return self._cache[key]


# ---------------------------------------------------------------------------
# Reading
# ---------------------------------------------------------------------------


HEADING = re.compile(r"^\s*([a-z][a-z ]*?)\s+data\s*\[\s*(\d+)\s*\]", re.IGNORECASE)
TEXT_SECTIONS = ("title", "comments", "solution parameters")
KORA_BUS_TYPE = {0: 3, 1: 1, 2: 2}  # PSLF swing, load and generator buses; anything else isolated (4)


class Group:
    def __init__(self, name, declared):
        self.name, self.declared = name, declared
        self.records = self.read = self.ignored = self.kept = 0


class Reader:
    """One pass over an EPC file.  `progress` receives every message,
    `announce` (progress when not given) the headings and counts;
    `ticker(lines, chars)` is called every 16384 lines; the first `keep`
    typed records of each group are kept in `first_records`."""

    def __init__(self, progress=None, announce=None, ticker=None, keep=3):
        self.progress = progress if progress is not None else sys.stdout.write
        self.announce = announce or self.progress
        self.ticker = ticker
        self.keep = keep
        self.layouts = Layouts()
        self.groups = []
        self.first_records = collections.defaultdict(list)
        self.ignored = []  # (group, line number) of every record ignored

    def read_file(self, path, encoding=None):
        """Reads the file in `encoding` (by default the one file_encoding
        finds); raises CannotRead for a file that cannot be read or holds no
        record group."""
        self.encoding = encoding or file_encoding(path)
        group, section, pending = None, None, None
        chars = 0
        for lnum, line in enumerate(input_lines(path, self.encoding), 1):
            if self.ticker is not None:
                chars += len(line)
                if not lnum & 16383:
                    self.ticker(lnum, chars)
            line = line.rstrip("\n")
            bare = line.strip()
            if bare.startswith("#") and pending is None:
                continue
            heading = HEADING.match(line)
            if heading or bare.lower() == "end" or bare.lower() in TEXT_SECTIONS:
                if pending is not None:  # a "/" before a heading ends its record
                    self.complete(group, *pending)
                    pending = None
                if group is not None:
                    self.close(group)
                group = None
                if bare.lower() == "end":
                    break
                if heading:
                    group = Group(heading.group(1).lower(), int(heading.group(2)))
                    self.groups.append(group)
                    self.announce(" ------------- Reading PSLF record group: %s [%d]\n"
                                  % (group.name.title(), group.declared))
                section = None if heading else bare.lower()
                continue
            if section is not None:
                if bare == "!":
                    section = None
                continue
            if group is None or not bare:
                continue
            # A line ending in "/" goes on in the next line.
            first, text_so_far = pending if pending else (lnum, "")
            joined = text_so_far + " " + line if text_so_far else line
            if joined.rstrip().endswith("/"):
                pending = (first, joined.rstrip()[:-1])
                continue
            pending = None
            self.complete(group, first, joined)
        if pending is not None and group is not None:
            self.complete(group, *pending)
        if group is not None:
            self.close(group)
        if not self.groups:
            raise CannotRead("%s is not a PSLF EPC file: it has no record group heading such as 'bus data [ 30]'"
                             % path)
        return self

    def complete(self, group, lnum, line):
        """A complete record: read it, and when it was ignored for want of
        its ":" separator, say what it most likely is."""
        ignored = len(self.ignored)
        self.record(group, lnum, line)
        if (len(self.ignored) > ignored and group.name in TAIL and group.name != "dc bus"
                and ":" not in vx._split_data_line_text_pslf(line)):
            self.progress(" %s(Line %d has no ':' separator: most likely the rest of the record before it, whose"
                          " last line does not end with '/'.)\n" % (vx._PRG_INDENT, lnum))

    def close(self, group):
        vx._recgrp_name_prgmsg_numrecs(group.read, self.announce)
        notes = []
        if group.ignored:
            notes.append("%d ignored" % group.ignored)
        if group.kept:
            notes.append("%s written as '!', kept as text" % plural(group.kept, "item"))
        if group.records != group.declared:
            notes.append("the heading says %d, the group holds %d" % (group.declared, group.records))
        if notes:
            self.announce(" %s(%s)\n" % (vx._PRG_INDENT, "; ".join(notes)))

    def record(self, group, lnum, line):
        group.records += 1
        lnumstr = str(lnum)
        try:
            items = vx._get_values_from_data_line_text_pslf(group.name, lnumstr, line, self.progress)
            ierr, values = (True, None) if not items else self.assign(group, lnumstr, items)
        except Exception as e:  # the module raises for lines it cannot read at all
            self.progress(" %s on line %s: %s, record ignored.\n" % (type(e).__name__, lnumstr, e))
            ierr, values = True, None
        if ierr:
            group.ignored += 1
            self.ignored.append((group.name, lnum))
            return
        group.read += 1
        if values is not None:
            group.kept += sum(1 for v in values.values() if isinstance(v, str) and v.strip() == "!")
            if len(self.first_records[group.name]) < self.keep:
                self.first_records[group.name].append(values)

    def assign(self, group, lnumstr, items):
        """(ierr, values) of one record; values None for groups read as items only."""
        name, progress = group.name, self.progress
        nhead = items.index(":") if ":" in items else len(items)
        if name == "dc bus":
            vnamlist, frmtdct = self.layouts.get(name, 3)
            ierr, has_long_id = vx._epc_check_frmt_dc_bus_rec(items, vnamlist, frmtdct, progress)
            if ierr:  # the check's message names no line
                progress(" %s'DC BUS' record specified on line %s ignored.\n" % (vx._PRG_INDENT, lnumstr))
                return True, None
            vnamlist, frmtdct = self.layouts.get(name, 4 if has_long_id else 3)
            return vx._epc_assign_data_values(name, lnumstr, items, vnamlist, frmtdct, progress)
        if name == "svd":
            vnamsdct, frmtdct = self.layouts.svd(nhead)
            return vx._epc_assign_data_values_svd(name, lnumstr, items, vnamsdct, frmtdct, progress)
        if name not in HEAD:
            return False, None
        if name not in TAIL:  # no separator: names as they come
            nhead = len(items)
        vnamlist, frmtdct = self.layouts.get(name, nhead)
        if name == "qtable":
            return vx._epc_assign_data_values_qtable(name, lnumstr, items, vnamlist, frmtdct, progress)
        if name in BY_POSITION:
            return vx._pslf_seq_assign_data_values(name, lnumstr, items, frmtdct, progress)
        return vx._epc_assign_data_values(name, lnumstr, items, vnamlist, frmtdct, progress)


OPTIONS = dict(
    vxrtool.OPTIONS,
    pslf_vrsn={"value": vx._LATEST_PSLF_VRSN, "allowed": vx._ALLOWED_PSLF_VRSNS},
    # A float: "33", "33.0" and 33 all become 33.0, which the version check
    # takes as 33 (with an integer default, "33.0" would silently be 34).
    kora_vrsn=float(vx._LATEST_KORA_VRSN),
    buses_written_back=3,
)
HELP = dict(
    vxrtool.HELP,
    pslf_vrsn="the PSLF version the files are taken to be written in (EPC files state none)",
    kora_vrsn="the KORA RAW version of the bus lines written back (one not supported becomes %d, with a notice)"
              % vx._LATEST_KORA_VRSN,
    buses_written_back="how many of the first bus records to write back as KORA RAW bus lines",
)
USAGE = """usage: python examples/read_epc.py [--name=value ...] [FILE.epc ...]

Reads PSLF EPC files (without FILE, the bundled samples) as a VXR conversion
tool does, and reports what it found: records per group, records ignored and
the first bus records written back as KORA RAW bus lines."""


def kora_bus_line(values):
    """A PSLF bus record as the KORA RAW bus line a conversion writes."""
    fields = ["%6d" % values["bus"], vx._get_sized_string(values["name"], 12),
              vx._convert_float_to_string(values["kv"]), "%d" % KORA_BUS_TYPE.get(values.get("ty"), 4),
              "%d" % values.get("ar", 1), "%d" % values.get("zone", 1), "%d" % values.get("own", 1),
              vx._convert_float_to_string(values.get("volt", 1.0)), vx._convert_float_to_string(values.get("angle", 0.0))]
    return ",".join(fields)


def report(reader, path, options, out):
    name = os.path.basename(path)
    out("\n %s%s%s: read as PSLF version %d for KORA RAW version %d\n"
        % (vx._PRG_INDENT, vx._get_time_stamp(), name, options.pslf_vrsn, options.kora_vrsn))
    summary = collections.OrderedDict((g.name, g.read) for g in reader.groups if g.records)
    summary["records ignored"] = len(reader.ignored)
    summary["messages"] = getattr(reader.progress, "messages", "-")
    summary["text encoding"] = reader.encoding
    vx._print_dict("Records read per group", summary, out if options.listing == "console" else out.quietly)
    out.ignored(reader.ignored)
    buses = reader.first_records["bus"][:options.buses_written_back]
    if buses:
        out(" %sBus records as KORA RAW version %d bus lines:\n" % (vx._PRG_INDENT, options.kora_vrsn))
        for values in buses:
            out(" %s%s\n" % (vx._PRG_INDENT2, kora_bus_line(values)))


def read_file(path, options, console=None):
    return read_with_log(path, options,
                         lambda log, encoding: Reader(log, log.announce, log.ticker.update).read_file(path, encoding),
                         lambda reader, out: report(reader, path, options, out), console)


def main(argv=None, **kwds):
    files, given = command_line(sys.argv[1:] if argv is None else argv, OPTIONS, USAGE, HELP)
    given.update(kwds)
    files = files or sorted(glob.glob(os.path.join(SAMPLES, "*.epc")))
    options = vx._get_arguments_as_attr(OPTIONS, given)  # creates the work folder when missing
    # The conversion's KORA version: the module falls back to the newest
    # one, with its notice, when the requested one is not supported.
    with print_notices(sys.stdout.write):
        options.kora_vrsn = vx._check_kora_version(options.kora_vrsn)
    return read_all(files, options, read_file)


if __name__ == "__main__":
    run(main)
