"""How fast files are read and written, beside pandas' and pyarrow's reading of the same day as CSV. Processor time.

usage: python python/bench/files.py [DAY.csv[.gz]]   (default: the sample)
"""

from __future__ import annotations

import contextlib
import gzip
import io
import pathlib
import shutil
import sys
import tempfile
import time
from collections.abc import Callable

import pandas
import pyarrow
import pyarrow.csv

import tivra
from tivra.__main__ import main as run

ROUNDS = 3
SAMPLE = pathlib.Path(__file__).resolve().parents[2] / "data" / "sample-20131007.csv.gz"


def rate(rows: int, work: Callable[[], object]) -> tuple[float, float]:
    """Rows a second of the fastest round, and how much longer the slowest took."""
    seconds = []
    for _ in range(ROUNDS):
        begin = time.process_time()
        work()
        seconds.append(time.process_time() - begin)
    return rows / min(seconds), max(seconds) / min(seconds) - 1


def export(source: str, target: pathlib.Path) -> None:
    with contextlib.redirect_stdout(io.StringIO()):
        code = run(["export", source, "-o", str(target), "--dictionary", "builtin"])
    if code != 0:
        raise RuntimeError(f"export ended with {code}")


def main() -> None:
    day = sys.argv[1] if len(sys.argv) > 1 else str(SAMPLE)
    pyarrow.set_cpu_count(1)
    known = tivra.Dictionary.builtin()
    with tempfile.TemporaryDirectory() as folder:
        base = pathlib.Path(folder)
        plain, capture = base / "day.csv", str(base / "day.cap")
        with (gzip.open(day) if day.endswith(".gz") else open(day, "rb")) as packed, open(plain, "wb") as file:
            shutil.copyfileobj(packed, file)
        rows = tivra.write_capture(tivra.open_day(day), capture, known)
        work: dict[str, Callable[[], object]] = {
            "pandas.read_csv, gzipped": lambda: pandas.read_csv(day),
            "pandas.read_csv, plain": lambda: pandas.read_csv(plain),
            "pyarrow.csv, plain": lambda: pyarrow.csv.read_csv(plain),
            "open_day, gzipped": lambda: [None for _ in tivra.open_day(day)],
            "read_capture, all fields": lambda: [None for _ in tivra.read_capture(capture, dictionary=known)],
            "read_capture, 3 fields": lambda: [None for _ in tivra.read_capture(
                capture, fields=["BID", "ASK", "TRADE.PRICE"], dictionary=known)],
            "write_capture": lambda: tivra.write_capture(tivra.open_day(day), base / "out.cap", known),
            "export to Parquet": lambda: export(capture, base / "out.parquet"),
            "export to CSV": lambda: export(capture, base / "out.csv"),
            "export to JSON lines": lambda: export(capture, base / "out.jsonl"),
        }
        print(f"{rows} rows; rows a processor second, best of {ROUNDS} rounds")
        baseline = 0.0
        for name, call in work.items():
            speed, noise = rate(rows, call)
            baseline = baseline or speed
            print(f"{name:28} {speed:12,.0f}  {speed / baseline:6.2f} of pandas  (slowest +{noise:.0%})", flush=True)


if __name__ == "__main__":
    main()
