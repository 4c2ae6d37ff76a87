"""Objects no caller should pass: each function gives a result or an ordinary
exception, and leaves its arguments and the module's globals as they were."""
import collections
import contextlib
import gc
import operator
import sys
import warnings
from unittest import mock

import vxrcomn


def raiser(error, *args):
    def raises(*_):
        raise error(*args)  # a new one each time: a raised instance keeps its traceback
    return raises


def fails(what):  # a method that raises RuntimeError(what)
    return raiser(RuntimeError, what)


class OddStr(str):
    """A str whose methods and comparisons misbehave."""
    __eq__, __str__, __format__ = fails("odd __eq__"), fails("odd __str__"), fails("odd __format__")
    split, title = fails("odd split"), fails("odd title")
    __hash__ = lambda self: 1  # noqa: E731
    strip, replace, upper = (lambda self, *a: 12345), (lambda self, *a: None), (lambda self: [])


class LiarStr(str):
    """Equals everything; its methods return itself and its text forms are not text."""
    __hash__ = str.__hash__
    __eq__, __ne__ = (lambda self, other: True), (lambda self, other: False)
    __str__ = __format__ = lambda self, *args: 5
    strip = lower = upper = title = replace = lambda self, *args: self
    split = lambda self, *args: [self, self]  # noqa: E731
    find = count = lambda self, *args: 0


class UnhashableStr(str):
    __eq__, __hash__ = str.__eq__, fails("odd __hash__")


class RaisingMapping(dict):
    """A non-empty dict whose reading methods raise."""
    def __init__(self):
        super().__init__(a=1)
    __getitem__, __contains__, keys = fails("mapping __getitem__"), fails("mapping __contains__"), fails("mapping keys")
    items, __iter__, __len__ = fails("mapping items"), fails("mapping __iter__"), fails("mapping __len__")


class RaisingIterable:
    def __iter__(self):
        yield "1"
        raise RuntimeError("iteration")


class Fresh:
    """Made anew for every call (objects that change themselves): a value, or a row's arguments."""
    def __init__(self, make):
        self.make = make


class Claims(list):  # claims far more items than it gives: a length is no size to allocate
    __len__ = lambda self: 2 ** 62  # noqa: E731


class GrowingDict(dict):
    """Gains an entry whenever it is read."""
    def _grow(read):
        return lambda self, *a: dict.__setitem__(self, "k%d" % len(self), {"type": "int", "value": 1}) or read(self, *a)
    __getitem__, __contains__, keys, items = map(_grow, (dict.__getitem__, dict.__contains__, dict.keys, dict.items))


def empty_holders(obj, objects=None):
    """Empties every list and dict holding obj (or any, for None) among objects, by default those found
    through gc in the young generations: where what a call makes stays when reaching() made its arguments."""
    objects = gc.get_objects(0) + gc.get_objects(1) if objects is None else objects
    for o in objects:
        if type(o) in (list, dict, collections.OrderedDict) and o is not objects and (obj is None or any(
                x is obj for x in (list(o) + list(o.values()) if isinstance(o, dict) else o))):
            o.clear()


def reaching(make):  # made after a collection, so that none moves what the call makes out of reach
    return Fresh(lambda: gc.collect(1) and None or make())


def emptying(op):  # op on the value, once whatever holds the target is emptied
    return lambda self, *a: empty_holders(self.target) or op(self.value, *a)


class Emptying:
    """Stands for `value`; compared, hashed, converted or iterated, it first empties whatever holds
    `target` (itself unless given)."""
    __slots__ = ("value", "target")

    def __init__(self, value, target=None):
        self.value, self.target = value, self if target is None else target
    __eq__, __hash__, __int__, __iter__ = map(emptying, (operator.eq, hash, int, iter))
    __repr__ = lambda self: "Emptying(%r)" % (self.value,)  # noqa: E731


class ClearingItem(str):
    """Empties whatever holds it when compared, hashed or stripped."""
    target, value = property(lambda self: self), property(str.__str__)
    __eq__, __hash__, strip = map(emptying, (str.__eq__, str.__hash__, str.strip))


class Reaper:  # cyclic garbage whose finalizer leaves the next one, then empties what collecting() saw made
    __slots__, armed, frame = ("me",), False, None  # no __dict__ of its own to empty
    __init__ = lambda self: setattr(self, "me", self)  # noqa: E731
    __del__ = lambda self: Reaper.armed and Reaper() and sys._getframe(1) is Reaper.frame and empty_holders(  # noqa
        None, gc.get_objects())  # the lists and dicts made since collecting() began: it froze the others


@contextlib.contextmanager
def collecting():
    """A collection at nearly every allocation, emptying what was made since when it runs for the with
    statement's frame: up to 3.11 in the C code it calls (Python code is spared: its list slicing is not)."""
    threshold, Reaper.armed, Reaper.frame = gc.get_threshold(), True, sys._getframe(2)
    with warnings.catch_warnings():  # a warning's record made meanwhile would be emptied too
        warnings.simplefilter("ignore")
        gc.freeze()
        gc.set_threshold(1, 1, 1)
        Reaper()
        try:
            yield
        finally:
            Reaper.armed, Reaper.frame = False, None
            gc.set_threshold(*threshold)
            gc.unfreeze()


Node = type("Node", (), {})


def seen_late(count):  # node records the collector first sees as each is read: the __dict__ gains a tracked value
    held = []
    for k in range(count):
        node, _ = Node(), held.extend([] for _ in range(k % 3))  # before each, more or fewer allocations
        node.NI, node.NAME, node.I, node.STAT, node.held = k, "'N'", 101, 1, held
        yield vars(node)


class Once:  # equal to `text` (hashed as it) once only: each look-up of it answers for itself
    def __init__(self, text):
        self.text, self.answers = text, iter([True])
    __hash__, __repr__ = (lambda self: hash(self.text)), (lambda self: repr(self.text))
    __eq__ = lambda self, other: next(self.answers, False) and other == self.text  # noqa: E731


def raising_progress(text):
    raise RuntimeError("progress")


def rebinding_progress(text):
    """Binds every global of the module to something unusable."""
    vxrcomn.__dict__.update(dict.fromkeys([name for name in vxrcomn.__dict__ if not name.startswith("__")], 0))


def swapping_progress(text):  # usable but different globals
    vxrcomn._PRG_INDENT, vxrcomn._PRG_INDENT2 = vxrcomn._PRG_INDENT2, vxrcomn._PRG_INDENT
    vxrcomn._WRAP_CHAR = vxrcomn._WRAP_PRNT = '"'
    vxrcomn._split_textline_kora = str.split
    vxrcomn._get_unwrapped_string = str
    vxrcomn._epc_assign_data_values_common = lambda *args: (True, {})


def clearing_progress(text):
    vxrcomn.__dict__.clear()


def reentrant_progress(text):  # calls back into the module with the text it was given
    try:
        vxrcomn._split_textline_kora(text)
    except Exception:
        pass
    vxrcomn._get_values_from_data_line_text_pslf("bus", 1, text, len)
    vxrcomn._split_txtline_to_values_kora("bus", ",x", "I", "int", len)
    vxrcomn._print_dict(text, {1: text}, len)


def recursive_progress(text):  # calls a module function that calls it again, without end
    vxrcomn._split_txtline_to_values_kora("bus", ",x", "I", "int", recursive_progress)


REBINDING = (rebinding_progress, swapping_progress, clearing_progress)

VALUES = [
    None, 0, -1, 2 ** 70, 1.5, float("nan"), float("inf"), 1j, True, b"1, 2", bytearray(b"x"),
    memoryview(b"1 2"), "", "0", "q", "1, 'A'", "x\x00y", "\x00", "\ud800", "\udfff, '\ud800'",
    "\U0001f600, 1", "\u4e2d, '\u6587 \U0010ffff'", type("StrSubclass", (str,), {})("7, 8"), OddStr("7, 8"), LiarStr(", 7"),
    UnhashableStr("a"), [], ["1"], [1, None], [LiarStr("x")], (), ("a", "b"), {},
    {"a": {"type": "int", "defval": 0}}, {LiarStr("a"): LiarStr("int")}, collections.OrderedDict(),
    RaisingMapping(), RaisingIterable(), Claims(["Q1", ":", "1"]),
    Fresh(lambda: GrowingDict(a={"type": "int", "defval": 0, "value": 1}, semi={"type": "x", "defval": ""})),
    reaching(lambda: [ClearingItem("1"), ClearingItem(":"), "2", "3", "4"]),
    reaching(lambda: {ClearingItem("a"): {"type": "int", "defval": 0, "value": 1}, "b": {"type": "float"}}),
    object(), raising_progress, print, rebinding_progress, swapping_progress, clearing_progress,
    reentrant_progress, recursive_progress,
]


def fingerprint(obj, seen=None):
    """Identity and type of an object and of all it holds: equal means unchanged."""
    seen = set() if seen is None else seen
    if id(obj) in seen:
        return (type(obj), id(obj))
    seen.add(id(obj))
    inner = None
    if isinstance(obj, (list, tuple)):
        inner = tuple(fingerprint(x, seen) for x in (list if isinstance(obj, list) else tuple).__iter__(obj))
    elif isinstance(obj, dict):
        inner = tuple((fingerprint(k, seen), fingerprint(v, seen)) for k, v in dict.items(obj))
    elif isinstance(obj, bytearray):
        inner = bytes(obj)
    return (type(obj), id(obj), inner)


def globals_fingerprint():
    return tuple((name, fingerprint(value)) for name, value in vxrcomn.__dict__.items())


def call(func, args):
    """One call, checked: the result or the exception."""
    made = [a.make() if isinstance(a, Fresh) else a for a in args]
    checked = [a for a in args if not isinstance(a, Fresh)]  # those change themselves
    before_args, before_globals = fingerprint(checked), globals_fingerprint()
    with mock.patch.dict(vxrcomn.__dict__):
        try:
            outcome = func(*made)
        except SystemError:
            raise
        except Exception as e:
            outcome = e
        rebound = globals_fingerprint() != before_globals
    assert fingerprint(checked) == before_args, (func, args)
    if rebound:
        # Only a progress callable that rebinds globals may change them.
        assert any(a is r for a in args for r in REBINDING), (func, args)
    return outcome


def sweep(func, good_args, skip=None):
    """Each hostile value in each position, the others good; SystemError is the module's fault."""
    for position in range(len(good_args)):
        for value in VALUES:
            if not (skip and skip(position, value)):
                call(func, good_args[:position] + [value] + good_args[position + 1:])
