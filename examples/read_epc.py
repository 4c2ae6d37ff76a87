"""Reads PSLF EPC files with vxrcomn, the way a VXR conversion tool does.

Each data line is split into its items with
_get_values_from_data_line_text_pslf, and the items are assigned to the data
items of the line's record group:

  - ordinary records with _epc_assign_data_values,
  - generator and load records by position with _pslf_seq_assign_data_values
    (there an item "!" keeps its text as it stands),
  - DC bus records after the separator check of _epc_check_frmt_dc_bus_rec,
  - SVD records with _epc_assign_data_values_svd (their items depend on
    their type) and Q table records with _epc_assign_data_values_qtable.

Every message the module sends through the progress callable is printed;
each record group ends with its record count.  Records of groups that this
reader has no items for are counted only.

    python examples/read_epc.py [-v] [file.epc ...]

Without a file the bundled samples in examples/samples/ are read; -v prints
the values of every record.
"""
import argparse
import collections
import glob
import io
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
try:
    import winreg  # noqa: F401  vxrcomn binds the registry module, as on Windows
except ImportError:
    sys.path.insert(0, os.path.join(ROOT, "standin"))
try:
    import vxrcomn as vx
except ImportError:  # run from a clone with the module built in place
    sys.path.append(ROOT)
    import vxrcomn as vx

SAMPLES = os.path.join(HERE, "samples")

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
        known = items_of(HEAD[group])
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


class Group:
    def __init__(self, name, declared):
        self.name, self.declared = name, declared
        self.records = self.read = self.ignored = self.kept = 0


class Reader:
    def __init__(self, out=None, verbose=False):
        self.out = out if out is not None else sys.stdout
        self.verbose = verbose
        self.layouts = Layouts()
        self.groups = []
        self.messages = 0

    def progress(self, text):
        """The progress callable handed to the module: prints each message."""
        self.messages += 1
        self.out.write(text)

    def read_file(self, path):
        with open(path, "rb") as f:
            data = f.read()
        try:
            text = data.decode("utf-8")
        except UnicodeDecodeError:
            text = data.decode("latin-1")
        group, section, pending = None, None, None
        # Lines as a text file gives them: LF, CRLF and CR end a line.
        for lnum, line in enumerate(io.StringIO(text, newline=None), 1):
            line = line.rstrip("\n")
            bare = line.strip()
            if bare.startswith("#") and pending is None:
                continue
            heading = HEADING.match(line)
            if heading or bare.lower() == "end" or bare.lower() in TEXT_SECTIONS:
                if pending is not None:  # a "/" before a heading ends its record
                    self.record(group, *pending)
                    pending = None
                if group is not None:
                    self.close(group)
                group = None
                if bare.lower() == "end":
                    break
                if heading:
                    group = Group(heading.group(1).lower(), int(heading.group(2)))
                    self.groups.append(group)
                    self.out.write("  %s data [%d]\n" % (group.name, group.declared))
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
            self.record(group, first, joined)
        if pending is not None and group is not None:
            self.record(group, *pending)
        if group is not None:
            self.close(group)

    def close(self, group):
        note = "" if group.records == group.declared else " (heading says %d)" % group.declared
        kept = ", %d '!' kept" % group.kept if group.kept else ""
        self.out.write("     %-18s %4d records: %d read, %d ignored%s%s\n"
                       % (group.name, group.records, group.read, group.ignored, kept, note))

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
            return
        group.read += 1
        if values is not None:
            group.kept += sum(1 for v in values.values() if isinstance(v, str) and v.strip() == "!")
        if self.verbose:
            self.out.write("       line %s: %s\n" % (lnumstr, dict(values) if values is not None else "-"))

    def assign(self, group, lnumstr, items):
        """(ierr, values) of one record; values None for groups read as items only."""
        name, progress = group.name, self.progress
        nhead = items.index(":") if ":" in items else len(items)
        if name == "dc bus":
            vnamlist, frmtdct = self.layouts.get(name, 3)
            ierr, has_long_id = vx._epc_check_frmt_dc_bus_rec(items, vnamlist, frmtdct, progress)
            if ierr:  # the check's message names no line
                self.out.write("       (the dc bus record on line %s)\n" % lnumstr)
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


def main(argv=None):
    parser = argparse.ArgumentParser(description="Read PSLF EPC files with vxrcomn.")
    parser.add_argument("files", nargs="*", help="EPC files (default: the bundled samples)")
    parser.add_argument("-v", "--verbose", action="store_true", help="print the values of every record")
    args = parser.parse_args(argv)
    files = args.files or sorted(glob.glob(os.path.join(SAMPLES, "*.epc")))
    status = 0
    for path in files:
        reader = Reader(verbose=args.verbose)
        print("Reading %s" % path)
        try:
            reader.read_file(path)
        except OSError as e:
            print("  cannot read it: %s\n" % e)
            status = 1
            continue
        print("  %d records in %d groups: %d read, %d ignored; %d messages\n" % (
            sum(g.records for g in reader.groups), len(reader.groups), sum(g.read for g in reader.groups),
            sum(g.ignored for g in reader.groups), reader.messages))
    return status

if __name__ == "__main__":
    sys.exit(main())
