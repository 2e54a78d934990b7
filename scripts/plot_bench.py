#!/usr/bin/env python3
"""Draws the CSV of trdcomp_compare as one PNG.

    python3 scripts/plot_bench.py [docs/perf/bench.csv] [docs/perf/bench.png]

Top: per function number, trdcomp's time over LZ4's on the same raw message (request and
answer together), with the aggregate ratio and the target of each codec and direction.
Bottom left: the ratios that have targets (sums, geometric means, 1-record requests, threads)
against them. Bottom right: packed size as a share of the raw message, trdcomp's two codecs
beside LZ4 and zstd level 1.
"""
import csv
import sys
from collections import defaultdict

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

SERIES = [  # codec, trdcomp operation, LZ4 operation, colour
    ("2008", "restore", "lz4_decompress", "tab:blue"),
    ("2008", "pack", "lz4_compress", "tab:cyan"),
    ("2011", "restore", "lz4_decompress", "tab:red"),
    ("2011", "pack", "lz4_compress", "tab:orange"),
]


def read(path):
    measures, targets = [], []
    with open(path, newline="") as f:
        for row in csv.DictReader(f):
            (measures if row["kind"] == "measure" else targets).append(row)
    return measures, targets


def bound(text):
    """'<=2.00' -> ('<=', 2.0)"""
    return text[:2], float(text[2:])


def per_number(measures):
    """{(codec, op): {number: cpu ns of request + answer}} for the `every` workload."""
    times = defaultdict(lambda: defaultdict(float))
    for m in measures:
        if m["group"] == "every":
            times[(m["codec"], m["operation"])][int(m["number"])] += float(m["cpu_ns"])
    return times


def main():
    source = sys.argv[1] if len(sys.argv) > 1 else "docs/perf/bench.csv"
    target_png = sys.argv[2] if len(sys.argv) > 2 else "docs/perf/bench.png"
    measures, targets = read(source)
    times = per_number(measures)
    by_name = {t["operation"]: t for t in targets}

    fig = plt.figure(figsize=(13, 9))
    grid = fig.add_gridspec(2, 2, height_ratios=[1.3, 1])

    top = fig.add_subplot(grid[0, :])
    for codec, op, lz4, colour in SERIES:
        numbers = sorted(times[(codec, op)])
        ratios = [times[(codec, op)][n] / times[(codec, lz4)][n] for n in numbers]
        xs = range(len(numbers))
        name = f"{codec} {op} / LZ4 {lz4.split('_')[1]}"
        top.plot(xs, ratios, ".", color=colour, label=name)
        total = sum(times[(codec, op)].values()) / sum(times[(codec, lz4)].values())
        top.axhline(total, color=colour, linewidth=1)
        target = by_name.get(name + " (sum w/o 5)")
        if target:
            top.axhline(bound(target["target"])[1], color=colour, linestyle="--", linewidth=1)
        top.set_xticks(list(xs)[::5], [str(n) for n in numbers][::5], rotation=90, fontsize=7)
    top.set_yscale("log")
    top.set_ylabel("trdcomp time / LZ4 time")
    top.set_xlabel("function number (10-record request + 100-record answer)")
    top.set_title("Per number; solid lines: aggregate over all numbers, dashed: targets")
    top.legend(fontsize=8, ncol=4, loc="lower center")
    top.grid(True, which="both", axis="y", alpha=0.3)

    left = fig.add_subplot(grid[1, 0])
    names = [t["operation"] for t in targets]
    values = [float(t["value"]) for t in targets]
    limits = [bound(t["target"])[1] for t in targets]
    met = [(v <= b) if bound(t["target"])[0] == "<=" else (v >= b)
           for t, v, b in zip(targets, values, limits)]
    ys = range(len(names))
    left.barh(ys, values, color=["tab:green" if ok else "tab:gray" for ok in met])
    left.scatter(limits, ys, marker="|", s=400, color="black", label="target", zorder=3)
    left.set_yticks(list(ys), names, fontsize=8)
    left.invert_yaxis()
    left.set_xlabel("ratio (green: target met)")
    left.set_title("Ratios against targets")
    left.legend(fontsize=8)

    right = fig.add_subplot(grid[1, 1])
    sizes = defaultdict(lambda: defaultdict(float))  # message -> what -> bytes
    for m in measures:
        if m["group"] != "every":
            continue
        out = float(m["out_bytes"])
        # Each codec against its own raw messages (their layouts differ in a few answers); LZ4
        # and zstd against the 2008 ones, as the report does.
        if m["operation"] == "pack":
            sizes[m["message"]][m["codec"]] += out
            sizes[m["message"]]["raw" + m["codec"]] += float(m["raw_bytes"])
        elif m["codec"] == "2008" and m["operation"] in ("lz4_compress", "zstd_compress"):
            sizes[m["message"]][m["operation"].split("_")[0]] += out
    kinds = [("2008", "trdcomp 2008"), ("2011", "trdcomp 2011"), ("lz4", "LZ4"),
             ("zstd", "zstd level 1")]
    messages = ["request", "answer"]
    width = 0.2
    for k, (key, label) in enumerate(kinds):
        raw = "raw2011" if key == "2011" else "raw2008"
        shares = [100 * sizes[msg][key] / sizes[msg][raw] if sizes[msg][raw] else 0
                  for msg in messages]
        bars = right.bar([i + (k - 1.5) * width for i in range(len(messages))], shares, width,
                         label=label)
        right.bar_label(bars, fmt="%.0f%%", fontsize=7)
    right.set_xticks(range(len(messages)), ["10-record requests", "100-record answers"])
    right.set_ylabel("packed size, % of raw (all numbers)")
    right.set_title("Packed size")
    right.legend(fontsize=8)

    fig.suptitle("trdcomp against LZ4 and zstd on the same realistic messages (CPU time)")
    fig.tight_layout()
    fig.savefig(target_png, dpi=100)
    print(f"wrote {target_png}")


if __name__ == "__main__":
    main()
