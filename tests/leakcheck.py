"""Rounds of calls (VXR_LEAK_CALLS // 10, at least 1,000) that must not grow the
allocated blocks or change the reference counts of the arguments or globals."""
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


def _watched(objects):
    """The objects, their containers' contents and the globals: a lost reference shows in a count."""
    seen = {}
    stack = list(objects) + list(vxrcomn.__dict__.values())
    while stack:
        obj = stack.pop()
        # None, booleans and small ints: their counts move with unrelated work.
        if id(obj) in seen or obj is None or type(obj) is bool or (type(obj) is int and -5 <= obj <= 256):
            continue
        seen[id(obj)] = obj
        if isinstance(obj, CONTAINERS):
            stack.extend(gc.get_referents(obj))
    return list(seen.values())


def leaks(body, watch, label, calls_per_round=1):
    """body() for ROUNDS rounds; what grew, as a text, or "" when nothing did."""
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
    # A leak moves a count once a call, so by ROUNDS at least; the interpreter's
    # attribute cache (to 3.11) holds and drops a name's reference now and then.
    changed = ["%.60r %d -> %d" % (watched[i], refs[i], now[i])
               for i in range(len(now)) if abs(now[i] - refs[i]) >= ROUNDS // 2]
    if grown >= SLACK_BLOCKS or changed:
        return "%s: %d blocks more after %d rounds; reference counts changed: %s" % (
            label, grown, ROUNDS, ", ".join(changed[:5]))
    return ""
