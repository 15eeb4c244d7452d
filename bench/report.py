#!/usr/bin/env python3
"""Makes of what the contests print a table, the figures for other programs, and a picture.

Arguments: the folder to write to; the contests' lines come from standard input.

A figure is the median, over the rounds, of the ratio of two contestants in the same round, with its
quartiles. How the work grows is the slope of a line through the logarithms.
"""
import collections
import json
import os
import pathlib
import platform
import statistics
import sys
from math import log

import matplotlib
matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402

HEADING = """# Benchmarks

Made by `scripts/bench`; every figure is a ratio of two contestants that ran one after the other in
the same round: the median over the rounds, with the quartiles. The floor is what has to be done in
any case: the system calls that the effect needs in a bare loop, or for texts the C library's own
searches and copies. Below 1 we are faster. Each contestant was checked to have done its work.

"""


def read(lines):
    """(contest, size, processes) -> measure -> contestant -> round -> value; and who is what."""
    values = collections.defaultdict(lambda: collections.defaultdict(
        lambda: collections.defaultdict(dict)))
    roles = {}
    for line in lines:
        row = json.loads(line)
        key = row["contest"], row["size"], row["processes"]
        for measure in ("ns", "p50", "p99", "worst"):
            if measure in row:
                values[key][measure][row["contestant"]][row["round"]] = row[measure]
        roles[row["contest"], row["contestant"]] = row["role"]
    return values, roles


def quartiles(ratios):
    if len(ratios) < 2:
        return [ratios[0]] * 3
    return statistics.quantiles(ratios, n=4, method="inclusive")


def ratio(times, contestant, other):
    rounds = times[contestant].keys() & times[other].keys()
    return quartiles([times[contestant][r] / times[other][r] for r in sorted(rounds)])


def name_of(key):
    contest, size, processes = key
    name = f"{contest}, {processes} processes" if processes > 1 else contest
    return f"{name} ({size})" if size and size != processes else name


def compare(values, roles):
    rows = []
    for key, measures in values.items():
        role = {name: roles[key[0], name] for name in measures["ns"]}
        floor = next(name for name, what in role.items() if what == "floor")
        row = {"name": name_of(key), "contest": key[0], "size": key[1], "processes": key[2],
               "to_floor": {name: ratio(measures["ns"], name, floor)
                            for name in role if name != floor},
               "ours": next(name for name, what in role.items() if what == "ours"),
               "ns": {name: statistics.median(times.values())
                      for name, times in measures["ns"].items()}}
        for measure in ("p50", "p99", "worst"):
            if measure in measures:
                row[measure] = {name: statistics.median(times.values())
                                for name, times in measures[measure].items()}
        rows.append(row)
    return rows


def growth(rows):
    """contest -> contestant -> exponent, where a contest was held in several sizes."""
    sizes = collections.defaultdict(list)
    for row in rows:
        if row["size"]:
            sizes[row["contest"]].append(row)
    result = {}
    for contest, held in sizes.items():
        common = set.intersection(*(set(row["ns"]) for row in held))
        if len(held) < 2:
            continue
        xs = [log(row["size"]) for row in held]
        # Of several processes the time for all counts, of everything else that of one operation.
        result[contest] = {
            name: round(statistics.linear_regression(
                xs, [log(row["ns"][name]) for row in held]).slope, 2)
            for name in sorted(common)}
    return result


def text_of(figure):
    low, middle, high = figure
    return f"{middle:.2f} ({low:.2f}–{high:.2f})"


def table(rows):
    yield "| Case | ours / floor | others / floor |"
    yield "|---|---|---|"
    for row in rows:
        others = "; ".join(f"{name} {figure[1]:.2f}" for name, figure in row["to_floor"].items()
                           if name != row["ours"])
        yield f"| {row['name']} | {text_of(row['to_floor'][row['ours']])} | {others or '-'} |"


def tails(rows):
    yield "| Case | contestant | p99 / p50 | worst / p50 | p99 / p99 of the floor |"
    yield "|---|---|---|---|---|"
    for row in rows:
        for name in row.get("p99", ()):
            middle = row["p50"][name]
            yield (f"| {row['name']} | {name} | {row['p99'][name] / middle:.1f} | "
                   f"{row['worst'][name] / middle:.0f} | "
                   f"{row['p99'][name] / row['p99']['floor']:.2f} |")


def growths(exponents):
    yield "| Case | exponent |"
    yield "|---|---|"
    for contest, names in exponents.items():
        yield f"| {contest} | " + "; ".join(f"{n} {e:.2f}" for n, e in names.items()) + " |"


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as cpus:
        model = next((line.split(":")[1].strip() for line in cpus if "model name" in line), "?")
    return (f"{os.cpu_count()} cores, {model}, Linux {platform.release()}, load average "
            f"{os.getenv('KORX_BENCH_LOAD', '?')} before the first contest")


def draw(rows, path):
    height = 0.28 * len(rows) + 1
    figure, axes = plt.subplots(figsize=(9, height))
    places = range(len(rows), 0, -1)
    for place, row in zip(places, rows):
        for name, (low, middle, high) in row["to_floor"].items():
            is_ours = name == row["ours"]
            axes.plot([low, high], [place, place], color="C0" if is_ours else "0.8", zorder=1)
            axes.scatter(middle, place, s=36 if is_ours else 14, zorder=3 if is_ours else 2,
                         color="C0" if is_ours else "0.6")
    axes.axvline(1, color="0.4", linewidth=0.8)
    axes.set_xscale("log")
    axes.set_yticks(list(places), [row["name"] for row in rows], fontsize=8)
    axes.set_xlabel("time as a multiple of the floor's: korx_basic blue, others grey")
    axes.set_ylim(0.3, len(rows) + 0.7)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(exist_ok=True)
    values, roles = read(sys.stdin)
    rows = compare(values, roles)
    exponents = growth(rows)
    text = HEADING + f"Machine: {machine()}.\n\n![ratios](benchmarks.svg)\n\n"
    text += "\n".join(table(rows)) + "\n\n## The tail\n\n" + "\n".join(tails(rows))
    text += "\n\n## Growth\n\nTime of an operation is proportional to the size to this power.\n\n"
    text += "\n".join(growths(exponents)) + "\n"
    (folder / "benchmarks.md").write_text(text, encoding="utf-8")
    (folder / "benchmarks.json").write_text(
        json.dumps({"machine": machine(), "rows": rows, "growth": exponents}, indent=1) + "\n",
        encoding="utf-8")
    draw(rows, folder / "benchmarks.svg")
    print("\n".join(table(rows)))


if __name__ == "__main__":
    main()
