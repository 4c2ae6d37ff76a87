"""make check-windows: builds the module for 64-bit Windows with MinGW-w64
against each given interpreter's headers, checks what the DLL exports and
imports, and parses every source once more as the Microsoft compiler would
see it.  Usage: build.py PYTHON...  (CPython 3.9 to 3.13 interpreters, any
platform: only their headers and version are used).  Output: build/windows."""
import concurrent.futures
import glob
import os
import re
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
OUT = os.path.join(ROOT, "build", "windows")
SOURCES = sorted(glob.glob(os.path.join(ROOT, "src", "**", "*.cpp"), recursive=True))
MINGW = "x86_64-w64-mingw32-"
STRICT = ["-std=c++17", "-Wall", "-Wextra", "-Werror"]  # setup.py with VXR_WERROR=1
# Besides the interpreter's DLL, only DLLs every 64-bit Windows has.
SYSTEM_DLL = re.compile(r"(kernel32|msvcrt|ucrtbase|ntdll|advapi32|user32|api-ms-win-[a-z0-9-]+)\.dll", re.I)
# Headers MinGW has and Microsoft's C library has not: stubs that fail once
# the compiler presents itself as MSVC (as_msvc.h).
POSIX_ONLY = ("unistd.h dirent.h pthread.h pthread_unistd.h sched.h semaphore.h strings.h libgen.h "
              "getopt.h utime.h sys/time.h sys/param.h sys/file.h sys/unistd.h sys/fcntl.h sys/cdefs.h").split()


def run(cmd):
    """Runs a command; returns its output, or None after printing the
    command and its output when it fails."""
    p = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True)
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
    """The interpreter's version tag ("39") and its headers, copied with the
    Windows pyconfig.h in place of its own (Python.h includes the one beside
    it before any include path)."""
    tag, include = subprocess.check_output(
        [python, "-c", "import sys, sysconfig; print('%d%d' % sys.version_info[:2]); "
         "print(sysconfig.get_paths()['include'])"], universal_newlines=True).split("\n")[:2]
    dest = os.path.join(OUT, "cp" + tag, "include")
    shutil.rmtree(dest, ignore_errors=True)
    shutil.copytree(include, dest)
    shutil.copy(os.path.join(HERE, "pyconfig.h"), dest)
    return tag, dest


def build(tag, include):
    """Objects, import library and DLL for one interpreter; the DLL's path
    or None."""
    objdir = os.path.join(OUT, "cp" + tag, "obj")
    os.makedirs(objdir, exist_ok=True)
    objs = [os.path.join(objdir, os.path.relpath(s, ROOT).replace(os.sep, "_")[:-4] + ".o") for s in SOURCES]
    if not run_all([MINGW + "g++"] + STRICT + ["-O2", "-DNDEBUG", "-Isrc", "-I", include, "-c", s, "-o", o]
                   for s, o in zip(SOURCES, objs)):
        return None
    # The interpreter's symbols the objects use, declared dllimport by its
    # headers, so that the import library never lacks or outlives one.
    undefined = run([MINGW + "nm", "-u", "--format=just-symbols"] + objs)
    names = sorted({m.group(1) for m in re.finditer(r"^(?:__imp_)?(_?Py\w+)$", undefined or "", re.M)})
    dll = "python%s.dll" % tag
    deffile, implib = os.path.join(objdir, "python%s.def" % tag), os.path.join(objdir, "libpython%s.a" % tag)
    with open(deffile, "w") as f:
        f.write("LIBRARY %s\nEXPORTS\n%s\n" % (dll, "\n".join(names)))
    pyd = os.path.join(OUT, "vxrcomn.cp%s-win_amd64.pyd" % tag)
    if not names or run([MINGW + "dlltool", "-d", deffile, "-l", implib]) is None:
        return None
    # libstdc++ and libgcc inside, so that nothing but the interpreter's DLL
    # and the system's are needed.
    if run([MINGW + "g++", "-shared", "-s", "-static", "-static-libgcc", "-static-libstdc++",
            "-o", pyd] + objs + [implib]) is None:
        return None
    print("%s: %d interpreter symbols imported (%s)" % (os.path.relpath(pyd, ROOT), len(names), deffile))
    return pyd


def inspect(pyd, tag):
    """A PE32+ DLL exporting PyInit_vxrcomn and importing only the
    interpreter's DLL and system DLLs; prints what it found."""
    dump = run([MINGW + "objdump", "-p", pyd]) or ""
    dlls = re.findall(r"DLL Name: (\S+)", dump)
    exports = re.findall(r"^\s*\[\s*\d+\]\s+(\S+)$", dump.split("[Ordinal/Name Pointer] Table")[-1], re.M)
    pe = re.search(r"^Magic\s+020b", dump, re.M) \
        and re.search(r"^Characteristics[^\n]*\n(\t[^\n]*\n)*?\tDLL\n", dump, re.M)
    print("  format: " + ("PE32+ DLL" if pe else "FAILED: not a PE32+ DLL"))
    print("  exports: " + " ".join(exports))
    print("  imports: " + " ".join(dlls))
    foreign = [d for d in dlls if d.lower() != "python%s.dll" % tag and not SYSTEM_DLL.fullmatch(d)]
    ok = pe and "PyInit_vxrcomn" in exports and not foreign
    for d in foreign:
        print("  FAILED: imports %s, which Windows does not provide" % d)
    return ok


def msvc_parse(include):
    """Every source parsed (not compiled) by clang for the Windows target in
    Microsoft-compatibility mode with the compiler's identity switched to
    MSVC after the standard headers (as_msvc.h).  -Wshorten-64-to-32 stands
    for MSVC's C4244/C4267 (64-bit to 32-bit conversions, warnings at /W3,
    errors with the /WX of a VXR_WERROR=1 build)."""
    gxx = subprocess.check_output([MINGW + "g++", "-xc++", "-E", "-v", os.devnull],
                                  stderr=subprocess.STDOUT, universal_newlines=True)
    dirs = re.search(r"<\.\.\.> search starts here:\n(.*?)End of search list", gxx, re.S).group(1).split()
    dirs = [os.path.normpath(d) for d in dirs]
    resource = subprocess.check_output(["clang", "-print-resource-dir"], universal_newlines=True).strip()
    # MinGW's C++ and C headers with clang's own in place of GCC's.
    system = [os.path.join(OUT, "posix_only")] + [d for d in dirs if "c++" in d] \
        + [os.path.join(resource, "include")] + [d for d in dirs if "/lib/gcc/" not in d]
    std = sorted({h for s in SOURCES + glob.glob(os.path.join(ROOT, "src", "**", "*.hpp"), recursive=True)
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


def main(pythons):
    os.chdir(ROOT)
    write_posix_stubs()
    ok = True
    for python in pythons:
        tag, include = interpreter_headers(python)
        print("==== CPython %s.%s for Windows (headers of %s)" % (tag[0], tag[1:], python))
        pyd = build(tag, include)
        ok = pyd is not None and inspect(pyd, tag) and ok
        parsed = msvc_parse(include)
        print("  sources as MSVC sees them: %s" % ("parse clean" if parsed else "FAILED"))
        ok = ok and parsed
    return 0 if ok and pythons else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
