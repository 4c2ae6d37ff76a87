"""Objects that no caller should pass, for the bad-input sweeps: every
function must return a result or raise an ordinary exception for each, and
leave the module's globals and its arguments as it found them (only a
progress callable that rebinds globals changes them, and then only as it
did itself)."""
import collections

import vxrcomn


class StrSubclass(str):
    pass


class OddStr(str):
    """A str whose methods and comparisons misbehave."""

    def __eq__(self, other):
        raise RuntimeError("odd __eq__")

    def __hash__(self):
        return 1

    def __str__(self):
        raise RuntimeError("odd __str__")

    def __format__(self, spec):
        raise RuntimeError("odd __format__")

    def strip(self, *args):
        return 12345

    def replace(self, *args):
        return None

    def split(self, *args):
        raise RuntimeError("odd split")

    def upper(self):
        return []

    def title(self):
        raise RuntimeError("odd title")


class LiarStr(str):
    """Equals everything ("_ifc", "int", ":", "semi", "q", "0"); its methods
    return itself and its text forms are not text."""
    __hash__ = str.__hash__

    def __eq__(self, other):
        return True

    def __ne__(self, other):
        return False

    def __str__(self, *args):
        return 5

    def strip(self, *args):
        return self

    __format__ = __str__
    lower = upper = title = replace = strip

    def split(self, *args):
        return [self, self]

    def find(self, *args):
        return 0

    count = find


class UnhashableStr(str):
    __eq__ = str.__eq__

    def __hash__(self):
        raise RuntimeError("odd __hash__")


class RaisingMapping(dict):
    """A non-empty dict whose reading methods raise."""

    def __init__(self):
        super().__init__(a=1)

    def __getitem__(self, key):
        raise RuntimeError("mapping __getitem__")

    def __contains__(self, key):
        raise RuntimeError("mapping __contains__")

    def keys(self):
        raise RuntimeError("mapping keys")

    def items(self):
        raise RuntimeError("mapping items")

    def __iter__(self):
        raise RuntimeError("mapping __iter__")

    def __len__(self):
        raise RuntimeError("mapping __len__")


class RaisingIterable:
    def __iter__(self):
        yield "1"
        raise RuntimeError("iteration")


class Fresh:
    """A value made anew for every call: objects that change themselves."""

    def __init__(self, make):
        self.make = make


class GrowingDict(dict):
    """Gains an entry whenever it is read."""

    def _grow(self, read, *args):
        dict.__setitem__(self, "k%d" % len(self), {"type": "int", "defval": 0, "value": 1})
        return read(self, *args)

    def __getitem__(self, key):
        return self._grow(dict.__getitem__, key)

    def __contains__(self, key):
        return self._grow(dict.__contains__, key)

    def keys(self):
        return self._grow(dict.keys)

    def items(self):
        return self._grow(dict.items)


class ClearingItem(str):
    """Empties the container holding it when it is compared, hashed or
    stripped."""

    def __new__(cls, text, owner):
        self = str.__new__(cls, text)
        self.owner = owner
        return self

    def _clear(self, then, *args):
        self.owner.clear()
        return then(self, *args)

    def __eq__(self, other):
        return self._clear(str.__eq__, other)

    def __hash__(self):
        return self._clear(str.__hash__)

    def strip(self, *args):
        return self._clear(str.strip, *args)


def growing_dict():
    return GrowingDict(a={"type": "int", "defval": 0, "value": 1}, semi={"type": "x", "defval": ""})


def clearing_list():
    items = []
    items.extend([ClearingItem("1", items), ClearingItem(":", items), "2", "3", "4"])
    return items


def clearing_dict():
    """A format dictionary whose first key empties it during a look-up."""
    d = {}
    d[ClearingItem("a", d)] = {"type": "int", "defval": 0, "value": 1}
    d["b"] = {"type": "float", "defval": 0.0}
    return d


def raising_progress(text):
    raise RuntimeError("progress")


# The module globals the functions read after their first message.
REBOUND = ["_PRG_INDENT", "_PRG_INDENT2", "_WRAP_CHAR", "_WRAP_PRNT", "_PRG_LINLEN", "collections", "re",
           "shlex", "os", "time", "tempfile", "_split_textline_kora", "_get_unwrapped_string",
           "_epc_assign_data_values_common", "_split_txtline_to_values_kora_no_check_vlist", "_file_PNX",
           "_print_dict", "_SimpleObject", "_ALLOWED_KORA_VRSNS", "_LATEST_KORA_VRSN"]


def rebinding_progress(text):
    """Binds every global the functions read to something unusable."""
    for name in REBOUND:
        setattr(vxrcomn, name, 0)


def swapping_progress(text):
    """Binds the globals to usable but different objects."""
    vxrcomn._PRG_INDENT, vxrcomn._PRG_INDENT2 = vxrcomn._PRG_INDENT2, vxrcomn._PRG_INDENT
    vxrcomn._WRAP_CHAR = vxrcomn._WRAP_PRNT = '"'
    vxrcomn._split_textline_kora = str.split
    vxrcomn._get_unwrapped_string = str
    vxrcomn._epc_assign_data_values_common = lambda *args: (True, {})


def clearing_progress(text):
    """Empties the module's dictionary."""
    vxrcomn.__dict__.clear()


def reentrant_progress(text):
    """Calls back into the module with the text it was given."""
    try:
        vxrcomn._split_textline_kora(text)
    except Exception:
        pass
    vxrcomn._get_values_from_data_line_text_pslf("bus", 1, text, len)
    vxrcomn._split_txtline_to_values_kora("bus", ",x", "I", "int", len)
    vxrcomn._print_dict(text, {1: text}, len)


def recursive_progress(text):
    """Calls a module function that calls it again, without end."""
    vxrcomn._split_txtline_to_values_kora("bus", ",x", "I", "int", recursive_progress)


REBINDING = (rebinding_progress, swapping_progress, clearing_progress)

VALUES = [
    None, 0, -1, 2 ** 70, 1.5, float("nan"), float("inf"), 1j, True, b"1, 2", bytearray(b"x"),
    memoryview(b"1 2"), "", "0", "q", "1, 'A'", "x\x00y", "\x00", "\ud800", "\udfff, '\ud800'",
    "\U0001f600, 1", "\u4e2d, '\u6587 \U0010ffff'", StrSubclass("7, 8"), OddStr("7, 8"), LiarStr(", 7"),
    UnhashableStr("a"), [], ["1"], [1, None], [LiarStr("x")], (), ("a", "b"), {},
    {"a": {"type": "int", "defval": 0}}, {LiarStr("a"): LiarStr("int")}, collections.OrderedDict(),
    RaisingMapping(), RaisingIterable(), Fresh(growing_dict), Fresh(clearing_list), Fresh(clearing_dict),
    object(), raising_progress, print, rebinding_progress, swapping_progress, clearing_progress,
    reentrant_progress, recursive_progress,
]


def fingerprint(obj, seen=None):
    """The identity and type of an object and, for containers, of all they
    hold, in order: equal fingerprints mean nothing was changed."""
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
    """One call with the ordinary-exception rule and the after-checks:
    returns the result or the exception."""
    made = [a.make() if isinstance(a, Fresh) else a for a in args]
    checked = [a for a in args if not isinstance(a, Fresh)]  # those change themselves
    before_args, saved, before_globals = fingerprint(checked), dict(vxrcomn.__dict__), globals_fingerprint()
    try:
        outcome = func(*made)
    except SystemError:
        raise
    except Exception as e:
        outcome = e
    finally:
        rebound = globals_fingerprint() != before_globals
        if rebound:
            vxrcomn.__dict__.clear()
            vxrcomn.__dict__.update(saved)
    assert fingerprint(checked) == before_args, (func, args)
    if rebound:
        # Only a progress callable that rebinds globals may change them.
        assert any(a is r for a in args for r in REBINDING), (func, args)
    return outcome


def sweep(func, good_args, skip=None):
    """Calls func with each hostile value in each argument position, the other
    arguments good.  Only an ordinary exception may come out; SystemError
    means the module broke its own rules."""
    for position in range(len(good_args)):
        for value in VALUES:
            if not (skip and skip(position, value)):
                call(func, good_args[:position] + [value] + good_args[position + 1:])
