"""Dictionary listings with aligned keys, on the console, through progress and
into a new file."""
import collections
import os

import pytest

IND = " " * 5
LINE = " " * 9


@pytest.mark.parametrize("title, dictnam, text", [
    ("Buses", {}, IND + "Buses  ---> EMPTY\n"),
    ("Buses", None, IND + "Buses  ---> EMPTY\n"),      # any falsy value lists as empty
    ("T", {1: "a", 1000: "b"}, IND + "T\n" + LINE + "1    : a\n" + LINE + "1000 : b\n"),
    ("T", {"ab": 1, "cd": 2}, IND + "T\n" + LINE + "ab : 1\n" + LINE + "cd : 2\n"),
    ("T\n", {"k": 0.5, "long": [1, [2]], "n": {"x": None}},
     IND + "T\n\n" + LINE + "k    : 0.5\n" + LINE + "long : [1, [2]]\n" + LINE + "n    : {'x': None}\n"),
    ("", {(1, "a"): "t"}, IND + "\n" + LINE + "(1, 'a') : t\n"),
    ("T", collections.OrderedDict([("z", 1), ("a", 2)]), IND + "T\n" + LINE + "z : 1\n" + LINE + "a : 2\n"),
])
def test_listing_through_progress_and_on_the_console(vx, progress, capsys, title, dictnam, text):
    vx._print_dict(title, dictnam, progress)
    vx._print_dict(title, dictnam)
    assert progress.messages == [text]
    assert capsys.readouterr().out == text + "\n"


def test_indent_is_read_at_call_time(vx, progress):
    vx._PRG_INDENT = "#"
    vx._print_dict("T", {"a": 1}, progress=progress)
    assert progress.messages == ["#T\n #   a : 1\n"]


class Mapping:
    """Only keys() and items(), as the listing needs."""

    def __bool__(self):
        return True

    def keys(self):
        return iter(["a", "bbb"])

    def items(self):
        return [("a", 1), ("bbb", 2)]


def test_any_object_with_keys_and_items(vx, progress):
    vx._print_dict("T", Mapping(), progress)
    assert progress.messages == [IND + "T\n" + LINE + "a   : 1\n" + LINE + "bbb : 2\n"]


@pytest.mark.parametrize("title, dictnam, progress, error", [
    (5, {}, None, TypeError),
    ("T", [1], None, AttributeError),
    ("T", {"a": 1}, 5, TypeError),
])
def test_errors_propagate(vx, title, dictnam, progress, error):
    with pytest.raises(error):
        vx._print_dict(title, dictnam, progress)


def test_items_that_do_not_unpack_raise_the_interpreters_error(vx):
    class Bad(Mapping):
        def items(self):
            return [("a", 1, 2)]

    with pytest.raises(ValueError, match=r"too many values to unpack \(expected 2\)"):
        vx._print_dict("T", Bad(), print)


def test_file_gets_the_listing_and_nothing_else_is_made(vx, tmp_path, capsys):
    target = tmp_path / "out.txt"
    vx._print_dict_to_file("T", {1: "a", 1000: "b"}, str(target))
    assert os.listdir(tmp_path) == ["out.txt"]
    assert target.read_text() == IND + "T\n" + LINE + "1    : a\n" + LINE + "1000 : b\n"
    assert capsys.readouterr().out == ""
    vx._print_dict_to_file("Empty", {}, filename=target)  # truncated, path-like accepted
    assert target.read_text() == IND + "Empty  ---> EMPTY\n"


def test_file_listing_calls_the_module_global_with_the_files_write(vx, tmp_path):
    calls = []

    def listing(prgmsg, dictnam, progress):
        calls.append((prgmsg, dictnam))
        progress("x")

    vx._print_dict = listing
    vx._print_dict_to_file("T", {"a": 1}, str(tmp_path / "f"))
    assert calls == [("T", {"a": 1})] and (tmp_path / "f").read_text() == "x"


def test_failed_listing_leaves_the_created_file_empty(vx, tmp_path):
    with pytest.raises(AttributeError):
        vx._print_dict_to_file("T", [1], str(tmp_path / "f"))
    assert os.listdir(tmp_path) == ["f"] and (tmp_path / "f").read_text() == ""


def test_file_that_cannot_be_opened_creates_nothing(vx, tmp_path):
    with pytest.raises(FileNotFoundError):
        vx._print_dict_to_file("T", {}, str(tmp_path / "missing" / "f"))
    assert os.listdir(tmp_path) == []
