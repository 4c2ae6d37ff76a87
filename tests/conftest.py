"""Shared test setup: the module under test, the winreg stand-in on
non-Windows hosts, the shared data files (when present), and a fixture that
restores the module's globals after every test."""
import os
import sys

import pytest
from hypothesis import settings

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
STANDIN = os.path.join(ROOT, "standin")
# The folder holding the built module: the in-place build, or another build
# (the sanitizer build of `make check`) named by VXR_MODULE_DIR.
MODULE_DIR = os.environ.get("VXR_MODULE_DIR", ROOT)
if sys.platform != "win32" and STANDIN not in sys.path:
    sys.path.insert(0, STANDIN)
for path in (ROOT, MODULE_DIR):
    if path in sys.path:
        sys.path.remove(path)
    sys.path.insert(0, path)

IMPORT_CWD = os.getcwd()  # the module's path defaults are this folder
import vxrcomn  # noqa: E402

# Real data files written by other programs; absent in a user's clone.
SHARED_DATA = os.environ.get("VXR_SHARED_DATA", os.path.join(ROOT, "..", "shared", "data"))

# `make fuzz`: the cases run and the seconds spent per target (test_fuzz.py).
FUZZ_STATS = {}

settings.register_profile("default", deadline=None, print_blob=True)
settings.register_profile("fuzz", deadline=None, print_blob=True, max_examples=200_000)
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "default"))


def shared_files(kind, *suffixes):
    """Paths of the shared data files of one kind ("raw" or "epc"); without
    the folder, one skipped case with an id of its own (pytest would hand an
    empty parameter list's placeholder to the tests' id functions)."""
    folder = os.path.join(SHARED_DATA, kind)
    if not os.path.isdir(folder):
        return [pytest.param("", id="no-shared-data", marks=pytest.mark.skip(reason="shared data files are not present"))]
    return sorted(
        os.path.join(folder, name) for name in os.listdir(folder) if name.lower().endswith(suffixes)
    )


requires_shared_data = pytest.mark.skipif(
    not os.path.isdir(SHARED_DATA), reason="shared data files are not present"
)


@pytest.fixture(autouse=True)
def restore_module_globals():
    """Tests rebind the module's globals (re, shlex, _WRAP_CHAR, ...); put
    them back afterwards."""
    before = dict(vxrcomn.__dict__)
    yield
    now = vxrcomn.__dict__
    if list(now) != list(before) or any(now[k] is not v for k, v in before.items()):
        now.clear()  # the same dict object: the module's functions hold it
        now.update(before)


class Progress:
    """A progress callable that records every message."""

    def __init__(self):
        self.messages = []

    def __call__(self, text):
        self.messages.append(text)

    @property
    def text(self):
        return "".join(self.messages)


@pytest.fixture
def progress():
    return Progress()


@pytest.fixture
def vx():
    return vxrcomn


def pytest_terminal_summary(terminalreporter):
    write = terminalreporter.write_line
    leaks = sys.modules.get("leakcheck")
    if leaks is not None and leaks.RESULTS:
        results = leaks.RESULTS
        write("leak checks: %d, of %d functions, %d rounds each, %d calls in all; blocks grown at most %d (limit %d)"
              % (len(results), len({name for name, _, _ in results}), leaks.ROUNDS,
                 sum(calls for _, calls, _ in results), max(grown for _, _, grown in results), leaks.SLACK_BLOCKS))
    if not FUZZ_STATS or not os.environ.get("VXR_FUZZ_SECONDS"):
        return
    for name, (cases, seconds) in sorted(FUZZ_STATS.items()):
        write("fuzz %-18s %12d cases in %7.0f s" % (name, cases, seconds))
    write("fuzz %-18s %12d cases in %7.0f s" % ("all", sum(c for c, _ in FUZZ_STATS.values()),
                                                 sum(s for _, s in FUZZ_STATS.values())))
