"""KORA RAW line tokenizing: the one-pass tokenizer against the regular
expression and lexer pipeline it stands in for, on tables and generated lines."""
import re
import shlex
import types

import pytest
from hypothesis import example, given, settings
from hypothesis import strategies as st

import vxrcomn


def generic(vx):
    """Rebinds the module's `re` to a stand-in, which forces every RAW reader
    onto the generic path through the globals."""
    vx.re = types.SimpleNamespace(compile=re.compile)


def outcome(func, *args):
    """A comparable result: the value, or the exception with its context."""
    try:
        return ("ok", func(*args))
    except Exception as e:
        ctx = e.__context__
        return ("raised", type(e), str(e), type(ctx), str(ctx) if ctx is not None else None)


@pytest.mark.parametrize("line, items", [
    ("  1, 'BUS A  ', 2.5 ,\n", ["1", "BUS A  ", "2.5"]),
    ("1,,3", ["1", "_ifc", "3"]),
    ("1, ,  ,4", ["1", "_ifc", "_ifc", "4"]),
    (",2", ["_ifc", "2"]),
    (",,x", ["_ifc", "_ifc", "x"]),
    ("1,2,,", ["1", "2"]),                 # one trailing comma dropped, the other separates
    ("   ", []),
    ("1 2\t3", ["1", "2", "3"]),
    ("1,\t,3", ["1", "3"]),                # a tab between commas loses the empty item
    ("1, 2 # note", ["1", "2"]),
    ("'a,,b', 'c, d'", ["a,_ifc,b", "c, d"]),  # the rewrite reaches inside quotes
    ("'it''s'", ["it", "s"]),              # a closing quote ends the item
    ("ab'c,,d'", ["abc", "_ifc", "d"]),    # a quote inside an item is plain text
    ("'x \"y\" z'", ["x y z"]),
    ("ab#c\nd e", ["abd", "e"]),           # an item goes on after a comment's line
    ("1 #c\n2", ["1", "2"]),
    ("'#', 2", ["#", "2"]),
    ("1,'',3", ["1", "", "3"]),
    ("\u00e9t\u00e9, \u4e2d, \U0001f600", ["\u00e9t\u00e9", "\u4e2d", "\U0001f600"]),
    ("101,'ÄÖÜ ABC',1", ["101", "ÄÖÜ ABC", "1"]),
])
def test_split_textline(vx, line, items):
    assert vx._split_textline_kora(line) == items
    generic(vx)
    assert vx._split_textline_kora(line) == items


@pytest.mark.parametrize("line, error, message, context", [
    ("1 'ABC", Exception, "Error reading line: 1 'ABC", ValueError),
    ("  \"x,\n", Exception, "Error reading line: \"x,", ValueError),
    (" , ", IndexError, "string index out of range", None),
])
def test_split_textline_errors(vx, line, error, message, context):
    for _ in range(2):
        with pytest.raises(error) as info:
            vx._split_textline_kora(line)
        assert type(info.value) is error and str(info.value) == message
        assert type(info.value.__context__) is type(None) if context is None else context
        generic(vx)


# Lines built from the characters the tokenizer treats specially, mixed with
# any other character the interpreter knows.  Lines come in batches: the
# generator's cost is per example, and the check wants many lines.
SPECIAL = " ,,, ''\"\"##\t\r\n\\=@!_ifc0qQ\u00e9\u4e2d\U0001f600\x00\x0b\xa0\x85abcXYZ019.-"
any_line = st.text(alphabet=st.one_of(st.sampled_from(SPECIAL), st.characters()), max_size=40)
line = st.text(alphabet=SPECIAL, max_size=40) | any_line
BATCH = 25


def both_paths(func, *args):
    fast = outcome(func, *args)
    saved = vxrcomn.re
    generic(vxrcomn)
    try:
        return fast, outcome(func, *args)
    finally:
        vxrcomn.re = saved


@settings(max_examples=10_000 // BATCH)
@given(st.lists(line, min_size=BATCH, max_size=BATCH))
@example(["'a, ,b',,'c'd#e\n'f", ",\u00a0, ,", "x'#\n',,"])
def test_fast_and_generic_tokenizers_agree(batch):
    for text in batch:
        fast, slow = both_paths(vxrcomn._split_textline_kora, text)
        assert fast == slow, text


@settings(max_examples=100)
@given(st.lists(st.text(alphabet=" ==,a1\t'", max_size=30), min_size=20, max_size=20))
def test_key_value_pair_split_agrees_with_the_regular_expression(batch):
    for text in batch:
        record = []
        fast, slow = both_paths(vxrcomn._split_textline_kora_keyvalue_pair, "Gauss", text, record.append)
        assert fast == slow, text
        assert record[: len(record) // 2] == record[len(record) // 2:]


def test_subclass_of_str_takes_the_generic_path_and_its_methods(vx):
    class Line(str):
        def strip(self):
            return "7, 8"
    assert vx._split_textline_kora(Line("1, 2")) == ["7", "8"]


def test_replaced_lexer_class_and_replaced_splitter_are_honoured(vx, progress):
    class Lexer(shlex.shlex):
        def __iter__(self):
            return iter(["x'", '"y'])
    vx.shlex = types.SimpleNamespace(shlex=Lexer)
    assert vx._split_textline_kora("1, 2") == ["x", "y"]
    vx.shlex = shlex
    vx._split_textline_kora = lambda line: ["Q", line]
    assert vx._split_textline_kora_keyvalue_pair("g", "A = 1", progress) == (True, False, "Q", ["Q", "A=1"])
    assert vx._split_txtline_to_values_kora("g", "1", "I", "int", progress)[2] == "Q"


def test_a_changed_lexer_class_is_noticed(vx):
    original = shlex.shlex.read_token
    shlex.shlex.read_token = lambda self: original(self).upper()
    try:
        assert vx._split_textline_kora("a, b") == ["A", "B"]
    finally:
        shlex.shlex.read_token = original
    assert vx._split_textline_kora("a, b") == ["a", "b"]


@pytest.mark.parametrize("line, result", [
    ("", (True, True)),
    ("\n", (False, True)),
    ("  \t\r\n", (False, True)),
    ("@! comment\n", (False, True)),
    (" @! x\n", (False, False)),       # a comment starts in the first column
    ("@", (False, False)),
    ("1, 2\n", (False, False)),
])
def test_check_eof_blank_line(vx, line, result):
    assert vx._check_eof_blank_line_kora(line) == result
    assert vx._check_eof_blank_line_kora(type("S", (str,), {})(line)) == result


@pytest.mark.parametrize("line, result", [
    ("0 / END\n", (False, False, 0, ["0", "/", "END"])),
    ("q\n", (True, False, "q", ["q"])),
    (" Q ", (True, False, "Q", ["Q"])),
    ("RATE1 = 10, RATE2= 20", (False, False, "RATE1=10", ["RATE1=10", "RATE2=20"])),
    ("A  =  =  B", (False, False, "A==B", ["A==B"])),
    ("00", (False, False, "00", ["00"])),
    ("'0'", (False, False, 0, ["0"])),
])
def test_key_value_pair(vx, progress, line, result):
    assert vx._split_textline_kora_keyvalue_pair("Branch", line, progress) == result
    assert progress.messages == []


@pytest.mark.parametrize("line", [", 5\n", "\n", ""])
def test_key_value_pair_without_first_item_is_reported(vx, progress, line):
    result = vx._split_textline_kora_keyvalue_pair("branch data", line, progress)
    assert result[:3] == (False, True, "")
    assert progress.messages == [" " * 6 + "Error - Reading 'Branch Data', record ignored.\n" + " " * 10 + line]


def test_messages_use_the_indent_constants_at_call_time(vx, progress):
    vx._PRG_INDENT, vx._PRG_INDENT2 = ">", ">>"
    vx._split_textline_kora_keyvalue_pair("x", ",1", progress)
    assert progress.messages == [" >Error - Reading 'X', record ignored.\n >>,1"]
