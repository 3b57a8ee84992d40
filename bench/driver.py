#!/usr/bin/env python3
"""Builds and runs the benchmarks, and prints one table. usage: ./run-bench [--quick] [--only NAME ...] [--compare COMMIT] | --report

Every program interleaves what it compares; this one puts their figures beside the aims of aims.json, or beside those of
another commit, whose library is built with the same benchmarks.
"""
import argparse
import json
import os
import platform
import shutil
import subprocess
import sys
import time
from pathlib import Path

from judging import compare, judge
from plot import plot_growth
import report

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "bench"
# The rounds of each program, in a whole run and in a quick one.
PROGRAMS = {
    "parser": (11, 5),
    "wait": (30, 5),
    "road": (5, 2),
    "growth": (3, 1),
    "hold": (11, 3),
    "request": (2, 1),
    "recovery": (8, 3),
    "tls": (7, 3),
    "bridge": (5, 2),
}
# Those that aren't built: they start the programs of the release build, of this tree alone.
SCRIPTS = {"bridge": ROOT / "bench" / "bridge_bench.py"}
PAIRS = (5, 3)  # of runs that are compared, and in a quick comparison
LONGEST = 600  # seconds that a program may take


def machine():
    lines = Path("/proc/cpuinfo").read_text().splitlines()
    model = next((line.split(":", 1)[1].strip() for line in lines if line.startswith("model name")), "unknown")
    return {"processor": model, "cores": os.cpu_count(), "kernel": platform.release(), "load": os.getloadavg()[0],
            "time": time.strftime("%Y-%m-%d %H:%M:%S %z"), "commit": git("describe", "--always", "--dirty")}


def git(*words, root=ROOT):
    done = subprocess.run(["git", "-C", str(root), *words], capture_output=True, text=True)
    return done.stdout.strip() if done.returncode == 0 else ""


def program(build, name):
    return build / "bench" / f"tivra_{name}_bench"


def run(build, name, quick, rounds=None):
    """The rows of one run of a program; none when it fails, which is said."""
    rounds = rounds or PROGRAMS[name][1 if quick else 0]
    figures, text = build / f"{name}.json", build / f"{name}.txt"
    figures.unlink(missing_ok=True)
    start = [sys.executable, "-B", str(SCRIPTS[name])] if name in SCRIPTS else [str(program(build, name))]
    words = start + [str(rounds), "--json", str(figures)] + (["--quick"] if quick else [])
    begin = time.monotonic()
    with open(text, "w") as out:
        try:
            status = subprocess.run(words, stdout=out, stderr=subprocess.STDOUT, timeout=LONGEST).returncode
        except subprocess.TimeoutExpired:
            status = f"nothing after {LONGEST} s"
        except OSError as error:
            status = error.strerror
    took = time.monotonic() - begin
    if status != 0 or not figures.exists():
        print(f"  {name}: failed ({status}); its output is in {text}", file=sys.stderr)
        return None
    print(f"  {name}: {took:.0f} s, all figures in {text.relative_to(ROOT)}", flush=True)
    return {row["name"]: row for row in json.loads(figures.read_text())["rows"]}


def number(value):
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.4g}"


def table(head, lines):
    widths = [max(len(str(line[i])) for line in [head, *lines]) for i in range(len(head))]
    for line in [head, *lines]:
        print("  ".join(str(cell).ljust(width) if i == 0 else str(cell).rjust(width)
                        for i, (cell, width) in enumerate(zip(line, widths))).rstrip())


def print_aims(rows, has_all):
    """The table of aims, of those that were measured unless all were to be, and the same for the file."""
    lines, verdicts = [], []
    for aim in json.loads((ROOT / "bench" / "aims.json").read_text()):
        row = rows.get(aim["row"])
        if row is None and not has_all:
            continue
        verdict = judge(aim, row)
        goal = f"<= {aim['most']:g}" if "most" in aim else f">= {aim['least']:g}"
        figure = "-" if row is None else f"{number(row['value'])} {row['unit']}"
        noise = "-" if row is None else f"{row['noise'] * 100:.1f} %"
        name = aim["row"] + (f" (the sender {aim['sender']})" if "sender" in aim else "")
        lines.append((name, figure, noise, goal, verdict))
        verdicts.append({**aim, "verdict": verdict})
    print()
    table(("Row", "Figure", "Noise", "Aim", ""), lines)
    count = [v["verdict"].split(",")[0] for v in verdicts]
    print(f"\n{count.count('met')} met, {count.count('missed')} missed, {count.count('not measured')} not measured")
    return verdicts


def measure(names, quick, about):
    rows, failed = {}, False
    for name in names:
        got = run(BUILD, name, quick)
        failed = failed or got is None
        rows.update(got or {})
    verdicts = print_aims(rows, len(names) == len(PROGRAMS))
    plot_growth(rows, BUILD / "growth.svg")
    (BUILD / "results.json").write_text(json.dumps({"machine": about, "quick": quick, "rows": list(rows.values()),
                                                    "aims": verdicts}, indent=1) + "\n")
    print("build/bench/results.json holds every figure, build/bench/growth.svg draws how they grow")
    return 1 if failed else 0


def write_report(about):
    """The page of figures, of the programs that it needs; each of them has to do its part."""
    rows = {}
    for name, rounds in report.PROGRAMS.items():
        got = run(BUILD, name, name != "growth", rounds)
        if got is None:
            return 1
        rows.update(got)
    report.write_report(rows, about, ROOT)
    print("docs/performance.md and docs/pictures/performance-*.svg are written")
    return 0


def build_other(commit, names):
    """Builds the library of a commit with the benchmarks of this tree, and gives those that could be built."""
    tree = ROOT / "build" / "compare" / commit
    if not tree.exists():
        subprocess.run(["git", "-C", str(ROOT), "worktree", "prune"], check=True)
        subprocess.run(["git", "-C", str(ROOT), "worktree", "add", "--detach", "--force", str(tree), commit],
                       check=True, capture_output=True)
    shutil.rmtree(tree / "bench", ignore_errors=True)
    shutil.copytree(ROOT / "bench", tree / "bench", ignore=shutil.ignore_patterns("__pycache__"))
    log = ROOT / "build" / "compare" / f"{commit}.log"
    print(f"build: {commit} with the benchmarks of this tree (log: {log.relative_to(ROOT)})", flush=True)
    build = tree / "build" / "bench"
    with open(log, "w") as out:
        subprocess.run(["cmake", "--preset", "bench"], cwd=tree, stdout=out, stderr=subprocess.STDOUT, check=True)
        for name in names:
            program(build, name).unlink(missing_ok=True)
            subprocess.run(["cmake", "--build", "--preset", "bench", "--target", f"tivra_{name}_bench"],
                           cwd=tree, stdout=out, stderr=subprocess.STDOUT)
    built = [name for name in names if program(build, name).exists()]
    for name in sorted(set(names) - set(built)):
        print(f"  {name}: left out, it can't be built with that library")
    return build, built


def run_pairs(names, other, pairs):
    """The values of each row in (other, this) pairs of runs."""
    values = {}
    for pair in range(pairs):
        print(f"pair {pair + 1} of {pairs}", flush=True)
        for name in names:
            # Whoever comes first finds another machine than whoever comes second.
            order = [other, BUILD] if pair % 2 == 0 else [BUILD, other]
            got = {build: run(build, name, True) for build in order}
            if got[other] is None or got[BUILD] is None:
                continue
            for row in got[BUILD].keys() & got[other].keys():
                both = values.setdefault(row, {"row": got[BUILD][row], "before": [], "after": []})
                both["before"].append(got[other][row]["value"])
                both["after"].append(got[BUILD][row]["value"])
    return values


def measure_change(names, quick, about, commit):
    full = git("rev-parse", "--short=12", "--verify", commit + "^{commit}")
    if not full:
        print(f"run-bench: there is no commit {commit}", file=sys.stderr)
        return 2
    other, built = build_other(full, names)
    values = run_pairs(built, other, PAIRS[1 if quick else 0])
    lines, results = [], []
    for name, both in values.items():
        row = both["row"]
        ratio, noise, verdict = compare(both["before"], both["after"], row["better"])
        results.append({"name": name, "unit": row["unit"], "before": both["before"], "after": both["after"],
                        "ratio": ratio, "noise": noise, "verdict": verdict})
        if ratio is not None:
            middle = [number(sorted(both[side])[len(both[side]) // 2]) for side in ("before", "after")]
            lines.append((name, f"{middle[0]} {row['unit']}", middle[1], f"{ratio:.3f}", f"{noise * 100:.1f} %",
                          verdict))
    lines.sort(key=lambda line: line[0])
    print()
    table(("Row", full, "this tree", "Ratio", "Noise", ""), lines)
    verdicts = [line[-1] for line in lines]
    print(f"\n{verdicts.count('better')} better, {verdicts.count('worse')} worse, "
          f"{verdicts.count('no difference')} without a difference beyond noise")
    (BUILD / "comparison.json").write_text(json.dumps({"machine": about, "with": full, "rows": results}, indent=1) + "\n")
    print("build/bench/comparison.json holds every figure")
    return 0 if built else 1


def main():
    parser = argparse.ArgumentParser(prog="./run-bench", description="Builds and runs the benchmarks.")
    parser.add_argument("--quick", action="store_true", help="fewer rounds, for a look")
    parser.add_argument("--only", nargs="+", choices=PROGRAMS, default=list(PROGRAMS), help="only these programs")
    parser.add_argument("--compare", metavar="COMMIT", help="what has changed since that commit, row by row")
    parser.add_argument("--report", action="store_true", help="write docs/performance.md and its plots")
    options = parser.parse_args()
    if options.report and (options.quick or options.compare or options.only != list(PROGRAMS)):
        parser.error("--report goes with no other option")
    about = machine()  # before the build makes a load of its own
    subprocess.run([str(ROOT / "scripts" / "build-preset"), "bench"], check=True)
    if not options.compare and not options.report and SCRIPTS.keys() & set(options.only):
        subprocess.run([str(ROOT / "scripts" / "build-preset"), "release"], check=True)
    print(f"{about['processor']}, {about['cores']} cores, Linux {about['kernel']}, {about['time']}")
    if about["load"] > about["cores"] / 4:
        print(f"The machine is busy (load {about['load']:.1f}): expect noise.")
    begin = time.monotonic()
    if options.report:
        status = write_report(about)
    elif options.compare:
        status = measure_change([name for name in options.only if name not in SCRIPTS], options.quick, about,
                                options.compare)
    else:
        status = measure(options.only, options.quick, about)
    print(f"{(time.monotonic() - begin) / 60:.1f} minutes")
    return status


if __name__ == "__main__":
    sys.exit(main())
