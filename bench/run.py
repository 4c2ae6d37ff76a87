"""make bench: times the module's hot functions and the reading loops of a
conversion tool on synthetic cases, against the same algorithms in plain
Python (bench/baseline.py) and, for the splitters, the standard csv reader
streaming over the same lines.  Prints one Markdown table: nanoseconds per
line (medians of several repetitions, all measured in this run) and ratios.

    python bench/run.py [--reps N] [--quick]
"""
import argparse
import collections
import csv
import datetime
import gc
import os
import platform
import resource
import statistics
import subprocess
import sys
import time
import types

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
for path in (os.path.join(ROOT, "standin"), ROOT, HERE):
    if path not in sys.path:
        sys.path.insert(0, path)

import baseline  # noqa: E402
import generate  # noqa: E402
import vxrcomn  # noqa: E402
import loops  # noqa: E402

DATA = os.path.join(ROOT, "build", "bench")


def quiet(text):
    pass


class Clock:
    """Timings taken in rounds: each round times every registered run once,
    and a timing is the median of its rounds.  On a shared machine a slow
    spell then costs each run one round, not one run all its rounds.  As
    timeit does, the cycle collector is off while a run is timed: with the
    inputs of every row alive, a full collection falling into one run would
    cost it more than its own work (nothing timed makes cycles)."""

    def __init__(self):
        self.runs = []

    def add(self, run, count, rounds=None):
        """Registers run(), which handles `count` items; returns a function
        that gives the median seconds per item once the rounds are run."""
        times = []
        self.runs.append((run, rounds, times))
        return lambda: statistics.median(times) / count

    def run_rounds(self, rounds):
        for k in range(rounds):
            for run, limit, times in self.runs:
                if limit is not None and k >= limit:
                    continue
                gc.collect()
                gc.disable()
                try:
                    start = time.perf_counter()
                    run()
                    times.append(time.perf_counter() - start)
                finally:
                    gc.enable()


def read_lines(path):
    with open(path, encoding="latin-1") as f:
        return f.readlines()


# --- inputs ---------------------------------------------------------------------

def raw_inputs(lines, size):
    """Lines of the RAW case by kind, each cut or repeated to `size`."""
    first, continuation, keyvalue = [], [], []
    group = "system"
    for line in lines[3:]:
        if line.startswith("0 /"):
            group = line
            continue
        if line.startswith(("GENERAL", "GAUSS", "NEWTON", "ADJUST", "TYSL", "SOLVER", "RATING")):
            keyvalue.append(line)
        elif line.split(",", 1)[0].strip().isdigit():
            first.append(line)
        else:
            continuation.append(line)

    def spread(items):
        if not items:
            raise ValueError("the case has no lines of this kind")
        step = max(1, len(items) // size)
        picked = items[::step][:size]
        while len(picked) < size:
            picked += picked[: size - len(picked)]
        return picked

    data = spread(first + continuation)
    pairs = [vxrcomn._split_textline_kora_keyvalue_pair("system-wide", l, quiet)[3][1:] for l in keyvalue
             if not l.startswith(("RATING", "SOLVER"))]
    return {"all": spread(lines), "data": data, "first": spread(first), "keyvalue": spread(keyvalue),
            "pairs": spread(pairs)}


def epc_inputs(lines, size):
    data = [l for l in lines if l[:1] == " " and l.strip()]
    step = max(1, len(data) // size)
    data = data[::step][:size]
    bus = [l for l in data if l.count('"') == 2 and " : " in l and len(l.split()) > 18][: size // 4] or data[:1]
    while len(bus) < size // 4:
        bus += bus
    return {"data": data, "bus": bus[: size // 4]}


# --- the table ------------------------------------------------------------------

Row = collections.namedtuple("Row", "name module base floor note")


def measure(args):
    raw_big, epc_big, _ = generate.main(DATA)
    raw_small = os.path.join(DATA, "synthetic_small.raw")
    epc_small = os.path.join(DATA, "synthetic_small.epc")
    if not os.path.exists(raw_small):
        generate.raw_case(raw_small, buses=27_500)
    if not os.path.exists(epc_small):
        generate.epc_case(epc_small, buses=12_500)

    n_mod, n_base, reps = (20_000, 2_000, 3) if args.quick else (200_000, 20_000, args.reps)
    raw_lines = read_lines(raw_big)
    epc_lines = read_lines(epc_big)
    R = raw_inputs(raw_lines, n_mod)
    E = epc_inputs(epc_lines, n_mod)
    clock = Clock()
    rows = []  # each a function that makes the Row once the rounds are run

    def row(name, mod_func, base_func, arglists, floor=None, lines=None):
        """Both functions called on each argument tuple of arglists, results
        dropped at once; floor(lines) streams the csv reader."""
        small = arglists[:n_base]

        def loop(func, items):
            for args in items:
                func(*args)

        module = clock.add(lambda: loop(mod_func, arglists), len(arglists))
        base = clock.add(lambda: loop(base_func, small), len(small))
        flo = clock.add(lambda: floor(lines), len(lines)) if floor else lambda: None
        alone = result_cost(mod_func, small)
        rows.append(lambda: Row(name, module(), base(), flo(),
                                "result OrderedDict alone: %.0f ns, so (b)/(a) at most %.1f"
                                % (alone() * 1e9, base() / alone()) if alone else ""))

    def result_cost(mod_func, small):
        """For the functions that return an OrderedDict: what building and
        dropping that dictionary alone costs (both sides pay it)."""
        results = [mod_func(*args) for args in small[:1000]]
        dicts = [r if isinstance(r, collections.OrderedDict) else r[-1] for r in results]
        if not all(isinstance(d, collections.OrderedDict) for d in dicts):
            return None
        items = [list(d.items()) for d in dicts] * 10

        def build(od=collections.OrderedDict):
            for i in items:
                od(i)

        return clock.add(build, len(items))

    def csv_raw(items):
        for _ in csv.reader(items, skipinitialspace=True, quotechar="'"):
            pass

    def csv_epc(items):
        for _ in csv.reader(items, delimiter=" ", skipinitialspace=True):
            pass

    vx, py = vxrcomn, baseline

    def each(items, *before, after=()):
        return [before + (x,) + tuple(after) for x in items]

    row("_check_eof_blank_line_kora", vx._check_eof_blank_line_kora, py._check_eof_blank_line_kora, each(R["all"]))
    row("_split_textline_kora", vx._split_textline_kora, py._split_textline_kora, each(R["data"]), csv_raw, R["data"])
    row("_split_txtline_to_values_kora", vx._split_txtline_to_values_kora, py._split_txtline_to_values_kora,
        each(R["first"], "bus", after=("I", "int", quiet)), csv_raw, R["first"])
    for name in ("_split_txtline_to_values_kora_no_check", "_split_txtline_to_values_kora_no_check_vlist",
                 "_split_txtline_to_values_kora_no_check_00"):
        row(name, getattr(vx, name), getattr(py, name), each(R["data"]), csv_raw, R["data"])
    row("_split_textline_kora_keyvalue_pair", vx._split_textline_kora_keyvalue_pair,
        py._split_textline_kora_keyvalue_pair, each(R["keyvalue"], "system-wide", after=(quiet,)), csv_raw,
        R["keyvalue"])
    row("_list_of_key_value_pairs_to_dict_kora", vx._list_of_key_value_pairs_to_dict_kora,
        py._list_of_key_value_pairs_to_dict_kora, each(R["pairs"][: n_mod // 4], after=(loops.KEYVALUE_FORMAT,)))

    if loops.epc_available():
        row("_split_data_line_text_pslf", vx._split_data_line_text_pslf, py._split_data_line_text_pslf,
            each(E["data"]), csv_epc, E["data"])
        row("_get_values_from_data_line_text_pslf", vx._get_values_from_data_line_text_pslf,
            py._get_values_from_data_line_text_pslf, each(E["data"], "bus", 1, after=(quiet,)), csv_epc, E["data"])
        values = [vx._get_values_from_data_line_text_pslf("bus", 1, l, quiet) for l in E["bus"]]
        names, frmt = loops.EPC_BUS_NAMES, loops.EPC_BUS_FORMAT
        row("_epc_assign_data_values", vx._epc_assign_data_values, py._epc_assign_data_values,
            each(values, "bus", 1, after=(names, frmt, quiet)))
        given = [{k: v for k, v in zip(names, vals) if not k.startswith("semi")} for vals in values]
        row("_epc_assign_data_values_common", vx._epc_assign_data_values_common, py._epc_assign_data_values_common,
            each(given, "bus", 1, after=(frmt, quiet)))
        row("_pslf_seq_assign_data_values", vx._pslf_seq_assign_data_values, py._pslf_seq_assign_data_values,
            each(values, "bus", 1, after=(loops.EPC_BUS_SEQ_FORMAT, quiet)))

    # Whole-file loops: the module on the large case; both on the small case,
    # whose mix of records is the same, for the ratio.
    few = max(1, reps - 2)
    small_raw = read_lines(raw_small)
    raw = [clock.add(lambda: loops.read_raw(vx, raw_lines), len(raw_lines), few),
           clock.add(lambda: loops.read_raw(vx, small_raw), len(small_raw)),
           clock.add(lambda: loops.read_raw(py, small_raw), len(small_raw), few)]
    rows.append(lambda: Row("RAW reading loop, whole file", raw[1](), raw[2](), None,
                            "%d lines; %.0f ns/line on %d lines" % (len(small_raw), raw[0]() * 1e9, len(raw_lines))))
    if loops.epc_available():
        small_epc = read_lines(epc_small)
        epc = [clock.add(lambda: loops.read_epc(vx, epc_lines), len(epc_lines), few),
               clock.add(lambda: loops.read_epc(vx, small_epc), len(small_epc)),
               clock.add(lambda: loops.read_epc(py, small_epc), len(small_epc), few),
               clock.add(epc_result_builder(small_epc), len(small_epc)),
               clock.add(lambda: loops.read_epc(DO_NOTHING, small_epc), len(small_epc))]

        def epc_row():
            big, mod, base, dicts, bare = (t() for t in epc)
            return Row("EPC reading loop, whole file", mod, base, None,
                       "%d lines; %.0f ns/line on %d lines; result OrderedDicts alone: %.0f ns/line, the loop's "
                       "own Python with do-nothing functions: %.0f ns/line, so (b)/(a) at most %.1f"
                       % (len(small_epc), big * 1e9, len(epc_lines), dicts * 1e9, bare * 1e9, base / (dicts + bare)))

        rows.append(epc_row)
    clock.run_rounds(reps)
    return [make() for make in rows], len(raw_lines), len(epc_lines)


# The EPC loop with functions that do nothing: what the loop costs by itself.
DO_NOTHING = types.SimpleNamespace(_get_values_from_data_line_text_pslf=lambda *args: [],
                                   _epc_assign_data_values=lambda *args: (False, None))


def epc_result_builder(lines):
    """A run that builds and drops the EPC loop's result dictionaries by
    themselves: the same OrderedDicts made from their items, with nothing
    else of the loop."""
    items = []

    def assign(*args):
        ierr, valsdict = vxrcomn._epc_assign_data_values(*args)
        items.append(list(valsdict.items()))
        return ierr, valsdict

    loops.read_epc(types.SimpleNamespace(_get_values_from_data_line_text_pslf=
                                         vxrcomn._get_values_from_data_line_text_pslf,
                                         _epc_assign_data_values=assign), lines)

    def build(od=collections.OrderedDict):
        for i in items:
            od(i)

    return build


def peak_rss_mib(code):
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True,
                         env=dict(os.environ, PYTHONPATH=os.pathsep.join([ROOT, os.path.join(ROOT, "standin"), HERE])))
    return float(out.stdout.split()[-1])


def memory(raw_path):
    prologue = "import resource, vxrcomn, loops\n"
    # The process's own high-water mark: ru_maxrss also keeps what the
    # forked child held of this large process before its exec.
    epilogue = ("try:\n"
                "    peak = [l.split()[1] for l in open('/proc/self/status') if l.startswith('VmHWM')][0]\n"
                "except OSError:\n"
                "    peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss\n"
                "print(int(peak) / 1024)\n")
    idle = peak_rss_mib(prologue + "f = open(%r, encoding='latin-1')\n" % raw_path + epilogue)
    streaming = peak_rss_mib(prologue + "with open(%r, encoding='latin-1') as f:\n"
                                        "    print(loops.read_raw(vxrcomn, f), 'records')\n" % raw_path + epilogue)
    return idle, streaming


def fmt(seconds):
    return "%.0f" % (seconds * 1e9) if seconds is not None else "-"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--reps", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="small samples, for a smoke run")
    args = parser.parse_args()
    rows, n_raw, n_epc = measure(args)
    idle, streaming = memory(os.path.join(DATA, "synthetic.raw"))

    print("Machine: %s, %s, CPython %s; %s" % (platform.machine(), platform.processor() or platform.system(),
                                                platform.python_version(), datetime.date.today().isoformat()))
    print("Cases: KORA RAW %d lines, PSLF EPC %d lines (bench/generate.py)\n" % (n_raw, n_epc))
    print("| function or loop | (a) module ns/line | (b) plain Python ns/line | (c) csv reader ns/line "
          "| (b)/(a) | (a)/(c) | note |")
    print("|---|---:|---:|---:|---:|---:|---|")
    for r in rows:
        ratio_b = "%.1f" % (r.base / r.module)
        ratio_c = "%.2f" % (r.module / r.floor) if r.floor else "-"
        print("| `%s` | %s | %s | %s | %s | %s | %s |" % (r.name, fmt(r.module), fmt(r.base), fmt(r.floor), ratio_b,
                                                       ratio_c, r.note))
    print("\nPeak RSS reading the RAW case line by line: %.1f MiB; interpreter with the module and the file "
          "open: %.1f MiB; difference %.1f MiB" % (streaming, idle, round(streaming - idle, 1) + 0.0))


if __name__ == "__main__":
    main()
