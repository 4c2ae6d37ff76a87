"""Reference-leak check: many calls, no growth of the interpreter's allocated
blocks, and the reference counts of the arguments (and of everything they
contain) and of the module's globals unchanged.

A check is written for its full call count (100,000 unless it says less).
VXR_LEAK_CALLS sets the full count of the run: `make check` runs 100,000,
`make test` a tenth of it, which still shows a leak of one block per call."""
import collections
import gc
import os
import sys

import vxrcomn

# pymalloc noise between two measurements (free lists, caches) stays well
# below this; a leak of one object per call shows as thousands.
SLACK_BLOCKS = 200
FULL_CALLS = 100_000
RUN_CALLS = int(os.environ.get("VXR_LEAK_CALLS", 10_000))
MIN_CALLS = min(RUN_CALLS, 1_000)

CONTAINERS = (list, tuple, dict, set, frozenset, collections.OrderedDict)
# (function name, calls, blocks grown) of every check run, for the summary.
RESULTS = []


def scaled(calls):
    """The number of calls this run makes for a check written for `calls`."""
    return max(MIN_CALLS, calls * RUN_CALLS // FULL_CALLS)


def _shared(obj):
    """Objects the interpreter shares everywhere (None, booleans, small
    ints): their counts move with unrelated work."""
    return obj is None or type(obj) is bool or (type(obj) is int and -5 <= obj <= 256)


def _watched(args, kwargs):
    """The arguments and everything inside their containers, and the values
    of the module's globals: a lost reference to an existing object shows in
    its count, not in the allocated blocks."""
    seen = {}
    stack = list(args) + list(kwargs.values())
    while stack:
        obj = stack.pop()
        if id(obj) in seen or _shared(obj):
            continue
        seen[id(obj)] = obj
        if isinstance(obj, CONTAINERS):
            stack.extend(gc.get_referents(obj))
    for value in vxrcomn.__dict__.values():
        if not _shared(value):
            seen.setdefault(id(value), value)
    return list(seen.values())


def _run(func, args, kwargs, calls):
    for _ in range(calls):
        try:
            func(*args, **kwargs)
        except Exception:
            pass


def assert_no_leak(func, *args, calls=FULL_CALLS, **kwargs):
    """Calls func(*args, **kwargs) scaled(calls) times; an exception it
    raises is part of the call.  Fails when allocated blocks grow or when a
    watched object's reference count changes."""
    calls = scaled(calls)
    _run(func, args, kwargs, 200)  # warm caches: interned texts, the re cache
    gc.collect()
    watched = _watched(args, kwargs)
    refs = [sys.getrefcount(o) for o in watched]
    before = sys.getallocatedblocks()
    _run(func, args, kwargs, calls)
    gc.collect()
    grown = sys.getallocatedblocks() - before
    name = getattr(func, "__name__", repr(func))
    RESULTS.append((name, calls, grown))
    assert grown < SLACK_BLOCKS, "%s: %d blocks more after %d calls" % (name, grown, calls)
    now = [sys.getrefcount(o) for o in watched]
    changed = ["%.60r %d -> %d" % (watched[i], refs[i], now[i]) for i in range(len(now)) if now[i] != refs[i]]
    assert not changed, "%s: reference counts changed after %d calls: %s" % (name, calls, ", ".join(changed[:5]))
