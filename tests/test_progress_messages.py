"""Progress lists laid out in lines of at most 100 characters, record-group
headings and record counts."""
import pytest
from hypothesis import given, strategies as st

from hostile import StrSubclass

IND, IND2 = " " * 5, " " * 9


def test_docstring(vx):
    assert vx._progress_message_format_print.__doc__ == (
        "\n    --> call example 1\n"
        "    prgmsg = ' {0:d} PSLF three winding transformer star point buses are not exported to KORA raw data.\n"
        "'.format(len(wdg3starbuslist))\n"
        "    _progress_message_format_print(prgmsg, wdg3starbuslist, vtyp='int', prgfull=prgfull, "
        "fmtsz=_LEN_RAW_NUMBER_BUS, progress=progress)\n\n"
        "    --> call example 2\n"
        "    prgmsg = ' For {0:d} loads owner<=0 changed to default owner={1:d}.\n"
        "'.format(len(eachlist), _DEFAULT_OWNER)\n"
        "    _progress_message_format_print(prgmsg, eachlist, vtyp='tuple', fmtsz=None, progress=progress)\n    ")


def test_int_list_on_the_console(vx, capsys):
    vx._progress_message_format_print(" 3 items.\n", [1, 2, 3], "int", fmtsz=6)
    assert capsys.readouterr().out == IND + " 3 items.\n" + IND2 + "     1,      2,      3\n\n"


@pytest.mark.parametrize("inlist, vtyp, fmtsz, body", [
    ([], "int", None, " " * 7 + "\n"),                 # 9 blanks less the cut ", "
    ([1, 2, 3], "float", 6, " " * 7 + "\n"),           # unknown type: nothing laid out
    ([(1, "a"), (22, "bb")], "tuple", None, IND2 + "(1, 'a')  , (22, 'bb')\n"),
    ([(1, "'a'"), ["b", 2.5]], "tuple", 3, IND2 + "(1, 'a')  , ('b', 2.5)\n"),
    ([(StrSubclass("'a'"),)], "tuple", None, IND2 + "(\"'a'\",)\n"),  # only an exact str is unwrapped
    ([-5, 123456], "int", 3, IND2 + " -5, 123456\n"),
    ([7], "int", 89, IND2 + " " * 88 + "7\n"),           # 9 + 91 = 100 characters: kept
    ([7], "int", 90, IND2 + "\n" + IND2 + " " * 89 + "7\n"),  # 101: a line of blanks alone first
])
def test_layout_through_progress(vx, progress, inlist, vtyp, fmtsz, body):
    vx._progress_message_format_print("H\n", inlist, vtyp, True, fmtsz, progress)
    assert progress.messages == [IND + "H\n" + body, "\n"]


def test_limit_and_indents_are_read_at_call_time(vx, progress):
    vx._PRG_LINLEN, vx._PRG_INDENT, vx._PRG_INDENT2 = 20, ">", ".."
    vx._progress_message_format_print("H\n", [1, 2, 3, 4, 5, 6], "int", fmtsz=3, progress=progress)
    assert progress.messages[0] == ">H\n..  1,   2,   3, \n..  4,   5,   6\n"


def test_heading_only_when_not_full(vx, progress, capsys):
    vx._progress_message_format_print("H\n", None, None, False, progress=progress)
    vx._progress_message_format_print("H\n", None, None, 0)
    assert progress.messages == [IND + "H\n"] and capsys.readouterr().out == IND + "H\n\n"


@pytest.mark.parametrize("args, error, message", [
    (("H", [1], "int"), ValueError, "Invalid format specifier"),      # fmtsz None
    ((5, [1], "int", True, 3), TypeError, "can only concatenate str"),
    (("H", [], "tuple"), ValueError, "max\\(\\) (arg is an empty sequence|iterable argument is empty)"),
    (("H", [1], "tuple"), TypeError, "'int' object is not iterable"),
    (("H", ["x"], "int", True, 3), ValueError, "Unknown format code 'd'"),
    (("H", [1], "int", True, 3, lambda text: 1 / 0), ZeroDivisionError, "division"),
])
def test_errors_propagate(vx, args, error, message):
    with pytest.raises(error, match=message):
        vx._progress_message_format_print(*args)


def test_tuple_values_go_through_the_module_unwrapper(vx, progress):
    vx._get_unwrapped_string = lambda text: text.upper()
    vx._progress_message_format_print("H\n", [("ab", 1)], "tuple", progress=progress)
    assert progress.messages[0] == IND + "H\n" + IND2 + "('AB', 1)\n"


@given(st.lists(st.integers(-10 ** 12, 10 ** 12), min_size=1, max_size=80), st.integers(1, 40))
def test_int_lines_are_filled_greedily_within_the_limit(values, fmtsz):
    import vxrcomn
    messages = []
    vxrcomn._progress_message_format_print("H\n", values, "int", True, fmtsz, messages.append)
    lines = messages[0].split("\n")[1:-1]
    lines[-1] += ", "  # the cut after the message's last item
    items = ["{0:{1}d}, ".format(v, fmtsz) for v in values]
    k = 0
    for line, nxt in zip(lines, lines[1:] + [None]):
        assert line.startswith(IND2) and len(line) <= 100
        body = ""
        while body != line[9:]:
            body, k = body + items[k], k + 1
        assert nxt is None or len(line) + len(items[k]) > 100   # broken only when the next item would pass
    assert k == len(items)


@pytest.mark.parametrize("func, args, text", [
    ("_recgrp_name_prgmsg", ("switched shunt",), " ------------- Reading KORA record group: Switched Shunt\n"),
    ("_recgrp_name_prgmsg", ("FIXED shunt",), " ------------- Reading KORA record group: Fixed Shunt\n"),
    ("_recgrp_name_prgmsg_numrecs", (1,), "      1 record\n"),
    ("_recgrp_name_prgmsg_numrecs", (True,), "      1 record\n"),
    ("_recgrp_name_prgmsg_numrecs", (0,), "      0 records\n"),
    ("_recgrp_name_prgmsg_numrecs", (2,), "      2 records\n"),
])
def test_record_group_messages(vx, progress, func, args, text):
    getattr(vx, func)(*args, progress)
    assert progress.messages == [text]


@pytest.mark.parametrize("func, args, error", [
    ("_recgrp_name_prgmsg", ("bus", None), TypeError),
    ("_recgrp_name_prgmsg", (5, print), AttributeError),
    ("_recgrp_name_prgmsg_numrecs", (1.0, print), ValueError),   # equal to 1, but not for "d"
    ("_recgrp_name_prgmsg_numrecs", ("1", print), ValueError),
    ("_recgrp_name_prgmsg_numrecs", (3, None), TypeError),
])
def test_record_group_errors(vx, func, args, error):
    with pytest.raises(error):
        getattr(vx, func)(*args)
