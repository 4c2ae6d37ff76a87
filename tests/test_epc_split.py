"""EPC data line splitting: the plain splitter, the careful reader with its
quote check, and its one-pass lexer against the interpreter's shlex."""
import shlex
import types

import pytest
from hypothesis import given, settings, strategies as st

import vxrcomn
from conftest import Progress


@pytest.mark.parametrize("line, items", [
    ("  1   2  3 ", ["1", "2", "3"]),
    ("", [""]),
    (" \t\r\n ", [""]),
    ("a\tb  c", ["a\tb", "c"]),                      # only blanks separate
    ('1 "two words" 3', ["1", '"two', 'words"', "3"]),  # quotes mean nothing here
    ("\u2003x\u00a0 y\u3000", ["x\u00a0", "y"]),       # strip() knows all white space
    ("é  \U0001f600 ,", ["é", "\U0001f600", ","]),
])
def test_split_at_blanks(vx, line, items):
    assert vx._split_data_line_text_pslf(line) == items


class Fancy(str):
    """Its own strip() and replace(), so the splitter runs its steps
    through them: the find() test sees the unstripped blanks."""
    def strip(self):
        return Fancy("  " + str(self) + "  ")

    def replace(self, old, new):
        return Fancy(str(self).replace(old, new))


def test_split_at_blanks_runs_a_subclass_through_its_methods(vx):
    assert vx._split_data_line_text_pslf(Fancy("a  b")) == ["", "", "a", "", "b", "", ""]


@pytest.mark.parametrize("line, items", [
    ('1 "NORTH 01" 230.0', ["1", "NORTH 01", "230.0"]),
    ('7 "A,B" O\'Neil x,y', ["7", "A_B", "O_Neil", "x_y"]),
    ('"" " " : ! # x', ["", " ", ":", "!", "#", "x"]),
    ('a"b c"d \\"\\"', ["ab cd", '""']),
    ('"a\\b\\\\c\\"d" \\"', ['a\\b\\c"d', '"']),
    (" \t\r\n", []),
    ("x\u00a0y \U0001f600", ["x\u00a0y", "\U0001f600"]),
])
def test_values_from_data_line(vx, progress, line, items):
    assert vx._get_values_from_data_line_text_pslf("bus", 1, line, progress) == items
    assert progress.messages == []


def test_uneven_quotes_are_reported_and_the_line_skipped(vx, progress):
    assert vx._get_values_from_data_line_text_pslf("bus", 12, '1 "A B" "C 2', progress) == []
    assert progress.messages == [
        " Character Data items not specified correctly using double quotes, uneven number (3) of"
        " double quotes found.\n     'BUS' record specified on line 12 ignored.\n"]


@pytest.mark.parametrize("line, context", [
    ("1 x\\", "No escaped character"),
    ('\\" x "', "No closing quotation"),
])
def test_unsplittable_line_raises_the_type_error_of_its_handler(vx, progress, line, context):
    with pytest.raises(TypeError, match="not all arguments converted") as info:
        vx._get_values_from_data_line_text_pslf("bus", 1, line, progress)
    assert (type(info.value.__context__), str(info.value.__context__)) == (ValueError, context)
    assert progress.messages == []


def outcome(vx, line, *, generic=False):
    """The reader's result or exception, with the exception's context."""
    saved = vx.shlex
    if generic:
        vx.shlex = types.SimpleNamespace(split=shlex.split, shlex=shlex.shlex)
    progress = Progress()
    try:
        return ("ok", vx._get_values_from_data_line_text_pslf("g", 3, line, progress), progress.messages)
    except Exception as e:
        c = e.__context__
        return ("raised", type(e), str(e), type(c), str(c), progress.messages)
    finally:
        vx.shlex = saved


def shlex_outcome(line):
    try:
        return ("ok", shlex.split(line), [])
    except ValueError as e:
        return ("raised", TypeError, "not all arguments converted during string formatting",
                ValueError, str(e), [])


class KeepMarks(str):
    """Keeps its commas and apostrophes (a plain str after the second
    replace), so the lexer meets single quotes."""
    def replace(self, old, new):
        return str(self) if old == "'" else KeepMarks(self)


# A line is drawn as a length and a number whose digits pick its pieces: two
# draws are far cheaper than a list or a text, and 10,000 lines must be quick.
PIECES = (list(" \t\r\n\"\"''\\\\,#:!/_ab1.-") + ["  ", '""', '\\"', "x y", "\\ "] +
          ["é", "ÿ", "Ā", "\u2003", "\x0b", "\x00", "\ud800", "\udfff", "\U0001f600", "\U0010ffff"])


def line_of(drawn):
    length, number = drawn
    pieces = []
    for _ in range(length):
        number, k = divmod(number, len(PIECES))
        pieces.append(PIECES[k])
    return "".join(pieces)


LINES = st.tuples(st.integers(0, 40), st.integers(0, len(PIECES) ** 40)).map(line_of)


BATCH = 25  # lines per example: the generator's cost is per example


@settings(max_examples=10_000 // BATCH)
@given(st.lists(LINES, min_size=BATCH, max_size=BATCH))
def test_lexer_agrees_with_shlex(lines):
    vx = vxrcomn
    for line in lines:
        fast = outcome(vx, line)
        assert fast == outcome(vx, line, generic=True), line
        if line.count('"') % 2 == 0:
            assert fast == shlex_outcome(line.replace(",", "_").replace("'", "_")), line
            assert outcome(vx, KeepMarks(line)) == shlex_outcome(line), line


def test_lexer_keeps_the_line_when_nothing_was_unescaped(vx, progress):
    line = "NORTH-01"
    assert vx._get_values_from_data_line_text_pslf("bus", 1, line, progress)[0] is line
    long_line = " ".join('"N %d" x\\y%d' % (i, i) for i in range(100))  # beyond the local buffer
    assert outcome(vx, long_line) == shlex_outcome(long_line)


def test_lexer_class_patched_for_a_while_gets_the_fast_path_back(vx, progress):
    original = shlex.shlex.read_token
    shlex.shlex.read_token = lambda self: original(self)
    try:
        line = "NORTH-01"
        assert vx._get_values_from_data_line_text_pslf("bus", 1, line, progress)[0] is not line
    finally:
        shlex.shlex.read_token = original
    assert vx._get_values_from_data_line_text_pslf("bus", 1, line, progress)[0] is line


def test_generic_path_follows_the_module_global(vx, progress):
    vx.shlex = types.SimpleNamespace(split=lambda s: ["split", s])
    assert vx._get_values_from_data_line_text_pslf("bus", 1, "a,b 'c'", progress) == ["split", "a_b _c_"]
    vx.shlex = None
    with pytest.raises(TypeError) as info:
        vx._get_values_from_data_line_text_pslf("bus", 1, "a", progress)
    assert type(info.value.__context__) is AttributeError
