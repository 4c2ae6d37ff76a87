"""Hostile input beyond the per-subsystem sweeps of hostile.VALUES: one huge
line, progress callables that raise, rebind the module's globals or call
back into the module, and mappings that change while they are read."""
import collections
import inspect
import os
import threading
import time
import traceback

import pytest

import hostile
import vxrcomn

OD = collections.OrderedDict
# `make check` runs the full 100 MB; `make test` a smaller line of the same kinds.
HUGE = int(os.environ.get("VXR_HUGE_LINE", 16 * 2 ** 20))

F = OD(a={"type": "int"}, semi={"type": "x"}, b={"type": "float"}, c={"type": "name"})
RATING = OD(NUM={"defval": 0, "type": "int"}, NAME={"defval": "", "type": "str"}, DESC={"defval": "", "type": "str"})
SVD_NAMES = {"begin_all": ["n", "semi", "ty"], "ty_01234": ["g"], "ty_56": ["g"], "ty_7": ["g"], "end_all": ["z"]}
SVD_FRMT = {k: {"type": "int"} for k in ("n", "ty", "g", "z")}


def term(tertyp):
    return {"I": 101, "NI": 1, "TERTYP": tertyp, "J": 102, "K": 103, "ID": "'1'"}


BLOCKS = {7: {"node": [{"NI": 1, "NAME": "'N'", "I": 101, "STAT": 1}], "term": [term("'2'")]}}

# ---------------------------------------------------------------------------
# Progress callables
# ---------------------------------------------------------------------------

P = object()  # stands for the progress callable under test
# Every function with a progress argument, called so that it sends a message.
REPORTING = {
    "_split_textline_kora_keyvalue_pair": ("gauss", ", 1", P),
    "_split_txtline_to_values_kora": ("bus", ",x", "I", "int", P),
    "_list_of_ratings_items_to_dict_kora": ("rating", ["x"], RATING, "x", P),
    "_print_kora_substation_block_data_as_stored": (BLOCKS, P),
    "_get_values_from_data_line_text_pslf": ("bus", 1, '1 "A', P),
    "_epc_assign_data_values_common": ("bus", 1, {"a": "x"}, F, P),
    "_epc_assign_data_values": ("bus", 1, ["1", ":", "x"], list(F), F, P),
    "_epc_check_frmt_dc_bus_rec": (["1", ":"], [], {}, P),
    "_epc_assign_data_values_svd": ("svd", 1, ["1", ":", "9"], SVD_NAMES, SVD_FRMT, P),
    "_epc_assign_data_values_qtable": ("q", 1, ["x", ":", "1", "2", "3"], ["a", "semi", "b", "c", "d"], F, P),
    "_pslf_seq_assign_data_values": ("bus", 1, ["1", ":", "x"], F, P),
    "_progress_message_format_print": (" H\n", [1, 22], "int", True, 3, P),
    "_recgrp_name_prgmsg": ("fixed shunt", P),
    "_recgrp_name_prgmsg_numrecs": (3, P),
    "_print_dict": ("T", {1: "a"}, P),
}


def reporting_call(name, progress):
    return getattr(vxrcomn, name), [progress if a is P else a for a in REPORTING[name]]


def run(name, progress):
    func, args = reporting_call(name, progress)
    return func(*args)


def outcome(func, args):
    try:
        return "ok", func(*args)
    except Exception as e:
        return "raised", type(e), str(e)



def test_every_function_with_a_progress_argument_is_driven_to_report():
    with_progress = {name for name, f in vars(vxrcomn).items() if callable(f) and name.startswith("_")
                     and not isinstance(f, type) and "progress" in inspect.signature(f).parameters}
    assert set(REPORTING) == with_progress
    for name in REPORTING:
        messages = []
        run(name, messages.append)
        assert messages, name


@pytest.mark.parametrize("name", sorted(REPORTING))
def test_hostile_progress(name):
    """Raising: the error leaves through the function, which the traceback
    names.  Rebinding or emptying the globals: a result or an ordinary error
    (hostile.call checks the arguments and puts the globals back).  Calling
    back into the module: what a plain progress gets.  Recursing without end:
    RecursionError, and the module works as before."""
    quiet = outcome(*reporting_call(name, len))
    with pytest.raises(RuntimeError, match="^progress$") as info:
        run(name, hostile.raising_progress)
    names = [frame.name for frame in traceback.extract_tb(info.tb)]
    assert "vxrcomn." + name in names and names[-1] == "raising_progress"
    for progress in hostile.REBINDING:
        hostile.call(*reporting_call(name, progress))
    messages, again = [], []
    assert outcome(*reporting_call(name, lambda t: again.append(t) or hostile.reentrant_progress(t))) == \
        outcome(*reporting_call(name, messages.append))
    assert again == messages
    with pytest.raises(RecursionError):
        run(name, hostile.recursive_progress)
    assert outcome(*reporting_call(name, len)) == quiet


def swap_on_first_message(messages):
    def progress(text):
        if not messages:
            hostile.swapping_progress(text)
        messages.append(text)
    return progress


def test_globals_rebound_by_progress_are_read_after_the_message(vx):
    got = hostile.call(*reporting_call("_split_txtline_to_values_kora", hostile.clearing_progress))
    assert type(got) is NameError and str(got) == "name '_PRG_INDENT' is not defined"
    messages = []
    vx._split_txtline_to_values_kora("bus", ",x", "I", "int", swap_on_first_message(messages))
    head = " %sError - Reading 'Bus', %s, record ignored.\n %s,x"
    assert messages == [head % (" " * 5, "data item 'I' not provided", " " * 9),
                        head % (" " * 9, "I=, integer value required", " " * 5)]
    # The defaults after a bad item are wrapped with the new _WRAP_CHAR.
    result = vx._pslf_seq_assign_data_values("bus", 1, ["x"], F, swap_on_first_message([]))
    assert result == (True, OD(semi='" "', b=0.0, c='" "'))
    # The terminal type is unwrapped by the new _get_unwrapped_string (str).
    messages = []
    vx._print_kora_substation_block_data_as_stored({1: {"term": [term("'2'")]}}, swap_on_first_message(messages))
    assert messages == ["\n", "junk - should not come here\n%s\n" % term("'2'")]


def test_threads_that_switch_inside_progress(vx):
    """Other threads run in the middle of each call: the module keeps no
    state that calls could share."""
    calls = [reporting_call(name, lambda t: time.sleep(0) or vx._get_unwrapped_string(t)) for name in REPORTING]
    expected = [outcome(*c) for c in calls]
    results = []
    threads = [threading.Thread(target=lambda: results.extend([outcome(*c) for c in calls] for _ in range(50)))
               for _ in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert results == [expected] * 200


# ---------------------------------------------------------------------------
# Mappings and lists that change while they are read
# ---------------------------------------------------------------------------

def test_sequential_defaults_follow_what_progress_changed(vx):
    frmt = {"a": {"type": "int"}, "b": {"type": "int"}}

    def adds_item(text):
        frmt["z"] = {"type": "float"}
    assert vx._pslf_seq_assign_data_values("bus", 1, ["x"], frmt, adds_item) == (True, OD(b=0, z=0.0))
    assert vx._pslf_seq_assign_data_values("bus", 1, ["x"], frmt, lambda t: frmt.clear()) == (True, OD())
    values = ["1", "x"]
    frmt = {"a": {"type": "int"}, "b": {"type": "int"}, "c": {"type": "int"}}
    assert vx._pslf_seq_assign_data_values("bus", 1, values, frmt, values.append) == (True, OD(a=1))


def test_substation_listing_walks_a_snapshot_of_the_blocks_and_live_record_lists(vx):
    node = {"NI": 1, "NAME": "N", "I": 2, "STAT": 1}
    nodes = [dict(node, NI=1), dict(node, NI=2), dict(node, NI=3)]
    blocks = {1: {"node": nodes}, 2: {}}
    messages = []

    def progress(text):
        messages.append(text)
        blocks.clear()  # the substations were listed before the walk
        if text.startswith("1,"):
            nodes.pop()  # the record list is walked as it stands
    vx._print_kora_substation_block_data_as_stored(blocks, progress)
    assert messages == ["\n", "1, N, 2, 1\n", "2, N, 2, 1\n", "\n"]


def test_option_declarations_are_read_once_the_work_folder_fallback_at_the_end(vx, tmp_path):
    declared = {"a": 1, "workdir": str(tmp_path / "file" / "sub")}
    (tmp_path / "file").write_text("")

    class Kwds(dict):
        def __getitem__(self, key):
            declared.pop("a", None)
            declared["late"] = 2
            declared["workdir"] = "fallback"
            return dict.__getitem__(self, key)
    args = vx._get_arguments_as_attr(declared, Kwds(a="5"))
    assert vars(args) == {"a": 5, "workdir": "fallback"}
    assert sorted(os.listdir(tmp_path)) == ["file"]


def test_key_value_format_is_read_after_the_items(vx):
    frmt = {"A": {"defval": 0, "type": "int"}}

    class Item(str):
        def split(self, sep):
            frmt["NEW"] = {"defval": "d", "type": "str"}
            return str.split(self, sep)
    assert vx._list_of_key_value_pairs_to_dict_kora([Item("a=1")], frmt) == OD(A=1, NEW="d")


# ---------------------------------------------------------------------------
# One huge line
# ---------------------------------------------------------------------------

@pytest.fixture(scope="module")
def x():
    return "x" * HUGE


Q = "'"
# Each case is made only when its test runs: (function, arguments, expected
# result, or exception type and text).
HUGE_CASES = [
    lambda x: ("_check_eof_blank_line_kora", ("1, " + x,), (False, False)),
    lambda x: ("_split_textline_kora", ("1, ,, '" + x + "' # c",), ["1", "_ifc", "_ifc", x]),
    lambda x: ("_split_textline_kora", (Q + x,), (Exception, "Error reading line: " + Q + x)),
    lambda x: ("_split_textline_kora_keyvalue_pair", ("g", "A = " + x, len), (False, False, "A=" + x, ["A=" + x])),
    lambda x: ("_split_txtline_to_values_kora", ("bus", x + ", 1", "I", "int", len), (False, True, x, [x, "1"])),
    lambda x: ("_split_txtline_to_values_kora_no_check_00", (" " * len(x) + "0",), (False, 0)),
    lambda x: ("_split_data_line_text_pslf", (x + "  \u4e2d",), [x, "\u4e2d"]),
    lambda x: ("_get_values_from_data_line_text_pslf", ("bus", 1, '"' + x + ' x" 1', len), [x + " x", "1"]),
    lambda x: ("_get_values_from_data_line_text_pslf", ("bus", 1, x + "\\", len),
               (TypeError, "not all arguments converted during string formatting")),
    lambda x: ("_pslf_seq_assign_data_values", ("bus", 1, [x, x], {"a": {"type": "int"}, "b": {"type": "c"}}, len),
               (True, OD())),
    lambda x: ("_get_wrapped_string", (x,), Q + x + Q),
    lambda x: ("_get_unwrapped_string", (Q + x + Q,), x),
    lambda x: ("_get_sized_string", (x, 12, 2, [x[:3]]), Q + "x" * 13 + Q),
    lambda x: ("_file_PNX", (x + ".Raw",), ("", x + ".Raw", x, ".Raw", ".raw")),
    lambda x: ("_print_dict", ("T", {x: 1, 2: x}, len), None),
]


@pytest.mark.parametrize("index", range(len(HUGE_CASES)))
def test_one_huge_line(x, index):
    name, args, expected = HUGE_CASES[index](x)
    start = time.perf_counter()
    got = outcome(getattr(vxrcomn, name), args)
    # Linear work: a 100 MB line takes about a second, not minutes.
    assert time.perf_counter() - start < 60 * max(1, HUGE / 100e6)
    if isinstance(expected, tuple) and isinstance(expected[0], type):
        assert got == ("raised",) + expected
    else:
        assert got == ("ok", expected)

