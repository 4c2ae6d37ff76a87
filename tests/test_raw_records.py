"""KORA RAW record value lists, key/value and rating dictionaries."""
from collections import OrderedDict

import pytest

IND, IND2 = " " * 5, " " * 9


def not_provided(group, name, line):
    return " %sError - Reading '%s', data item '%s' not provided, record ignored.\n %s%s" % (IND, group, name, IND2, line)


def value_required(group, name, value, word, line):
    return " %sError - Reading '%s', %s=%s, %s value required, record ignored.\n %s%s" % (
        IND, group, name, value, word, IND2, line)


@pytest.mark.parametrize("line, frst_type, result", [
    ("0 / END OF BUS DATA", "int", (False, False, 0, ["0", "/", "END", "OF", "BUS", "DATA"])),
    (" q", "int", (True, False, "q", ["q"])),
    ("Q", "float", (True, False, "Q", ["Q"])),
    ("101, 'ALPHA', 345.0", "int", (False, False, 101, ["101", "ALPHA", "345.0"])),
    ("101", "float", (False, False, 101.0, ["101"])),
    ("0", "float", (False, False, 0.0, ["0"])),
    (" 1_000 ", "int", (False, False, 1000, ["1_000"])),   # int() rules: underscores
    ("ABC", "str", (False, False, "ABC", ["ABC"])),
    ("0", "str", (False, False, 0, ["0"])),
    ("00", "str", (False, False, "00", ["00"])),
])
def test_split_to_values(vx, progress, line, frst_type, result):
    got = vx._split_txtline_to_values_kora("Bus", line, "I", frst_type, progress)
    assert got == result and type(got[2]) is type(result[2])
    assert progress.messages == []


def test_first_item_of_the_wrong_type(vx, progress):
    line = "10.5, 'ALPHA'"
    assert vx._split_txtline_to_values_kora("bus", line, "I", "int", progress) == (False, True, "10.5", ["10.5", "ALPHA"])
    assert progress.messages == [value_required("Bus", "I", "10.5", "integer", line)]


def test_missing_first_item_gives_two_messages(vx, progress):
    line = ",'ALPHA'"
    assert vx._split_txtline_to_values_kora("bus", line, "I", "float", progress) == (False, True, "", ["_ifc", "ALPHA"])
    assert progress.messages == [not_provided("Bus", "I", line), value_required("Bus", "I", "", "float", line)]


def test_missing_first_item_without_a_type_raises_after_its_message(vx, progress):
    with pytest.raises(UnboundLocalError, match="^local variable 'which_type' referenced before assignment$"):
        vx._split_txtline_to_values_kora("Bus", "", "NAME", "str", progress)
    assert progress.messages == [not_provided("Bus", "NAME", "")]


@pytest.mark.parametrize("line, result", [
    (",5", (False, "_ifc", ["_ifc", "5"])),
    ("", (False, "", [])),
    ("Q", (True, "Q", ["Q"])),
    ("0, 1", (False, 0, ["0", "1"])),
    ("'q' x", (True, "q", ["q", "x"])),
])
def test_unchecked_forms(vx, line, result):
    assert vx._split_txtline_to_values_kora_no_check_vlist(line) == result
    assert vx._split_txtline_to_values_kora_no_check(line) == result[:2]
    assert vx._split_txtline_to_values_kora_no_check_00(line) == result[:2]


def test_no_check_goes_through_the_vlist_global(vx):
    vx._split_txtline_to_values_kora_no_check_vlist = lambda line: iter((1, 2, 3))
    assert vx._split_txtline_to_values_kora_no_check("x") == (1, 2)
    vx._split_txtline_to_values_kora_no_check_vlist = lambda line: (1, 2)
    with pytest.raises(ValueError, match=r"not enough values to unpack \(expected 3, got 2\)"):
        vx._split_txtline_to_values_kora_no_check("x")


@pytest.mark.parametrize("row, result", [
    (["0", "0.0", "0"], (True, [0.0, 0.0, 0.0])),
    (["1", "1.05"], (False, [1.0, 1.05])),
    (["1.0", "-1.0"], (True, [1.0, -1.0])),    # the sum ends the table, not each value
    (["1", "x", "2"], (False, [])),
    ([], (True, [])),
    ((5, 2.5, "  -7.5 "), (True, [5.0, 2.5, -7.5])),
    (["nan"], (False, [float("nan")])),
])
def test_correction_table_rows(vx, row, result):
    endtbl, tlst = vx._check_zcorec_table_kora(row)
    assert endtbl is result[0]
    assert [repr(v) for v in tlst] == [repr(v) for v in result[1]]


FRMT = {"RATE1": {"defval": 0.0, "type": "float"}, "STAT": {"defval": 1, "type": "int"}}


@pytest.mark.parametrize("vlist, result", [
    (["rate1=100.5"], [("RATE1", 100.5), ("STAT", 1)]),
    (["STAT=x"], [("RATE1", 0.0), ("STAT", 1)]),
    (["RATE1=1", "RATE1=2"], [("RATE1", 2.0), ("STAT", 1)]),
    (["ZZZ=5"], [("RATE1", 0.0), ("STAT", 1)]),
    (["stat= 7 =9"], [("RATE1", 0.0), ("STAT", 7)]),
    (["Stat\u00e9=3", "stat=4"], [("RATE1", 0.0), ("STAT", 4)]),
])
def test_key_value_pairs(vx, vlist, result):
    got = vx._list_of_key_value_pairs_to_dict_kora(vlist, FRMT)
    assert type(got) is OrderedDict and list(got.items()) == result


def test_key_value_item_without_equals_sign(vx):
    with pytest.raises(IndexError, match="list index out of range"):
        vx._list_of_key_value_pairs_to_dict_kora(["RATE1"], FRMT)


def test_untyped_field_takes_the_previous_fields_value(vx):
    frmt = {"NUM": {"defval": 0, "type": "int"}, "NAME": {"defval": "N", "type": "str"}}
    assert vx._list_of_key_value_pairs_to_dict_kora(["NUM=3", "NAME=X"], frmt) == OrderedDict(NUM=3, NAME=3)
    assert vx._list_of_key_value_pairs_to_dict_kora(["NUM=3"], frmt) == OrderedDict(NUM=3, NAME="N")
    with pytest.raises(UnboundLocalError, match="local variable 'v' referenced before assignment"):
        vx._list_of_key_value_pairs_to_dict_kora(["NAME=X"], {"NAME": frmt["NAME"], "NUM": frmt["NUM"]})


RATING = {"NUM": {"defval": 0, "type": "int"}, "NAME": {"defval": "", "type": "str"},
          "DESC": {"defval": "none", "type": "str"}, "MORE": {"defval": 1, "type": "int"}}


@pytest.mark.parametrize("vlist, result", [
    (["1", "NORMAL"], (1, [("NUM", 1), ("NAME", "NORMAL"), ("DESC", "none")])),
    (["2", "N", "D", "extra"], (2, [("NUM", 2), ("NAME", "N"), ("DESC", "D")])),
    (["3", "_ifc", "_ifc"], (3, [("NUM", 3), ("NAME", "_ifc"), ("DESC", "_ifc")])),
])
def test_rating_records(vx, progress, vlist, result):
    num, tdct = vx._list_of_ratings_items_to_dict_kora("rating", vlist, RATING, "line", progress)
    assert (num, list(tdct.items())) == result and type(tdct) is OrderedDict
    assert progress.messages == []


@pytest.mark.parametrize("vlist, clause", [
    ([], "RATING number not provided"),
    (["A"], "RATING number 'A' not recognized"),
    (["_ifc", "x"], "RATING number '_ifc' not recognized"),
])
def test_bad_rating_numbers_are_reported(vx, progress, vlist, clause):
    assert vx._list_of_ratings_items_to_dict_kora("rating set", vlist, RATING, "1,2\n", progress) == (None, OrderedDict())
    assert progress.messages == [" %sError - Reading 'Rating Set', %s, record ignored.\n %s1,2\n" % (IND, clause, IND2)]


def test_rating_format_needs_three_fields(vx, progress):
    with pytest.raises(IndexError):
        vx._list_of_ratings_items_to_dict_kora("r", ["1"], {"A": {}, "B": {}}, "", progress)


def test_progress_error_inside_the_rating_handler_carries_the_conversion_error(vx):
    def progress(text):
        raise KeyError("log closed")
    with pytest.raises(KeyError) as info:
        vx._list_of_ratings_items_to_dict_kora("r", ["A"], RATING, "", progress)
    assert type(info.value.__context__) is ValueError
