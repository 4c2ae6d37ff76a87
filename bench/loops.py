"""The reading loops of a conversion tool, written once and run with either
the module or the plain-Python baseline as `ns`, plus the format
dictionaries they use."""
import collections

import vxrcomn


def quiet(text):
    pass


def fields(*specs):
    return collections.OrderedDict((name, {"defval": default, "type": kind}) for name, default, kind in specs)


KEYVALUE_FORMAT = fields(
    ("THRSHZ", 0.0001, "float"), ("PQBRAK", 0.7, "float"), ("BLOWUP", 5.0, "float"), ("ITMX", 100, "int"),
    ("ACCP", 1.6, "float"), ("ACCQ", 1.6, "float"), ("ACCM", 1.0, "float"), ("TOL", 0.0001, "float"),
    ("ITMXN", 20, "int"), ("ACCN", 1.0, "float"), ("TOLN", 0.1, "float"), ("VCTOLQ", 0.1, "float"),
    ("VCTOLV", 0.00001, "float"), ("DVLIM", 0.99, "float"), ("NDVFCT", 0.99, "float"), ("ADJTHR", 0.005, "float"),
    ("ACCTAP", 1.0, "float"), ("TAPLIM", 0.05, "float"), ("SWVBND", 100.0, "float"), ("MXTPSS", 99, "int"),
    ("MXSWIM", 10, "int"), ("ITMXTY", 20, "int"), ("ACCTY", 1.0, "float"), ("TOLTY", 0.00001, "float"),
)

RAW_GROUPS = ["system-wide", "bus", "load", "fixed shunt", "generator", "branch", "system switching device",
              "transformer"]
TRANSFORMER = RAW_GROUPS.index("transformer")


def read_raw(ns, lines):
    """Reads RAW lines as a tool does; returns the number of records."""
    it = iter(lines)
    for _ in range(3):
        next(it)
    group = records = pending = 0
    for line in it:
        eof, blank = ns._check_eof_blank_line_kora(line)
        if eof:
            break
        if blank:
            continue
        if pending:  # continuation lines of a multi-line record
            ns._split_textline_kora(line)
            pending -= 1
            continue
        name = RAW_GROUPS[group] if group < len(RAW_GROUPS) else "other"
        if group == 0:
            found_q, error, first, vlist = ns._split_textline_kora_keyvalue_pair(name, line, quiet)
            if found_q:
                break
            if error:
                continue
            if first == 0:
                group += 1
            elif first.upper() != "RATING":
                ns._list_of_key_value_pairs_to_dict_kora([v for v in vlist[1:] if "=" in v], KEYVALUE_FORMAT)
                records += 1
            continue
        found_q, error, first, vlist = ns._split_txtline_to_values_kora(name, line, "I", "int", quiet)
        if found_q:
            break
        if error:
            continue
        if first == 0:
            group += 1
            continue
        if group == TRANSFORMER:
            pending = 3
        records += 1
    return records


EPC_BUS_NAMES = ["ibus", "name", "kv", "stn", "semi", "ty", "vsched", "volt", "angle", "ar", "zone", "vmax", "vmin",
                 "date_in", "date_out", "pid", "L", "own", "st"]
_TYPES = {"name": "char", "kv": "float", "vsched": "float", "volt": "float", "angle": "float", "vmax": "float",
          "vmin": "float"}
EPC_BUS_FORMAT = collections.OrderedDict((n, {"type": _TYPES.get(n, "int")}) for n in EPC_BUS_NAMES if n != "semi")
# A sequential format names every position, the ":" separator's included.
EPC_BUS_SEQ_FORMAT = collections.OrderedDict((n, {"type": _TYPES.get(n, "int")}) for n in EPC_BUS_NAMES)


def _generic(n):
    names = ["f%d" % i for i in range(n)]
    return names, collections.OrderedDict((nm, {"type": "int" if i == 0 else "char"}) for i, nm in enumerate(names))


GENERIC = {n: _generic(n) for n in range(1, 120)}


def read_epc(ns, lines):
    """Reads EPC lines as a tool does: headings name the group, "/" joins
    continuation lines; returns the number of records."""
    group = None
    text = ""
    records = 0
    for number, line in enumerate(lines, 1):
        if line[:1] != " ":
            if " data" in line:
                group = line.split(" data")[0].strip()
            continue
        stripped = line.rstrip()
        if stripped.endswith("/"):
            text += stripped[:-1] + " "
            continue
        text += line
        if group is None:
            text = ""
            continue
        values = ns._get_values_from_data_line_text_pslf(group, number, text, quiet)
        text = ""
        if group == "bus":
            ns._epc_assign_data_values(group, number, values, EPC_BUS_NAMES, EPC_BUS_FORMAT, quiet)
        else:
            names, frmt = GENERIC[min(len(values), 119) or 1]
            ns._epc_assign_data_values(group, number, values, names, frmt, quiet)
        records += 1
    return records


def epc_available():
    try:
        vxrcomn._split_data_line_text_pslf("1 2")
        return True
    except NotImplementedError:
        return False
