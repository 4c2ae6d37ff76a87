"""The reference-leak sweep, completed.  The subsystem tests check each
function on one good and one bad input; here every other path is checked
the same way: the generic paths, every report and every raised error,
progress callables that raise or call back into the module, and mappings
that are not plain dictionaries."""
import collections
import contextlib
import os
import re
import types

import pytest

import hostile
import test_epc_bad_input
import test_raw_robustness
import test_robustness_text_and_messages
from leakcheck import assert_no_leak

OD = collections.OrderedDict
F = OD(a={"type": "int"}, semi={"type": "x"}, b={"type": "float"}, c={"type": "name"})
KV = OD(RATE1={"defval": 0.0, "type": "float"}, NAME={"defval": "", "type": "str"},
        STAT={"defval": 1, "type": "int"})
RATING = {"NUM": {"defval": 0, "type": "int"}, "NAME": {"defval": "", "type": "str"},
          "DESC": {"defval": "d", "type": "str"}}
SVD_NAMES = {"begin_all": ["n", "semi", "ty"], "ty_01234": ["g"], "ty_56": ["g"], "ty_7": ["g"], "end_all": ["z"]}
SVD_FRMT = {k: {"type": "int"} for k in ("n", "ty", "g", "z")}
Q_NAMES = ["id", "semi", "p0", "x0", "n0", "p1", "x1", "n1", "p2", "x2", "n2"]
NODE = {"NI": 1, "NAME": "'N'", "I": 101, "STAT": 1}


class Line(str):
    """Any str subclass takes the generic paths."""


def quiet(text):
    pass


def reentrant(text):
    hostile.reentrant_progress(text)


def generic_re(vx):
    vx.re = types.SimpleNamespace(compile=re.compile)


def through_interpreter(*names):
    """The module's own functions replaced by wrappers of themselves, so that
    callers reach them through the interpreter."""
    def setup(vx):
        for name in names:
            own = getattr(vx, name)
            setattr(vx, name, lambda *args, own=own: own(*args))
    return setup


def tuple_splitter(vx):
    vx._split_textline_kora = lambda line: (line,)


# (function, arguments, setup of the module's globals or None)
PATHS = {
    # KORA RAW
    "eof-subclass": ("_check_eof_blank_line_kora", (Line("@! x\n"),), None),
    "split-generic": ("_split_textline_kora", ("1, 'A B',, 2 # c",), generic_re),
    "split-generic-unclosed": ("_split_textline_kora", ("1 'x",), generic_re),
    "split-lone-comma": ("_split_textline_kora", (" , ",), None),
    "split-wide": ("_split_textline_kora", ("\U0001f600, '\u4e2d x',, y\u00e9",), None),
    "keyvalue-generic": ("_split_textline_kora_keyvalue_pair", ("g", Line("A = 1, B= 2"), quiet), None),
    "keyvalue-raising": ("_split_textline_kora_keyvalue_pair", ("g", ", 1", hostile.raising_progress), None),
    "values-float": ("_split_txtline_to_values_kora", ("bus", "x, 1", "I", "float", quiet), None),
    "values-untyped-missing": ("_split_txtline_to_values_kora", ("bus", ", 1", "I", "str", quiet), None),
    "values-reentrant": ("_split_txtline_to_values_kora", ("bus", ",x", "I", "int", reentrant), None),
    "values-through-interpreter": ("_split_txtline_to_values_kora", ("bus", "7, x", "I", "int", quiet),
                                   through_interpreter("_split_textline_kora")),
    "nocheck-through-interpreter": ("_split_txtline_to_values_kora_no_check", ("0, 1",),
                                    through_interpreter("_split_txtline_to_values_kora_no_check_vlist")),
    "nocheckvlist-tuple-items": ("_split_txtline_to_values_kora_no_check_vlist", (" q ",), tuple_splitter),
    "nocheck00-subclass": ("_split_txtline_to_values_kora_no_check_00", (Line(" Q"),), None),
    "zcorec-mixed": ("_check_zcorec_table_kora", (("1", 2, -3.0),), None),
    "keyvalue-dict-fallbacks": ("_list_of_key_value_pairs_to_dict_kora", (["rate1=x", "name=y", "stat=3"], KV), None),
    "keyvalue-dict-unbound": ("_list_of_key_value_pairs_to_dict_kora",
                              (["NAME=x"], {"NAME": {"defval": "", "type": "str"}}), None),
    "ratings-empty": ("_list_of_ratings_items_to_dict_kora", ("rating", [], RATING, "", quiet), None),
    "ratings-raising": ("_list_of_ratings_items_to_dict_kora", ("rating", ["x"], RATING, "x", hostile.raising_progress),
                        None),
    "ratings-defaults": ("_list_of_ratings_items_to_dict_kora", ("rating", ["1"], OD(RATING), "1", quiet), None),
    # PSLF EPC
    "epc-split-subclass": ("_split_data_line_text_pslf", (Line(" 1  'A'   2 "),), None),
    "epc-values-uneven": ("_get_values_from_data_line_text_pslf", ("bus", 1, '1 "A', quiet), None),
    "epc-values-raising": ("_get_values_from_data_line_text_pslf", ("bus", 1, '"', hostile.raising_progress),
                           None),
    "epc-values-wide": ("_get_values_from_data_line_text_pslf", ("bus", 1, '\u4e2d "\U0001f600 x" a\\ b', quiet),
                        None),
    "common-mappings": ("_epc_assign_data_values_common", ("bus", 1, OD(a="1", c="x"), dict(F), quiet), None),
    "common-raising": ("_epc_assign_data_values_common", ("bus", 1, {"a": "x"}, F, hostile.raising_progress),
                       None),
    "assign-through-interpreter": ("_epc_assign_data_values", ("bus", 1, ("1", ":", "2"), tuple(F), F, quiet),
                                   through_interpreter("_epc_assign_data_values_common")),
    "dcbus-no-separator": ("_epc_check_frmt_dc_bus_rec", (("1", "2"), [], {}, quiet), None),
    "svd-bad-type": ("_epc_assign_data_values_svd", ("svd", 1, ["1", ":", "x"], SVD_NAMES, SVD_FRMT, quiet), None),
    "svd-type-out-of-range": ("_epc_assign_data_values_svd", ("svd", 1, ["1", ":", "9"], SVD_NAMES, SVD_FRMT, quiet),
                              None),
    "svd-fallback-names": ("_epc_assign_data_values_svd", ("svd", 1, ["1", ":", "3", "4", "5"], SVD_NAMES, SVD_FRMT,
                                                           quiet), None),
    "svd-missing-names": ("_epc_assign_data_values_svd", ("svd", 1, ["1", ":", "5"], {"begin_all": ["ty"]},
                                                          SVD_FRMT, quiet), None),
    "qtable-points": ("_epc_assign_data_values_qtable",
                      ("q", 1, ["Q1", ":", "1", "2", "3", "0", "0.0", "0", "x", "nan", "y", "7"], Q_NAMES,
                       {n: {"type": "float"} for n in Q_NAMES}, quiet), None),
    "qtable-no-separator": ("_epc_assign_data_values_qtable", ("q", 1, ["Q1", "1"], Q_NAMES, {}, quiet), None),
    "seq-defaults": ("_pslf_seq_assign_data_values", ("bus", 1, ["1"], F, quiet), None),
    "seq-subclass-mark": ("_pslf_seq_assign_data_values", ("bus", 1, [Line(" ! "), ":", Line("2")], F, quiet), None),
    "seq-raising": ("_pslf_seq_assign_data_values", ("bus", 1, ["x"], F, hostile.raising_progress), None),
    # Field text, messages, files, options, versions, substations
    "float-text-nan": ("_convert_float_to_string", (float("nan"),), None),
    "float-text-int": ("_convert_float_to_string", (12345678901234567890,), None),
    "wrapped-quoted": ("_get_wrapped_string", ("'A'",), None),
    "wrapped-subclass": ("_get_wrapped_string", (Line("A"),), None),
    "unwrapped-subclass": ("_get_unwrapped_string", (Line("'A'"),), None),
    "sized-default-suffixes": ("_get_sized_string", ("'BUS 1'", 4), None),
    "sized-through-interpreter": ("_get_sized_string", ("'BUS 1'", 8, 2, ("x", 1.5)),
                                  through_interpreter("_get_unwrapped_string")),
    "progress-list-unknown-type": ("_progress_message_format_print", (" H\n", [1, 2], "float", True, None, quiet),
                                   None),
    "progress-list-raising": ("_progress_message_format_print", (" H\n", [1], "int", True, 3,
                                                                 hostile.raising_progress), None),
    "recgrp-raising": ("_recgrp_name_prgmsg", ("bus", hostile.raising_progress), None),
    "print-dict-empty": ("_print_dict", ("T", {}, quiet), None),
    "print-dict-raising": ("_print_dict", ("T", {1: 2}, hostile.raising_progress), None),
    "file-name-through-interpreter": ("_get_file_name", ("d/Case.EPC", "p_", "_s", "raw", "/out"),
                                      through_interpreter("_file_PNX")),
    "options-conversions": ("_get_arguments_as_attr", ({"i": 1, "f": 1.0, "b": False, "l": {"value": 34,
                                                        "allowed": [34, 33]}}, {"i": "x", "f": "2", "b": "y",
                                                                                "l": "33"}), None),
    "version-float": ("_check_kora_version", (32.5,), None),
    "version-subclass": ("_check_kora_version", (Line("33.0"),), None),
    "substation-raising": ("_print_kora_substation_block_data_as_stored",
                           ({1: {"node": [NODE]}}, hostile.raising_progress), None),
    "substation-mapping-error": ("_print_kora_substation_block_data_as_stored", ({1: {"id": None}}, quiet), None),
}


def test_every_function_has_a_leak_check_on_good_and_bad_input(vx, tmp_path):
    """The subsystem tables and this one together reach all 35 functions."""
    text = {func.__name__ for func, *_ in test_robustness_text_and_messages.cases(vx, tmp_path)}
    subsystems = set(test_raw_robustness.CALLS) | set(test_epc_bad_input.CASES) | text
    functions = {n for n, f in vars(vx).items() if type(f).__name__ == "builtin_function_or_method"}
    assert len(functions) == 35 and subsystems == functions
    # These have no paths beyond the pair there.
    covered = {"_get_unique_tmp_file_name", "_get_time_stamp", "_print_dict_to_file", "_file_PNX",
               "_validate_file_extension", "_recgrp_name_prgmsg_numrecs"}
    assert {name for name, _, _ in PATHS.values()} == functions - covered


@pytest.mark.parametrize("path", sorted(PATHS))
def test_no_leak(vx, path):
    name, args, setup = PATHS[path]
    if setup is not None:
        setup(vx)
    with open(os.devnull, "w") as devnull, contextlib.redirect_stdout(devnull):  # the version notices
        assert_no_leak(getattr(vx, name), *args)
