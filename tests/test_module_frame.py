"""The module as the tools import it: dictionary order, constants, the
function table, import-time defaults, refusals and traceback entries."""
import inspect
import os
import subprocess
import sys
import textwrap
import traceback

import pytest

from conftest import IMPORT_CWD, MODULE_DIR, STANDIN

FUNCTIONS = [
    "_file_PNX", "_get_file_name", "_validate_file_extension", "_get_unique_tmp_file_name",
    "_get_time_stamp", "_print_dict", "_print_dict_to_file", "_progress_message_format_print",
    "_split_data_line_text_pslf", "_get_values_from_data_line_text_pslf", "_convert_float_to_string",
    "_get_wrapped_string", "_get_unwrapped_string", "_get_sized_string",
    "_epc_assign_data_values_common", "_epc_assign_data_values", "_epc_check_frmt_dc_bus_rec",
    "_epc_assign_data_values_svd", "_epc_assign_data_values_qtable", "_pslf_seq_assign_data_values",
    "_get_arguments_as_attr", "_check_kora_version", "_recgrp_name_prgmsg",
    "_recgrp_name_prgmsg_numrecs", "_check_eof_blank_line_kora", "_split_textline_kora",
    "_split_textline_kora_keyvalue_pair", "_split_txtline_to_values_kora",
    "_split_txtline_to_values_kora_no_check_vlist", "_split_txtline_to_values_kora_no_check",
    "_check_zcorec_table_kora", "_split_txtline_to_values_kora_no_check_00",
    "_list_of_key_value_pairs_to_dict_kora", "_list_of_ratings_items_to_dict_kora",
    "_print_kora_substation_block_data_as_stored",
]

EXPECTED_ORDER = (
    ["__name__", "__doc__", "__package__", "__loader__", "__spec__", "__file__", "__builtins__"]
    + ["sys", "os", "collections", "string", "math", "time", "tempfile", "shlex", "re"]
    + ["_PRG_INDENT", "_PRG_INDENT2", "_PRG_LINLEN", "_LEN_BUSNUM", "_ALLOWED_KORA_VRSNS",
       "_LATEST_KORA_VRSN", "_ALLOWED_PSLF_VRSNS", "_LATEST_PSLF_VRSN", "_WRAP_DBLQ", "_WRAP_SGLQ",
       "_WRAP_NO", "_WRAP_CHAR", "_WRAP_PRNT", "_BELONGSTO", "_BELONG2KORA", "_BELONG2PSLF",
       "_BELONG2BOTH", "_PY_VRSN", "winreg"]
    + FUNCTIONS[:20] + ["_SimpleObject"] + FUNCTIONS[20:] + ["__test__"]
)

ONE_ARGUMENT = {
    "_file_PNX", "_split_data_line_text_pslf", "_convert_float_to_string", "_get_wrapped_string",
    "_get_unwrapped_string", "_check_kora_version", "_check_eof_blank_line_kora",
    "_split_textline_kora", "_split_txtline_to_values_kora_no_check_vlist",
    "_split_txtline_to_values_kora_no_check", "_check_zcorec_table_kora",
    "_split_txtline_to_values_kora_no_check_00",
}


def run_python(code, with_standin=True):
    """Runs code in a fresh interpreter; returns (returncode, stdout, stderr)."""
    paths = [MODULE_DIR] + ([STANDIN] if with_standin else [])
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(paths))
    # Started in the module's folder: "" on sys.path must find the same build.
    proc = subprocess.run([sys.executable, "-c", textwrap.dedent(code)], env=env, cwd=MODULE_DIR,
                          capture_output=True, text=True, timeout=60)
    return proc.returncode, proc.stdout, proc.stderr


def test_module_dictionary_holds_exactly_the_specified_names_in_order(vx):
    assert list(vx.__dict__) == EXPECTED_ORDER
    assert vx.__doc__ == "\nCommon Functions used in VXR\n"
    assert vx.__test__ == {}
    assert vx.__builtins__ is __import__("builtins")


def test_constants(vx):
    import collections, math, os as os_, re, shlex, string, tempfile, time, winreg
    expected = {
        "_PRG_INDENT": " " * 5, "_PRG_INDENT2": " " * 9, "_PRG_LINLEN": 100, "_LEN_BUSNUM": 6,
        "_ALLOWED_KORA_VRSNS": [34, 33, 32], "_LATEST_KORA_VRSN": 34,
        "_ALLOWED_PSLF_VRSNS": [21, 19, 18], "_LATEST_PSLF_VRSN": 21,
        "_WRAP_DBLQ": '"', "_WRAP_SGLQ": "'", "_WRAP_NO": "", "_WRAP_CHAR": "'", "_WRAP_PRNT": "'",
        "_BELONGSTO": "belongs to", "_BELONG2KORA": 2, "_BELONG2PSLF": 1, "_BELONG2BOTH": 0,
        "_PY_VRSN": sys.version_info[0] * 10 + sys.version_info[1],
    }
    for name, value in expected.items():
        assert getattr(vx, name) == value and type(getattr(vx, name)) is type(value), name
    for module in (sys, os_, collections, string, math, time, tempfile, shlex, re, winreg):
        assert getattr(vx, module.__name__) is module


def test_function_objects(vx):
    for name in FUNCTIONS:
        f = getattr(vx, name)
        assert type(f).__name__ == "builtin_function_or_method"
        assert (f.__name__, f.__module__, f.__self__) == (name, "vxrcomn", vx)
        if name != "_progress_message_format_print":
            assert f.__doc__ is None, name
        params = inspect.signature(f).parameters.values()
        kinds = {p.kind for p in params}
        if name in ONE_ARGUMENT:
            assert len(params) == 1 and kinds == {inspect.Parameter.POSITIONAL_ONLY}, name
        elif name == "_get_time_stamp":
            assert not params
        else:
            assert kinds == {inspect.Parameter.POSITIONAL_OR_KEYWORD}, name


@pytest.mark.parametrize("name, params", [
    ("_get_file_name", "(basfnam, prefix='', suffix='', extn='.txt', path=%r)"),
    ("_get_unique_tmp_file_name", "(basfnam, extn, workdir=%r)"),
    ("_get_sized_string", "(instr, outsiz, sfxsiz=0, sfxlist=[])"),
    ("_print_dict", "(prgmsg, dictnam, progress=None)"),
    ("_progress_message_format_print", "(prgmsg, inlist, vtyp, prgfull=True, fmtsz=None, progress=None)"),
    ("_epc_assign_data_values", "(recgrp, lnumstr, valslist, vnamlist, frmtdct, progress)"),
    ("_split_txtline_to_values_kora", "(recgrp, line, frst_name, frst_type, progress)"),
    ("_get_arguments_as_attr", "(default_args_dict, kwds)"),
])
def test_signatures_show_the_import_time_defaults(vx, name, params):
    expected = params % IMPORT_CWD if "%r" in params else params
    assert str(inspect.signature(getattr(vx, name))) == expected


@pytest.mark.parametrize("call, message", [
    (lambda vx: vx._check_kora_version(kora_vrsn=34), "takes no keyword arguments"),
    (lambda vx: vx._split_textline_kora(), "takes exactly one argument (0 given)"),
    (lambda vx: vx._get_time_stamp(1), "takes no arguments (1 given)"),
    (lambda vx: vx._get_file_name(), "missing required argument 'basfnam' (pos 1)"),
    (lambda vx: vx._get_file_name("a", "b", "c", "d", "e", "f"), "takes at most 5 arguments (6 given)"),
    (lambda vx: vx._get_file_name("a", basfnam="b"), "given by name ('basfnam') and position (1)"),
    (lambda vx: vx._print_dict("a", {}, colour=1),   # reworded in 3.13
     "'colour' is an invalid keyword argument" if sys.version_info < (3, 13) else "unexpected keyword argument 'colour'"),
])
def test_wrong_calls_raise_the_interpreters_type_error(vx, call, message):
    with pytest.raises(TypeError) as info:
        call(vx)
    assert message in str(info.value)


def test_keyword_arguments_reach_their_parameters(vx, progress):
    result = vx._split_txtline_to_values_kora(progress=progress, frst_type="int", frst_name="I",
                                              line="7, 'A'", recgrp="bus")
    assert result == (False, False, 7, ["7", "A"])


def test_simple_object_is_an_empty_class(vx):
    cls = vx._SimpleObject
    assert cls.__bases__ == (object,) and type(cls) is type
    assert (cls.__module__, cls.__qualname__) == ("vxrcomn", "_SimpleObject")
    assert cls.__doc__ == "Used for creating dummy object which is used to set input option values as attributes.\n"
    assert [k for k in cls.__dict__ if k not in ("__dict__", "__weakref__")] == ["__module__", "__doc__"]
    obj = cls()
    obj.workdir = "x"
    assert vars(obj) == {"workdir": "x"}


def test_exceptions_name_the_function_in_their_traceback(vx):
    with pytest.raises(Exception) as info:
        vx._split_textline_kora(",")  # the empty text after the trailing comma
    names = [frame.name for frame in traceback.extract_tb(info.tb)]
    assert names[-1] == "vxrcomn._split_textline_kora"


def test_import_time_work_in_a_fresh_interpreter():
    code, out, err = run_python("""
        import os, sys, tempfile
        start = os.getcwd()
        import vxrcomn
        os.chdir(tempfile.gettempdir())
        print(vxrcomn._get_file_name.__text_signature__.endswith("path=%r)" % start))
        del sys.modules["vxrcomn"]
        try:
            import vxrcomn
        except RuntimeError as e:
            print(type(e).__name__, e)
    """)
    lines = out.splitlines()
    assert lines[0] == "True"
    assert lines[1] == ("RuntimeError Module 'vxrcomn' has already been imported. "
                        "Re-initialisation is not supported.")


def test_failed_import_adds_init_entry_and_can_be_retried():
    # Without the stand-in the winreg import fails, as on any host without it.
    code, out, err = run_python(f"""
        import sys, traceback
        try:
            import vxrcomn
        except ImportError as e:
            print(type(e).__name__, [f.name for f in traceback.extract_tb(e.__traceback__)][-1])
        sys.path.insert(0, {STANDIN!r})
        import vxrcomn
        print(vxrcomn._PY_VRSN > 30, "sys" in vxrcomn.__dict__)
    """, with_standin=False)
    if sys.platform == "win32":
        pytest.skip("winreg exists on Windows")
    assert out.splitlines() == ["ModuleNotFoundError init vxrcomn", "True True"], err


def test_second_interpreter_is_refused():
    code, out, err = run_python("""
        import os, tempfile
        import vxrcomn
        try:
            import _testcapi
        except ImportError:
            print("skip"); raise SystemExit
        fd, path = tempfile.mkstemp(); os.close(fd)
        _testcapi.run_in_subinterp(
            "try:\\n import vxrcomn\\n r = 'imported'\\n"
            "except ImportError as e:\\n r = str(e)\\n"
            "open(%r, 'w').write(r)" % path)
        print(open(path).read()); os.remove(path)
    """)
    if out.strip() == "skip":
        pytest.skip("no _testcapi in this interpreter")
    assert out.strip() == ("Interpreter change detected - this module can only be loaded "
                           "into one interpreter per process."), err
