"""The echo of stored substation blocks, record by record through progress."""
import collections

import pytest

ID = {"IS": 7, "NAME": "'SUB A'", "LATI": 47.5, "LONG": 8.25, "SGR": 0.0}
NODE = {"NI": 1, "NAME": "'N1'", "I": 101, "STAT": 1, "extra": "ignored"}
SWD = {"NI": 1, "NJ": 2, "ID": "'1'", "NAME": "'BRK'", "SWDTYP": 2, "STAT": 1, "NSTAT": 0,
       "X": 0.0001, "RATE1": 100.0, "RATE2": 0.0, "RATE3": 1e6}


def term(tertyp):
    return {"I": 101, "NI": 1, "TERTYP": tertyp, "J": 102, "K": 103, "ID": "'1'"}


def test_all_record_kinds_in_stored_order(vx, progress):
    blocks = {7: {"id": ID, "node": [NODE, collections.UserDict(NODE)], "swd": [SWD], "sub": None},
              8: {"term": [term("L")], "id": dict(ID, IS=8)}}
    vx._print_kora_substation_block_data_as_stored(blocks, progress)
    assert progress.messages == [
        "\n", "7, 'SUB A', 47.5, 8.25, 0\n", "1, 'N1', 101, 1\n", "1, 'N1', 101, 1\n",
        "1, 2, '1', 'BRK', 2, 1, 0, 0.0001, 100, 0, 1e+06\n",
        "\n", "101, 1, L, '1'\n", "8, 'SUB A', 47.5, 8.25, 0\n",   # terminals first, as stored
    ]


@pytest.mark.parametrize("tertyp, line", [
    ("L", "101, 1, L, '1'\n"), ("F", "101, 1, F, '1'\n"), ("'M'", "101, 1, 'M', '1'\n"),
    ("2", "101, 1, 2, 102, '1'\n"), ("'2'", "101, 1, '2', 102, '1'\n"),
    ("3", "101, 1, 3, 102, 103, '1'\n"), ("S", "101, 1, S\n"),
    ("l", "junk - should not come here\n" + str(term("l")) + "\n"),
    (None, "junk - should not come here\n" + str(term(None)) + "\n"),
])
def test_terminal_lines(vx, progress, tertyp, line):
    vx._print_kora_substation_block_data_as_stored({1: {"term": [term(tertyp)]}}, progress)
    assert progress.messages == ["\n", line]


@pytest.mark.parametrize("blocks, messages", [
    ({}, []), ({1: {}}, ["\n"]), ({1: {"node": []}, 2: {"ID": ID, 5: None}}, ["\n", "\n"]),
])
def test_empty_and_unknown_parts(vx, progress, blocks, messages):
    vx._print_kora_substation_block_data_as_stored(blocks, progress)
    assert progress.messages == messages


class TwiceKeyed:
    def keys(self):
        return ["IS", "IS"]

    def __getitem__(self, key):
        return 1


ID_TEXT = "{IS:d}, {NAME:s}, {LATI:g}, {LONG:g}, {SGR:g}\n"


@pytest.mark.parametrize("record, error, message", [
    (None, TypeError, "argument after ** must be a mapping, not NoneType"),
    (5, TypeError, "'int' object is not iterable"),                 # what dict(5) says
    (TwiceKeyed(), KeyError, "'NAME'"),                           # dict() keeps one IS
    (dict(ID, IS=7.0), ValueError, "Unknown format code 'd' for object of type 'float'"),
    (dict(ID, NAME=5), ValueError, "Unknown format code 's' for object of type 'int'"),
    ({"IS": 1}, KeyError, "'NAME'"),
])
def test_record_errors(vx, progress, record, error, message):
    with pytest.raises(error) as info:
        vx._print_kora_substation_block_data_as_stored({1: {"id": record}}, progress)
    assert type(info.value) is error and str(info.value) == message
    assert progress.messages == ["\n"]   # lines already given stay given


def test_record_that_is_not_a_dict_is_made_one_by_dict(vx, progress):
    pairs = [(k, v) for k, v in ID.items()] + [("IS", 7)]
    vx._print_kora_substation_block_data_as_stored({1: {"id": pairs}}, progress)
    assert progress.messages == ["\n", ID_TEXT.format(**dict(pairs))]


@pytest.mark.parametrize("blocks, error", [
    (None, AttributeError), ({1: None}, AttributeError), ({1: {"node": None}}, TypeError),
    ({1: {"term": [{"I": 1}]}}, KeyError), ({1: {"term": [None]}}, TypeError),
])
def test_structure_errors(vx, progress, blocks, error):
    with pytest.raises(error):
        vx._print_kora_substation_block_data_as_stored(blocks, progress)


def test_terminal_type_goes_through_the_module_unwrapper(vx, progress):
    vx._get_unwrapped_string = lambda text: "S"
    vx._print_kora_substation_block_data_as_stored({1: {"term": [term("'odd'")]}}, progress)
    assert progress.messages == ["\n", "101, 1, 'odd'\n"]
    # The function is looked up before the record's type is read, as Python does.
    del vx.__dict__["_get_unwrapped_string"]
    with pytest.raises(NameError):
        vx._print_kora_substation_block_data_as_stored({1: {"term": [{}]}}, progress)
