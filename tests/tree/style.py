#!/usr/bin/env python3
"""Checks that the tree is written in one dialect: usage: style.py ROOT [--format-only]

The formatting of every file, and names and habits (.clang-tidy) folder by folder: all sources of a folder as one, so that
its headers are read once.
"""
import os
import subprocess
import sys
import tempfile
from collections import defaultdict
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(sys.argv[1]).resolve()
CODE = ["include", "src", "shared", "sim", "tools", "bridge"]
FORMATTED = CODE + ["python", "examples", "tests", "bench", "fuzz"]
INSTALLED = ["include", "sim/include", "sim/testkit/include"]
INCLUDES = ["include", "src", "shared/tp_lib_tp/include", "sim/include", "sim/testkit/include", "tools", "bridge"]


def files(folders, *suffixes):
    return sorted(p for folder in folders for p in (ROOT / folder).rglob("*") if p.suffix in suffixes)


def misformatted():
    paths = [str(p) for p in files(FORMATTED, ".h", ".cpp", ".inl")]
    done = subprocess.run(["clang-format-14", "--dry-run", "-Werror", *paths], capture_output=True, text=True, cwd=ROOT)
    return done.stderr.splitlines()


def without_guard():
    return [f"{p}: error: no #pragma once" for p in files(FORMATTED, ".h") if "#pragma once" not in p.read_text()]


def tidy(folder, sources, scratch):
    whole = Path(scratch) / (str(folder.relative_to(ROOT)).replace("/", "_") + ".cpp")
    whole.write_text("".join(f'#include "{source}"\n' for source in sources))
    flags = ["-std=c++20", "-ferror-limit=0", f"-I{folder}"] + [f"-I{ROOT / include}" for include in INCLUDES]
    done = subprocess.run(["clang-tidy-14", "--quiet", f"--config-file={ROOT / '.clang-tidy'}", str(whole), "--", *flags],
                          capture_output=True, text=True)
    return [line for line in done.stdout.splitlines() if is_ours(line)]


def is_ours(line):
    # Sources of one folder may clash when read as one: compilers judge that. Names in installed headers stay.
    if ": error: " not in line or "[clang-diagnostic-" in line:
        return False
    return "readability-identifier-naming" not in line or not line.startswith(tuple(f"{ROOT}/{i}/" for i in INSTALLED))


def untidy():
    folders = defaultdict(list)
    for source in files(CODE, ".cpp"):
        folders[source.parent].append(source)
    with tempfile.TemporaryDirectory() as scratch, ThreadPoolExecutor(os.cpu_count()) as pool:
        found = pool.map(lambda item: tidy(*item, scratch), folders.items())
        return sorted({line for lines in found for line in lines})


problems = misformatted() + without_guard() + ([] if "--format-only" in sys.argv else untidy())
print("\n".join(problems))
sys.exit(1 if problems else 0)
