"""The wheels of vxrcomn: written byte for byte the same from the same
files, and checked as an installer would see them.  Usage: wheels.py
[--auditwheel COMMAND] WHEEL...  checks each wheel, then has pip install it
for its own interpreter version and refuse it for the others; a Linux wheel's
manylinux tag must be the one `auditwheel show` finds for it (COMMAND runs
auditwheel, which may live in another root).  Exits non-zero on any
problem."""
import base64
import concurrent.futures
import csv
import hashlib
import io
import os
import re
import subprocess
import sys
import tempfile
import zipfile

VERSIONS = ("3.9", "3.10", "3.11", "3.12", "3.13", "3.14", "3.15")
# A Linux wheel names its manylinux tags, dotted when there are several
# (manylinux2014_x86_64.manylinux_2_17_x86_64); linux_x86_64 is a tag no
# package index takes.
MANYLINUX = r"manylinux(?:_\d+_\d+|1|2010|2014)_x86_64"
WHEEL_NAME = re.compile(r"vxrcomn-(?P<version>[^-]+)-(?P<tag>cp3(?P<minor>\d+)-cp3(?P=minor)-"
                        r"(?P<plat>win_amd64|%s(?:\.%s)*))\.whl" % (MANYLINUX, MANYLINUX))
# The file name an interpreter of the tag imports the module from.
MODULE_NAME = {"win_amd64": "vxrcomn.cp3{minor}-win_amd64.pyd",
               "manylinux": "vxrcomn.cpython-3{minor}-x86_64-linux-gnu.so"}
STUBS = ("vxrcomn.pyi", "vxrcomn-stubs/__init__.pyi", "vxrcomn-stubs/py.typed")
# One C runtime in the process: the interpreter's, the Universal CRT, reached
# through its API sets as the interpreter reaches it.  Any other C runtime
# would hold a second heap and stdio state; a MinGW runtime DLL would have to
# ship beside the module, which links those libraries in.
UCRT = re.compile(r"api-ms-win-crt-[a-z0-9-]+\.dll", re.I)
SYSTEM_DLL = re.compile(r"kernel32\.dll", re.I)
REFUSED = {"a C runtime beside the Universal CRT": r"msvcrt\.dll|msvc[rp]\d+d?\.dll|vcruntime\d+d?\.dll",
           "a MinGW runtime DLL": r"libstdc\+\+[\w-]*\.dll|libgcc[\w-]*\.dll|libwinpthread[\w-]*\.dll"}
# Build paths the module must not carry (traceback entries show src/...).
ABSOLUTE = re.compile(rb"/(?:work|tmp|root|home)/")
OBJDUMP = "objdump"  # binutils for x86-64 read PE files too
# Debian's pip: the interpreters' own may be missing or older.
PIP = ["/usr/bin/python3", "-m", "pip"]
FIXED_TIME = (1980, 1, 1, 0, 0, 0)


def digest(data):
    return "sha256=" + base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()


def record(entries, dist_info):
    """RECORD for the entries ({name: bytes}, RECORD itself left out)."""
    rows = ["%s,%s,%d" % (name, digest(data), len(data)) for name, data in entries.items()]
    return ("\n".join(rows + ["%s/RECORD,," % dist_info]) + "\n").encode()


def write_zip(path, entries):
    """The entries in the order given, with fixed times and permissions."""
    with zipfile.ZipFile(path, "w") as z:
        for name, data in entries.items():
            info = zipfile.ZipInfo(name, FIXED_TIME)
            info.create_system, info.external_attr = 3, 0o100644 << 16
            z.writestr(info, data, zipfile.ZIP_DEFLATED, 9)


def write_wheel(folder, version, tag, files):
    """dist/vxrcomn-VERSION-TAG.whl from files ({name: bytes}, the
    dist-info's METADATA and licences among them): WHEEL and RECORD added,
    the package's files first and the dist-info last, each part sorted."""
    dist_info = "vxrcomn-%s.dist-info" % version
    entries = dict(sorted(files.items(), key=lambda item: (item[0].startswith(dist_info), item[0])))
    entries[dist_info + "/WHEEL"] = ("Wheel-Version: 1.0\nGenerator: vxrcomn tools/wheels.py\n"
                                     "Root-Is-Purelib: false\nTag: %s\n" % tag).encode()
    entries[dist_info + "/RECORD"] = record(entries, dist_info)
    path = os.path.join(folder, "vxrcomn-%s-%s.whl" % (version, tag))
    write_zip(path, entries)
    return path


def pe_facts(data):
    """(PE32+ DLL?, exported names, imported DLLs) of a Windows module."""
    with tempfile.NamedTemporaryFile(suffix=".pyd") as f:
        f.write(data)
        f.flush()
        dump = subprocess.run([OBJDUMP, "-p", f.name], stdout=subprocess.PIPE, universal_newlines=True).stdout
    # binutils 2.40 print "[   0] NAME", newer ones "[   0] +base[   1]  0000 NAME".
    exports = re.findall(r"^\s*\[\s*\d+\](?:\s+\+base\[\s*\d+\]\s+[0-9a-f]+)?\s+(\S+)$",
                         dump.split("[Ordinal/Name Pointer] Table")[-1], re.M) \
        if "[Ordinal/Name Pointer] Table" in dump else []
    dll = bool(re.search(r"^Magic\s+020b", dump, re.M)
               and re.search(r"^Characteristics[^\n]*\n(\t[^\n]*\n)*?\tDLL\n", dump, re.M))
    return dll, exports, re.findall(r"DLL Name: (\S+)", dump)


def pyd_problems(data, minor):
    """What keeps a Windows module from being the one CPython 3.MINOR loads:
    its format, exports, imports, C runtime and build paths."""
    dll, exports, imports = pe_facts(data)
    problems = [] if dll else ["not a PE32+ DLL"]
    if exports != ["PyInit_vxrcomn"]:
        problems.append("exports %s, not only PyInit_vxrcomn" % (" ".join(exports) or "nothing"))
    python = [d for d in imports if re.fullmatch(r"python3\d*\.dll", d, re.I)]
    if [d.lower() for d in python] != ["python3%s.dll" % minor]:
        problems.append("imports %s, not python3%s.dll" % (" ".join(python) or "no python DLL", minor))
    if not any(UCRT.fullmatch(d) for d in imports):
        problems.append("imports no api-ms-win-crt-*.dll: not on the Universal CRT")
    for d in imports:
        if d not in python and not SYSTEM_DLL.fullmatch(d) and not UCRT.fullmatch(d):
            what = [k for k, pattern in REFUSED.items() if re.fullmatch(pattern, d, re.I)]
            problems.append("imports %s, %s" % (d, what[0] if what else
                                                "beyond the interpreter's DLL, KERNEL32.dll and the Universal CRT"))
    problems += ["holds the build path %s" % m.decode() for m in sorted(set(
        re.findall(rb"[\w.-]*" + ABSOLUTE.pattern + rb"[\w./-]*", data)))]
    return problems


def check(path):
    """The problems of one wheel, an empty list when there are none."""
    m = WHEEL_NAME.fullmatch(os.path.basename(path))
    if not m:
        return ["file name is not vxrcomn-VERSION-cp3X-cp3X-{win_amd64,manylinux*_x86_64}.whl"]
    dist_info = "vxrcomn-%s.dist-info" % m["version"]
    try:
        with zipfile.ZipFile(path) as z:
            entries = {name: z.read(name) for name in z.namelist()}
    except (OSError, zipfile.BadZipFile) as e:
        return ["not a readable zip file: %s" % e]
    rows = csv.reader(io.StringIO(entries.get(dist_info + "/RECORD", b"").decode()))
    listed = {row[0]: row[1:] for row in rows if row}
    problems = ["RECORD: %s %s" % (name, "missing" if name not in entries else "does not match")
                for name, hash_size in listed.items() if name != dist_info + "/RECORD"
                and (name not in entries or hash_size != [digest(entries[name]), str(len(entries[name]))])]
    problems += ["RECORD does not list %s" % name for name in entries if name not in listed and not name.endswith("/")]
    windows = m["plat"] == "win_amd64"
    module = MODULE_NAME["win_amd64" if windows else "manylinux"].format(minor=m["minor"])
    wanted = (module,) + STUBS + tuple(dist_info + "/" + f for f in ("METADATA", "WHEEL"))
    problems += ["%s is missing" % name for name in wanted if name not in entries]
    # Newer setuptools put the licences in dist-info/licenses/.
    for licence in ("LICENSE",) + (("THIRD_PARTY_NOTICES",) if windows else ()):
        if not {dist_info + "/" + licence, dist_info + "/licenses/" + licence} & set(entries):
            problems.append("%s/%s is missing" % (dist_info, licence))
    problems += ["%s is a module of another interpreter" % name for name in entries
                 if re.fullmatch(r"vxrcomn\..*\.(pyd|so)", name) and name != module]
    wheel = entries.get(dist_info + "/WHEEL", b"").decode()
    tags = ["%s-%s" % (m["tag"].rsplit("-", 1)[0], plat) for plat in m["plat"].split(".")]
    if sorted(re.findall(r"^Tag: (.*)$", wheel, re.M)) != sorted(tags) or "Root-Is-Purelib: false\n" not in wheel:
        problems.append("WHEEL does not say Root-Is-Purelib: false and Tag: %s alone" % ", ".join(tags))
    if "\nVersion: %s\n" % m["version"] not in entries.get(dist_info + "/METADATA", b"").decode():
        problems.append("METADATA does not give version %s" % m["version"])
    if windows and module in entries:
        problems += [module + ": " + p for p in pyd_problems(entries[module], m["minor"])]
    return problems


def pip_installs(wheel, version):
    """Whether pip installs the wheel for a Windows or Linux interpreter of
    the version (into a folder of its own, never into an interpreter); None
    when it failed for another reason than refusing the wheel."""
    plats = WHEEL_NAME.fullmatch(os.path.basename(wheel))["plat"].split(".")
    with tempfile.TemporaryDirectory() as target:
        p = subprocess.run(PIP + ["install", "-q", "--disable-pip-version-check", "--no-index", "--no-deps",
                                  "--only-binary=:all:", "--platform", plats[0], "--python-version", version,
                                  "--target", target, wheel], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           universal_newlines=True)
        if p.returncode == 0:
            return any(n.startswith("vxrcomn.") for n in os.listdir(target))
        return False if "is not a supported wheel on this platform" in p.stdout else None


def auditwheel_problems(wheel, command):
    """A Linux wheel's lowest manylinux tag against the one that `auditwheel
    show` (run by the command line `command`) finds its binary meets."""
    p = subprocess.run(command.split() + ["show", wheel], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                       universal_newlines=True)
    found = re.search(r'consistent with the\s+following platform tag:\s+"(\S+)"', p.stdout)
    if p.returncode or not found:
        return ["auditwheel show failed: " + " ".join(p.stdout.split())[-300:]]
    ours = [t for t in WHEEL_NAME.fullmatch(os.path.basename(wheel))["plat"].split(".") if "_2_" in t]
    return [] if ours == [found[1]] else ["tagged %s, but auditwheel finds it meets %s" % (
        " ".join(ours) or "without a manylinux_2_N tag", found[1])]


def main(args):
    auditwheel = None
    if args[:1] == ["--auditwheel"]:
        auditwheel, args = args[1], args[2:]
    paths, ok = args, bool(args)
    jobs = [(w, v) for w in paths if WHEEL_NAME.fullmatch(os.path.basename(w)) for v in VERSIONS]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() or 2) as pool:
        installs = dict(zip(jobs, pool.map(lambda job: pip_installs(*job), jobs)))
    for path in paths:
        m = WHEEL_NAME.fullmatch(os.path.basename(path))
        problems = check(path)
        if m and auditwheel and m["plat"] != "win_amd64":
            problems += auditwheel_problems(path, auditwheel)
        if m:
            own = "3.%s" % m["minor"]
            problems += ["pip %s it for CPython %s" % ({True: "installs", False: "refuses", None: "fails on"}[
                installs[path, v]], v) for v in VERSIONS if installs[path, v] is not (v == own)]
        print("%s: %s" % (path, "; ".join(problems) if problems else
                          "RECORD, tags and module agree%s; pip installs it for CPython %s only"
                          % ("" if m["plat"] == "win_amd64" else ", as auditwheel finds", own)))
        ok = ok and not problems
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
