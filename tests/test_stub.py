"""The type stub vxrcomn.pyi against the built module: the same functions,
parameters, defaults, constants and bound modules, and the docstrings editors
show on hover."""
import ast
import inspect
import os
import types

import pytest

import vxrcomn
from conftest import ROOT

STUB = ast.parse(open(os.path.join(ROOT, "vxrcomn.pyi"), encoding="utf-8").read())
STUB_FUNCTIONS = {node.name: node for node in STUB.body if isinstance(node, ast.FunctionDef)}
MODULE_FUNCTIONS = sorted(name for name, value in vars(vxrcomn).items()
                          if isinstance(value, types.BuiltinFunctionType))


def test_the_stub_has_every_function_and_nothing_else():
    assert len(MODULE_FUNCTIONS) == 35
    assert sorted(STUB_FUNCTIONS) == MODULE_FUNCTIONS


def stub_parameters(node):
    """(name, kind, default) per parameter: inspect's empty, Ellipsis for "..." or the value."""
    args = node.args
    positional = [(a, inspect.Parameter.POSITIONAL_ONLY) for a in args.posonlyargs]
    positional += [(a, inspect.Parameter.POSITIONAL_OR_KEYWORD) for a in args.args]
    defaults = [inspect.Parameter.empty] * (len(positional) - len(args.defaults))
    defaults += [ast.literal_eval(d) for d in args.defaults]
    assert not (args.vararg or args.kwarg or args.kwonlyargs)
    return [(a.arg, kind, default) for (a, kind), default in zip(positional, defaults)]


@pytest.mark.parametrize("name", MODULE_FUNCTIONS)
def test_parameters_match_the_text_signature(name):
    runtime = inspect.signature(getattr(vxrcomn, name)).parameters.values()
    stub = stub_parameters(STUB_FUNCTIONS[name])
    assert [(p.name, p.kind) for p in runtime] == [(n, k) for n, k, _ in stub]
    for p, (_, _, default) in zip(runtime, stub):
        if default is Ellipsis:  # computed at import: working directory, shared list
            assert p.default is not inspect.Parameter.empty, p.name
        else:
            assert p.default == default and type(p.default) is type(default), p.name
    assert STUB_FUNCTIONS[name].returns is not None
    assert ast.get_docstring(STUB_FUNCTIONS[name])


def test_constants_and_bound_modules():
    annotated = {node.target.id: ast.unparse(node.annotation)
                 for node in STUB.body if isinstance(node, ast.AnnAssign)}
    constants = {name for name, value in vars(vxrcomn).items()
                 if name.startswith("_") and not name.startswith("__") and not callable(value)}
    assert set(annotated) == constants | {"__test__"}
    for name, annotation in annotated.items():
        assert type(getattr(vxrcomn, name)).__name__ == annotation.split("[")[0], name
    imported = {alias.asname for node in STUB.body if isinstance(node, ast.Import) for alias in node.names}
    assert imported == {name for name, value in vars(vxrcomn).items()
                        if isinstance(value, types.ModuleType) and not name.startswith("__")}
    classes = [node for node in STUB.body if isinstance(node, ast.ClassDef)]
    assert [node.name for node in classes] == ["_SimpleObject"] and isinstance(vxrcomn._SimpleObject, type)
    assert ast.get_docstring(STUB) and ast.get_docstring(classes[0])
