"""Writes docs/performance.md and its plots from what was measured: write_performance.py RESULTS DOCS.

scripts/write-performance measures and calls this; it states no figure that is not in the results."""

import json
import os
import pathlib
import platform
import re
import subprocess
import sys

import paired_table
import plots

WAKING = ("increment_wakes_monitor", "vsync_wakes_headroom")
MOST_RATIO, MOST_OVER, MOST_INACTIVE = 1.2, 150, 10
MOST_MEDIAN_US, MOST_P99_RATIO, MOST_ARM64 = 5, 1.2, 100 * 1024
ONCE = ("load", "init", "unload")  # no hot paths: shown beside their floors, but held to no limit


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" + "---:|" * (len(header) - 1)]
    return "\n".join(lines + ["| " + " | ".join(map(str, row)) + " |" for row in rows]) + "\n"


def command(*words):
    return subprocess.run(words, capture_output=True, text=True, check=True).stdout.strip()


def machine():
    cpu = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    gcc = command("g++", "--version").splitlines()[0]
    libc = command("ldd", "--version").splitlines()[0]
    virtual = "virtual" if "hypervisor" in pathlib.Path("/proc/cpuinfo").read_text() else "not virtual"
    release = re.match(r"[\d.]+", platform.release())[0]
    load = ", ".join(f"{value:.1f}" for value in os.getloadavg())
    return table(["", ""], [["processor", f"{cpu[1] if cpu else platform.machine()}, {os.cpu_count()} of them, {virtual}"],
                            ["system", f"Linux {release}"], ["compiler", gcc], ["C library", libc],
                            ["load (1, 5, 15 minutes) when this was written", load]])


def over_ratio(benchmarks):
    """Rows whose interval reaches beyond the ratio, even with the name in the floor."""
    misses = []
    for b in benchmarks:
        side = "named" if "named_ns" in b else "floor"
        if b["name"] not in ONCE and b.get(f"{side}_ratio_high", 0) > MOST_RATIO:
            misses.append(f"`{b['name']}`: {b[f'{side}_ratio_high']:.2f} times its floor, above {MOST_RATIO}")
    return misses


def over_count(counts):
    misses = []
    for path, count in counts.items():
        over = count["library"] - (count["named"] or count["floor"])
        if path.startswith("inactive"):
            if count["library"] > MOST_INACTIVE:
                misses.append(f"`{path}`: {count['library']} instructions, above {MOST_INACTIVE}")
        elif over > MOST_OVER:
            misses.append(f"`{path}`: {over} instructions over its floor, above {MOST_OVER}")
    return misses


def over_lateness(wake_ups, scheduling):
    misses = []
    for name, late, bare in pairs_of(wake_ups):
        above, times = late["p50_us"] - bare["p50_us"], late["p99_us"] / bare["p99_us"]
        if above > MOST_MEDIAN_US:
            misses.append(f"{name}, {scheduling} scheduling: the median is {above:.1f} µs above the bare wait's, more than {MOST_MEDIAN_US} µs")
        if times > MOST_P99_RATIO:
            misses.append(f"{name}, {scheduling} scheduling: the p99 is {times:.2f} times the bare wait's, more than {MOST_P99_RATIO}")
    return misses


def pairs_of(wake_ups):
    """(name, the library's lateness, the bare wait's) of each kind of wake-up."""
    return [(name, times, wake_ups[f"bare_{name}"]) for name, times in wake_ups.items() if f"bare_{name}" in wake_ups and "us" in times]


def instruction_rows(counts):
    rows = []
    for path, c in counts.items():
        named = [c["named"], c["library"] - c["named"]] if c["named"] is not None else ["", ""]
        rows.append([f"`{path}`", c["library"], c["floor"], c["library"] - c["floor"], *named])
    return rows


def lateness_rows(wake_ups):
    rows = []
    for name, *sides in pairs_of(wake_ups):
        figures = [[f"{side[key]:.1f}" for side in sides] for key in ("p50_us", "p99_us", "max_us")]
        rows.append([name.replace("_", " "), len(sides[0]["us"]), *sum(figures, [])])
    return rows


def footprint_rows(results):
    rows = []
    for name, file in (("x86-64", "libcindral-gcc.so"), ("arm64", "libcindral-arm64.so")):
        library = results / file
        sections = command("readelf", "-SW", library)
        size = lambda section: next((int(m[1], 16) for m in [re.search(rf" {re.escape(section)} +\S+ +\S+ \S+ (\S+)", sections)] if m), 0)
        rows.append([name, library.stat().st_size, size(".text"), size(".data.rel.ro"), size(".data"), size(".bss")])
    return rows


def month_summary(days):
    costs, blocks = [d["us_per_frame"] for d in days], [d["blocks"] for d in days]
    weeks = [sum(costs[i:i + 7]) / len(costs[i:i + 7]) for i in (0, len(costs) - 7)]
    return (f"{len(days)} days: {weeks[0]:.2f} µs a frame in the first week and {weeks[1]:.2f} µs in the last, simulator included; "
            f"{max(blocks[len(blocks) // 2:])} blocks of memory at most in the second half, {blocks[1]} on the second day.")


def quick_paths(benchmarks):
    return [b for b in benchmarks if b["name"] not in WAKING + ONCE and "floor_ns" in b and not b["name"].startswith("inactive")]


def draw(results, folder, measured):
    folder.mkdir(exist_ok=True)
    rows = [(b["name"], [("library", b["library_ns"]), ("floor with name", b.get("named_ns", b["floor_ns"])), ("floor", b["floor_ns"])])
            for b in quick_paths(measured["pairs"])]
    (folder / "pairs.svg").write_text(plots.bars(rows, "ns"))
    for scheduling, wake_ups in measured["wake_ups"].items():
        samples = {name: times["us"] for name, times in wake_ups.items() if "us" in times}
        (folder / f"wake-ups-{scheduling}.svg").write_text(plots.distribution(samples))
    days = measured["month"]
    points = [(d["day"], d["us_per_frame"]) for d in days]
    top = 2 * max(y for _, y in points)
    blocks = [(d["day"], d["blocks"] * top / (2 * max(x["blocks"] for x in days))) for d in days]
    ticks = [(day, str(day)) for day in range(0, len(days) + 1, 5)]
    (folder / "month.svg").write_text(plots.curves({"µs a frame": points, "blocks (scaled)": blocks}, len(days), round(top), "day", "µs", ticks))


def load(results):
    return {"pairs": paired_table.read(results / "paired.json"),
            "instructions": json.loads((results / "instructions.json").read_text()),
            "wake_ups": {s: json.loads((results / f"wake_ups-{s}.json").read_text()) for s in ("normal", "realtime")},
            "footprint": json.loads((results / "footprint.json").read_text()),
            "month": [json.loads(line) for line in (results / "month.jsonl").read_text().splitlines()]}


def misses(measured, results):
    found = over_ratio(measured["pairs"]) + over_count(measured["instructions"])
    for scheduling, wake_ups in measured["wake_ups"].items():
        found += over_lateness(wake_ups, scheduling)
    arm64 = (results / "libcindral-arm64.so").stat().st_size
    if arm64 > MOST_ARM64:
        found.append(f"the stripped arm64 library has {arm64} bytes, above {MOST_ARM64}")
    return "\n".join(f"- {miss}" for miss in found) or "None."


def sections(measured, results):
    wake_ups = measured["wake_ups"]
    frames = {s: (w["wake_ups_per_frame"], w["bare_wake_ups_per_frame"]) for s, w in wake_ups.items()}
    yield "machine", machine()
    yield "pairs", table(paired_table.COLUMNS, [[f"`{r[0]}`", *r[1:]] for r in paired_table.rows(measured["pairs"])])
    yield "instructions", table(["path", "library", "floor", "over", "with name", "over"], instruction_rows(measured["instructions"]))
    for s, w in wake_ups.items():
        yield f"lateness-{s}", table(["", "samples", "p50 µs", "bare", "p99 µs", "bare", "max µs", "bare"], lateness_rows(w))
    yield "frames", table(["thread", *sum(([s, "bare"] for s in frames), [])],
                          [[t, *(f"{side[t]:.2f}" for sides in frames.values() for side in sides)] for t in frames["normal"][0]])
    yield "footprint", table(["", "stripped", ".text", ".data.rel.ro", ".data", ".bss"], footprint_rows(results))
    states = measured["footprint"]
    yield "states", table(["state", "heap bytes", "threads"],
                          [[name.replace("_", " "), s["heap_bytes"] - states["initialised"]["heap_bytes"],
                            s["threads"] - states["initialised"]["threads"]] for name, s in states.items() if name != "warm_up"])
    yield "month", month_summary(measured["month"])
    yield "misses", misses(measured, results)


def main():
    results, docs = map(pathlib.Path, sys.argv[1:])
    measured = load(results)
    draw(results, docs / "performance", measured)
    page = pathlib.Path(__file__).with_name("performance.md.in").read_text()
    for name, content in sections(measured, results):
        page = page.replace(f"@{name}@", content.rstrip("\n"))
    if left := re.findall(r"@[a-z-]+@", page):
        sys.exit(f"write_performance: nothing measured for {', '.join(left)}")
    (docs / "performance.md").write_text(page)


if __name__ == "__main__":
    main()
