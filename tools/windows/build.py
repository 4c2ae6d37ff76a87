"""make wheel-windows and check-windows: builds the module for 64-bit Windows
with MinGW-w64 for the Universal C Runtime against each given interpreter's
headers, checks what the DLL exports, imports and links, and writes its wheel
into dist/; with --msvc, parses every source once more as the Microsoft
compiler would see it.
Usage: build.py [--toolchain COMMAND] [--msvc] [PYTHON...] [--headers 3.X=DIR...]:
CPython interpreters of any platform, of which only the headers and version
are used, or the header folder of a CPython 3.X whose interpreter cannot run
here (the 3.14 and 3.15 of the Debian unstable root).  COMMAND runs a shell
command line, in this folder, where the compiler and clang are (the Debian
unstable root); without it they are looked for here.  Run with Debian's
setuptools on PYTHONPATH, which writes the wheel's METADATA from setup.py as
for the Linux wheel.  Output: build/windows, dist."""
import argparse
import concurrent.futures
import glob
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.dirname(HERE))
import wheels  # noqa: E402

# Paths relative to the repository's root, where main() runs: __FILE__ in a
# traceback entry reads src/..., as in a setup.py build.
OUT = os.path.join("build", "windows")
DIST = "dist"
SOURCES = sorted(glob.glob(os.path.join("src", "**", "*.cpp"), recursive=True))
MINGW = "x86_64-w64-mingw32ucrt-"
TOOLCHAIN = []  # the --toolchain command, split
STRICT = ["-std=c++17", "-Wall", "-Wextra", "-Werror"]  # setup.py with VXR_WERROR=1
# What THIRD_PARTY_NOTICES covers, by what the link map shows linked: any
# part of the GCC runtime; of MinGW-w64, the members named there (their
# terms differ by source file), and import stubs, which carry no code of
# theirs.  The toolchain's libmsvcrt.a is its Universal CRT import library.
NOTICED = {"libstdc++.a": "*", "libgcc.a": "*", "libgcc_eh.a": "*", "crtbegin.o": "*", "crtend.o": "*",
           "dllcrt2.o": "*",
           "libmingw32.a": "CRT_fp10 cinitexe gccmain mingw_helpers natstart pesect pseudo-reloc-list pseudo-reloc "
                           "tlsmcrt tlssup tlsthrd",
           "libmingwex.a": "_assert dllmain",
           "libmsvcrt.a": "ucrt___local_stdio_printf_options ucrt_amsg_exit ucrt_fprintf ucrt_snprintf ucrt_sprintf "
                          "ucrt_vfprintf",
           "libpthread.a": "cond misc mutex rwlock sched spinlock thread"}
# dlltool's members: the head (h), the tail (t) and one stub per name (sNNNNN).
IMPORT_STUB = re.compile(r"lib[\w-]+?(?:s\d+|h|t)\.o")
# Headers MinGW has and Microsoft's C library has not: stubs that fail once
# the compiler presents itself as MSVC (as_msvc.h).
POSIX_ONLY = ("unistd.h dirent.h pthread.h pthread_unistd.h sched.h semaphore.h strings.h libgen.h "
              "getopt.h utime.h sys/time.h sys/param.h sys/file.h sys/unistd.h sys/fcntl.h sys/cdefs.h").split()


def tool(cmd):
    """A command of the toolchain, as run where the toolchain is."""
    return TOOLCHAIN + [shlex.join(cmd)] if TOOLCHAIN else cmd


def run(cmd):
    """Runs a command of the toolchain; returns its output, or None after
    printing the command and its output when it fails."""
    p = subprocess.run(tool(cmd), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True)
    if p.returncode:
        print("FAILED: " + " ".join(cmd) + "\n" + p.stdout, end="")
        return None
    return p.stdout


def run_all(cmds):
    """Runs every command, as many at a time as there are cores; False when
    any failed."""
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        return None not in list(pool.map(run, cmds))


def interpreter_headers(python):
    """The interpreter's version tag ("39") and its header folder."""
    tag, include = subprocess.check_output(
        [python, "-c", "import sys, sysconfig; print('%d%d' % sys.version_info[:2]); "
         "print(sysconfig.get_paths()['include'])"], universal_newlines=True).split("\n")[:2]
    return tag, include


def given_headers(spec):
    """The version tag ("314") and header folder of a --headers 3.X=DIR, or
    None after saying why not: the folder's patchlevel.h must be of 3.X."""
    version, _, include = spec.partition("=")
    if not re.fullmatch(r"3\.\d+", version) or not include:
        print("FAILED: --headers takes 3.X=DIR, not %r" % spec)
        return None
    try:
        text = open(os.path.join(include, "patchlevel.h")).read()
    except OSError as e:
        print("FAILED: no CPython %s headers in %s (%s)" % (version, include, e.strerror))
        return None
    found = re.findall(r"^#define PY_(?:MAJOR|MINOR)_VERSION\s+(\d+)", text, re.M)
    if ".".join(found) != version:
        print("FAILED: %s holds the headers of CPython %s, not %s" % (include, ".".join(found), version))
        return None
    return version.replace(".", ""), include


def windows_headers(tag, include):
    """The headers copied with the Windows pyconfig.h in place of their own
    (Python.h includes the one beside it before any include path)."""
    dest = os.path.join(OUT, "cp" + tag, "include")
    shutil.rmtree(dest, ignore_errors=True)
    shutil.copytree(include, dest)
    shutil.copy(os.path.join(HERE, "pyconfig.h"), dest)
    return dest


def build(tag, include):
    """Objects, import library and DLL for one interpreter; the DLL's path
    or None."""
    objdir = os.path.join(OUT, "cp" + tag, "obj")
    os.makedirs(objdir, exist_ok=True)
    objs = [os.path.join(objdir, s.replace(os.sep, "_")[:-4] + ".o") for s in SOURCES]
    if not run_all([MINGW + "g++"] + STRICT + ["-O2", "-DNDEBUG", "-ffile-prefix-map=%s/=" % ROOT, "-Isrc",
                                               "-I", include, "-c", s, "-o", o] for s, o in zip(SOURCES, objs)):
        return None
    # The interpreter's symbols the objects use, declared dllimport by its
    # headers, so that the import library never lacks or outlives one.
    undefined = run([MINGW + "nm", "-u", "--format=just-symbols"] + objs)
    names = sorted({m.group(1) for m in re.finditer(r"^(?:__imp_)?(_?Py\w+)$", undefined or "", re.M)})
    # A name used without its __imp_ pointer would bind to the code thunk
    # dlltool makes: right for a function, wrong for data.
    direct = sorted(set(re.findall(r"^_?Py\w+$", undefined or "", re.M)))
    if direct:
        print("FAILED: interpreter names not declared dllimport: " + " ".join(direct))
        return None
    dll = "python%s.dll" % tag
    deffile, implib = os.path.join(objdir, "python%s.def" % tag), os.path.join(objdir, "libpython%s.a" % tag)
    with open(deffile, "w") as f:
        f.write("LIBRARY %s\nEXPORTS\n%s\n" % (dll, "\n".join(names)))
    pyd = os.path.join(OUT, "vxrcomn.cp%s-win_amd64.pyd" % tag)
    # dlltool leaves two empty temporary files behind: in a folder of the
    # build, emptied each time.
    tmp = os.path.join(objdir, "tmp")
    shutil.rmtree(tmp, ignore_errors=True)
    os.makedirs(tmp)
    if not names or run(["env", "TMPDIR=" + tmp, MINGW + "dlltool", "-d", deffile, "-l", implib]) is None:
        return None
    # libstdc++, libgcc and winpthreads (which the posix thread model of
    # libstdc++ needs) inside, so that nothing but the interpreter's DLL, the
    # Universal CRT and the system's are needed: -static makes the link take
    # every library from its archive, while the interpreter's DLL and the
    # system's are reached through import libraries.  No link time in the PE
    # header, so that the same commit gives the same bytes.
    if run([MINGW + "g++", "-shared", "-s", "-static", "-static-libgcc", "-static-libstdc++",
            "-Wl,--no-insert-timestamp", "-Wl,-Map=" + os.path.join(objdir, "link.map"),
            "-o", pyd] + objs + [implib]) is None:
        return None
    print("%s: %d interpreter symbols imported (%s)" % (pyd, len(names), deffile))
    return pyd


def inspect(pyd, tag):
    """Exports, imports, C runtime and build paths as wheels.py checks them
    in the wheel; prints what it found."""
    with open(pyd, "rb") as f:
        data = f.read()
    dll, exports, imports = wheels.pe_facts(data)
    print("  format: " + ("PE32+ DLL" if dll else "not a PE32+ DLL"))
    print("  exports: " + " ".join(exports))
    print("  imports: " + " ".join(imports))
    problems = wheels.pyd_problems(data, tag[1:])
    for p in problems:
        print("  FAILED: " + p)
    return not problems


def linked(mapfile):
    """{archive or object: members} of what the link map shows linked from
    outside the module's own objects and import library."""
    text = open(mapfile).read()
    parts = {}
    for path, member in re.findall(r"^(\S+\.a)\(([^)\s]+)\.o\)", text.split("\nDiscarded input sections")[0], re.M):
        parts.setdefault(os.path.basename(path), set()).add(re.sub(r"^(?:lib64_lib\w+?_a|libwinpthread_la)-", "",
                                                                   member) + ".o")
    for path in re.findall(r"^LOAD (/\S+\.o)$", text, re.M):
        parts.setdefault(os.path.basename(path), set())
    return {name: sorted(members) for name, members in parts.items() if not name.startswith("libpython")}


def notices_cover(mapfile, tag):
    """Every static part linked is one THIRD_PARTY_NOTICES covers; writes
    the list beside the map (build/windows/cp3X/obj/linked.txt)."""
    parts = linked(mapfile)
    with open(os.path.join(os.path.dirname(mapfile), "linked.txt"), "w") as f:
        f.writelines("%s: %s\n" % (name, " ".join(members)) for name, members in sorted(parts.items()))
    uncovered = [name + ("(%s)" % m if m else "") for name, members in sorted(parts.items()) for m in members or [""]
                 if not IMPORT_STUB.fullmatch(m) and NOTICED.get(name) != "*"
                 and m[:-2] not in NOTICED.get(name, "").split()]
    print("  linked from the toolchain: %s (cp%s/obj/linked.txt)" % (" ".join(sorted(parts)), tag))
    for part in uncovered:
        print("  FAILED: links %s, which THIRD_PARTY_NOTICES does not cover" % part)
    return not uncovered


def metadata():
    """The dist-info files setup.py gives (METADATA, LICENSE, top_level.txt)
    with the third-party notices added: {name in the wheel: bytes}."""
    with tempfile.TemporaryDirectory(dir=OUT) as tmp:
        subprocess.check_call([sys.executable, "setup.py", "-q", "dist_info", "--output-dir", tmp])
        (dist_info,) = os.listdir(tmp)
        files = {dist_info + "/" + n: open(os.path.join(tmp, dist_info, n), "rb").read()
                 for n in os.listdir(os.path.join(tmp, dist_info))}
    files[dist_info + "/THIRD_PARTY_NOTICES"] = open("THIRD_PARTY_NOTICES", "rb").read()
    return dist_info[len("vxrcomn-"):-len(".dist-info")], files


def write_wheel(pyd, version, tag, dist_info):
    """dist/vxrcomn-VERSION-cp3X-cp3X-win_amd64.whl: the module, its stubs
    where setup.py installs them, and the dist-info."""
    files = dict(dist_info)
    stub = open("vxrcomn.pyi", "rb").read()
    files.update({os.path.basename(pyd): open(pyd, "rb").read(), "vxrcomn.pyi": stub,
                  "vxrcomn-stubs/__init__.pyi": stub, "vxrcomn-stubs/py.typed": open("py.typed", "rb").read()})
    path = wheels.write_wheel(DIST, version, "cp%s-cp%s-win_amd64" % (tag, tag), files)
    print("  wheel: " + path)


def msvc_parse(include):
    """Every source parsed (not compiled) by clang for the Windows target in
    Microsoft-compatibility mode with the compiler's identity switched to
    MSVC after the standard headers (as_msvc.h).  -Wshorten-64-to-32 stands
    for MSVC's C4244/C4267 (64-bit to 32-bit conversions, warnings at /W3,
    errors with the /WX of a VXR_WERROR=1 build)."""
    gxx = subprocess.check_output(tool([MINGW + "g++", "-xc++", "-E", "-v", os.devnull]),
                                  stderr=subprocess.STDOUT, universal_newlines=True)
    dirs = re.search(r"<\.\.\.> search starts here:\n(.*?)End of search list", gxx, re.S).group(1).split()
    dirs = [os.path.normpath(d) for d in dirs]
    resource = subprocess.check_output(tool(["clang", "-print-resource-dir"]), universal_newlines=True).strip()
    # MinGW's C++ and C headers with clang's own in place of GCC's.
    system = [os.path.join(OUT, "posix_only")] + [d for d in dirs if "c++" in d] \
        + [os.path.join(resource, "include")] + [d for d in dirs if "/lib/gcc/" not in d]
    std = sorted({h for s in SOURCES + glob.glob(os.path.join("src", "**", "*.hpp"), recursive=True)
                  for h in re.findall(r"^#include <(\w+)>", open(s).read(), re.M)} - {"Python"})
    # -fgnuc-version and no __int128: MinGW's headers parse as GCC's, and
    # libstdc++ does without the type MSVC lacks.
    flags = ["clang++", "--target=x86_64-w64-mingw32", "-fms-compatibility", "-fms-compatibility-version=19.29",
             "-fms-extensions", "-fgnuc-version=4.2.1", "-U__SIZEOF_INT128__", "-fsyntax-only", "-nostdinc",
             "-Wvla", "-Wshorten-64-to-32"] + STRICT + ["-Isrc", "-isystem", include]
    flags += [a for d in system for a in ("-isystem", d)]
    flags += [a for h in std for a in ("-include", h)] + ["-include", os.path.join(HERE, "as_msvc.h")]
    return run_all(flags + [s] for s in SOURCES)


def write_posix_stubs():
    for name in POSIX_ONLY:
        path = os.path.join(OUT, "posix_only", name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as f:
            f.write('#ifdef _MSC_VER\n#error "<%s> is not a header of Microsoft\'s C library"\n#endif\n'
                    "#include_next <%s>\n" % (name, name))


def arguments(args):
    """(--msvc given, [(version tag, header folder, where they came from)]):
    the interpreters' headers, then the given ones; None for a --headers that
    names no such headers."""
    parser = argparse.ArgumentParser(prog="build.py")
    parser.add_argument("--msvc", action="store_true")
    parser.add_argument("--toolchain", default="", metavar="COMMAND")
    parser.add_argument("--headers", action="append", default=[], metavar="3.X=DIR")
    parser.add_argument("pythons", nargs="*", metavar="PYTHON")
    a = parser.parse_intermixed_args(args)
    TOOLCHAIN[:] = shlex.split(a.toolchain)
    sources = [interpreter_headers(p) + ("headers of " + p,) for p in a.pythons]
    for spec in a.headers:
        found = given_headers(spec)
        sources.append(found and found + ("headers in " + found[1],))
    return a.msvc, sources


def main(args):
    os.chdir(ROOT)
    msvc, sources = arguments(args)
    if not sources or None in sources:
        return 1
    os.makedirs(OUT, exist_ok=True)
    os.makedirs(DIST, exist_ok=True)
    write_posix_stubs()
    version, dist_info = metadata()
    for old in glob.glob(os.path.join(DIST, "vxrcomn-*-win_amd64.whl")):
        os.remove(old)
    ok = True
    for tag, include, origin in sources:
        include = windows_headers(tag, include)
        print("==== CPython %s.%s for Windows (%s)" % (tag[0], tag[1:], origin))
        pyd = build(tag, include)
        built = pyd is not None and inspect(pyd, tag)
        built = built and notices_cover(os.path.join(OUT, "cp" + tag, "obj", "link.map"), tag)
        if built:
            write_wheel(pyd, version, tag, dist_info)
        parsed = not msvc or msvc_parse(include)
        if msvc:
            print("  sources as MSVC sees them: %s" % ("parse clean" if parsed else "FAILED"))
        ok = ok and built and parsed
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
