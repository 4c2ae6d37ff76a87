"""The functions that touch the disk against read-only folders and files,
folders standing where a file is named, and names too long for the file
system: each gives its result or the interpreter's OSError, leaves only what
its own open or makedirs made, and keeps no file open."""
import os
import pickle
import pwd
import shutil
import stat
import tempfile
import time
import types

import pytest

import vxrcomn

FIXED = time.struct_time((2024, 3, 7, 14, 5, 9, 3, 67, 0))
PLAIN = "a_b_20240307_140509.txt"
LISTING = " " * 5 + "T\n" + " " * 9 + "1 : a\n"


def unprivileged(func):
    """func() in a child process that cannot write where the permissions say
    no: root writes anywhere, so as root the child runs as "nobody".
    Returns ("ok", result) or ("raised", exception type, text), or
    ("left open", descriptors) when a file stays open after the call."""
    def run():
        fds = open_descriptors()
        try:
            out = "ok", func()
        except Exception as e:
            out = "raised", type(e), str(e)
        left = sorted(set(open_descriptors()) - set(fds))
        return ("left open", left) if left else out

    if os.geteuid() != 0:
        return run()
    try:
        nobody = pwd.getpwnam("nobody")
    except KeyError:
        pytest.skip("running as root and there is no user 'nobody' to drop to")
    read, write = os.pipe()
    pid = os.fork()
    if pid == 0:  # the child: never returns into pytest
        status = 1
        try:
            os.close(read)
            os.setgid(nobody.pw_gid)
            os.setuid(nobody.pw_uid)
            data = pickle.dumps(run())
            with os.fdopen(write, "wb") as pipe:
                pipe.write(data)
            status = 0
        finally:
            os._exit(status)
    os.close(write)
    with os.fdopen(read, "rb") as pipe:
        data = pipe.read()
    _, status = os.waitpid(pid, 0)
    assert status == 0 and data, "the unprivileged child failed"
    return pickle.loads(data)


def open_descriptors():
    return sorted(os.listdir("/proc/self/fd")) if os.path.isdir("/proc/self/fd") else []


def tree(folder):
    """Every path under folder with its kind and mode, and file contents."""
    out = {}
    for root, dirs, files in os.walk(folder):
        for name in dirs + files:
            path = os.path.join(root, name)
            st = os.lstat(path)
            content = open(path).read() if stat.S_ISREG(st.st_mode) and st.st_mode & 0o444 else None
            out[os.path.relpath(path, folder)] = (stat.S_IFMT(st.st_mode), stat.S_IMODE(st.st_mode), content)
    return out


# Under the test folder, which an unprivileged child can reach: (path,
# content or None for a folder, mode), parents first.
LAYOUT = [("rw", None, 0o777), ("rw/" + PLAIN, None, 0o755), ("rw/file", "", 0o666), ("rw/old.txt", "old\n", 0o444),
          ("ro", None, 0o555), ("ro/sub", None, 0o555), ("ro/old.txt", "old\n", 0o444), ("ro/" + PLAIN, "", 0o644)]


@pytest.fixture
def disk(vx):
    """The test folder laid out as LAYOUT, and the clock fixed."""
    base = tempfile.mkdtemp(prefix="vxr-files-")
    os.chmod(base, 0o755)
    for path, content, _ in LAYOUT:
        if content is None:
            os.mkdir(os.path.join(base, path))
        else:
            with open(os.path.join(base, path), "w") as f:
                f.write(content)
    for path, _, mode in reversed(LAYOUT):
        os.chmod(os.path.join(base, path), mode)
    vx.time = types.SimpleNamespace(localtime=lambda: FIXED, strftime=time.strftime)
    yield types.SimpleNamespace(base=base)
    for path, content, _ in LAYOUT:
        if content is None:
            os.chmod(os.path.join(base, path), 0o755)
    shutil.rmtree(base)


def changes(before, after):
    return {k: after.get(k) for k in set(before) | set(after) if before.get(k) != after.get(k)}


@pytest.mark.parametrize("folder, name, extn, expected", [
    ("ro/sub", "a:b", "txt", ("ok", "ro/sub/" + PLAIN)),        # free: no disk access beyond the test
    ("ro", "a:b", "txt", ("raised", PermissionError)),          # taken: mkstemp cannot create its file
    ("rw", "a:b", "txt", ("ok", "rw/" + PLAIN + "*.txt")),      # taken by a folder: any free name
    ("rw/file", "a:b", "txt", ("ok", "rw/file/" + PLAIN)),      # a file as the folder: cannot be taken
    ("missing", "a:b", ".txt", ("ok", "missing/" + PLAIN)),
])
def test_unique_temporary_name(vx, disk, folder, name, extn, expected):
    before = tree(disk.base)
    got = unprivileged(lambda: vx._get_unique_tmp_file_name(name, extn, os.path.join(disk.base, folder)))
    assert got[0] == expected[0], got
    if got[0] == "ok":
        relative = os.path.relpath(got[1], disk.base)
        assert relative == expected[1] or (relative.startswith(expected[1][:-5]) and relative.endswith(".txt")
                                           and not os.path.exists(got[1]))
    else:
        assert got[1] is expected[1]
    assert changes(before, tree(disk.base)) == {}


@pytest.mark.parametrize("name, dictnam, expected, made", [
    ("rw/new.txt", {1: "a"}, ("ok", None), {"rw/new.txt": LISTING}),
    ("rw/file", {1: "a"}, ("ok", None), {"rw/file": LISTING}),             # an existing file is truncated
    ("rw/new.txt", [1], ("raised", AttributeError), {"rw/new.txt": ""}),  # opened before the listing failed
    ("ro/new.txt", {1: "a"}, ("raised", PermissionError), {}),
    ("rw/old.txt", {1: "a"}, ("raised", PermissionError), {}),            # a read-only file is kept
    ("rw/" + PLAIN, {1: "a"}, ("raised", IsADirectoryError), {}),
    ("rw/file/x", {1: "a"}, ("raised", NotADirectoryError), {}),
    ("missing/x", {1: "a"}, ("raised", FileNotFoundError), {}),
    ("rw/" + "n" * 300, {1: "a"}, ("raised", OSError), {}),              # a name too long
])
def test_dictionary_listing_file(vx, disk, name, dictnam, expected, made):
    before = tree(disk.base)
    got = unprivileged(lambda: vx._print_dict_to_file("T", dictnam, os.path.join(disk.base, name)))
    assert got[:2] == expected
    assert {k: v[2] for k, v in changes(before, tree(disk.base)).items()} == made


@pytest.mark.parametrize("declared, given, attribute, made", [
    ("x", "rw/new/deeper", "rw/new/deeper", {"rw/new", "rw/new/deeper"}),
    ("x", "ro/new", "x", set()),                             # cannot be made: the declaration
    ({"value": "x"}, "ro/sub/new/deeper", {"value": "x"}, set()),   # ... as it stands
    ("x", "ro", "ro", set()),                                # exists: left as it is
    ("x", "rw/file", "rw/file", set()),                      # a file that exists counts as there
    ("x", "rw/new/" + "n" * 300, "x", {"rw/new"}),           # makedirs made the parent before it failed
])
def test_work_folder(vx, disk, declared, given, attribute, made):
    before = tree(disk.base)

    def build():
        args = vx._get_arguments_as_attr({"workdir": declared}, {"workdir": os.path.join(disk.base, given)})
        return args.workdir

    got = unprivileged(build)
    expected = os.path.join(disk.base, attribute) if isinstance(attribute, str) and attribute != "x" else attribute
    assert got == ("ok", expected)
    assert set(changes(before, tree(disk.base))) == made


def test_the_child_really_cannot_write_the_read_only_folder(disk):
    got = unprivileged(lambda: open(os.path.join(disk.base, "ro", "probe"), "w"))
    assert got[0] == "raised" and got[1] is PermissionError
