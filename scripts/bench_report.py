#!/usr/bin/env python3
"""Prints ours / peer time ratios of a Google Benchmark JSON file beside their goals.

Benchmark names are "family/impl[/args...]" where impl is "ours" or a peer's name.
A ratio is formed for every family, argument set and peer that has an "ours" twin, from
the medians of the repetitions; the spread column is the larger coefficient of variation
of the two sides (empty for a single run).

    bench_report.py GOALS.tsv RESULTS.json... [--check]

A goal whose peer is "scale" is a flatness check of one family of ours run at several
sizes: the time of one item (one lookup, one byte) at the largest size over that at the
smallest.

The last line counts the goals met and missed. With --check the exit status is 1 when a
goal is missed by more than 10%, so that a regression stops a script at once.
"""
import json
import sys
from collections import defaultdict

UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
TOLERANCE = 1.10  # a miss within 10% of the goal is reported but does not fail --check


def main(goals_path, result_paths, check=False):
    benchmarks = []
    for path in result_paths:
        with open(path) as f:
            benchmarks += json.load(f)["benchmarks"]
    times = {}
    spreads = {}
    per_item = defaultdict(dict)  # family -> {size: seconds per item} of ours
    for b in benchmarks:
        aggregate = b.get("aggregate_name") if b.get("run_type") == "aggregate" else None
        if aggregate not in (None, "median", "cv"):
            continue
        name = b.get("run_name", b["name"])
        parts = name.split("/")
        if len(parts) < 2:
            continue
        family, impl, args = parts[0], parts[1], "/".join(parts[2:])
        if aggregate == "cv":
            spreads[(family, impl, args)] = b["real_time"]
            continue
        times[(family, impl, args)] = b["real_time"] * UNITS[b["time_unit"]]
        rate = b.get("items_per_second") or b.get("bytes_per_second")
        size = args.split("/")[0]  # the size comes first, before "min_time:..." and the like
        if impl == "ours" and rate and size.isdigit():
            per_item[family][int(size)] = 1.0 / rate

    goals = {}
    with open(goals_path) as f:
        for line in f:
            if not line.strip() or line.startswith("#"):
                continue
            family, peer, goal, *rest = line.rstrip("\n").split("\t")
            goals[(family, peer)] = (float(goal), rest[0] if rest else "")

    rows = defaultdict(list)
    for (family, impl, args), t in times.items():
        if impl == "ours":
            continue
        ours = times.get((family, "ours", args))
        if ours is None:
            continue
        rows[family].append((args, impl, ours, t))

    print(f"{'family':<28} {'args':<12} {'peer':<18} {'ours':>12} {'peer':>12} {'ratio':>7} {'spread':>7}  goal")
    met = missed = failing = 0
    for family in sorted(rows):
        for args, peer, ours, t in sorted(rows[family]):
            ratio = ours / t if t > 0 else float("inf")
            spread = max(spreads.get((family, "ours", args), -1), spreads.get((family, peer, args), -1))
            spread_text = f"{spread * 100:6.1f}%" if spread >= 0 else ""
            # A goal for one size only names it after the peer: "boost_process/1024".
            goal = goals.get((family, f"{peer}/{args.split('/')[0]}")) or goals.get((family, peer))
            verdict = ""
            if goal:
                ok = ratio <= goal[0]
                met += ok
                missed += not ok
                failing += ratio > goal[0] * TOLERANCE
                verdict = f"<= {goal[0]:g} {'met' if ok else 'MISSED'}  {goal[1]}"
            print(f"{family:<28} {args:<12} {peer:<18} {ours:>10.1f}ns {t:>10.1f}ns {ratio:>7.2f} {spread_text:>7}  {verdict}")
    for (family, peer), (goal, text) in sorted(goals.items()):
        sizes = per_item.get(family, {})
        if peer != "scale" or len(sizes) < 2:
            continue
        small, large = min(sizes), max(sizes)
        ratio = sizes[large] / sizes[small]
        ok = ratio <= goal
        met += ok
        missed += not ok
        failing += ratio > goal * TOLERANCE
        print(f"{family:<28} {f'{small}->{large}':<12} {'scale':<18} {sizes[small] * 1e9:>10.2f}ns "
              f"{sizes[large] * 1e9:>10.2f}ns {ratio:>7.2f} {'':>7}  <= {goal:g} {'met' if ok else 'MISSED'}  {text}")
    print(f"\n{met} goal(s) met, {missed} missed ({failing} by more than 10%)")
    return 1 if check and failing else 0


if __name__ == "__main__":
    arguments = [a for a in sys.argv[1:] if a != "--check"]
    sys.exit(main(arguments[0], arguments[1:], check="--check" in sys.argv[1:]))
