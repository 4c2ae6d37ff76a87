"""What the two example readers share, as a VXR conversion tool has it: the
module on the path, options from the command line through
_get_arguments_as_attr, the text encoding of a file, a log file that
receives every message, a listing file with the report, and a progress line
on a terminal.

A file that starts with a byte-order mark is in the encoding the mark
names: UTF-8, or UTF-16 of either byte order (what a Windows shell's
redirection writes).  Without one it is UTF-8 when the whole of it decodes
as UTF-8, else cp1252 when it decodes as such, else latin-1, which decodes
any byte; --encoding overrides that.  The log and listing files of a
file are written in its encoding: they echo its lines.  The console shows a
character its encoding cannot hold escaped (\\x88, \\u0141)."""
import codecs
import contextlib
import glob
import io
import os
import re
import sys
import textwrap
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
SAMPLES = os.path.join(HERE, "samples")
AUTO = "auto"  # the --encoding that applies the rule above


def not_importable():
    """Why vxrcomn does not import from the clone: built for another
    interpreter, or not built."""
    built = sorted(glob.glob(os.path.join(ROOT, "vxrcomn.*.so")) + glob.glob(os.path.join(ROOT, "vxrcomn.*.pyd")))
    this = "CPython %d.%d (%s)" % (sys.version_info[0], sys.version_info[1], sys.executable)
    build = "make build PYTHON=%s" % sys.executable
    if not built:
        return "vxrcomn is not built in %s: run `make build` there, or `%s` for %s." % (ROOT, build, this)
    tags = [re.search(r"\.(?:cpython-|cp)(\d)(\d+)", os.path.basename(name)) for name in built]
    versions = ", ".join(sorted({"CPython %s.%s" % tag.groups() for tag in tags if tag})) or "another interpreter"
    return ("vxrcomn in %s is built for %s (%s), not for %s.\nRun the example with that interpreter (`make demo`"
            " uses it), or build the module for this one: %s" % (ROOT, versions, ", ".join(map(os.path.basename, built)),
                                                                 this, build))


try:
    import winreg  # noqa: F401  (vxrcomn imports it, as on Windows)
except ImportError:
    sys.path.insert(0, os.path.join(ROOT, "standin"))
try:
    import vxrcomn as vx
except ImportError:  # run from a clone with the module built in place
    sys.path.insert(0, ROOT)
    try:
        import vxrcomn as vx
    except ModuleNotFoundError as e:
        if e.name != "vxrcomn":
            raise
        sys.exit(not_importable())


class CannotRead(Exception):
    """The input could not be opened or decoded, or is not of the reader's
    format; the text says which, in full."""


# The "utf-16" codec reads the mark and takes the byte order from it.
MARKS = ((codecs.BOM_UTF8, "utf-8-sig"), (codecs.BOM_UTF16_LE, "utf-16"), (codecs.BOM_UTF16_BE, "utf-16"))


def file_encoding(path):
    """The encoding of a RAW or EPC file by the rule above.  The file is
    decoded block by block: it may be of hundreds of megabytes."""
    with open(path, "rb") as f:
        head = f.read(3)
    marked = next((encoding for mark, encoding in MARKS if head.startswith(mark)), "utf-8")
    for encoding in (marked, "cp1252"):
        decoder = codecs.getincrementaldecoder(encoding)()
        with open(path, "rb") as f, contextlib.suppress(UnicodeDecodeError):
            for block in iter(lambda: f.read(1 << 20), b""):
                decoder.decode(block)
            decoder.decode(b"", final=True)
            return encoding
    return "latin-1"


def input_lines(path, encoding):
    """The lines of a file as a text file gives them (LF, CRLF and CR end a
    line).  Failures to open or decode it are CannotRead; what the caller
    does between two lines raises as it is."""
    try:
        with open(path, encoding=encoding) as f:
            yield from f
    except OSError as e:
        raise CannotRead("Cannot read %s: %s" % (path, e.strerror)) from None
    except UnicodeDecodeError as e:
        raise CannotRead("Cannot read %s as %s: byte 0x%02x (%s)" % (path, encoding, e.object[e.start], e.reason)) from None


def escaping(stream):
    """The stream, set to write what its encoding cannot hold as \\x88
    instead of raising: a cp1252, cp437 or ascii console lacks many of the
    characters a file may hold."""
    if hasattr(stream, "reconfigure"):
        stream.reconfigure(errors="backslashreplace")
    return stream


def command_line(argv, options, usage, helps):
    """(files, kwds) from "--name=value" arguments and file names.  Values
    stay text: _get_arguments_as_attr brings them to the type of each
    default (a bad one silently keeps the default).  From here on the
    console escapes what it cannot show, what the module prints included."""
    escaping(sys.stdout)
    escaping(sys.stderr)
    files, kwds = [], {}
    for arg in argv:
        if arg in ("-h", "--help"):
            sys.stdout.write(usage + "\n\nOptions, as --name=value (a value that does not fit keeps the default):\n")
            for name, declared in options.items():
                value = declared["value"] if type(declared) is dict else declared
                allowed = " (one of %s)" % ", ".join(map(str, declared["allowed"])) if type(declared) is dict else ""
                sys.stdout.write("  --%s=%s%s\n%s\n" % (name, value, allowed, textwrap.fill(
                    helps[name], 79, initial_indent=" " * 6, subsequent_indent=" " * 6)))
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


# The options both readers take, and what each does (--help).
OPTIONS = {
    "workdir": os.path.join(ROOT, "build", "demo"),
    "encoding": AUTO,
    "listing": {"value": "console", "allowed": ("console", "none")},
    "console": {"value": "all", "allowed": ("all", "summary")},
}
HELP = {
    "workdir": "the folder for the log (NAME_read.log) and listing (NAME_summary.txt) files, created when missing",
    "encoding": "the text encoding of the files; auto: the one a byte-order mark names (UTF-8, UTF-16), else"
                " UTF-8 when the whole file is UTF-8, else cp1252, else latin-1",
    "listing": "console: the records read per group on the console too; none: in the listing file and the log only",
    "console": "all: every message on the console as well as in the log; summary: record messages in the log only",
}


def run(main):
    """Runs a reader's main() as a program.  When the console's reader goes
    away (`read_raw.py FILE | head -1`) the program ends quietly, with
    status 1; the log says where."""
    try:
        try:
            status = main()
        except SystemExit as done:  # --help
            status = done.code
        sys.stdout.flush()  # what is still buffered may meet the closed pipe only now
    except BrokenPipeError:
        # The interpreter flushes stdout once more at exit: give it somewhere to write.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        status = 1
    sys.exit(status)


def plural(count, word):
    return "%d %s%s" % (count, word, "" if count == 1 else "s")


def print_notices(progress):
    """A context in which what the module prints (the version notice of
    _check_kora_version) goes through progress instead, as one message: the
    line end print adds to a notice that ends in one already is dropped."""
    class Redirect(io.TextIOBase):
        def write(self, text):
            if text != "\n":
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


def output_file(path, encoding):
    """A log or listing file in the input's encoding; what that cannot hold
    (a file name's undecodable bytes) is written escaped."""
    return open(path, "w", encoding=encoding, errors="backslashreplace")


class Log:
    """The progress callable of one reading: every message goes to the log
    file; to the console too, unless only the summary is wanted there.
    `announce` takes headings, counts and the report: those always show."""

    def __init__(self, path, console, encoding, quiet=False, title=""):
        self.path = path
        self.file = output_file(path, encoding)
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
        self.file.write(" %s%s%s\n" % (vx._PRG_INDENT, vx._get_time_stamp(), plural(self.messages, "message")))
        self.file.close()


class Report:
    """The report of one reading, a progress callable: to the listing file
    and the log, and to the console; `quietly` leaves the console out."""

    def __init__(self, log, path):
        self.log = log
        self.path = path
        self.file = output_file(path, log.file.encoding)

    def __call__(self, text):
        self.file.write(text)
        self.log.announce(text)

    def quietly(self, text):
        self.file.write(text)
        self.log.file.write(text)

    def ignored(self, records):
        """The first records ignored: (group, line number) pairs."""
        if records:
            vx._progress_message_format_print(" Records ignored (group, line):\n", records[:30], "tuple", progress=self)


def read_with_log(path, options, read, report, console=None):
    """Reads one file as the tool does, with its log file, listing file and
    progress line: `read(log, encoding)` returns the reader, `report(reader,
    out)` reports what it found through `out`, a Report.  Returns the reader
    (None when the file cannot be read or is not of the reader's format)."""
    console = escaping(console or sys.stdout)  # the progress line writes to it too
    name = os.path.basename(path)
    failure = None
    try:
        size = os.path.getsize(path)
        encoding = file_encoding(path) if options.encoding == AUTO else options.encoding
    except OSError as e:
        size, encoding, failure = 0, "utf-8", CannotRead("Cannot read %s: %s" % (path, e.strerror))
    log = Log(vx._get_file_name(name, suffix="_read", extn=".log", path=options.workdir), console, encoding,
              quiet=options.console == "summary", title="Reading %s" % path)
    reader = None
    try:
        console.write("\n==== %s\n" % path)
        try:
            if failure is None:
                log.ticker = ProgressLine(console, size)
                reader = read(log, encoding)
                log.ticker.clear()
        except CannotRead as e:
            failure = e
        if failure is not None:
            log.announce(" %s%s\n" % (vx._PRG_INDENT, failure))
        else:
            out = Report(log, vx._get_file_name(name, suffix="_summary", path=options.workdir))
            try:
                report(reader, out)
            finally:
                out.file.close()
            log.announce(" %sListing written to %s\n" % (vx._PRG_INDENT, vx._file_PNX(out.path)[1]))
    except BrokenPipeError:
        log.file.write(" %sConsole closed: reading stopped.\n" % vx._PRG_INDENT)
        raise
    finally:
        log.close()
    console.write(" %sLog written to %s\n" % (vx._PRG_INDENT, vx._file_PNX(log.path)[1]))
    return reader


def read_all(paths, options, read_file):
    """Reads each file in turn; the exit status: 1 when one could not be
    read, 2 for an encoding the interpreter does not know."""
    if options.encoding != AUTO:
        try:
            codecs.lookup(options.encoding)
        except LookupError:
            sys.stderr.write("unknown encoding --encoding=%s\n" % options.encoding)
            return 2
    unread = [path for path in paths if read_file(path, options) is None]
    return 1 if unread else 0
