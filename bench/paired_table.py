"""The paired benchmarks as a table: paired_table.py FILE, written by paired_benchmarks."""

import json
import pathlib
import sys

COLUMNS = ["path", "library", "floor", "ratio", "95 %", "with name", "ratio", "95 %"]


def read(file):
    """[{name, library_ns, floor_ns, ...}], one a benchmark; Google's own additions to the name are off."""
    benchmarks = json.loads(pathlib.Path(file).read_text())["benchmarks"]
    failed = [b["name"] + ": " + b["error_message"] for b in benchmarks if b.get("error_occurred")]
    if failed:
        sys.exit("paired_table: " + "; ".join(failed))
    return [{**b, "name": b["name"].replace("/real_time", "")} for b in benchmarks]


def time(nanoseconds):
    """Three digits and a unit."""
    for unit, factor in (("ns", 1), ("µs", 1e3), ("ms", 1e6)):
        value = nanoseconds / factor
        if value < 999.5:
            return f"{value:.1f} {unit}" if value < 99.95 else f"{value:.0f} {unit}"
    return f"{nanoseconds / 1e9:.1f} s"


def side(benchmark, name):
    """A floor, the ratio to it, and the ratio's interval; blank where the benchmark has none."""
    if f"{name}_ns" not in benchmark:
        return ["", "", ""]
    low, high = (f"{benchmark[f'{name}_ratio_{end}']:.2f}" for end in ("low", "high"))
    return [time(benchmark[f"{name}_ns"]), f"{benchmark[f'{name}_ratio']:.2f}", low if low == high else f"{low}–{high}"]


def rows(benchmarks):
    return [[b["name"], time(b["library_ns"]), *side(b, "floor"), *side(b, "named")] for b in benchmarks]


def main():
    table = [COLUMNS, *rows(read(sys.argv[1]))]
    widths = [max(map(len, column)) for column in zip(*table)]
    for row in table:
        print("  ".join([row[0].ljust(widths[0]), *(c.rjust(w) for c, w in zip(row[1:], widths[1:]))]).rstrip())


if __name__ == "__main__":
    main()
