"""Field text: float text, quoting, unquoting and sized fields, with the
quote characters read from the module's globals at each call."""
import decimal
import gc
import traceback

import pytest
from hypothesis import given, strategies as st


class Shown(str):
    def __str__(self):
        return "Z"


@pytest.mark.parametrize("value, text", [
    (5, "5.0"), (5.0, "5.0"), (-0.0, "-0.0"), (2.5, "2.5"), (1e20, "1e+20"), (1.5e-07, "1.5e-07"),
    (123456789.0, "1.23457e+08"), (float("inf"), "inf"), (float("-inf"), "-inf"), (float("nan"), "nan"),
    (True, "1.0"), (2 ** 70, "1.18059e+21"), (1000000, "1e+06"), (decimal.Decimal("Infinity"), "Infinity"),
])
def test_float_text(vx, value, text):
    assert vx._convert_float_to_string(value) == text


def test_float_text_failing_the_float_test_is_formatted_a_second_time(vx):
    class Formats:
        calls = 0

        def __format__(self, fmt):
            self.calls += 1
            if self.calls == 4:  # the fallback of the second call
                raise LookupError
            return "x"

    value = Formats()
    assert vx._convert_float_to_string(value) == "x" and value.calls == 2
    with pytest.raises(LookupError) as info:   # an error in the fallback has the handled one as context
        vx._convert_float_to_string(value)
    assert isinstance(info.value.__context__, ValueError)


@given(st.floats(allow_nan=False, allow_infinity=False))
def test_float_text_reads_back_as_a_float(value):
    import vxrcomn
    text = vxrcomn._convert_float_to_string(value)
    assert ("." in text or "e" in text) and float(text) == float("{0:g}".format(value))


@pytest.mark.parametrize("wrap, instr, wrapped, unwrapped", [
    ("'", "ABC", "'ABC'", "ABC"),
    ("'", "", "''", ""),
    ("'", "'ABC'", "'ABC'", "ABC"),        # never quoted twice
    ("'", "O'HARA", "O'HARA", "OHARA"),    # an embedded quote leaves the text as it is
    ("'", "'A'B'", "'A'B'", "AB"),
    ('"', "it's", '"it\'s"', "it's"),
    ("", "ABC", "ABC", "ABC"),             # no quote character: nothing added
])
def test_wrapped_and_unwrapped_string(vx, wrap, instr, wrapped, unwrapped):
    vx._WRAP_PRNT = wrap
    assert vx._get_wrapped_string(instr) == wrapped
    assert vx._get_unwrapped_string(instr) == unwrapped


@pytest.mark.parametrize("args, expected", [
    (("ABCDEFGHIJ", 4), "'ABCD'"),
    (("AB", 4), "'AB  '"),
    (("AB", 4, 4), "''"),
    (("'BUS 1'", 8, 2, [12]), "'BUS 1 12'"),
    (("AB", 2, 0, [1.5, "'x'", None]), "'AB1.5xNone'"),
    (("A", 1, 0, [Shown("a"), Shown.__base__("'b'")]), "'AZb'"),  # str() only for a type other than str
    ((None, 3), "'   '"),
    (("AB", 1, 0, ["long suffix"]), "'Along suffix'"),           # suffixes are never measured
])
def test_sized_string(vx, args, expected):
    assert vx._get_sized_string(*args) == expected


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


@pytest.mark.parametrize("func, args, error, message", [
    ("_convert_float_to_string", ("abc",), ValueError, "Unknown format code 'g' for object of type 'str'"),
    ("_convert_float_to_string", (None,), TypeError, "unsupported format string passed to NoneType"),
    ("_get_wrapped_string", (5,), AttributeError, "'int' object has no attribute 'find'"),
    ("_get_unwrapped_string", (b"'a'",), TypeError, "a bytes-like object is required"),
    ("_get_sized_string", ("AB", 2, 4), ValueError, "Sign not allowed in string format specifier"),
    ("_get_sized_string", ("AB", "4"), TypeError, "unsupported operand type"),
    ("_get_sized_string", ("AB", 4, 0, None), TypeError, "'NoneType' object is not iterable"),
])
def test_errors(vx, func, args, error, message):
    with pytest.raises(error, match=message):
        getattr(vx, func)(*args)


def test_replaced_unwrapper_is_called_for_the_text_and_every_suffix(vx):
    seen = []
    vx._get_unwrapped_string = lambda text: seen.append(text) or text.lower()
    assert vx._get_sized_string("AB", 2, 0, ["C", 7]) == "'abc7'"
    assert seen == ["AB", "C", "7"]


def test_error_in_the_module_unwrapper_names_both_functions(vx):
    with pytest.raises(AttributeError) as info:
        vx._get_sized_string(5, 4)
    names = [frame.name for frame in traceback.extract_tb(info.tb)]
    assert names[-2:] == ["vxrcomn._get_sized_string", "vxrcomn._get_unwrapped_string"]
