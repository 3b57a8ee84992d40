#!/usr/bin/env python3
"""Checks what the benchmarks' driver makes of figures: usage: bench-judging.py ROOT"""
import json
import sys
from pathlib import Path

ROOT = Path(sys.argv[1])
sys.path.insert(0, str(ROOT / "bench"))
sys.dont_write_bytecode = True
from judging import compare, judge  # noqa: E402

MOST, LEAST = {"most": 1.0}, {"least": 3.0}
JUDGED = [
    (MOST, (0.5, 0.1), "met"), (MOST, (1.0, 0.0), "met"), (MOST, (0.95, 0.1), "met, within noise"),
    (MOST, (1.05, 0.1), "missed, within noise"), (MOST, (1.5, 0.1), "missed"), (MOST, None, "not measured"),
    (LEAST, (3.5, 0.01), "met"), (LEAST, (2.0, 0.1), "missed"), (LEAST, (2.9, 0.1), "missed, within noise"),
]
COMPARED = [
    # Runs that are apart, beyond the noise, as a time and as a speed, and one that is all but gone.
    ([100, 102, 98], [80, 81, 79], "lower", "better"), ([100, 102, 98], [80, 81, 79], "higher", "worse"),
    ([500, 900, 50], [1, 2, 1], "lower", "better"),
    # Runs that overlap although all pairs agree; a change below the noise; one below what is left to chance.
    ([100, 90, 80], [95, 85, 75], "lower", "no difference"), ([100, 130, 200], [98, 97, 96], "lower", "no difference"),
    ([1000, 1000], [1005, 1005], "lower", "no difference"), ([0, 0], [1, 1], "lower", "no figure"),
]

problems = []
for aim, figure, expected in JUDGED:
    got = judge(aim, figure and {"value": figure[0], "noise": figure[1]})
    if got != expected:
        problems.append(f"judge({aim}, {figure}): {got}, not {expected}")
for before, after, better, expected in COMPARED:
    got = compare(before, after, better)[2]
    if got != expected:
        problems.append(f"compare({before}, {after}, {better}): {got}, not {expected}")
for aim in json.loads((ROOT / "bench" / "aims.json").read_text()):
    if ("most" in aim) == ("least" in aim):
        problems.append(f"aims.json: {aim['row']} has not one limit")

print("\n".join(problems))
sys.exit(1 if problems else 0)
