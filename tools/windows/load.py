"""make check-wine: the module of each Windows wheel loaded under Wine with
LoadLibraryExW and the search flags CPython uses (load.c), beside a stub
pythonXY.dll that exports the names the build's .def file lists and nothing
else.  It fails when the load fails, when the init function is missing, or
when Wine reports an import it cannot resolve (a name that Wine's ucrtbase.dll,
behind its api-ms-win-crt-*.dll, or its kernel32.dll, or the stub, does not
export).  Usage: load.py [--toolchain COMMAND] WHEEL... (after build.py, whose
.def files it reads); COMMAND runs a shell command line where MinGW-w64 for
the Universal CRT is, as for build.py.  Output: build/windows/wine."""
import os
import re
import shlex
import subprocess
import sys
import zipfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
OUT = os.path.join(ROOT, "build", "windows", "wine")
GCC = "x86_64-w64-mingw32ucrt-gcc"
TOOLCHAIN = []  # the --toolchain command, split
WINE, WINESERVER = "/usr/lib/wine/wine64", "/usr/lib/wine/wineserver"
# A prefix of our own; no Mono or Gecko, which Wine would offer to download.
ENV = dict(os.environ, WINEPREFIX=os.path.join(OUT, "prefix"), WINEDEBUG="-all,warn+module",
           WINEDLLOVERRIDES="mscoree,mshtml=")


def gcc(args):
    """MinGW-w64's gcc, where the toolchain is (which sees the repository
    when run in it)."""
    cmd = [GCC] + args
    subprocess.check_call(TOOLCHAIN + [shlex.join(cmd)] if TOOLCHAIN else cmd, cwd=ROOT)


def stage(wheel):
    """The wheel's module and its stub interpreter DLL in a folder of their
    own; the module's Windows path."""
    tag = re.search(r"-cp3(\d+)-cp3\1-win_amd64\.whl$", wheel).group(1)
    folder = os.path.join(OUT, "cp3" + tag)
    os.makedirs(folder, exist_ok=True)
    name = "vxrcomn.cp3%s-win_amd64.pyd" % tag
    with zipfile.ZipFile(wheel) as z, open(os.path.join(folder, name), "wb") as f:
        f.write(z.read(name))
    names = open(os.path.join(ROOT, "build", "windows", "cp3" + tag, "obj", "python3%s.def" % tag)).read().split()[3:]
    with open(os.path.join(folder, "stub.def"), "w") as f:
        f.write("LIBRARY python3%s.dll\nEXPORTS\n%s\n" % (tag, "\n".join(n + " = stub" for n in names)))
    with open(os.path.join(folder, "stub.c"), "w") as f:
        f.write("int stub;\n")
    gcc(["-shared", "-o", os.path.join(folder, "python3%s.dll" % tag), os.path.join(folder, "stub.c"),
         os.path.join(folder, "stub.def")])
    return "Z:" + os.path.join(folder, name).replace("/", "\\")


def main(wheels):
    if wheels[:1] == ["--toolchain"]:
        TOOLCHAIN[:], wheels = shlex.split(wheels[1]), wheels[2:]
    os.makedirs(OUT, exist_ok=True)
    loader = os.path.join(OUT, "load.exe")
    gcc(["-municode", "-O2", "-Wall", "-Werror", "-o", loader, os.path.join(ROOT, "tools", "windows", "load.c")])
    paths = [stage(w) for w in wheels]
    p = subprocess.run([WINE, loader] + paths, env=ENV, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                       universal_newlines=True)
    subprocess.run([WINESERVER, "-w"], env=ENV)  # the server this run started ends before we do
    unresolved = re.findall(r"No implementation for (\S+) imported from", p.stderr)
    print(p.stdout, end="")
    for name in unresolved:
        print("FAILED: unresolved import " + name)
    loaded = p.stdout.count(": loaded, PyInit_vxrcomn found")
    return 0 if p.returncode == 0 and not unresolved and wheels and loaded == len(wheels) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
