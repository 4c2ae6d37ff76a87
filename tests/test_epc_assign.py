"""EPC value assignment: the common assigner, its fronts for ordinary, SVD
and Q table records, the DC bus check and the sequential assigner, with the
quirks that the conversion tools rely on."""
import collections
import math
import traceback

import pytest

OD = collections.OrderedDict
F = {"a": {"type": "int"}, "b": {"type": "float"}, "c": {"type": "name"}}
TAIL = "     'BUS' record specified on line 7 ignored.\n"


def bad(kind, nam, text):
    return " %s Data item '%s' not specified correctly. Input specified= %s\n%s" % (kind, nam, text, TAIL)


@pytest.mark.parametrize("inputs, frmt, result, messages", [
    ({"a": "12", "b": "1.5", "c": "BUS 1"}, F, (False, OD(a=12, b=1.5, c="'BUS 1'")), []),
    ({"a": " -1_0 ", "b": "-inf", "x": "y"}, F, (False, OD(a=-10, b=-math.inf, c="' '")), []),
    ({}, F, (False, OD(a=0, b=0.0, c="' '")), []),
    ({"a": "9"}, {}, (False, OD()), []),
    ({"a": "1.0", "b": "x"}, F, (True, OD()), [bad("Integer", "a", "1.0")]),
    ({"a": "1", "b": "1e"}, F, (True, OD(a=1)), [bad("Float", "b", "1e")]),
    ({"a": "1", "c": 5}, OD(c={"type": 0}, a={"type": "int"}), (False, OD(c="'5'", a=1)), []),
])
def test_common_assigner(vx, progress, inputs, frmt, result, messages):
    got = vx._epc_assign_data_values_common("bus", 7, inputs, frmt, progress)
    assert got == result and type(got[1]) is OD
    assert list(got[1]) == list(result[1]) and progress.messages == messages
    assert [type(v) for v in got[1].values()] == [type(v) for v in result[1].values()]


@pytest.mark.parametrize("wrap, c", [('"', '"BUS"'), ("", "BUS"), ("<>", "<>BUS<>"), (5, "5BUS5")])
def test_wrap_char_is_read_at_each_call(vx, progress, wrap, c):
    vx._WRAP_CHAR = wrap
    assert vx._epc_assign_data_values_common("bus", 7, {"c": "BUS"}, F, progress)[1]["c"] == c
    assert vx._pslf_seq_assign_data_values("bus", 7, ["1", "2", "BUS"], F, progress)[1]["c"] == c


@pytest.mark.parametrize("names, texts, result", [
    (["a", "semi", "b", "semi1", "c", "semi2"], ["1", ":", "2", ":", "X", ":"], OD(a=1, b=2.0, c="'X'")),
    (["a", "b", "c"], ["1"], OD(a=1, b=0.0, c="' '")),
    (["a"], ["1", "2", "3"], OD(a=1, b=0.0, c="' '")),
    (["a", "a"], ["1", "2"], OD(a=2, b=0.0, c="' '")),
    (("c", "a"), ("Q", "4"), OD(a=4, b=0.0, c="'Q'")),
])
def test_names_paired_with_texts(vx, progress, names, texts, result):
    assert vx._epc_assign_data_values("bus", 7, texts, names, F, progress) == (False, result)
    assert vx._epc_assign_data_values("bus", 7, iter(texts), iter(names), F, progress) == (False, result)


def test_fronts_call_the_common_assigner_through_the_module_global(vx, progress):
    calls = []
    vx._epc_assign_data_values_common = lambda *args: calls.append(args) or [1, 2]
    assert vx._epc_assign_data_values("g", 1, ["x"], ["a"], F, progress) == (1, 2)
    assert vx._epc_assign_data_values_qtable("g", 1, [":"], [], F, progress) == (1, 2)
    assert [c[2] for c in calls] == [{"a": "x"}, {}]
    vx._epc_assign_data_values_common = lambda *args: (1, 2, 3)
    with pytest.raises(ValueError, match=r"too many values to unpack \(expected 2\)"):
        vx._epc_assign_data_values("g", 1, [], [], F, progress)


def test_errors_of_the_common_assigner_name_it_in_the_traceback(vx, progress):
    with pytest.raises(KeyError) as info:
        vx._epc_assign_data_values("g", 1, [], [], {"a": {}}, progress)
    names = [f.name for f in traceback.extract_tb(info.tb)]
    assert names[-2:] == ["vxrcomn._epc_assign_data_values", "vxrcomn._epc_assign_data_values_common"]


def test_failed_message_carries_the_conversion_error_as_context(vx):
    with pytest.raises(TypeError) as info:  # the name is no str
        vx._epc_assign_data_values_common("bus", 7, {1: "x"}, {1: {"type": "int"}}, print)
    assert type(info.value.__context__) is ValueError


@pytest.mark.parametrize("texts, result", [
    (["1", ":", "3"], (True, False, "    Found semicolon on data record at position 1, it is not correct.\n")),
    (["1", "2", "3", ":", "5"], (False, False, "")),
    (["1", "2", "3", "4", ":"], (False, True, "")),
    (["1", "2", ":", ":"], (True, False, "    Found semicolon on data record at position 2, it is not correct.\n")),
    (("1", "2", "3", "4", "5"), (True, False, "    No semicolon found on data record.\n")),
    ([], (True, False, "    No semicolon found on data record.\n")),
])
def test_dc_bus_separator_position(vx, progress, texts, result):
    ierr, has_long_id, message = result
    assert vx._epc_check_frmt_dc_bus_rec(texts, None, None, progress) == (ierr, has_long_id)
    assert progress.text == (" Checking DC Bus Data format:\n" + message if ierr else "")


SVD_NAMES = {"begin_all": ["n", "semi", "ty"], "ty_012": ["g"], "ty_01234": ["h"], "ty_56": ["k"],
             "ty_7": ["m"], "end_all": ["z"]}
SVD_FRMT = {k: {"type": "int"} for k in "n ty g h k m z".split()}


@pytest.mark.parametrize("ty, rest, result", [
    ("0", ["5", "6"], OD(n=1, ty=0, g=5, h=0, k=0, m=0, z=6)),
    ("3", ["5", "6"], OD(n=1, ty=3, g=0, h=5, k=0, m=0, z=6)),     # no "ty_34": "ty_01234"
    ("6", ["5"], OD(n=1, ty=6, g=0, h=0, k=5, m=0, z=0)),
    ("7", ["5", "6", "9"], OD(n=1, ty=7, g=0, h=0, k=0, m=5, z=6)),
])
def test_svd_names_follow_the_type(vx, progress, ty, rest, result):
    assert vx._epc_assign_data_values_svd("svd", 7, ["1", ":", ty] + rest, SVD_NAMES, SVD_FRMT,
                                          progress) == (False, result)


@pytest.mark.parametrize("ty, shown", [("x", "x"), ("8", "8"), (" +8", "8"), ("-1", "-1"), ("99" * 20, "99" * 20)])
def test_bad_svd_type_returns_a_plain_empty_dict(vx, progress, ty, shown):
    result = vx._epc_assign_data_values_svd("svd", 7, ["1", ":", ty], SVD_NAMES, SVD_FRMT, progress)
    assert result == (True, {}) and type(result[1]) is dict
    assert progress.messages == [" SVD type found is '%s'. It should be between 0 through 7.\n" % shown +
                                 TAIL.replace("BUS", "SVD")]


def test_short_svd_record_raises_unbound_local_with_its_context(vx, progress):
    with pytest.raises(UnboundLocalError, match="^local variable 'ty' referenced before assignment$") as info:
        vx._epc_assign_data_values_svd("svd", 7, ["1", ":"], SVD_NAMES, SVD_FRMT, progress)
    assert type(info.value.__context__) is IndexError and progress.messages == []


Q_NAMES = ["id", "semi"] + ["%s%d" % (n, i) for i in range(3) for n in ("p", "qmx", "qmn")]
Q_FRMT = {n: {"type": "name" if n == "id" else "float"} for n in Q_NAMES if n != "semi"}


@pytest.mark.parametrize("points, kept", [
    ("1 2 3 0 0.0 -0 4 5 6", [1, 2, 3, 4, 5, 6]),
    ("0 0 0 x y z 1 2 3 7", [1, 2, 3]),                   # non-numbers count as 0.0
    ("nan 0 0 0 0 0", [math.nan, 0, 0]),
    ("1 2 3 4 5 6 7 8 9", [1, 2, 3, 4, 5, 6, 7, 8, 9]),
    ("", []),
])
def test_qtable_drops_all_zero_points(vx, progress, points, kept):
    ierr, vals = vx._epc_assign_data_values_qtable("qtable", 7, ["Q1", ":"] + points.split(), Q_NAMES, Q_FRMT,
                                                   progress)
    expected = [float(v) for v in kept] + [0.0] * (9 - len(kept))
    assert not ierr and vals["id"] == "'Q1'" and "semi" not in vals
    assert str(list(vals.values())[1:]) == str(expected)


def test_qtable_without_items_raises_unbound_local(vx, progress):
    with pytest.raises(UnboundLocalError, match="^local variable 'i1' referenced before assignment$") as info:
        vx._epc_assign_data_values_qtable("qtable", 7, [], Q_NAMES, Q_FRMT, progress)
    assert info.value.__context__ is None


SEQ = OD(a={"type": "int"}, semi={"type": "float"}, b={"type": "int"}, c={"type": "name"})


@pytest.mark.parametrize("texts, result, messages", [
    (["1", ":", "2", "X"], (False, OD(a=1, b=2, c="'X'")), []),
    (["1"], (False, OD(a=1, semi=0.0, b=0, c="' '")), []),          # defaults include the separator
    ([], (False, OD(a=0, semi=0.0, b=0, c="' '")), []),
    (["1", ":", " ! ", "!"], (False, OD(a=1, b=" ! ", c="!")), []),
    (["1.0", ":", "2", "X", "9"], (True, OD()), [bad("Integer", "a", "1.0")]),
    (["1", ":", "x"], (True, OD(a=1, c="' '")), [bad("Integer", "b", "x")]),
])
def test_sequential_assignment(vx, progress, texts, result, messages):
    got = vx._pslf_seq_assign_data_values("bus", 7, texts, SEQ, progress)
    assert got == result and list(got[1]) == list(result[1]) and progress.messages == messages


def test_sequential_defaults_start_at_the_number_of_texts(vx, progress):
    frmt = {k: {"type": "float"} for k in "xyz"}
    assert vx._pslf_seq_assign_data_values("bus", 7, ["x"], frmt, progress) == (True, OD(y=0.0, z=0.0))
