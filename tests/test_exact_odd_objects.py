"""Objects no tool passes on purpose: which look-up fails first, which calls
are made, and what is answered, as the algorithms have it, on the paths for
exact types and on the others."""
import collections

import pytest

OD = collections.OrderedDict
FRMT = {"a": {"type": "int"}, "semi": {"type": "float"}, "b": {"type": "x"}}


class Keys:
    """A format mapping that is no dict, counting its keys() calls."""
    calls = 0

    def __init__(self, frmt):
        self.frmt = frmt

    def keys(self):
        self.calls += 1
        return self.frmt.keys()

    def __getitem__(self, key):
        return self.frmt[key]


class DictKeys(dict):
    calls = 0

    def keys(self):
        self.calls += 1
        return dict.keys(self)


def popping(kind):
    """A format whose first descriptor, once read, drops the second item."""
    frmt = kind()
    frmt.update(a=type("Pop", (dict,), {"__getitem__": lambda self, key: frmt.pop("b", None) or "int"})(),
                b={"type": "int"}, c={"type": "int"})
    return frmt


def seq(vx, frmt, texts):
    ierr, vals = vx._pslf_seq_assign_data_values("g", 1, texts, frmt, print)
    return ierr, list(vals.items()), frmt.calls


def svd(vx, names, ty):
    return vx._epc_assign_data_values_svd("svd", 1, [ty, "5"], names, {"a": {"type": "int"}}, lambda text: None)


def bare(vx, through_python=False):
    """The module without _WRAP_PRNT; its _get_unwrapped_string reached through a Python function."""
    del vx._WRAP_PRNT
    if through_python:
        vx._get_unwrapped_string = (lambda own: lambda instr: own(instr))(vx._get_unwrapped_string)
    return vx


def line(text, stripped):
    return type("Line", (str,), {"strip": lambda self: stripped})(text)


DEFAULTS = [("a", 1), ("semi", 0.0), ("b", "' '")]
ROWS = {
    "svd tuple names, fallback group": (lambda vx: svd(vx, {"begin_all": ("ty",)}, "0"),
                                        AttributeError("'tuple' object has no attribute 'extend'")),
    "svd tuple names, own group": (lambda vx: svd(vx, {"begin_all": ("ty",), "ty_7": ["a"]}, "7"),
                                   AttributeError("'tuple' object has no attribute 'extend'")),
    "svd tuple names, bad type": (lambda vx: svd(vx, {"begin_all": ("ty",)}, "9"), (True, {})),
    "svd list names, no group": (lambda vx: svd(vx, {"begin_all": ["ty"]}, "0"), KeyError("ty_01234")),
    "svd list names, no end": (lambda vx: svd(vx, {"begin_all": ["ty"], "ty_012": ["a"]}, "1"), KeyError("end_all")),
    "svd list names": (lambda vx: svd(vx, {"begin_all": ["ty"], "ty_01234": ["a"], "end_all": []}, "2"),
                       (False, OD(a=5))),
    "unwrap int": (lambda vx: vx._get_unwrapped_string(5), AttributeError("'int' object has no attribute 'replace'")),
    "unwrap int, no quote": (lambda vx: bare(vx)._get_unwrapped_string(5),
                             AttributeError("'int' object has no attribute 'replace'")),
    "sized int, no quote": (lambda vx: bare(vx)._get_sized_string(5, 2),
                            AttributeError("'int' object has no attribute 'replace'")),
    "sized int, no quote, unwrap in Python": (lambda vx: bare(vx, True)._get_sized_string(5, 2),
                                              AttributeError("'int' object has no attribute 'replace'")),
    "unwrap str, no quote": (lambda vx: bare(vx)._get_unwrapped_string("a"), NameError("name '_WRAP_PRNT' is not defined")),
    "unwrap str subclass, no quote": (lambda vx: bare(vx)._get_unwrapped_string(line("a", "a")),
                                      NameError("name '_WRAP_PRNT' is not defined")),
    "sized suffix, no quote": (lambda vx: bare(vx, True)._get_sized_string(None, 2, 0, [5]),
                               NameError("name '_WRAP_PRNT' is not defined")),
    "seq no dict, one text": (lambda vx: seq(vx, Keys(FRMT), ["1"]), (False, DEFAULTS, 4)),
    "seq no dict, no text": (lambda vx: seq(vx, Keys(FRMT), []), (False, [("a", 0)] + DEFAULTS[1:], 5)),
    "seq no dict, all texts": (lambda vx: seq(vx, Keys(FRMT), ["1", ":", "Z"]), (False, [("a", 1), ("b", "'Z'")], 2)),
    "seq dict keys(), one text": (lambda vx: seq(vx, DictKeys(FRMT), ["1"]), (False, DEFAULTS, 4)),
    "seq dict keys(), surplus": (lambda vx: seq(vx, DictKeys(FRMT), ["1", ":", "Z", "9"]),
                                 (False, [("a", 1), ("b", "'Z'")], 2)),
    "seq dict shrinking": (lambda vx: vx._pslf_seq_assign_data_values("g", 1, [], popping(dict), print),
                           IndexError("list index out of range")),
    "seq ordered dict shrinking": (lambda vx: vx._pslf_seq_assign_data_values("g", 1, [], popping(OD), print),
                                   IndexError("list index out of range")),
    "eof strip None": (lambda vx: vx._check_eof_blank_line_kora(line("x\n", None)), (False, True)),
    "eof strip 0": (lambda vx: vx._check_eof_blank_line_kora(line("x\n", 0)), (False, True)),
    "eof strip None at end": (lambda vx: vx._check_eof_blank_line_kora(line("", None)), (True, True)),
    "eof strip truthy, comment": (lambda vx: vx._check_eof_blank_line_kora(line("@! x\n", 12345)), (False, True)),
    "eof strip truthy, data": (lambda vx: vx._check_eof_blank_line_kora(line("1, 2\n", [0])), (False, False)),
}


@pytest.mark.parametrize("call, expected", ROWS.values(), ids=ROWS)
def test_odd_objects(vx, call, expected):
    try:
        got = call(vx)
    except Exception as e:
        got = e
    if isinstance(expected, Exception):
        assert (type(got), str(got)) == (type(expected), str(expected))
    else:
        assert got == expected
