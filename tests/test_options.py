"""Option objects: given values brought to the default's type and checked
against allowed values, and the work folder created on demand."""
import collections
import os

import pytest

ALLOWED = {"value": "a", "allowed": ["a", "b"]}
VERSIONS = {"value": 34, "allowed": [34, 33]}


@pytest.mark.parametrize("declared, given, expected", [
    (5, "7", 7),
    (5, "7.5", 5),             # int("7.5") fails: the default stays
    (5, 7.9, 7),               # int() truncates
    (5, True, 1),              # a bool is not an int here: converted
    (5, None, 5),
    (5, b"8", 8),
    (1.0, "2", 2.0),
    (1.0, 3, 3.0),
    (1.0, "x", 1.0),
    (False, "yes", "yes"),     # booleans are never converted
    (False, "False", "False"),
    (False, 0, 0),
    ("txt", 5, 5),             # other defaults take the value as it is
    (None, [1], [1]),
    (ALLOWED, "c", "a"),
    (ALLOWED, "b", "b"),
    (VERSIONS, "33", 33),      # converted first, then accepted
    (VERSIONS, "32", 34),
    ({"value": "x", "allowed": "xyz"}, "yz", "yz"),
    ({"value": 1}, "2", 2),
])
def test_given_value(vx, declared, given, expected):
    args = vx._get_arguments_as_attr({"opt": declared}, {"opt": given})
    assert type(args) is vx._SimpleObject
    assert vars(args) == {"opt": expected} and type(args.opt) is type(expected)


def test_defaults_and_undeclared_options(vx):
    declared = {"a": 1, "b": ALLOWED, "c": collections.OrderedDict(x=1)}  # a dict subclass is a plain value
    args = vx._get_arguments_as_attr(declared, {"zz": 5})
    assert vars(args) == {"a": 1, "b": "a", "c": {"x": 1}}


@pytest.mark.parametrize("kwds", [None, 5, [], "abc"])
def test_kwds_that_cannot_be_indexed_give_the_defaults(vx, kwds):
    assert vars(vx._get_arguments_as_attr({"a": 1, "b": ALLOWED}, kwds)) == {"a": 1, "b": "a"}


def test_default_outside_the_allowed_values_is_still_used(vx):
    declared = {"opt": {"value": "z", "allowed": ["a"]}}
    assert vx._get_arguments_as_attr(declared, {"opt": "b"}).opt == "z"


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


def test_workdir_is_created_with_its_parents(vx, tmp_path):
    wanted = tmp_path / "a" / "b"
    args = vx._get_arguments_as_attr({"workdir": "unused"}, {"workdir": str(wanted)})
    assert args.workdir == str(wanted) and wanted.is_dir()
    assert os.listdir(tmp_path) == ["a"] and os.listdir(tmp_path / "a") == ["b"]


def test_existing_workdir_is_left_alone(vx, tmp_path):
    (tmp_path / "keep").mkdir()
    args = vx._get_arguments_as_attr({"workdir": str(tmp_path / "keep")}, {})
    assert args.workdir == str(tmp_path / "keep") and os.listdir(tmp_path / "keep") == []


@pytest.mark.parametrize("declared", [
    "fallback",
    {"value": "fallback"},   # the raw declaration becomes the attribute
])
def test_workdir_that_cannot_be_made_falls_back_to_the_declaration(vx, tmp_path, declared):
    (tmp_path / "file").write_text("")
    args = vx._get_arguments_as_attr({"workdir": declared}, {"workdir": str(tmp_path / "file" / "sub")})
    assert args.workdir == declared
    assert os.listdir(tmp_path) == ["file"]


def test_workdir_fallback_error_has_the_failed_creation_as_context(vx, tmp_path):
    (tmp_path / "file").write_text("")

    class Declared(dict):
        def __getitem__(self, key):
            if key == "workdir" and self.get("armed"):
                raise LookupError(key)
            return dict.__getitem__(self, key)

    declared = Declared(workdir=str(tmp_path / "file" / "sub"))
    declared["armed"] = False
    with pytest.raises(LookupError) as info:
        declared["armed"] = True
        vx._get_arguments_as_attr(declared, {})
    assert isinstance(info.value.__context__, OSError)
    assert os.listdir(tmp_path) == ["file"]


def test_makedirs_is_looked_up_through_the_module_global(vx, tmp_path):
    made = []
    vx.os = type("os", (), {"path": os.path, "makedirs": staticmethod(made.append)})
    vx._get_arguments_as_attr({"workdir": str(tmp_path / "new")}, {})
    assert made == [str(tmp_path / "new")] and os.listdir(tmp_path) == []
