"""KORA version normalisation and its one-line notices."""
import pytest

from hostile import StrSubclass

NOT_ALLOWED = " " * 6 + "KORA version {} specified. Allowed versions:34,33,32, Set version to 34\n\n"
UNKNOWN = " " * 6 + "Unknown KORA version {} specified. Set version to 34\n\n"


@pytest.mark.parametrize("given, version, notice", [
    (34, 34, ""), (33, 33, ""), (32, 32, ""),
    (32.5, 32, ""), (35.0, 34, NOT_ALLOWED.format(35)), (-0.5, 34, NOT_ALLOWED.format(0)),
    ("33.2", 33, ""), ("32.", 32, ""), (" 33 .0", 33, ""), ("34.x.y", 34, ""),
    ("31.0", 34, NOT_ALLOWED.format(31)),
    ("33", 34, NOT_ALLOWED.format(33)),           # no dot: never converted
    ("x.y", 34, UNKNOWN.format("x.y")),           # and no second notice
    (".5", 34, UNKNOWN.format(".5")),
    (StrSubclass("33.0"), 34, NOT_ALLOWED.format("33.0")),
    (None, 34, NOT_ALLOWED.format(None)),
    (True, 34, NOT_ALLOWED.format(True)),         # a bool is not an int here
    ([33], 34, NOT_ALLOWED.format([33])),
])
def test_version(vx, capsys, given, version, notice):
    result = vx._check_kora_version(given)
    assert result == version and type(result) is int
    assert capsys.readouterr().out == notice


@pytest.mark.parametrize("given, error", [(float("inf"), OverflowError), (float("nan"), ValueError)])
def test_floats_without_an_integer_value_raise(vx, given, error):
    with pytest.raises(error):
        vx._check_kora_version(given)


def test_tables_are_read_at_call_time(vx, capsys):
    vx._ALLOWED_KORA_VRSNS, vx._LATEST_KORA_VRSN, vx._PRG_INDENT = (21, 19), 21, ""
    assert vx._check_kora_version("19.1") == 19 and vx._check_kora_version(34) == 21
    assert capsys.readouterr().out == " KORA version 34 specified. Allowed versions:21,19, Set version to 21\n\n"


def test_error_in_the_unknown_notice_keeps_the_handled_error_as_context(vx):
    vx._LATEST_KORA_VRSN = "34"  # "{2:d}" cannot show a string
    with pytest.raises(ValueError, match="Unknown format code 'd'") as info:
        vx._check_kora_version("x.y")
    assert "invalid literal" in str(info.value.__context__)
