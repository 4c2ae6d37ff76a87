"""The wheel checker (tools/wheels.py) on wheels as built and spoilt one way
each.  It needs the wheels: `make check-wheels` builds them and names their
folder in VXR_WHEEL_DIR."""
import glob
import os
import sys
import zipfile

import pytest

from conftest import ROOT

WHEEL_DIR = os.environ.get("VXR_WHEEL_DIR")
if not WHEEL_DIR:
    pytest.skip("the wheel checks run in make check-wheels", allow_module_level=True)
sys.path.insert(0, os.path.join(ROOT, "tools"))
import wheels  # noqa: E402

W39, W313 = "cp39-cp39-win_amd64", "cp313-cp313-win_amd64"
LINUX = "cp39-cp39-manylinux2014_x86_64.manylinux_2_17_x86_64"
PYD39, PYD313 = "vxrcomn.cp39-win_amd64.pyd", "vxrcomn.cp313-win_amd64.pyd"
SO39 = "vxrcomn.cpython-39-x86_64-linux-gnu.so"


def built(tag):
    """(file name, {entry: bytes}) of the wheel as built."""
    (path,) = glob.glob(os.path.join(WHEEL_DIR, "vxrcomn-*-%s.whl" % tag))
    with zipfile.ZipFile(path) as z:
        return os.path.basename(path), {name: z.read(name) for name in z.namelist()}


def flip(name):  # one bit of the entry's byte 1000
    return lambda e: e.update({name: e[name][:1000] + bytes([e[name][1000] ^ 1]) + e[name][1001:]})


def patch(name, old, new):  # the entry `name` (or the one ending in /name) with its first `old` made `new`
    def change(e):
        (key,) = [n for n in e if n == name or n.endswith("/" + name)]
        assert old in e[key]
        e[key] = e[key].replace(old, new, 1)
    return change


# (wheel, change to its entries, RECORD made anew after it, tag the file name
# is given, the problem the checker must report; None: none at all)
CASES = [
    ("as built", W39, None, False, None, None),
    ("Linux as built", LINUX, None, False, None, None),
    ("one byte flipped", W39, flip(PYD39), False, None, "RECORD: %s does not match" % PYD39),
    ("one byte flipped, Linux", LINUX, flip(SO39), False, None, "RECORD: %s does not match" % SO39),
    ("a file RECORD does not list", W39, lambda e: e.update({"vxrcomn.py": b""}), False, None,
     "RECORD does not list vxrcomn.py"),
    ("the .pyd of CPython 3.13", W39, lambda e: e.update({PYD39: built(W313)[1][PYD313]}), True, None,
     "imports python313.dll, not python39.dll"),
    ("file name tag of 3.10", W39, None, False, "cp310-cp310-win_amd64", "Tag: cp310-cp310-win_amd64 alone"),
    ("file name tag of 3.10, Linux", LINUX, None, False, LINUX.replace("39", "310"),
     "Tag: cp310-cp310-manylinux2014_x86_64, cp310-cp310-manylinux_2_17_x86_64 alone"),
    ("a tag no index takes", LINUX, None, False, "cp39-cp39-linux_x86_64", "file name is not"),
    ("WHEEL tag of 3.10", W39, patch("WHEEL", W39.encode(), b"cp310-cp310-win_amd64"), True, None,
     "Tag: cp39-cp39-win_amd64 alone"),
    ("a second C runtime", W39, patch(PYD39, b"KERNEL32.dll", b"msvcrt.dll\0\0"), True, None,
     "imports msvcrt.dll, a C runtime beside the Universal CRT"),
    ("a MinGW runtime DLL", W39,
     patch(PYD39, b"api-ms-win-crt-heap-l1-1-0.dll", b"libwinpthread-1.dll".ljust(30, b"\0")), True, None,
     "imports libwinpthread-1.dll, a MinGW runtime DLL"),
    ("a build path", W39, patch(PYD39, b"src/vxr.hpp", b"/tmp/vx.hpp"), True, None, "holds the build path /tmp/vx.hpp"),
]


@pytest.mark.parametrize("wheel, change, rerecord, tag, problem", [c[1:] for c in CASES], ids=[c[0] for c in CASES])
def test_checker(tmp_path, wheel, change, rerecord, tag, problem):
    name, entries = built(wheel)
    if change:
        change(entries)
    if rerecord:
        (dist_info,) = {n.split("/")[0] for n in entries if n.endswith(".dist-info/RECORD")}
        del entries[dist_info + "/RECORD"]
        entries[dist_info + "/RECORD"] = wheels.record(entries, dist_info)
    path = tmp_path / (name.replace(wheel, tag) if tag else name)
    wheels.write_zip(str(path), entries)
    problems = wheels.check(str(path))
    assert problems == [] if problem is None else any(problem in p for p in problems), problems
