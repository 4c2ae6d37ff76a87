"""The shortcuts the assigners take for exact built-in types give what the
documented steps give: the pairing table, int() of decimal texts, ordered
format dictionaries and the result's class."""
import collections
import types

import pytest

FRMT = collections.OrderedDict([("a", {"type": "int"}), ("b", {"type": "float"}), ("c", {"type": "char"})])


def quiet(text):
    pass


@pytest.mark.parametrize("names, values, expected", [
    (["a", "b", "c"], ["1", "2.5", "X"], [("a", 1), ("b", 2.5), ("c", "'X'")]),
    (["a", "a", "semi", "c"], ["1", "2", ":", "Z"], [("a", 2), ("b", 0.0), ("c", "'Z'")]),   # the last a wins
    (("a", "semi1", "b"), ("7", ":", "1e3", "extra"), [("a", 7), ("b", 1000.0), ("c", "' '")]),
    ([], [], [("a", 0), ("b", 0.0), ("c", "' '")]),
])
def test_pairing_without_a_dictionary(vx, names, values, expected):
    assert vx._epc_assign_data_values("bus", 1, values, names, FRMT, quiet) == (False, collections.OrderedDict(expected))
    # The same through the documented dictionary, handed to a stand-in global.
    original, seen = vx._epc_assign_data_values_common, []

    def common(recgrp, lnumstr, given, frmtdct, progress):
        seen.append(dict(given))
        return original(recgrp, lnumstr, given, frmtdct, progress)
    vx._epc_assign_data_values_common = common
    assert vx._epc_assign_data_values("bus", 1, values, names, FRMT, quiet) == (False, collections.OrderedDict(expected))
    assert seen == [{n: v for n, v in zip(names, values) if not n.startswith("semi")}]


def test_format_key_that_is_not_a_plain_str(vx):
    class Name(str):
        def __hash__(self):
            return str.__hash__(self)

        def __eq__(self, other):
            return str.__eq__(self, other)
    frmt = collections.OrderedDict([(Name("a"), {"type": "int"}), (1, {"type": "int"})])
    assert vx._epc_assign_data_values("g", 1, ["5", "6"], ["a", "b"], frmt, quiet) == \
        (False, collections.OrderedDict([("a", 5), (1, 0)]))


def test_descriptor_that_changes_the_text_list_midway(vx):
    values = ["1", "2"]

    class Descriptor(dict):
        def __getitem__(self, key):
            values.clear()
            return "int"
    frmt = collections.OrderedDict([("a", Descriptor()), ("b", Descriptor())])
    assert vx._epc_assign_data_values("g", 1, values, ["a", "b"], frmt, quiet) == \
        (False, collections.OrderedDict([("a", 1), ("b", 2)]))


@pytest.mark.parametrize("text", ["12", " 12 ", "+5", "-0", "007", "-123456789012345678", "1234567890123456789",
                                  "1_000", "\uff11\uff12", "\t3\n", "1 2", "", "+", "-", "0x10", "1.0", " "])
def test_int_of_texts(vx, progress, text):
    try:
        expected = (False, collections.OrderedDict(a=int(text)))
    except ValueError:
        expected = (True, collections.OrderedDict())
    got = vx._epc_assign_data_values_common("g", 1, {"a": text}, {"a": {"type": "int"}}, progress)
    assert got == expected and all(type(v) is int for v in got[1].values())
    first = text.strip() or "x"
    if " " not in first:
        got = vx._split_txtline_to_values_kora("g", first, "I", "int", quiet)
        assert got[1] or (got[2] == int(first) and type(got[2]) is int)


def test_reordered_format_dictionary_keeps_its_own_order(vx):
    frmt = collections.OrderedDict([("a", {"type": "int"}), ("b", {"type": "int"}), ("c", {"type": "int"})])
    frmt.move_to_end("a")
    assert list(vx._epc_assign_data_values("g", 1, ["1", "2", "3"], ["a", "b", "c"], frmt, quiet)[1]) == ["b", "c", "a"]
    assert list(vx._pslf_seq_assign_data_values("g", 1, ["1"], frmt, quiet)[1]) == ["b", "c", "a"]
    kv = collections.OrderedDict([("X", {"defval": 1, "type": "int"}), ("Y", {"defval": 2, "type": "int"})])
    kv.move_to_end("X")
    assert list(vx._list_of_key_value_pairs_to_dict_kora(["X=5"], kv).items()) == [("Y", 2), ("X", 5)]


def test_result_class_follows_the_collections_global(vx):
    class Ordered(collections.OrderedDict):
        pass
    vx.collections = types.SimpleNamespace(OrderedDict=Ordered)
    assert type(vx._epc_assign_data_values("g", 1, ["1"], ["a"], FRMT, quiet)[1]) is Ordered
    assert type(vx._list_of_key_value_pairs_to_dict_kora([], {})) is Ordered
