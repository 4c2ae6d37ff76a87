"""Bad input for the EPC readers: any object in any argument gives a result
or an ordinary exception, and neither good nor bad calls leak."""
import collections

import pytest

import hostile
from leakcheck import assert_no_leak

F = collections.OrderedDict(a={"type": "int"}, semi={"type": "x"}, b={"type": "float"}, c={"type": "name"})
SVD_NAMES = {"begin_all": ["n", "semi", "ty"], "ty_012": ["g"], "ty_34": ["g"], "ty_56": ["g"], "ty_7": ["g"],
             "end_all": ["z"]}
SVD_FRMT = {k: {"type": "int"} for k in ("n", "ty", "g", "z")}
Q_NAMES = ["a", "semi", "b", "c", "d"]
QUIET = len  # a progress callable that keeps nothing

# function: (good arguments, bad arguments that take the error paths)
CASES = {
    "_split_data_line_text_pslf": (("  1 'A' \"B C\"  2 ",), (hostile.OddStr(" 1  2 "),)),
    "_get_values_from_data_line_text_pslf": (
        ("bus", 1, '1 "A, B" O\'N x\\ y', QUIET), ("bus", 1, '1 "A B" x\\', QUIET)),
    "_epc_assign_data_values_common": (
        ("bus", 1, {"a": "1", "b": "2.5", "c": "N"}, F, QUIET), ("bus", 1, {"a": "1", "b": "z"}, F, QUIET)),
    "_epc_assign_data_values": (
        ("bus", 1, ["1", ":", "2", "N"], list(F), F, QUIET), ("bus", 1, ["1.5"], list(F), F, QUIET)),
    "_epc_check_frmt_dc_bus_rec": ((["1", "2", "3", "4", ":"], [], {}, QUIET), (["1", ":"], [], {}, QUIET)),
    "_epc_assign_data_values_svd": (
        ("svd", 1, ["1", ":", "7", "2", "3"], SVD_NAMES, SVD_FRMT, QUIET),
        ("svd", 1, ["1", ":"], SVD_NAMES, SVD_FRMT, QUIET)),
    "_epc_assign_data_values_qtable": (
        ("q", 1, ["1", ":", "1", "2", "3", "0", "0", "0", "x"], Q_NAMES, F, QUIET),
        ("q", 1, [], Q_NAMES, F, QUIET)),
    "_pslf_seq_assign_data_values": (("bus", 1, ["1", ":", " ! "], F, QUIET), ("bus", 1, ["1", ":", "w"], F, QUIET)),
}


@pytest.mark.parametrize("name", CASES)
def test_any_object_in_any_argument(vx, name):
    good, bad = CASES[name]
    func = getattr(vx, name)
    func(*good)
    assert hostile.sweep(func, good) == len(good) * len(hostile.VALUES)
    assert hostile.sweep(func, bad) == len(bad) * len(hostile.VALUES)


@pytest.mark.parametrize("name", CASES)
@pytest.mark.parametrize("which", ["good", "bad"])
def test_no_leak(vx, name, which):
    good, bad = CASES[name]
    assert_no_leak(getattr(vx, name), *(good if which == "good" else bad))


def test_no_leak_on_the_generic_paths(vx):
    import shlex
    import types
    vx.shlex = types.SimpleNamespace(split=shlex.split)
    vx._epc_assign_data_values_common = vx._epc_assign_data_values_common.__call__
    vx._WRAP_CHAR = 0
    assert_no_leak(vx._get_values_from_data_line_text_pslf, "bus", 1, '1 "A B" x\\', QUIET, calls=20_000)
    assert_no_leak(vx._epc_assign_data_values, "bus", 1, ["1", ":", "2", "N"], list(F), F, QUIET, calls=20_000)
