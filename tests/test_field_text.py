"""Field text: float text, quoting, unquoting and sized fields, with the
quote characters read from the module's globals at each call."""
import decimal
import gc
import traceback

import pytest
from hypothesis import assume, given, strategies as st

from hostile import StrSubclass


class Formats:
    """A value whose "g" text is fixed; counts how often it is formatted."""

    def __init__(self, text):
        self.text, self.calls = text, 0

    def __format__(self, spec):
        self.calls += 1
        return self.text


@pytest.mark.parametrize("value, text", [
    (5, "5.0"), (5.0, "5.0"), (-0.0, "-0.0"), (2.5, "2.5"), (1e20, "1e+20"), (1.5e-07, "1.5e-07"),
    (123456789.0, "1.23457e+08"), (float("inf"), "inf"), (float("-inf"), "-inf"), (float("nan"), "nan"),
    (True, "1.0"), (2 ** 70, "1.18059e+21"), (0, "0.0"), (100000, "100000.0"), (1000000, "1e+06"),
    (decimal.Decimal("5"), "5.0"), (decimal.Decimal("Infinity"), "Infinity"),
])
def test_float_text(vx, value, text):
    assert vx._convert_float_to_string(value) == text


def test_float_text_that_fails_the_float_test_is_formatted_again(vx):
    value = Formats("x")
    assert vx._convert_float_to_string(value) == "x"
    assert value.calls == 2


def test_error_in_the_float_fallback_keeps_the_handled_error_as_context(vx):
    class FailsSecondTime:
        calls = 0

        def __format__(self, spec):
            self.calls += 1
            if self.calls > 1:
                raise LookupError("second")
            return "abc"

    with pytest.raises(LookupError) as info:
        vx._convert_float_to_string(FailsSecondTime())
    assert isinstance(info.value.__context__, ValueError)


@pytest.mark.parametrize("value, error, message", [
    ("abc", ValueError, "Unknown format code 'g' for object of type 'str'"),
    (None, TypeError, "unsupported format string passed to NoneType.__format__"),
])
def test_float_text_of_values_that_are_no_numbers(vx, value, error, message):
    with pytest.raises(error, match=message):
        vx._convert_float_to_string(value)


@given(st.floats(allow_nan=False, allow_infinity=False))
def test_float_text_reads_back_as_the_g_text_and_as_a_float(value):
    import vxrcomn
    text = vxrcomn._convert_float_to_string(value)
    assert "." in text or "e" in text
    assert float(text) == float("{0:g}".format(value))


@pytest.mark.parametrize("wrap, instr, expected", [
    ("'", "ABC", "'ABC'"),
    ("'", "", "''"),
    ("'", "'ABC'", "'ABC'"),
    ("'", "O'HARA", "O'HARA"),
    ('"', "it's", '"it\'s"'),
    ('"', 'say "x"', 'say "x"'),
    ("", "ABC", "ABC"),  # no quote character: "{1}{0}{1}" adds nothing
])
def test_wrapped_string(vx, wrap, instr, expected):
    vx._WRAP_PRNT = wrap
    assert vx._get_wrapped_string(instr) == expected


def test_wrapped_string_returns_a_quoted_input_itself(vx):
    text = "O'" + "HARA"
    assert vx._get_wrapped_string(text) is text


def test_wrapped_string_uses_the_find_of_a_str_subclass(vx):
    class NeverFound(str):
        def find(self, sub):
            return -1

    assert vx._get_wrapped_string(NeverFound("'A'")) == "''A''"


@pytest.mark.parametrize("wrap, instr, expected", [
    ("'", None, ""), ("'", "'A'B'", "AB"), ("'", "AB", "AB"), ("'", "''", ""),
    ('"', "'A'", "'A'"), ('"', '"A"', "A"),
])
def test_unwrapped_string(vx, wrap, instr, expected):
    vx._WRAP_PRNT = wrap
    assert vx._get_unwrapped_string(instr) == expected


@pytest.mark.parametrize("func, arg, error", [
    ("_get_wrapped_string", 5, AttributeError),
    ("_get_unwrapped_string", 5, AttributeError),
    ("_get_unwrapped_string", b"'a'", TypeError),
])
def test_quoting_of_non_strings_raises(vx, func, arg, error):
    with pytest.raises(error):
        getattr(vx, func)(arg)


@pytest.mark.parametrize("args, expected", [
    (("ABCDEFGHIJ", 4), "'ABCD'"),
    (("AB", 4), "'AB  '"),
    (("AB", 4, 4), "''"),
    (("'BUS 1'", 8, 2, [12]), "'BUS 1 12'"),
    (("AB", 2, 0, [1.5, "'x'", None]), "'AB1.5xNone'"),
    ((None, 3), "'   '"),
    (("AB", 1, 0, ["long suffix"]), "'Along suffix'"),  # suffixes are never measured
])
def test_sized_string(vx, args, expected):
    assert vx._get_sized_string(*args) == expected


def test_sized_string_converts_only_suffixes_that_are_not_exactly_str(vx):
    class Shown(str):
        def __str__(self):
            return "Z"

    assert vx._get_sized_string("A", 1, 0, [Shown("a"), StrSubclass("'b'")]) == "'AZb'"


def test_sized_string_quotes_with_wrap_char_and_unquotes_with_wrap_prnt(vx):
    vx._WRAP_CHAR = '"'
    assert vx._get_sized_string("'AB'", 3) == '"AB "'


def test_sized_string_default_suffix_list_is_one_shared_list(vx):
    # The module state is the only holder of the default list.
    default = [o for o in gc.get_referents(vx) if type(o) is list]
    assert len(default) == 1 and default[0] == []
    default[0].append("X")
    try:
        assert vx._get_sized_string("AB", 4) == "'AB  X'"
        assert vx._get_sized_string("AB", 4, sfxlist=[]) == "'AB  '"
    finally:
        default[0].clear()


@pytest.mark.parametrize("args, error, message", [
    (("AB", 2, 4), ValueError, "Sign not allowed in string format specifier"),
    (("AB", "4"), TypeError, "unsupported operand type"),
    (("AB", 4, 0, None), TypeError, "'NoneType' object is not iterable"),
    ((5, 4), AttributeError, "'int' object has no attribute 'replace'"),
])
def test_sized_string_errors(vx, args, error, message):
    with pytest.raises(error, match=message):
        vx._get_sized_string(*args)


def test_replaced_unwrapper_is_called_for_the_text_and_every_suffix(vx):
    seen = []

    def unwrap(text):
        seen.append(text)
        return text.lower()

    vx._get_unwrapped_string = unwrap
    assert vx._get_sized_string("AB", 2, 0, ["C", 7]) == "'abc7'"
    assert seen == ["AB", "C", "7"]


def test_error_in_the_module_unwrapper_names_both_functions(vx):
    with pytest.raises(AttributeError) as info:
        vx._get_sized_string(5, 4)
    names = [frame.name for frame in traceback.extract_tb(info.tb)]
    assert names[-2:] == ["vxrcomn._get_sized_string", "vxrcomn._get_unwrapped_string"]


@given(st.text(), st.integers(0, 30), st.integers(0, 30), st.lists(st.integers() | st.text(max_size=3), max_size=3))
def test_sized_string_length(instr, outsiz, sfxsiz, sfxlist):
    import vxrcomn
    assume(sfxsiz <= outsiz)
    result = vxrcomn._get_sized_string(instr, outsiz, sfxsiz, sfxlist)
    suffixes = "".join(str(s).replace("'", "") for s in sfxlist)
    assert result[0] == result[-1] == "'"
    assert result[1:-1] == instr.replace("'", "")[:outsiz - sfxsiz].ljust(outsiz - sfxsiz) + suffixes
