"""Lays the results of bench/run.py (one JSON file per interpreter) side by
side as Markdown tables, one column per interpreter.

    python bench/table.py build/bench/py*.json
"""
import json
import sys

# The rows whose floors stand for all the splitters of their format.
FLOOR_ROWS = (("_split_textline_kora", "RAW data lines", '`str.split(",")`'),
              ("_get_values_from_data_line_text_pslf", "EPC bus lines", "`str.split()`"))


def version_key(result):
    return tuple(int(part) for part in result["python"].split(".")[:2])


def table(title, results, lines):
    """lines: (label, function of a result giving its cell text)."""
    out = [title, "", "| | " + " | ".join(r["python"] for r in results) + " |",
           "|---|" + "---:|" * len(results)]
    for label, cell in lines:
        cells = [cell(r) for r in results]
        if any(c != "-" for c in cells):
            out.append("| %s | %s |" % (label, " | ".join(cells)))
    return "\n".join(out) + "\n"


def find(result, name):
    for row in result["rows"]:
        if row["name"] == name:
            return row
    return None


def cell(name, get, fmt):
    def text(result):
        row = find(result, name)
        try:
            return fmt % get(row)
        except (KeyError, TypeError):
            return "-"
    return text


def render(results):
    results = sorted(results, key=version_key)
    names = [row["name"] for row in results[-1]["rows"]]
    label = {name: "`%s`" % name if name.startswith("_") else name for name in names}
    first = results[0]
    parts = ["Machine: %s; %s; %d rounds, %d lines a splitter (bench/run.py); %s" % (
        first["machine"], first["date"], first["rounds"], first["lines"],
        ", ".join("%s %.0f s" % (r["python"], r["seconds"]) for r in results)), ""]

    ns = [(label[n], cell(n, lambda row: row["module_ns"], "%.0f")) for n in names]
    for name, lines, split in FLOOR_ROWS:
        ns.append(("csv reader, %s" % lines, cell(name, lambda row: row["floors"]["csv"]["ns"], "%.0f")))
        ns.append(("%s, %s" % (split, lines), cell(name, lambda row: row["floors"]["split"]["ns"], "%.0f")))
    parts.append(table("Time per line (or record) of the module, and of the floors, ns:", results, ns))
    parts.append(table("The module's time over the csv reader's on the same lines:", results,
                       [(label[n], cell(n, lambda row: row["floors"]["csv"]["ratio"], "%.2f")) for n in names]))
    parts.append(table("The module's time over `str.split`'s on the same lines:", results,
                       [(label[n], cell(n, lambda row: row["floors"]["split"]["ratio"], "%.2f")) for n in names]))
    parts.append(table("The module's time over building its result OrderedDict alone (from the same items):", results,
                       [(label[n], cell(n, lambda row: row["floors"]["dict"]["ratio"], "%.2f")) for n in names]))
    base = [(label[n], cell(n, lambda row: row["base_ratio"], "%.1f")) for n in names]
    base.append(("EPC loop: at most, from its result dicts and own Python",
                 cell("EPC reading loop, whole file", lambda row: row["cap"], "%.1f")))
    parts.append(table("(b) the same algorithms in plain Python, over the module's time:", results, base))
    if any(r.get("memory") for r in results):
        def growth(result):
            m = result.get("memory")
            return "-" if not m else "%.1f" % (round(m["streaming_mib"] - m["idle_mib"], 1) + 0.0)
        parts.append(table("Peak RSS reading the million-line RAW case line by line, over the interpreter with the "
                           "module and the file open, MiB:", results, [("growth", growth)]))
    return "\n".join(parts).rstrip() + "\n"


def main(paths):
    results = []
    for path in paths:
        with open(path) as f:
            results.append(json.load(f))
    if not results:
        sys.exit("no results given")
    sys.stdout.write(render(results))


if __name__ == "__main__":
    main(sys.argv[1:])
