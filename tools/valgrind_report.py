"""Reads memcheck's XML reports and prints the errors that come from the
module: invalid reads, writes and frees, uses of uninitialised values, and
blocks definitely lost, each with a vxrcomn frame in its stack.  Exits 1 when
there is one.  The interpreter's own errors are counted, not shown."""
import sys
import xml.etree.ElementTree as ET

MODULE = "vxrcomn"
KINDS = {"InvalidRead", "InvalidWrite", "InvalidFree", "MismatchedFree", "InvalidJump", "Overlap",
         "UninitCondition", "UninitValue", "SyscallParam", "ClientCheck", "Leak_DefinitelyLost"}


def frames(error):
    for frame in error.iter("frame"):
        yield frame.findtext("obj", ""), frame.findtext("fn", "?"), frame.findtext("file", ""), frame.findtext("line", "")


def main(paths):
    processes = ours = others = 0
    for path in paths:
        try:
            root = ET.parse(path).getroot()
        except ET.ParseError as e:  # a process killed mid-report
            print("%s: unreadable report (%s)" % (path, e))
            ours += 1
            continue
        processes += 1
        for error in root.iter("error"):
            kind = error.findtext("kind", "")
            stack = list(frames(error))
            if kind in KINDS and any(MODULE in obj for obj, _, _, _ in stack):
                ours += 1
                what = error.find("xwhat") if error.find("xwhat") is not None else error
                print("%s: %s: %s" % (path, kind, what.findtext("text", "")))
                for obj, fn, file, line in stack:
                    print("    %s %s" % (fn, "%s:%s" % (file, line) if file else obj))
            else:
                others += 1
    print("memcheck: %d processes, %d errors from the module, %d elsewhere (interpreter, libraries)"
          % (processes, ours, others))
    return 1 if ours or not processes else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
