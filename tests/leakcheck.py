"""Reference-leak check: many calls, no growth of the interpreter's allocated
blocks, and the reference counts of the arguments unchanged."""
import gc
import sys

# pymalloc noise between two measurements (free lists, caches) stays well
# below this; a leak of one object per call shows as tens of thousands.
SLACK_BLOCKS = 200


def _shared(obj):
    """Objects the interpreter shares everywhere (None, booleans, small
    ints): their counts move with unrelated work."""
    return obj is None or type(obj) is bool or (type(obj) is int and -5 <= obj <= 256)


def _counts(args, kwargs):
    return [sys.getrefcount(a) for a in list(args) + list(kwargs.values()) if not _shared(a)]


def _run(func, args, kwargs, calls):
    for _ in range(calls):
        try:
            func(*args, **kwargs)
        except Exception:
            pass


def assert_no_leak(func, *args, calls=100_000, **kwargs):
    """Calls func(*args, **kwargs) `calls` times; an exception it raises is
    part of the call.  Fails when allocated blocks grow or when an argument's
    reference count changes."""
    _run(func, args, kwargs, 200)  # warm caches: interned texts, the re cache
    gc.collect()
    refs = _counts(args, kwargs)
    before = sys.getallocatedblocks()
    _run(func, args, kwargs, calls)
    gc.collect()
    grown = sys.getallocatedblocks() - before
    assert grown < SLACK_BLOCKS, "%s: %d blocks more after %d calls" % (func.__name__, grown, calls)
    after = _counts(args, kwargs)
    assert after == refs, "%s: argument reference counts %s became %s" % (func.__name__, refs, after)
