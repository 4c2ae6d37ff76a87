"""The module under test (with the winreg stand-in off Windows), the shared
data files, and the module's globals restored after every test."""
import os
import sys
from unittest import mock

import pytest

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

# The build named is the one under test (an installed one included).
assert os.path.samefile(os.path.dirname(os.path.abspath(vxrcomn.__file__)), MODULE_DIR), vxrcomn.__file__

# Real data files written by other programs; absent in a user's clone.
SHARED_DATA = os.environ.get("VXR_SHARED_DATA", os.path.join(ROOT, "..", "shared", "data"))

# `make fuzz`: the cases run and the seconds spent per target (test_fuzz.py).
FUZZ_STATS = {}



def shared_files():
    """The shared RAW and EPC files, or one skipped case (not an empty list: ids)."""
    paths = sorted(os.path.join(SHARED_DATA, kind, name) for kind, suffix in (("raw", ".raw"), ("epc", ".epc"))
                   if os.path.isdir(os.path.join(SHARED_DATA, kind))
                   for name in os.listdir(os.path.join(SHARED_DATA, kind)) if name.lower().endswith(suffix))
    return paths or [pytest.param("", id="no-shared-data", marks=pytest.mark.skip(reason="no shared data files"))]


@pytest.fixture(autouse=True)
def restore_module_globals():
    """Tests rebind the module's globals (re, shlex, _WRAP_CHAR, ...)."""
    with mock.patch.dict(vxrcomn.__dict__):  # the same dict object after: the functions hold it
        yield


@pytest.fixture
def vx():
    return vxrcomn


def pytest_terminal_summary(terminalreporter):
    write = terminalreporter.write_line
    leaks = sys.modules.get("leakcheck")
    results = leaks.RESULTS if leaks else []
    if results:
        write("leak checks: %d, of %d functions, %d rounds each, %d calls in all; blocks grown at most %d (limit %d)"
              % (len(results), len({name for name, _, _ in results}), leaks.ROUNDS,
                 sum(calls for _, calls, _ in results), max(grown for _, _, grown in results), leaks.SLACK_BLOCKS))
    if not FUZZ_STATS or not os.environ.get("VXR_FUZZ_SECONDS"):
        return
    for name, (cases, seconds) in sorted(FUZZ_STATS.items()):
        write("fuzz %-18s %12d cases in %7.0f s" % (name, cases, seconds))
    write("fuzz %-18s %12d cases in %7.0f s" % ("all", sum(c for c, _ in FUZZ_STATS.values()),
                                                 sum(s for _, s in FUZZ_STATS.values())))
