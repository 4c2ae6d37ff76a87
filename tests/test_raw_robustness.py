"""KORA RAW readers under bad input: any object in any argument gives a
result or an ordinary exception, and no call leaks."""
import pytest

import hostile
from leakcheck import assert_no_leak


def quiet(text):
    pass


FRMT = {"RATE1": {"defval": 0.0, "type": "float"}, "NAME": {"defval": "", "type": "str"}}
RATING = {"NUM": {"defval": 0, "type": "int"}, "NAME": {"defval": "", "type": "str"},
          "DESC": {"defval": "", "type": "str"}}

# function: (good arguments, bad arguments that make it report or raise)
CALLS = {
    "_check_eof_blank_line_kora": (("@! note\n",), (None,)),
    "_split_textline_kora": (("1, 'BUS A', ,, 2.5 # c",), ("1 'unclosed",)),
    "_split_textline_kora_keyvalue_pair": (("general", "THRSHZ = 0.0001, PQBRAK= 0.7", quiet),
                                           ("general", ", x", quiet)),
    "_split_txtline_to_values_kora": (("bus", "101, 'ALPHA', 345.0", "I", "int", quiet),
                                      ("bus", ",'x'", "I", "int", quiet)),
    "_split_txtline_to_values_kora_no_check_vlist": (("0 / end",), ("1 \"",)),
    "_split_txtline_to_values_kora_no_check": (("Q",), (",",)),
    "_split_txtline_to_values_kora_no_check_00": (("1,2",), (b"1",)),
    "_check_zcorec_table_kora": ((["1", "2.5", "-3.5"],), (["1", "x"],)),
    "_list_of_key_value_pairs_to_dict_kora": ((["RATE1=2", "name=x"], FRMT), (["RATE1"], FRMT)),
    "_list_of_ratings_items_to_dict_kora": (("rating", ["1", "N", "D"], RATING, "1,N,D", quiet),
                                            ("rating", ["x"], RATING, "x", quiet)),
}


@pytest.mark.parametrize("name", sorted(CALLS))
def test_hostile_arguments(vx, name):
    good, _ = CALLS[name]
    assert hostile.sweep(getattr(vx, name), good) == len(good) * len(hostile.VALUES)


def test_progress_that_rebinds_the_splitter_midway(vx):
    def progress(text):
        vx._split_textline_kora = lambda line: ["99"]
    assert vx._split_txtline_to_values_kora("bus", ",1", "I", "float", progress)[2] == ""
    assert vx._split_txtline_to_values_kora("bus", ",1", "I", "float", progress)[2] == 99.0


@pytest.mark.parametrize("name", sorted(CALLS))
@pytest.mark.parametrize("kind", ["good", "bad"])
def test_no_leak(vx, name, kind):
    good, bad = CALLS[name]
    assert_no_leak(getattr(vx, name), *(good if kind == "good" else bad))
