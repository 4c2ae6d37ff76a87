"""Bad input and reference leaks for the field text, message, file name,
option, version and substation functions: every hostile argument gives a
result or an ordinary exception, and many calls leave nothing behind."""
import collections
import contextlib
import os
import time
import types

import pytest

from hostile import VALUES, sweep
from leakcheck import assert_no_leak

FIXED = time.struct_time((2024, 3, 7, 14, 5, 9, 3, 67, 0))
NODE = {"NI": 1, "NAME": "'N'", "I": 101, "STAT": 1}
BLOCKS = {7: {
    "id": {"IS": 7, "NAME": "'A'", "LATI": 1.5, "LONG": 2.0, "SGR": 0.0},
    "node": [NODE],
    "swd": [{"NI": 1, "NJ": 2, "ID": "'1'", "NAME": "'B'", "SWDTYP": 2, "STAT": 1, "NSTAT": 0,
             "X": 0.1, "RATE1": 1.0, "RATE2": 2.0, "RATE3": 3.0}],
    "term": [{"I": 1, "NI": 1, "TERTYP": t, "J": 2, "K": 3, "ID": "'1'"} for t in ("L", "'2'", "3", "S", "x")],
}}


def sink(text):
    pass


@pytest.fixture
def quiet_folder(vx, tmp_path, monkeypatch):
    """A temporary current folder, the console discarded, the clock fixed,
    and the plain temporary name a_b_20240307_140509.txt taken."""
    monkeypatch.chdir(tmp_path)
    vx.time = types.SimpleNamespace(localtime=lambda: FIXED, strftime=time.strftime)
    (tmp_path / "a_b_20240307_140509.txt").write_text("")
    (tmp_path / "file").write_text("")
    with open(os.devnull, "w") as devnull, contextlib.redirect_stdout(devnull):
        yield tmp_path


def cases(vx, folder):
    """(function, good arguments, bad arguments, calls) for each function."""
    out = str(folder / "out.txt")
    workdir = str(folder / "work")
    declared = {"a": 5, "b": {"value": "a", "allowed": ["a", "b"]}, "c": False, "workdir": workdir}
    return [
        (vx._convert_float_to_string, (float("inf"),), ("abc",), 100_000),
        (vx._get_wrapped_string, ("ABC",), (5,), 100_000),
        (vx._get_unwrapped_string, ("'A'B'",), (5,), 100_000),
        (vx._get_sized_string, ("'BUS 1'", 8, 2, [12, "'x'"]), ("AB", 2, 4), 100_000),
        (vx._progress_message_format_print, (" H\n", [(1, "a"), (22, "'bb'")], "tuple", True, None, sink),
         ("H", [], "tuple", True, None, sink), 100_000),
        # A width no one else holds: small ints are shared by the whole interpreter.
        (vx._progress_message_format_print, (" H\n", [1, 22, 333], "int", True, 300, None),
         (" H\n", [1], "int", True, None, None), 20_000),
        (vx._recgrp_name_prgmsg, ("fixed shunt", sink), ("bus", None), 100_000),
        (vx._recgrp_name_prgmsg_numrecs, (3, sink), (1.0, sink), 100_000),
        (vx._print_dict, ("T", {1: "a", 1000: [1]}, sink), ("T", {"a": 1}, 5), 100_000),
        (vx._print_dict, ("T", {1: "a"}), ("T", [1]), 20_000),
        (vx._print_dict_to_file, ("T", {1: "a", 22: 0.5}, out), ("T", [1], out), 2_000),
        (vx._file_PNX, ("C:/d/Case.EPC",), (5,), 100_000),
        (vx._get_file_name, ("D:/in/Case.EPC", "new_", "_x", "raw", "/out"), ("a", "", "", ""), 100_000),
        (vx._validate_file_extension, ("Case.RAW", "raw"), ("a", None), 100_000),
        (vx._get_unique_tmp_file_name, ("a:b", "txt", str(folder)), ("a", 5, str(folder)), 5_000),
        (vx._get_time_stamp, (), (1,), 100_000),
        (vx._get_arguments_as_attr, (declared, {"a": "7", "b": "c", "c": "x"}), ({"a": {"allowed": 1}}, {}),
         100_000),
        (vx._get_arguments_as_attr, ({"workdir": "fallback"}, {"workdir": str(folder / "file" / "x")}),
         ({"workdir": "x"}, {"workdir": None}), 20_000),
        (vx._check_kora_version, ("33.0",), (float("nan"),), 100_000),
        (vx._check_kora_version, ("x.y",), (float("inf"),), 20_000),
        (vx._print_kora_substation_block_data_as_stored, (BLOCKS, sink), ({1: {"id": None}}, sink), 20_000),
        (vx._print_kora_substation_block_data_as_stored, ({1: {"node": [collections.UserDict(NODE)]}}, sink),
         ({1: {"node": [{"NI": 1.5}]}, 2: {"id": [("IS", 1)]}}, sink), 100_000),
    ]


def test_every_function_is_covered(vx, quiet_folder):
    names = {func.__name__ for func, *_ in cases(vx, quiet_folder)}
    assert len(names) == 17


def test_hostile_arguments(vx, quiet_folder):
    calls = 0
    for func, good, bad, _ in cases(vx, quiet_folder):
        if func is vx._print_dict_to_file:
            # An integer file name is a descriptor: True would close stdout.
            calls += sweep(lambda prgmsg, dictnam: func(prgmsg, dictnam, good[2]), good[:2])
            calls += sweep(lambda name: None if isinstance(name, int) else func("T", {}, name), ["x"])
        else:
            calls += sweep(func, good)
        assert os.listdir(quiet_folder) and not (quiet_folder / "file").is_dir()
    assert calls > 1000
    # Nothing but files under the names given as file names (str or bytes)
    # and the work folders declared.
    made = set(os.listdir(quiet_folder)) - {"a_b_20240307_140509.txt", "file", "out.txt", "work", "fallback"}
    named = {str.__str__(v) for v in VALUES if isinstance(v, str)} | {"x"}
    assert made <= named | {os.fsdecode(bytes(v)) for v in VALUES if isinstance(v, (bytes, bytearray))}


@pytest.mark.parametrize("index", range(22))
def test_no_leak_on_good_and_bad_input(vx, quiet_folder, index):
    func, good, bad, calls = cases(vx, quiet_folder)[index]
    before = sorted(os.listdir(quiet_folder))
    func(*good)  # good input really is good
    with pytest.raises(Exception):
        func(*bad)
    assert_no_leak(func, *good, calls=calls)
    assert_no_leak(func, *bad, calls=calls)
    after = sorted(os.listdir(quiet_folder))
    assert set(after) - set(before) <= {"out.txt", "work"}
