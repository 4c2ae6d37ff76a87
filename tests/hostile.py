"""Objects that no caller should pass, for the bad-input sweeps: every
function must return a result or raise an ordinary exception for each."""
import collections


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


def raising_progress(text):
    raise RuntimeError("progress")


VALUES = [
    None, 0, -1, 2 ** 70, 1.5, float("nan"), True, b"1, 2", bytearray(b"x"), "", "0", "q",
    "1, 'A'", "x\x00y", "\ud800", "\U0001f600, 1", StrSubclass("7, 8"), OddStr("7, 8"), [], ["1"],
    [1, None], (), ("a", "b"), {}, {"a": {"type": "int", "defval": 0}}, collections.OrderedDict(),
    RaisingMapping(), RaisingIterable(), object(), raising_progress, print,
]


def sweep(func, good_args):
    """Calls func with each hostile value in each argument position, the other
    arguments good.  Returns the number of calls.  Only an ordinary exception
    may come out; SystemError means the module broke its own rules."""
    calls = 0
    for position in range(len(good_args)):
        for value in VALUES:
            args = list(good_args)
            args[position] = value
            calls += 1
            try:
                func(*args)
            except SystemError:
                raise
            except Exception:
                pass
    return calls
