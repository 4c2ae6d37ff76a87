"""What the two example readers share, as a VXR conversion tool has it: the
module on the path, options from the command line through
_get_arguments_as_attr, a log file that receives every message, and a
progress line on a terminal.  The console shows a character its encoding
cannot hold escaped (\\x88, \\u0141); the log and listing files are UTF-8,
which holds every character read."""
import contextlib
import io
import os
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
SAMPLES = os.path.join(HERE, "samples")
try:
    import winreg  # noqa: F401  (vxrcomn imports it, as on Windows)
except ImportError:
    sys.path.insert(0, os.path.join(ROOT, "standin"))
try:
    import vxrcomn as vx
except ImportError:  # run from a clone with the module built in place
    sys.path.insert(0, ROOT)
    import vxrcomn as vx

# Log and listing files.  Text read as latin-1 holds no surrogate; a file
# name the file system could not decode does, and goes back as its bytes.
ENCODING = dict(encoding="utf-8", errors="surrogateescape")


def escaping(stream):
    """The stream, set to write what its encoding cannot hold as \\x88
    instead of raising: a RAW file read as latin-1 may hold any of the first
    256 characters, and a cp1252, cp437 or ascii console lacks many."""
    if hasattr(stream, "reconfigure"):
        stream.reconfigure(errors="backslashreplace")
    return stream


def command_line(argv, options, usage):
    """(files, kwds) from "--name=value" arguments and file names.  Values
    stay text: _get_arguments_as_attr brings them to the type of each
    default (a bad one silently keeps the default).  From here on the
    console escapes what it cannot show, what the module prints included."""
    escaping(sys.stdout)
    escaping(sys.stderr)
    files, kwds = [], {}
    for arg in argv:
        if arg in ("-h", "--help"):
            sys.stdout.write(usage + "\nOptions (--name=value) and their defaults:\n")
            for name, declared in options.items():
                value = declared["value"] if type(declared) is dict else declared
                allowed = " (one of %s)" % ", ".join(map(str, declared["allowed"])) if type(declared) is dict else ""
                sys.stdout.write("  --%s=%s%s\n" % (name, value, allowed))
            raise SystemExit(0)
        if arg.startswith("--"):
            name, _, value = arg[2:].partition("=")
            name = name.replace("-", "_")
            if name not in options:
                sys.stderr.write("unknown option --%s ignored\n" % name)
            kwds[name] = value
        else:
            files.append(arg)
    return files, kwds


def print_notices(progress):
    """A context in which what the module prints (the version notice of
    _check_kora_version) goes through progress instead."""
    class Redirect(io.TextIOBase):
        def write(self, text):
            progress(text)
            return len(text)
    return contextlib.redirect_stdout(Redirect())


class ProgressLine:
    """'reading line N (P%)' rewritten in place, only when the stream is a
    terminal, and at most five times a second."""

    def __init__(self, stream, total_chars):
        self.stream = stream
        self.total = max(total_chars, 1)
        self.enabled = stream.isatty()
        self.shown = False
        self.last = 0.0

    def update(self, lines, chars):
        now = time.monotonic()
        if not self.enabled or now - self.last < 0.2:
            return
        self.last = now
        self.stream.write("\r%sreading line %d (%d%%)" % (vx._PRG_INDENT, lines, min(100, 100 * chars // self.total)))
        self.stream.flush()
        self.shown = True

    def clear(self):
        if self.shown:
            self.stream.write("\r" + " " * 50 + "\r")
            self.shown = False


class Log:
    """The progress callable of one reading: every message goes to the log
    file; to the console too, unless only the summary is wanted there.
    `announce` takes headings, counts and the summary: those always show."""

    def __init__(self, path, console, quiet=False, title=""):
        self.path = path
        self.file = open(path, "w", **ENCODING)
        self.console = console
        self.quiet = quiet
        self.messages = 0
        self.ticker = None
        self.file.write(" %s%s%s\n" % (vx._PRG_INDENT, vx._get_time_stamp(), title))

    def __call__(self, text):
        self.messages += 1
        self.file.write(text)
        if not self.quiet:
            self.show(text)

    def announce(self, text):
        self.file.write(text)
        self.show(text)

    def show(self, text):
        if self.ticker is not None:
            self.ticker.clear()
        self.console.write(text)

    def close(self):
        self.file.write(" %s%s%d messages\n" % (vx._PRG_INDENT, vx._get_time_stamp(), self.messages))
        self.file.close()


def read_with_log(path, options, read, report, console=None):
    """Reads one file as the tool does, with its log file, progress line and
    report: `read(log)` returns the reader, `report(reader, progress)` lists
    what it found. Returns the reader (None when the file cannot be read)."""
    console = escaping(console or sys.stdout)  # the progress line writes to it too
    log = Log(vx._get_file_name(os.path.basename(path), suffix="_read", extn=".log", path=options.workdir),
              console, quiet=options.console == "summary", title="Reading %s" % path)
    console.write("\n==== %s\n" % path)
    try:
        log.ticker = ProgressLine(console, os.path.getsize(path))
        reader = read(log)
        log.ticker.clear()
        report(reader, log.announce)
    except OSError as e:
        log.announce(" %sCannot read %s: %s\n" % (vx._PRG_INDENT, path, e.strerror))
        reader = None
    finally:
        log.close()
    console.write(" %sLog written to %s\n" % (vx._PRG_INDENT, vx._file_PNX(log.path)[1]))
    return reader


def read_all(paths, options, read_file):
    """Reads each file in turn; the exit status: 1 when one could not be read."""
    unread = [path for path in paths if read_file(path, options) is None]
    return 1 if unread else 0


def write_summary(name, summary, ignored, workdir, progress):
    """The summary listing file of one reading, and the first records ignored."""
    listing = vx._get_file_name(name, suffix="_summary", path=workdir)
    # The text _print_dict_to_file writes, in a file of a known encoding (it
    # would open it in the locale's, cp1252 on Windows).
    with open(listing, "w", **ENCODING) as f:
        vx._print_dict("Records read per group in %s" % name, summary, f.write)
    progress(" %sListing written to %s\n" % (vx._PRG_INDENT, vx._file_PNX(listing)[1]))
    if ignored:
        vx._progress_message_format_print(" Records ignored (group, line):\n", ignored[:30], "tuple",
                                          progress=progress)
