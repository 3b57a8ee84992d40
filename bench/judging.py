"""Decides what the figures of benchmarks say: whether an aim is met, and whether a change did anything."""
from math import log
from statistics import median, quantiles

# Differences below this share are left to chance however quiet the rounds were.
LEAST_CHANGE = 0.01


def noise_of(values):
    """Half the distance between the quartiles, as a share of the median."""
    if len(values) < 2 or median(values) == 0:
        return 0.0
    low, _, high = quantiles(values, n=4, method="inclusive")
    return (high - low) / 2 / abs(median(values))


def judge(aim, row):
    """"met" or "missed", with "within noise" where the figure could fall on the other side."""
    if row is None:
        return "not measured"
    value, margin = row["value"], abs(row["value"]) * row["noise"]
    if "most" in aim:
        met, other = value <= aim["most"], (value - margin <= aim["most"]) != (value + margin <= aim["most"])
    else:
        met, other = value >= aim["least"], (value - margin >= aim["least"]) != (value + margin >= aim["least"])
    return ("met" if met else "missed") + (", within noise" if other else "")


def compare(before, after, better):
    """What a change did to a figure, from its values in pairs of runs: (ratio, noise, verdict).

    A change counts when every run after it is on the same side of every run before it, and it is larger than twice the
    noise of the pairs.
    """
    ratios = [new / old for old, new in zip(before, after) if old > 0 and new > 0]
    if not ratios:
        return None, 0.0, "no figure"
    ratio, noise = median(ratios), noise_of(ratios)
    is_apart = max(before) < min(after) or max(after) < min(before)
    if not is_apart or abs(log(ratio)) <= max(2 * noise, LEAST_CHANGE):
        return ratio, noise, "no difference"
    return ratio, noise, "better" if (ratio < 1) == (better == "lower") else "worse"
