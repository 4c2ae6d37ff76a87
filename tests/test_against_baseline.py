"""The module against its plain-Python baseline (bench/baseline.py), an
independent writing of the same algorithms: results, messages and errors."""
import os
import re
import sys

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import vxrcomn
from conftest import ROOT, requires_shared_data, shared_files

sys.path.insert(0, os.path.join(ROOT, "bench"))
import baseline  # noqa: E402

RAW_LINE_FUNCTIONS = ["_split_textline_kora", "_check_eof_blank_line_kora",
                      "_split_txtline_to_values_kora_no_check_vlist", "_split_txtline_to_values_kora_no_check",
                      "_split_txtline_to_values_kora_no_check_00"]


# The module keeps the 3.9 wording of an unbound local; the baseline, being
# Python, speaks the running interpreter's (reworded in 3.11).
NEW_UNBOUND = re.compile(r"cannot access local variable '(\w+)' where it is not associated with a value")


def outcome(func, *args):
    messages = []
    args = [messages.append if a is print else a for a in args]
    try:
        result = ("ok", func(*args))
    except Exception as e:
        text = NEW_UNBOUND.sub(r"local variable '\1' referenced before assignment", str(e))
        result = ("raised", type(e), text)
    return result, messages


def same(name, *args):
    assert outcome(getattr(vxrcomn, name), *args) == outcome(getattr(baseline, name), *args), (name, args)


text = st.text(alphabet=" ,,''\"#\t\n=@!0qQx1._\u00e9\U0001f600", max_size=30)


@settings(max_examples=80)
@given(st.lists(text, min_size=25, max_size=25))
def test_raw_line_functions(batch):
    for line in batch:
        for name in RAW_LINE_FUNCTIONS:
            same(name, line)
        for frst_type in ("int", "float", "str"):
            same("_split_txtline_to_values_kora", "bus data", line, "I", frst_type, print)
        same("_split_textline_kora_keyvalue_pair", "gauss", line, print)


@settings(max_examples=300)
@given(st.lists(st.text(alphabet="AbcRATE=1.5x_ ", max_size=12), max_size=6))
def test_key_value_pairs(items):
    frmt = {"RATE": {"defval": 0.0, "type": "float"}, "ABC": {"defval": 1, "type": "int"},
            "X_": {"defval": "d", "type": "char"}}
    same("_list_of_key_value_pairs_to_dict_kora", items, frmt)


@requires_shared_data
@pytest.mark.parametrize("path", shared_files("raw", ".raw")[:12], ids=os.path.basename)
def test_every_line_of_shared_raw_files(path):
    with open(path, encoding="latin-1") as f:
        for line in f:
            same("_split_txtline_to_values_kora", "bus", line, "I", "int", print)
