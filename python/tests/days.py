"""Where the days are that tests play."""

import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
SAMPLE = str(ROOT / "data" / "sample-20131007.csv.gz")
"""A piece of a day, which comes with the sources."""


def whole_day():
    """The whole day beside the sources, or None."""
    for folder in (ROOT, *ROOT.parents):
        path = folder / "shared" / "data" / "tape-20131007.csv.gz"
        if path.exists():
            return str(path)
    return None
