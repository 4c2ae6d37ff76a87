"""Generated input on the fast and generic paths, against the plain-Python baseline
(bench/baseline.py) and the standard library; `make fuzz` shares VXR_FUZZ_SECONDS."""
import collections
import gc
import os
import random
import re
import shlex
import sys
import time
import types
from unittest import mock

from hypothesis import HealthCheck, given, settings, strategies as st

import vxrcomn as vx
from calls import EXTRA_ARGUMENT
from conftest import FUZZ_STATS, ROOT

sys.path.insert(0, os.path.join(ROOT, "bench"))
import baseline  # noqa: E402

SECONDS = float(os.environ.get("VXR_FUZZ_SECONDS", 0))
OD = collections.OrderedDict
TARGETS = []
# The module keeps the 3.9 wording of an unbound local; the baseline, being
# Python, speaks the running interpreter's (reworded in 3.11).
NEW_UNBOUND = re.compile(r"cannot access local variable '(\w+)' where it is not associated with a value")


Sub = type("Sub", (str,), {})  # any str subclass takes the generic paths
ListSub = type("ListSub", (list,), {})


def outcome(func, *args):  # the result or the exception (with its context's), and the messages
    messages = []
    args = [messages.append if a is print else a for a in args]
    try:
        result = ("ok", func(*args))
    except Exception as e:
        c = e.__context__
        result = ("raised", type(e), NEW_UNBOUND.sub(r"local variable '\1' referenced before assignment", str(e)),
                  type(c), str(c) if c is not None else None)
    return result, messages


def agree(a, b):  # NaN equal to NaN
    return repr(a) == repr(b)


def same(name, *args):  # the module and the baseline agree, messages included
    got, base = outcome(getattr(vx, name), *args), outcome(getattr(baseline, name), *args)
    assert agree(got[0][:3], base[0][:3]) and got[1] == base[1], (name, args)


def rebound(**values):
    return mock.patch.multiple(vx, **values)


def through_interpreter(name):
    own = getattr(vx, name)
    return rebound(**{name: lambda *args: own(*args)})


def target(case, examples, batch=10):
    """A test of body over batches of `case`: `examples` batches, or its share of the fuzzing time."""
    def wrap(body):
        TARGETS.append(body.__name__)

        def test():
            done, start = [], time.monotonic()
            run = settings(max_examples=200 if SECONDS else examples, deadline=None, print_blob=True,
                           suppress_health_check=list(HealthCheck))(
                given(st.lists(case, min_size=batch, max_size=batch))(lambda cases: body(cases) or done.append(batch)))
            # What the targets before this one left of the time, shared.
            budget = (SECONDS - sum(s for _, s in FUZZ_STATS.values())) / max(1, len(TARGETS) - len(FUZZ_STATS))
            run()
            while time.monotonic() - start < budget:
                run()
            FUZZ_STATS[body.__name__[5:]] = (sum(done), time.monotonic() - start)
        test.__name__ = body.__name__
        return test
    return wrap


# ---------------------------------------------------------------------------
# Tokenizers
# ---------------------------------------------------------------------------

# RAW lines from the characters the tokenizer treats specially, mixed with
# any character the interpreter knows.
SPECIAL = " ,,, ''\"\"##\t\r\n\\=@!_ifc0qQ\u00e9\u4e2d\U0001f600\x00\x0b\xa0\x85abcXYZ019.-"
RAW_LINE = st.text(alphabet=SPECIAL, max_size=40) | st.text(
    alphabet=st.one_of(st.sampled_from(SPECIAL), st.characters()), max_size=40)


def both_paths(func, *args):
    fast = outcome(func, *args)
    with rebound(re=types.SimpleNamespace(compile=re.compile)):
        return fast, outcome(func, *args)


@target(RAW_LINE, 160, batch=25)
def test_raw_lines(batch):
    for line in batch:
        fast, generic = both_paths(vx._split_textline_kora, line)
        assert fast == generic == outcome(vx._split_textline_kora, Sub(line)), line
        assert fast[0][0] == "raised" or all(type(i) is str and not set(i) & set("'\"") for i in fast[0][1])
        fast, generic = both_paths(vx._split_textline_kora_keyvalue_pair, "g", line, print)
        assert fast == generic, line
        for name in ("_split_textline_kora", "_check_eof_blank_line_kora", "_split_txtline_to_values_kora_no_check_vlist",
                     "_split_txtline_to_values_kora_no_check", "_split_txtline_to_values_kora_no_check_00"):
            same(name, line)
        for frst_type in ("int", "float", "str"):
            same("_split_txtline_to_values_kora", "bus data", line, "I", frst_type, print)
        same("_split_textline_kora_keyvalue_pair", "gauss", line, print)


# An EPC line is drawn as a length and a number whose digits pick its pieces:
# two draws are far cheaper than a list or a text.
PIECES = (list(" \t\r\n\"\"''\\\\,#:!/_ab1.-") + ["  ", '""', '\\"', "x y", "\\ "] +
          ["é", "ÿ", "Ā", "\u2003", "\x0b", "\x00", "\ud800", "\udfff", "\U0001f600", "\U0010ffff"])


def line_of(drawn):
    length, number = drawn
    pieces = []
    for _ in range(length):
        number, k = divmod(number, len(PIECES))
        pieces.append(PIECES[k])
    return "".join(pieces)


EPC_LINE = st.tuples(st.integers(0, 40), st.integers(0, len(PIECES) ** 40)).map(line_of)


def values(line, generic=False):
    shlex_global = types.SimpleNamespace(split=shlex.split, shlex=shlex.shlex) if generic else shlex
    with rebound(shlex=shlex_global):
        return outcome(vx._get_values_from_data_line_text_pslf, "g", 3, line, print)


def shlex_outcome(line):
    """The reader on a line of even quotes: shlex.split, or its error inside the reader's handler."""
    try:
        return ("ok", shlex.split(line)), []
    except ValueError as e:
        return ("raised", TypeError, EXTRA_ARGUMENT, ValueError, str(e)), []


class KeepMarks(str):
    """Keeps its commas and apostrophes, so the lexer meets single quotes."""
    replace = lambda self, old, new: str(self) if old == "'" else KeepMarks(self)  # noqa: E731


@target(EPC_LINE, 240, batch=25)
def test_epc_lines(batch):
    for line in batch:
        fast = values(line)
        assert fast == values(line, generic=True), line
        if line.count('"') % 2 == 0:
            assert fast == shlex_outcome(line.replace(",", "_").replace("'", "_")), line
            assert values(KeepMarks(line)) == shlex_outcome(line), line
        same("_get_values_from_data_line_text_pslf", "bus", 3, line, print)
        same("_split_data_line_text_pslf", line)
        assert vx._split_data_line_text_pslf(Sub(line)) == vx._split_data_line_text_pslf(line)


def test_fast_paths_come_back_once_the_lexer_class_is_restored():
    """A patched lexer class takes both tokenizers to the generic path, and only while patched."""
    line, original = "NORTH-01", shlex.shlex.read_token
    references = sys.getrefcount(original)
    shlex.shlex.read_token = lambda self: (original(self) or "").upper() or original(self)
    try:
        assert vx._split_textline_kora("a, b") == ["A", "B"]
        assert vx._get_values_from_data_line_text_pslf("bus", 1, line, len) == ["NORTH-01"]
        assert vx._get_values_from_data_line_text_pslf("bus", 1, line, len)[0] is not line
    finally:
        shlex.shlex.read_token = original
    assert vx._get_values_from_data_line_text_pslf("bus", 1, line, len)[0] is line   # at once
    assert vx._split_textline_kora("a, b") == ["a", "b"]
    assert sys.getrefcount(original) == references  # the class's look-ups keep nothing


# ---------------------------------------------------------------------------
# Assigners
# ---------------------------------------------------------------------------

NAMES = ["a", "b", "c", "ty", "n", "semi", "semi1", "semi2"]
TEXT = st.sampled_from(["0", "1", "3", "5", "7", "9", "-7", " 12 ", "1_0", "1.5", "1e3", "nan", "-inf", "x",
                        "", " ! ", "!", ":", "\u0661", "0.0"]) | st.text("0123456789.eE+-_ !x:\u0661", max_size=6)
FRMT = st.dictionaries(st.sampled_from(NAMES), st.sampled_from(["int", "float", "name", 0, None]).map(
    lambda t: {"type": t, "defval": t}))
SVD_NAMES = {"begin_all": ["n", "semi", "ty"], "ty_012": ["a"], "ty_34": ["b"], "ty_01234": ["c"], "ty_56": ["a", "c"],
             "ty_7": ["a", "b"], "end_all": ["semi1", "c"]}


def paths(func, *args):
    """func on the arguments, as tuples, list subclasses, ordered dicts, and via the interpreter: alike."""
    def other(a):
        if isinstance(a, list):
            return tuple(a) if len(a) % 2 else ListSub(a)
        return OD(a) if type(a) is dict else a
    def loose(got):  # an index error's text names the sequence's type
        return got[0][:4], got[1]
    first = loose(outcome(func, *args))
    assert agree(loose(outcome(func, *map(other, args))), first), args
    with through_interpreter("_epc_assign_data_values_common"):
        assert agree(loose(outcome(func, *args)), first), args
    return first[0]


@target(st.tuples(FRMT, st.lists(TEXT, max_size=12), st.lists(st.sampled_from(NAMES), max_size=10),
                  st.sampled_from(["'", '"', ""])), 30)
def test_epc_assigners(batch):
    for frmt, texts, names, wrap in batch:
        baseline._WRAP_CHAR = wrap
        with rebound(_WRAP_CHAR=wrap):
            same("_epc_assign_data_values_common", "bus", 7, dict(zip(names, texts)), frmt, print)
            same("_epc_assign_data_values", "bus", 7, texts, names, frmt, print)
            same("_pslf_seq_assign_data_values", "bus", 7, texts, frmt, print)
            paths(vx._epc_assign_data_values, "bus", 7, texts, names, frmt, print)
            paths(vx._pslf_seq_assign_data_values, "bus", 7, texts, frmt, print)
            for func, more in ((vx._epc_assign_data_values_svd, SVD_NAMES), (vx._epc_assign_data_values_qtable, names)):
                got = paths(func, "svd", 7, texts, more, frmt, print)
                assert got[0] == "raised" or (type(got[1][0]) is bool and isinstance(got[1][1], dict))
            first = texts.index(":") if ":" in texts else None
            assert paths(vx._epc_check_frmt_dc_bus_rec, texts, names, frmt, print) == (
                "ok", (first not in (3, 4), first == 4))
        baseline._WRAP_CHAR = "'"


KV_ITEM = st.text("AbcRATE=1.5x_ \u00e9", max_size=12)
KV_FRMT = st.dictionaries(st.sampled_from(["A", "RATE", "X_", "B\u00c9"]), st.tuples(
    st.sampled_from(["int", "float", "str"]), st.sampled_from([0, 0.5, "d"])).map(
    lambda t: {"type": t[0], "defval": t[1]}))


@target(st.tuples(st.lists(KV_ITEM, max_size=6), KV_FRMT, st.lists(TEXT, max_size=5)), 30)
def test_raw_dictionaries(batch):
    for items, frmt, texts in batch:
        same("_list_of_key_value_pairs_to_dict_kora", items, frmt)
        assert agree(outcome(vx._list_of_key_value_pairs_to_dict_kora, tuple(map(Sub, items)), OD(frmt)),
                     outcome(vx._list_of_key_value_pairs_to_dict_kora, items, frmt))
        rating = OD((k, {"defval": k, "type": "int"}) for k in ("NUM", "NAME", "DESC"))
        assert paths(vx._list_of_ratings_items_to_dict_kora, "rating", texts, rating, "l", print)[0] == "ok"
        table = paths(vx._check_zcorec_table_kora, texts)
        try:
            numbers = [float(t) for t in texts]
        except ValueError:
            assert table == ("ok", (False, []))
        else:
            assert agree(table, ("ok", (sum(numbers) == 0.0, numbers)))


# ---------------------------------------------------------------------------
# Formatters
# ---------------------------------------------------------------------------

QUOTED = st.text("'\"ab \u4e2d\U0001f600", max_size=8)
WRAP = st.sampled_from(["'", '"', "", "ab"])


@target(st.tuples(st.floats() | st.integers(-10 ** 30, 10 ** 30), QUOTED, WRAP, WRAP, st.integers(-3, 12),
                  st.integers(-3, 12), st.lists(QUOTED | st.integers() | st.floats(), max_size=3)), 30)
def test_field_text(batch):
    for number, text, prnt, char, outsiz, sfxsiz, sfxlist in batch:
        g = "{0:g}".format(number)
        plain = "." in g or "e" in g or g.lstrip("-") in ("inf", "nan")
        assert vx._convert_float_to_string(number) == (g if plain else g + ".0")
        with rebound(_WRAP_PRNT=prnt, _WRAP_CHAR=char):
            wrapped = vx._get_wrapped_string(text)
            assert wrapped == (text if prnt and prnt in text else prnt + text + prnt)
            assert vx._get_wrapped_string(Sub(text)) == wrapped
            assert vx._get_unwrapped_string(text) == vx._get_unwrapped_string(Sub(text)) == text.replace(prnt, "")
            sized = outcome(vx._get_sized_string, text, outsiz, sfxsiz, sfxlist)[0]
            with through_interpreter("_get_unwrapped_string"):
                assert agree(outcome(vx._get_sized_string, Sub(text), outsiz, sfxsiz, tuple(sfxlist))[0], sized)


# ---------------------------------------------------------------------------
# The globals watch
# ---------------------------------------------------------------------------

REAL_COMPILE, REAL_SPLIT, LEXER, READ_TOKEN = re.compile, shlex.split, shlex.shlex, shlex.shlex.read_token
# Stand-ins whose answers differ: the module's own patterns match nothing, tokens come in capitals.
marked_compile = lambda p, flags=0: REAL_COMPILE(p + "(?!)" if p in ("(, *,)", "( *= *)") else p, flags)  # noqa: E731
marked_split = lambda *a: [t.upper() for t in REAL_SPLIT(*a)]  # noqa: E731
marked_read_token = lambda self: (READ_TOKEN(self) or "").upper() or READ_TOKEN(self)  # noqa: E731
MarkedShlex = type("MarkedShlex", (LEXER,), {"read_token": marked_read_token})
MarkedOD = type("MarkedOD", (OD,), {})
Finalizer = type("Finalizer", (), {"__init__": lambda self, a: setattr(self, "a", a), "__del__": lambda self: self.a()})
VXD = vx.__dict__
# What the fast paths rely on, each with a stand-in made anew (it can then carry a finalizer).
WATCHED = [(VXD, "re", lambda: types.SimpleNamespace(compile=marked_compile)),
           (VXD, "shlex", lambda: types.SimpleNamespace(shlex=MarkedShlex, split=marked_split)),
           (VXD, "collections", lambda: types.SimpleNamespace(OrderedDict=MarkedOD)),
           (VXD, "_split_textline_kora", lambda: lambda line: ["7"]),
           (VXD, "_split_txtline_to_values_kora_no_check_vlist", lambda: lambda line: (True, "v", [])),
           (VXD, "_epc_assign_data_values_common", lambda: lambda *a: (None, "common")),
           (re.__dict__, "compile", lambda: lambda *a: marked_compile(*a)),
           (shlex.__dict__, "shlex", lambda: MarkedShlex), (shlex.__dict__, "split", lambda: lambda *a: marked_split(*a)),
           (collections.__dict__, "OrderedDict", lambda: MarkedOD)]
ORIGINAL = [d[k] for d, k, _ in WATCHED]
DICTS = (VXD, re.__dict__, shlex.__dict__, collections.__dict__)
PROBES = [("_split_textline_kora", ("1,, 'a b' ,c",)), ("_split_txtline_to_values_kora_no_check", ("q,, x",)),
          ("_split_txtline_to_values_kora_no_check_00", ("0,, x",)),
          ("_split_textline_kora_keyvalue_pair", ("gauss", "a = 1, b", print)),
          ("_get_values_from_data_line_text_pslf", ("bus", 1, '1 "a b" c', print)),
          ("_epc_assign_data_values", ("bus", 1, ["1", "2.5", "x"], ["a", "b", "c"],
                                       {"a": {"type": "int"}, "b": {"type": "float"}, "c": {"type": "name"}}, print)),
          ("_list_of_key_value_pairs_to_dict_kora", (["A=1"], {"A": {"type": "int", "defval": 0}}))]
OWN = {name: getattr(vx, name) for name, _ in PROBES}
# The generic path: the same algorithm in Python, whose globals are the module's.
GENERIC_PATH = {name: types.FunctionType(getattr(baseline, name).__code__, VXD, name) for name, _ in PROBES}


class WatchSteps:
    """Changes to the watched names, some from finalizers or a failing watcher's unraisable hook (told
    of a change before it is made); the module answers as the generic path after each and inside those."""

    def __init__(self):
        self.wrong, self.changing, self.depth = [], (), 0

    def probe(self, when):
        self.wrong += [(when, name, outcome(OWN[name], *args)) for name, args in PROBES
                       if not agree(outcome(OWN[name], *args), outcome(GENERIC_PATH[name], *args))]

    def apply(self, op, i):
        d, key, stand_in = WATCHED[i]
        self.changing = (d,)
        if op in ("mark", "odd key"):  # a key that is not an exact str may equal any name
            d[key if op == "mark" else Sub(key)] = stand_in()
        elif op in ("delete", "restore"):
            d.pop(key, None) if op == "delete" else d.__setitem__(key, ORIGINAL[i])
        elif op == "refill":  # the module's own: emptied, a standard module fails its own functions
            saved, self.changing = dict(VXD), (VXD,)
            VXD.clear()
            VXD.update(saved)
        elif op == "class":
            LEXER.read_token = READ_TOKEN if LEXER.read_token is not READ_TOKEN else marked_read_token
        else:  # all as imported, each dictionary emptied and filled (it is then no longer unsure), finalizers idle
            self.changing, wrong, self.wrong = DICTS, self.wrong, None
            for d in DICTS:
                kept = {k: v for k, v in d.items() if type(k) is str}
                kept.update((key, original) for (dd, key, _), original in zip(WATCHED, ORIGINAL) if dd is d)
                d.clear()
                d.update(kept)
            LEXER.read_token, self.wrong = READ_TOKEN, wrong

    def nested(self, op, j, when):
        def action():  # idle once its run ends; no dictionary changes while its watchers are being told
            if self.wrong is not None and self.depth == 0 and not (
                    when == "before a change" and any(d is WATCHED[j][0] for d in self.changing)):
                self.depth += 1
                self.apply(op, j)
                self.depth -= 1
            if self.wrong is not None:
                self.probe(when)
        return action

    def step(self, op, i, context, nested):
        if context == "finalizer":
            Finalizer(self.nested(op, i, "in a finalizer"))
        elif context == "dropped" and not isinstance(WATCHED[i][2](), type):
            d, key, stand_in = WATCHED[i]
            value = stand_in()
            value.finalizer = Finalizer(self.nested(*nested, "as a value is dropped"))
            d[key], value = value, None
            self.apply(op, i)
        elif context == "hook" and sys.version_info >= (3, 12):
            import _testcapi
            failing, hook = _testcapi.add_dict_watcher(1), sys.unraisablehook
            for d in DICTS:
                _testcapi.watch_dict(failing, d)
            sys.unraisablehook = lambda u: self.nested(*nested, "before a change")()
            try:
                self.apply(op, i)
            finally:
                sys.unraisablehook = hook
                _testcapi.clear_dict_watcher(failing)
        else:
            self.apply(op, i)
        self.changing = ()
        self.probe("after")


OPS = ["mark", "delete", "restore", "odd key", "refill", "class", "reset", "reset"]
CONTEXTS = ["direct", "finalizer", "dropped", "hook"]


def watch_steps(seed):  # drawn from one number: hypothesis draws nested lists of tuples mostly at their simplest
    rnd = random.Random(seed)
    return [(rnd.choice(OPS), rnd.randrange(len(WATCHED)), rnd.choice(CONTEXTS),
             (rnd.choice(OPS[:4]), rnd.randrange(len(WATCHED)))) for _ in range(rnd.randrange(4, 13))]


# A module function rebound in another watcher's notice; the module's
# dictionary emptied and filled again, a call in each notice; an odd key.
SEEN = [[("mark", 3, "hook", ("mark", 0))], [("refill", 0, "hook", ("mark", 3))], [("odd key", 0, "direct", ("mark", 0))]]


@target(st.integers(0, 2 ** 32), 40, batch=5)
def test_globals_watch(batch):
    for steps in SEEN + [watch_steps(seed) for seed in batch]:
        run = WatchSteps()
        gc.disable()  # a finalizer the collector runs would change the globals between two probes
        try:
            for step in steps:
                run.step(*step)
        finally:  # as before the steps, with the finalizers still to come idle
            wrong, run.wrong = run.wrong, None
            gc.enable()
            gc.collect()
            run.apply("reset", 0)
        after = WatchSteps()  # the finalizers of `run` stay idle
        after.probe("restored")
        assert wrong + after.wrong == [], steps
