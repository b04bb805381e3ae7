#!/usr/bin/env python3
"""Prints ours / peer time ratios of a Google Benchmark JSON file beside their goals.

Benchmark names are "family/impl[/args...]" where impl is "ours" or a peer's name.
A ratio is formed for every family, argument set and peer that has an "ours" twin.
"""
import json
import sys
from collections import defaultdict


def main(result_path, goals_path):
    with open(result_path) as f:
        data = json.load(f)
    times = {}
    for b in data["benchmarks"]:
        if b.get("run_type") == "aggregate" and b.get("aggregate_name") != "median":
            continue
        name = b.get("run_name", b["name"])
        parts = name.split("/")
        if len(parts) < 2:
            continue
        family, impl, args = parts[0], parts[1], "/".join(parts[2:])
        times[(family, impl, args)] = b["real_time"] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]

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

    print(f"{'family':<28} {'args':<12} {'peer':<18} {'ours':>12} {'peer':>12} {'ratio':>7}  goal")
    missed = 0
    for family in sorted(rows):
        for args, peer, ours, t in sorted(rows[family]):
            ratio = ours / t if t > 0 else float("inf")
            goal = goals.get((family, peer))
            verdict = ""
            if goal:
                ok = ratio <= goal[0]
                missed += not ok
                verdict = f"<= {goal[0]:g} {'met' if ok else 'MISSED'}  {goal[1]}"
            print(f"{family:<28} {args:<12} {peer:<18} {ours:>10.1f}ns {t:>10.1f}ns {ratio:>7.2f}  {verdict}")
    print(f"\n{missed} goal(s) missed")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
