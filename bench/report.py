#!/usr/bin/env python3
"""Puts the parts of a run of the benchmarks together: prints their table and writes them as one report.

Usage: report.py BUILD

Reads from BUILD what is there: in_process.json (Google Benchmark's), instructions.tsv, library_size, road.json,
appliance.json.
Writes BUILD/report.json.
"""

import json
import pathlib
import sys


def read_json(path):
    return json.loads(path.read_text()) if path.exists() else None


def read_instructions(path):
    if not path.exists():
        return {}
    rows = (line.split("\t") for line in path.read_text().splitlines())
    return {name: (float(ours), float(floor)) for name, ours, floor in rows}


def sides(row, quantity):
    return {side: row[f"{side}_{quantity}"] for side in ("ours", "floor")}


def work_of(row, instructions):
    """One kind of work as the report holds it."""
    name = row["name"].removesuffix("/manual_time")
    work = {
        "work": name,
        "target": row["target"],
        "nanoseconds": sides(row, "ns"),
        "allocations": sides(row, "allocations"),
        "bytes": sides(row, "bytes"),
    }
    if "ratio" in row:
        work["ratio"] = row["ratio"]
        work["ratio_quartiles"] = [row["ratio_q1"], row["ratio_q3"]]
    else:
        work["extra_nanoseconds"] = row["extra_ns"]
    work["met"] = figure(work) <= work["target"]
    if name in instructions:
        ours, floor = instructions[name]
        work["instructions"] = {"ours": ours, "floor": floor}
    return work


def figure(work):
    return work.get("ratio", work.get("extra_nanoseconds"))


def pair(values, form="{:.0f}"):
    return "/".join(form.format(values[side]) for side in ("ours", "floor")) if values else "-"


def cells(work):
    unit = "" if "ratio" in work else " ns"
    return (
        work["work"],
        f"{figure(work):.3f}{unit}",
        f"{work['target']:.2f}{unit}",
        "met" if work["met"] else "MISSED",
        pair(work["nanoseconds"]),
        pair(work["allocations"], "{:g}"),
        pair(work["bytes"]),
        pair(work.get("instructions")),
    )


HEADINGS = ("work", "ratio", "target", "", "ns", "allocations", "bytes", "instructions")


def print_table(works):
    rows = [HEADINGS, *map(cells, works)]
    widths = [max(len(row[column]) for row in rows) for column in range(len(HEADINGS))]
    for row in rows:
        first, *rest = (cell.ljust(w) if not i else cell.rjust(w) for i, (cell, w) in enumerate(zip(row, widths)))
        print("  ".join([first, *rest]))


def main():
    build = pathlib.Path(sys.argv[1])
    measured = read_json(build / "in_process.json")
    instructions = read_instructions(build / "instructions.tsv")
    report = {"context": measured["context"]}
    report["in_process"] = [work_of(row, instructions) for row in measured["benchmarks"]]
    print_table(report["in_process"])
    size = build / "library_size"
    if size.exists():
        report["stripped_library_bytes"] = int(size.read_text())
        print(f"\nlibkestro.so, stripped: {report['stripped_library_bytes'] / 1024:.0f} KiB")
    for part in ("road", "appliance"):
        found = read_json(build / f"{part}.json")
        if found is not None:
            report[part] = found
    (build / "report.json").write_text(json.dumps(report, indent=1) + "\n")


if __name__ == "__main__":
    main()
