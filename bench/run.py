"""make bench, for one interpreter: times the module's hot functions and the
reading loops of a conversion tool on synthetic cases, against (b) the same
algorithms in plain Python (bench/baseline.py) and, for the splitters, two
C floors run on the same lines: the standard csv reader and str.split.

Every measurement is timed once in each round, all in this one process, the
module's beside its floors, so that a slow spell of a shared machine falls on
both; a ratio is the median of the per-round ratios, a time the median of
the rounds.  Writes the results as JSON (--json) for bench/table.py, which
lays the interpreters side by side, or prints this interpreter's table.

    python bench/run.py [--rounds N] [--quick] [--json PATH]
"""
import argparse
import collections
import csv
import datetime
import gc
import json
import os
import platform
import statistics
import subprocess
import sys
import time
import types

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
for path in (os.path.join(ROOT, "standin"), ROOT, HERE):
    if path not in sys.path:
        sys.path.append(path)

import baseline  # noqa: E402
import generate  # noqa: E402
import loops  # noqa: E402
import vxrcomn  # noqa: E402

DATA = os.path.join(ROOT, "build", "bench")
RAW_GROUPS = ("BUS DATA", "LOAD DATA", "GENERATOR DATA", "BRANCH DATA")


def quiet(text):
    pass


def cases():
    """The cases, generated on first use (bench/generate.py): a RAW and an
    EPC case of 2,000 and 4,000 buses for the lines and loops, and the RAW
    case of a million lines that the memory check streams."""
    os.makedirs(DATA, exist_ok=True)
    paths = {}
    for key, make, buses in (("raw", generate.raw_case, 2_000), ("epc", generate.epc_case, 4_000),
                             ("epc_loop", generate.epc_case, 1_000), ("raw_big", generate.raw_case, 275_000)):
        path = paths[key] = os.path.join(DATA, "%s_%d.%s" % (key.split("_")[0], buses, key[:3]))
        if not os.path.exists(path):
            make(path + ".new", buses=buses)
            os.replace(path + ".new", path)
    return paths


def read_lines(path):
    with open(path, encoding="latin-1") as f:
        return f.readlines()


def spread(items, size):
    """`size` items taken evenly through `items` (repeated when short)."""
    if not items:
        raise ValueError("the case has no lines of this kind")
    picked = [items[int(k * len(items) / size) % len(items)] for k in range(size)]
    return picked


def raw_inputs(lines, size):
    """The bus, load, generator and branch records of the RAW case, the
    key/value records, the key=value items of those, and every line."""
    data, keyvalue, group = [], [], "SYSTEM-WIDE DATA"
    for line in lines[3:]:
        if line.startswith("0 /"):
            group = line.split("BEGIN ")[-1].strip() if "BEGIN " in line else ""
        elif group in RAW_GROUPS:
            data.append(line)
        elif group == "SYSTEM-WIDE DATA" and not line.startswith("RATING"):
            keyvalue.append(line)
    pairs = [[v for v in vxrcomn._split_textline_kora_keyvalue_pair("system-wide", l, quiet)[3][1:] if "=" in v]
             for l in keyvalue]
    return {"data": spread(data, size), "keyvalue": spread(keyvalue, size), "pairs": spread(pairs, size // 4),
            "all": spread(lines, size)}


def epc_bus_lines(lines, size):
    return spread([l for l in lines if l[:1] == " " and l.count('"') == 2 and " : " in l and len(l.split()) > 18],
                  size)


# --- timing ---------------------------------------------------------------------

class Clock:
    """Runs registered measurements in rounds, each once a round; keeps the
    seconds per item of every round.  As timeit does, the cycle collector
    is off while a run is timed (nothing timed makes cycles, and a full
    collection falling into one run would cost it more than its own work)."""

    def __init__(self):
        self.runs = []

    def add(self, run, count, rounds=None):
        """run() handles `count` items; returns the list that receives its
        seconds per item, one entry a round (the first `rounds` only)."""
        times = []
        self.runs.append((run, count, rounds, times))
        return times

    def run_rounds(self, rounds):
        for k in range(rounds):
            for run, count, limit, times in self.runs:
                if limit is not None and k >= limit:
                    continue
                gc.collect()
                gc.disable()
                try:
                    start = time.perf_counter()
                    run()
                    times.append((time.perf_counter() - start) / count)
                finally:
                    gc.enable()


def ratio(over, under):
    """Median of the per-round ratios of two measurements (rounds paired
    as far as both go)."""
    return statistics.median(a / b for a, b in zip(over, under))


def calls(func, arglists):
    def run():
        for args in arglists:
            func(*args)
    return run


def csv_reader(**dialect):
    def floor(lines):
        def run():
            for _ in csv.reader(lines, **dialect):
                pass
        return run
    return floor


def str_split(*sep):
    def floor(lines):
        def run():
            for line in lines:
                line.split(*sep)
        return run
    return floor


# The floors of the splitters: C code that only cuts a line and makes its items.
RAW_FLOORS = {"csv": csv_reader(skipinitialspace=True, quotechar="'"), "split": str_split(",")}
EPC_FLOORS = {"csv": csv_reader(delimiter=" ", skipinitialspace=True), "split": str_split()}


def ordered_dict_floor(func, arglists):
    """What building and dropping the OrderedDicts that func returns costs by
    itself, from their items (the module and the plain Python both pay it)."""
    dicts = []
    for args in arglists:
        result = func(*args)
        dicts.append(result if isinstance(result, collections.OrderedDict) else result[-1])
    items = [list(d.items()) for d in dicts]

    def run(od=collections.OrderedDict):
        for i in items:
            od(i)
    return run


# --- the measurements -----------------------------------------------------------

def measure(args):
    paths = cases()
    n = args.lines
    n_base = max(1, n // 10)
    raw = raw_inputs(read_lines(paths["raw"]), n)
    epc = epc_bus_lines(read_lines(paths["epc"]), n)
    clock = Clock()
    rows = []  # each a function that makes its row once the rounds are run

    def row(name, vx_func, py_func, arglists, lines=None, floors=None, dict_floor=False, base_share=n_base):
        module = clock.add(calls(vx_func, arglists), len(arglists))
        floor_times = {key: clock.add(make(lines), len(lines)) for key, make in (floors or {}).items()}
        base_args = arglists[:: max(1, len(arglists) // base_share)]
        base = clock.add(calls(py_func, base_args), len(base_args))
        alone = clock.add(ordered_dict_floor(vx_func, arglists), len(arglists)) if dict_floor else None

        def make_row():
            result = {"name": name, "module_ns": statistics.median(module) * 1e9,
                      "base_ns": statistics.median(base) * 1e9, "base_ratio": ratio(base, module), "floors": {}}
            for key, times in floor_times.items():
                result["floors"][key] = {"ns": statistics.median(times) * 1e9, "ratio": ratio(module, times)}
            if alone is not None:
                result["floors"]["dict"] = {"ns": statistics.median(alone) * 1e9, "ratio": ratio(module, alone)}
            return result
        rows.append(make_row)

    vx, py = vxrcomn, baseline

    def each(items, *before, after=()):
        return [before + (x,) + tuple(after) for x in items]

    data = raw["data"]
    row("_check_eof_blank_line_kora", vx._check_eof_blank_line_kora, py._check_eof_blank_line_kora,
        each(raw["all"]), base_share=n)
    row("_split_textline_kora", vx._split_textline_kora, py._split_textline_kora, each(data), data, RAW_FLOORS)
    row("_split_txtline_to_values_kora", vx._split_txtline_to_values_kora, py._split_txtline_to_values_kora,
        each(data, "bus", after=("I", "int", quiet)), data, RAW_FLOORS)
    for name in ("_split_txtline_to_values_kora_no_check", "_split_txtline_to_values_kora_no_check_vlist",
                 "_split_txtline_to_values_kora_no_check_00"):
        row(name, getattr(vx, name), getattr(py, name), each(data), data, RAW_FLOORS)
    row("_split_textline_kora_keyvalue_pair", vx._split_textline_kora_keyvalue_pair,
        py._split_textline_kora_keyvalue_pair, each(raw["keyvalue"], "system-wide", after=(quiet,)),
        raw["keyvalue"], RAW_FLOORS)
    row("_list_of_key_value_pairs_to_dict_kora", vx._list_of_key_value_pairs_to_dict_kora,
        py._list_of_key_value_pairs_to_dict_kora, each(raw["pairs"], after=(loops.KEYVALUE_FORMAT,)),
        dict_floor=True, base_share=len(raw["pairs"]))

    row("_split_data_line_text_pslf", vx._split_data_line_text_pslf, py._split_data_line_text_pslf, each(epc),
        epc, EPC_FLOORS, base_share=n)
    row("_get_values_from_data_line_text_pslf", vx._get_values_from_data_line_text_pslf,
        py._get_values_from_data_line_text_pslf, each(epc, "bus", 1, after=(quiet,)), epc, EPC_FLOORS)
    values = [vx._get_values_from_data_line_text_pslf("bus", 1, l, quiet) for l in epc[: n // 4]]
    names, frmt = loops.EPC_BUS_NAMES, loops.EPC_BUS_FORMAT
    given = [{k: v for k, v in zip(names, vals) if not k.startswith("semi")} for vals in values]
    row("_epc_assign_data_values", vx._epc_assign_data_values, py._epc_assign_data_values,
        each(values, "bus", 1, after=(names, frmt, quiet)), dict_floor=True, base_share=len(values))
    row("_epc_assign_data_values_common", vx._epc_assign_data_values_common, py._epc_assign_data_values_common,
        each(given, "bus", 1, after=(frmt, quiet)), dict_floor=True, base_share=len(values))
    row("_pslf_seq_assign_data_values", vx._pslf_seq_assign_data_values, py._pslf_seq_assign_data_values,
        each(values, "bus", 1, after=(loops.EPC_BUS_SEQ_FORMAT, quiet)), dict_floor=True, base_share=len(values))

    # The reading loops of a tool over whole files; the plain Python on a
    # part of each (a tenth of the rounds is enough for its ratio).
    few = max(1, args.rounds // 4)
    for name, reader, path in (("RAW reading loop, whole file", loops.read_raw, paths["raw"]),
                               ("EPC reading loop, whole file", loops.read_epc, paths["epc_loop"])):
        lines = read_lines(path)
        if args.quick:
            lines = lines[: len(lines) // 10]
        module = clock.add(lambda r=reader, l=lines: r(vx, l), len(lines))
        base = clock.add(lambda r=reader, l=lines: r(py, l), len(lines), few)
        extra = {}
        if reader is loops.read_epc:
            extra = {"dicts": clock.add(epc_result_builder(lines), len(lines)),
                     "bare": clock.add(lambda l=lines: loops.read_epc(DO_NOTHING, l), len(lines))}

        def make_row(name=name, module=module, base=base, extra=extra, count=len(lines)):
            result = {"name": name, "module_ns": statistics.median(module) * 1e9,
                      "base_ns": statistics.median(base) * 1e9, "base_ratio": ratio(base, module), "floors": {},
                      "lines": count}
            if extra:
                # What the loop costs with no work of the module: its result
                # dictionaries and its own Python lines, which cap (b)/(a).
                result["cap"] = statistics.median(base) / (statistics.median(extra["dicts"]) +
                                                           statistics.median(extra["bare"]))
            return result
        rows.append(make_row)

    clock.run_rounds(args.rounds)
    return [make() for make in rows], paths


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
                         env=dict(os.environ, PYTHONPATH=os.pathsep.join(
                             [os.path.dirname(os.path.abspath(vxrcomn.__file__)), os.path.join(ROOT, "standin"), HERE])))
    return float(out.stdout.split()[-1])


def memory(raw_path):
    """Peak RSS of a process reading the million-line RAW case line by line,
    and of one that only imports the module and opens the file."""
    prologue = "import resource, vxrcomn, loops\n"
    # The process's own high-water mark: ru_maxrss also keeps what the
    # forked child held of this process before its exec.
    epilogue = ("try:\n"
                "    peak = [l.split()[1] for l in open('/proc/self/status') if l.startswith('VmHWM')][0]\n"
                "except OSError:\n"
                "    peak = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss\n"
                "print(int(peak) / 1024)\n")
    idle = peak_rss_mib(prologue + "f = open(%r, encoding='latin-1')\n" % raw_path + epilogue)
    streaming = peak_rss_mib(prologue + "with open(%r, encoding='latin-1') as f:\n"
                                        "    print(loops.read_raw(vxrcomn, f), 'records')\n" % raw_path + epilogue)
    return {"idle_mib": idle, "streaming_mib": streaming}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--rounds", type=int, default=21)
    parser.add_argument("--lines", type=int, default=4000, help="lines a splitter is timed on in each round")
    parser.add_argument("--quick", action="store_true", help="a smoke run: 3 rounds of 400 lines, no memory check")
    parser.add_argument("--json", help="write the results here instead of printing a table")
    args = parser.parse_args()
    if args.quick:
        args.rounds, args.lines = 3, 400
    started = time.perf_counter()
    rows, paths = measure(args)
    result = {
        "python": platform.python_version(),
        "machine": "%s, %s, %d cores" % (platform.machine(), platform.system(), os.cpu_count() or 1),
        "date": datetime.date.today().isoformat(),
        "rounds": args.rounds, "lines": args.lines,
        "module": os.path.dirname(os.path.abspath(vxrcomn.__file__)),
        "rows": rows,
        "memory": None if args.quick else memory(paths["raw_big"]),
    }
    result["seconds"] = time.perf_counter() - started
    if args.json:
        with open(args.json, "w") as f:
            json.dump(result, f, indent=1)
        print("CPython %s: %d rows in %.0f s -> %s" % (result["python"], len(rows), result["seconds"], args.json))
    else:
        import table
        print(table.render([result]))


if __name__ == "__main__":
    main()
