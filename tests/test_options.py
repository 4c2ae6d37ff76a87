"""Option objects: given values brought to the default's type and checked
against allowed values, and the work folder created on demand."""
import collections
import os

import pytest

ALLOWED = {"value": "a", "allowed": ["a", "b"]}
VERSIONS = {"value": 34, "allowed": [34, 33]}


@pytest.mark.parametrize("declared, given, expected", [
    (5, "7", 7), (5, "7.5", 5), (5, 7.9, 7), (5, True, 1), (5, None, 5), (5, b"8", 8),
    (1.0, "2", 2.0), (1.0, 3, 3.0), (1.0, "x", 1.0),
    (False, "False", "False"), (False, 0, 0),   # booleans are never converted
    ("txt", 5, 5), (None, [1], [1]),            # other defaults take the value as it is
    (ALLOWED, "c", "a"), (ALLOWED, "b", "b"),
    (VERSIONS, "33", 33),                       # converted first, then accepted
    (VERSIONS, "32", 34),
    ({"value": "x", "allowed": "xyz"}, "yz", "yz"),
    ({"value": "z", "allowed": ["a"]}, "b", "z"),  # the default itself is not tested
    (collections.OrderedDict(value=1), 2, 2),     # a dict subclass is a plain default
])
def test_given_value(vx, declared, given, expected):
    args = vx._get_arguments_as_attr({"opt": declared}, {"opt": given, "undeclared": 1})
    assert type(args) is vx._SimpleObject
    assert vars(args) == {"opt": expected} and type(args.opt) is type(expected)


@pytest.mark.parametrize("kwds", [{}, None, 5, "abc"])
def test_defaults_when_nothing_can_be_taken_from_kwds(vx, kwds):
    assert vars(vx._get_arguments_as_attr({"a": 1, "b": ALLOWED}, kwds)) == {"a": 1, "b": "a"}


@pytest.mark.parametrize("declared, given, error", [
    (None, {}, AttributeError),
    ({"a": {"allowed": [1]}}, {}, KeyError),
    ({"a": {"value": 1, "allowed": None}}, {"a": 2}, TypeError),
    ({"a": {"value": "x", "allowed": "xyz"}}, {"a": 2}, TypeError),   # 2 in "xyz"
    ({5: 1}, {}, TypeError),                                          # attribute name must be str
])
def test_declaration_errors_propagate(vx, declared, given, error):
    with pytest.raises(error):
        vx._get_arguments_as_attr(declared, given)


@pytest.mark.parametrize("declared, given, expected, listing", [
    ("unused", "a/b", "a/b", {"": ["a", "file"], "a": ["b"]}),     # made with its parents
    ("file", None, "file", {"": ["file"]}),                           # exists: left alone
    ("fallback", "file/sub", "fallback", {"": ["file"]}),             # cannot be made: the declaration
    ({"value": "fallback"}, "file/sub", {"value": "fallback"}, {"": ["file"]}),  # ... as it stands
])
def test_workdir(vx, tmp_path, monkeypatch, declared, given, expected, listing):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "file").write_text("")
    args = vx._get_arguments_as_attr({"workdir": declared}, {} if given is None else {"workdir": given})
    assert args.workdir == expected
    assert {d: sorted(os.listdir(tmp_path / d)) for d in listing} == listing


def test_workdir_fallback_error_has_the_failed_creation_as_context(vx, tmp_path):
    (tmp_path / "file").write_text("")

    class Declared(dict):
        def __getitem__(self, key):
            raise LookupError(key)

    with pytest.raises(LookupError) as info:
        vx._get_arguments_as_attr(Declared(workdir=str(tmp_path / "file" / "sub")), {})
    assert isinstance(info.value.__context__, OSError) and os.listdir(tmp_path) == ["file"]


def test_makedirs_is_looked_up_through_the_module_global(vx, tmp_path):
    made = []
    vx.os = type("os", (), {"path": os.path, "makedirs": staticmethod(made.append)})
    vx._get_arguments_as_attr({"workdir": str(tmp_path / "new")}, {})
    assert made == [str(tmp_path / "new")] and os.listdir(tmp_path) == []
