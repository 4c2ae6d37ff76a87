"""Dictionary listings with aligned keys, on the console, through progress and
into a new file."""
import collections
import os

import pytest

IND, LINE = " " * 5, " " * 9


@pytest.mark.parametrize("title, dictnam, text", [
    ("Buses", {}, IND + "Buses  ---> EMPTY\n"),
    ("Buses", None, IND + "Buses  ---> EMPTY\n"),      # any falsy value lists as empty
    ("T", {1: "a", 1000: "b"}, IND + "T\n" + LINE + "1    : a\n" + LINE + "1000 : b\n"),
    ("T", {"ab": 1, "cd": 2}, IND + "T\n" + LINE + "ab : 1\n" + LINE + "cd : 2\n"),
    ("T\n", {"k": 0.5, "long": [1, [2]], "n": {"x": None}},
     IND + "T\n\n" + LINE + "k    : 0.5\n" + LINE + "long : [1, [2]]\n" + LINE + "n    : {'x': None}\n"),
    ("T", collections.OrderedDict([((1, "a"), "t"), ("z", 2)]), IND + "T\n" + LINE + "(1, 'a') : t\n" + LINE + "z        : 2\n"),
])
def test_listing_through_progress_and_on_the_console(vx, progress, capsys, title, dictnam, text):
    vx._print_dict(title, dictnam, progress)
    vx._print_dict(title, dictnam)
    assert progress.messages == [text] and capsys.readouterr().out == text + "\n"


def test_indent_is_read_at_call_time(vx, progress):
    vx._PRG_INDENT = "#"
    vx._print_dict("T", {"a": 1}, progress=progress)
    assert progress.messages == ["#T\n #   a : 1\n"]


class Pairs:
    """Only keys() and items(), as the listing needs."""

    def __init__(self, *pairs):
        self.pairs = pairs

    def keys(self):
        return iter([k for k, *_ in self.pairs])

    def items(self):
        return self.pairs


@pytest.mark.parametrize("title, dictnam, progress, error, message", [
    (5, {}, None, TypeError, "can only concatenate str"),
    ("T", [1], None, AttributeError, "'list' object has no attribute 'keys'"),
    ("T", {"a": 1}, 5, TypeError, "'int' object is not callable"),
    ("T", Pairs(("a", 1, 2)), None, ValueError, r"too many values to unpack \(expected 2\)"),
])
def test_errors_propagate(vx, title, dictnam, progress, error, message):
    with pytest.raises(error, match=message):
        vx._print_dict(title, dictnam, progress)


def test_any_object_with_keys_and_items(vx, progress):
    vx._print_dict("T", Pairs(("a", 1), ("bbb", 2)), progress)
    assert progress.messages == [IND + "T\n" + LINE + "a   : 1\n" + LINE + "bbb : 2\n"]


def test_file_gets_the_listing_and_nothing_else_is_made(vx, tmp_path, capsys):
    target = tmp_path / "out.txt"
    vx._print_dict_to_file("T", {1: "a", 1000: "b"}, str(target))
    assert os.listdir(tmp_path) == ["out.txt"] and capsys.readouterr().out == ""
    assert target.read_text() == IND + "T\n" + LINE + "1    : a\n" + LINE + "1000 : b\n"
    vx._print_dict_to_file("Empty", {}, filename=target)  # truncated; a path object will do
    assert target.read_text() == IND + "Empty  ---> EMPTY\n"


def test_file_listing_calls_the_module_global_with_the_files_write(vx, tmp_path):
    calls = []
    vx._print_dict = lambda prgmsg, dictnam, progress: calls.append((prgmsg, dictnam)) or progress("x")
    vx._print_dict_to_file("T", {"a": 1}, str(tmp_path / "f"))
    assert calls == [("T", {"a": 1})] and (tmp_path / "f").read_text() == "x"


@pytest.mark.parametrize("dictnam, name, error, left", [
    ([1], "f", AttributeError, ["f"]),                      # the file was made before the listing failed
    ({}, os.path.join("missing", "f"), FileNotFoundError, []),
])
def test_failures_leave_only_what_was_opened(vx, tmp_path, dictnam, name, error, left):
    with pytest.raises(error):
        vx._print_dict_to_file("T", dictnam, str(tmp_path / name))
    assert os.listdir(tmp_path) == left and all((tmp_path / f).read_text() == "" for f in left)
