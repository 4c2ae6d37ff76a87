"""Reference-leak check: many rounds of calls, no growth of the interpreter's
allocated blocks, and the reference counts of the arguments (and of
everything they contain) and of the module's globals unchanged.

VXR_LEAK_CALLS sets the strength of a run: `make check` runs 100,000, which
makes 10,000 rounds; `make test` 10,000 (1,000 rounds, the fewest), which
still shows a leak of one block per round as five times the slack."""
import collections
import gc
import os
import sys

import vxrcomn

# pymalloc noise between two measurements (free lists, caches) stays well
# below this; a leak of one object per round shows as thousands.
SLACK_BLOCKS = 200
ROUNDS = max(1_000, int(os.environ.get("VXR_LEAK_CALLS", 10_000)) // 10)
CONTAINERS = (list, tuple, dict, set, frozenset, collections.OrderedDict)
RESULTS = []  # (label, calls, blocks grown) of every check run, for the summary


def _shared(obj):
    """Objects the interpreter shares everywhere (None, booleans, small
    ints): their counts move with unrelated work."""
    return obj is None or type(obj) is bool or (type(obj) is int and -5 <= obj <= 256)


def _watched(objects):
    """The objects and everything inside their containers, and the values
    of the module's globals: a lost reference to an existing object shows in
    its count, not in the allocated blocks."""
    seen = {}
    stack = list(objects) + list(vxrcomn.__dict__.values())
    while stack:
        obj = stack.pop()
        if id(obj) in seen or _shared(obj):
            continue
        seen[id(obj)] = obj
        if isinstance(obj, CONTAINERS):
            stack.extend(gc.get_referents(obj))
    return list(seen.values())


def leaks(body, watch, label, calls_per_round=1):
    """Runs body() for ROUNDS rounds (an exception it raises is part of the
    round); returns what grew: a text, or "" when nothing did."""
    for _ in range(20):  # warm caches: interned texts, the re cache
        body()
    gc.collect()
    watched = _watched(watch)
    refs = [sys.getrefcount(o) for o in watched]
    before = sys.getallocatedblocks()
    for _ in range(ROUNDS):
        body()
    gc.collect()
    grown = sys.getallocatedblocks() - before
    RESULTS.append((label, ROUNDS * calls_per_round, grown))
    now = [sys.getrefcount(o) for o in watched]
    changed = ["%.60r %d -> %d" % (watched[i], refs[i], now[i]) for i in range(len(now)) if now[i] != refs[i]]
    if grown >= SLACK_BLOCKS or changed:
        return "%s: %d blocks more after %d rounds; reference counts changed: %s" % (
            label, grown, ROUNDS, ", ".join(changed[:5]))
    return ""
