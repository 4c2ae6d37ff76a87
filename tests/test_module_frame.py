"""The module as the tools import it: dictionary order, constants, function
objects, import-time defaults, and the refused second import."""
import ast
import gc
import inspect
import os
import subprocess
import sys
import textwrap

import pytest

from conftest import IMPORT_CWD, MODULE_DIR, ROOT, STANDIN

# The stub lists the functions in the module's order.
FUNCTIONS = [node.name for node in ast.parse(open(os.path.join(ROOT, "vxrcomn.pyi"), encoding="utf-8").read()).body
             if isinstance(node, ast.FunctionDef)]
CONSTANTS = {
    "_PRG_INDENT": " " * 5, "_PRG_INDENT2": " " * 9, "_PRG_LINLEN": 100, "_LEN_BUSNUM": 6,
    "_ALLOWED_KORA_VRSNS": [34, 33, 32], "_LATEST_KORA_VRSN": 34, "_ALLOWED_PSLF_VRSNS": [21, 19, 18],
    "_LATEST_PSLF_VRSN": 21, "_WRAP_DBLQ": '"', "_WRAP_SGLQ": "'", "_WRAP_NO": "", "_WRAP_CHAR": "'",
    "_WRAP_PRNT": "'", "_BELONGSTO": "belongs to", "_BELONG2KORA": 2, "_BELONG2PSLF": 1, "_BELONG2BOTH": 0,
    "_PY_VRSN": sys.version_info[0] * 10 + sys.version_info[1],
}
MODULES = ["sys", "os", "collections", "string", "math", "time", "tempfile", "shlex", "re"]
SIGNATURES = {  # the defaults made at import (the stub has "...")
    "_get_file_name": "(basfnam, prefix='', suffix='', extn='.txt', path=%r)" % IMPORT_CWD,
    "_get_unique_tmp_file_name": "(basfnam, extn, workdir=%r)" % IMPORT_CWD,
    "_get_sized_string": "(instr, outsiz, sfxsiz=0, sfxlist=[])",
}
PROGRESS_DOC = (
    "\n    --> call example 1\n"
    "    prgmsg = ' {0:d} PSLF three winding transformer star point buses are not exported to KORA raw data.\n"
    "'.format(len(wdg3starbuslist))\n"
    "    _progress_message_format_print(prgmsg, wdg3starbuslist, vtyp='int', prgfull=prgfull, "
    "fmtsz=_LEN_RAW_NUMBER_BUS, progress=progress)\n\n"
    "    --> call example 2\n"
    "    prgmsg = ' For {0:d} loads owner<=0 changed to default owner={1:d}.\n"
    "'.format(len(eachlist), _DEFAULT_OWNER)\n"
    "    _progress_message_format_print(prgmsg, eachlist, vtyp='tuple', fmtsz=None, progress=progress)\n    ")


def test_module_dictionary_and_function_objects(vx):
    assert list(vx.__dict__) == (["__name__", "__doc__", "__package__", "__loader__", "__spec__", "__file__",
                                  "__builtins__"] + MODULES + list(CONSTANTS) + ["winreg"] + FUNCTIONS[:20] +
                                 ["_SimpleObject"] + FUNCTIONS[20:] + ["__test__"])
    assert (vx.__doc__, vx.__test__, vx.__builtins__) == ("\nCommon Functions used in VXR\n", {}, sys.modules["builtins"])
    for name, value in CONSTANTS.items():
        assert getattr(vx, name) == value and type(getattr(vx, name)) is type(value), name
    for name in MODULES + ["winreg"]:
        assert getattr(vx, name) is sys.modules[name]
    for name in FUNCTIONS:
        f = getattr(vx, name)
        assert (type(f).__name__, f.__name__, f.__module__, f.__self__) == ("builtin_function_or_method", name,
                                                                            "vxrcomn", vx)
        assert f.__doc__ == (PROGRESS_DOC if name == "_progress_message_format_print" else None)
    for name, signature in SIGNATURES.items():
        assert str(inspect.signature(getattr(vx, name))) == signature


def test_simple_object_and_the_shared_default_list(vx):
    cls = vx._SimpleObject
    assert (cls.__bases__, type(cls), cls.__module__, cls.__qualname__) == ((object,), type, "vxrcomn", "_SimpleObject")
    assert cls.__doc__ == "Used for creating dummy object which is used to set input option values as attributes.\n"
    assert [k for k in cls.__dict__ if k not in ("__dict__", "__weakref__")] == ["__module__", "__doc__"]
    # The sized-string default suffix list: one list, held by the module state only.
    default = [o for o in gc.get_referents(vx) if type(o) is list]
    assert len(default) == 1 and default[0] == []
    default[0].append("X")
    try:
        assert vx._get_sized_string("AB", 4) == "'AB  X'" and vx._get_sized_string("AB", 4, sfxlist=[]) == "'AB  '"
    finally:
        default[0].clear()


def run_python(code, with_standin=True):
    """The output lines of code run by a fresh interpreter in the module's folder (the tests' on the path)."""
    folder = os.path.abspath(MODULE_DIR)  # a relative one would be read from the child's folder
    path = [folder, os.path.join(ROOT, "tests")] + ([STANDIN] if with_standin else [])
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(path))
    proc = subprocess.run([sys.executable, "-c", textwrap.dedent(code)], env=env, cwd=folder,
                          capture_output=True, text=True, timeout=60)
    assert proc.returncode >= 0, "the child died by signal %d\n%s" % (-proc.returncode, proc.stderr)
    return proc.stdout.splitlines()


@pytest.mark.skipif(sys.platform == "win32", reason="winreg exists on Windows")
def test_import_failed_then_retried_with_its_defaults_then_refused_again():
    assert run_python(f"""
        import os, sys, tempfile, traceback
        start = os.getcwd()
        try:
            import vxrcomn
        except ImportError as e:
            print(type(e).__name__, [f.name for f in traceback.extract_tb(e.__traceback__)][-1])
        sys.path.insert(0, {STANDIN!r})
        import vxrcomn
        os.chdir(tempfile.gettempdir())
        print(vxrcomn._get_file_name.__text_signature__.endswith("path=%r)" % start), "sys" in vxrcomn.__dict__)
        del sys.modules["vxrcomn"]
        try:
            import vxrcomn
        except RuntimeError as e:
            print(type(e).__name__, e)
    """, with_standin=False) == ["ModuleNotFoundError init vxrcomn", "True True", "RuntimeError Module 'vxrcomn' has "
                                 "already been imported. Re-initialisation is not supported."]


def test_a_second_interpreter_and_a_module_made_where_the_first_was_are_refused():
    out = run_python("""
        import _imp, _testcapi, gc, os, sys, tempfile, types, vxrcomn
        fd, path = tempfile.mkstemp(); os.close(fd)
        _testcapi.run_in_subinterp("try:\\n import vxrcomn\\n r = 'imported'\\nexcept ImportError as e:\\n r = str(e)"
                                   "\\nopen(%r, 'w').write(r)" % path)
        print(open(path).read()); os.remove(path)
        spec, first = vxrcomn.__spec__, id(vxrcomn)
        del sys.modules["vxrcomn"], vxrcomn
        gc.collect()
        made = [types.ModuleType("m")]
        while id(made[-1]) != first and len(made) < 100000:   # each kept, so that the next one is made elsewhere
            made.append(types.ModuleType("m"))
        made.pop()   # the first module's place is free again: the next module object takes it
        module = _imp.create_dynamic(types.SimpleNamespace(name=spec.name, origin=spec.origin))   # a bare spec
        try:
            print(module.__file__ == spec.origin, id(module) == first) or _imp.exec_dynamic(module)
        except RuntimeError as e:
            print(e)
    """)
    assert out[0] == "Interpreter change detected - this module can only be loaded into one interpreter per process."
    if out[1] == "True False":
        pytest.skip("no new module was made where the first one was")
    assert out[1:] == ["True True", "Module 'vxrcomn' has already been imported. Re-initialisation is not supported."]


@pytest.mark.skipif(sys.version_info < (3, 12), reason="dictionary watchers came with 3.12")
def test_without_a_dictionary_watcher_to_spare_each_call_looks_its_globals_up():
    out = run_python("""
        import _testcapi, re
        taken = 0
        try:
            while True:
                _testcapi.add_dict_watcher(0)
                taken += 1
        except Exception:
            pass
        import vxrcomn as vx
        print(taken > 0, vx._split_txtline_to_values_kora_no_check_00("1,2"))
        compile, re.compile = re.compile, lambda *a: print("re.compile") or compile(*a)
        print(vx._split_txtline_to_values_kora_no_check("1,,2"))
        vx._split_textline_kora = lambda line: ["7"]
        print(vx._split_txtline_to_values_kora_no_check_00("1,2"))
    """)
    assert out == ["True (False, '1')", "re.compile", "(False, '1')", "(False, '7')"]


@pytest.mark.skipif(sys.version_info < (3, 12), reason="dictionary watchers came with 3.12")
def test_a_call_made_while_a_change_is_pending_keeps_nothing_the_change_makes_stale():
    # A failing watcher calls sys.unraisablehook after the module's watcher
    # is told of the change and before the change is made.
    out = run_python("""
        import _testcapi, sys, vxrcomn as vx
        sys.unraisablehook = lambda u: print(vx._split_txtline_to_values_kora_no_check_00("1,2"))
        failing = _testcapi.add_dict_watcher(1)
        _testcapi.watch_dict(failing, vx.__dict__)
        vx._split_textline_kora = lambda line: ["7"]
        _testcapi.unwatch_dict(failing, vx.__dict__)
        print(vx._split_txtline_to_values_kora_no_check_00("1,2"))
    """)
    assert out == ["(False, '1')", "(False, '7')"]
