"""Writes docs/performance.md and its plots from the figures of a run."""
from plot import curve, draw_bars, draw_curves

# The programs that a report needs, and their rounds: all of them together take less than ten minutes.
PROGRAMS = {"parser": 3, "road": 3, "growth": 1, "request": 1}

HEAD = """# Performance

Made by `./run-bench --report`, which writes this page and its plots; nothing here is typed by hand. What each figure is measured
against, and what stands behind it, is in [bench/README.md](../bench/README.md).

{machine}.

The readers of a plot took turns in one run, so whatever else the machine did met them alike: trust ratios more than times.{busy}

"""

PEERS = """## Beside others

Processor time of the reading process for a message, from the socket to the callback. The library decodes each message; ZeroMQ and NATS,
where they stand here, hand on the same frames and look into none. *Two threads* read and parse with the library's parser and do nothing
else.

![Processor time of a message](pictures/performance-peers.svg)

{peers}

Decoding alone, messages of the sample day. simdjson reads the same fields as lines of JSON, QuickFIX as FIX messages:

{decoding}

"""

GROWTH = """## How it grows

**Messages.** The age of a message in the callback as there are more of them a second, from a sender that sleeps in between (the
slowest of a hundred, and half of them):

![Age of messages by their rate](pictures/performance-messages.svg)

{messages}

**Symbols.** Processor time of a message, with so many symbols in the feed:

![Processor time by symbols](pictures/performance-symbols.svg)

{symbols}

**Hubs** of one session, over which the same messages are spread, **and feeds** of one process, each with a hub of its own:

![Processor time by hubs and feeds](pictures/performance-hubs.svg)

{hubs}

**Standing requests.** What one takes with so many of them over eight hubs:

![Processor time by standing requests](pictures/performance-requests.svg)

{requests}
"""

PEER_ROWS = (
    ("library", "Road: library, socket to callback"),
    ("library, inline", "Road: library, inline"),
    ("feed", "Road: feed, socket to callback"),
    ("two threads", "Road: two threads and the parser"),
    ("ZeroMQ", "Road: ZeroMQ PUSH/PULL, not decoded"),
    ("NATS", "Road: NATS, not decoded"),
)
DECODING_ROWS = (
    ("library", "Sample of the day: this library"),
    ("plain parser", "Sample of the day: plain parser"),
    ("simdjson", "Sample of the day: simdjson, JSON lines"),
    ("QuickFIX", "Sample of the day: QuickFIX"),
)


def number(value):
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def noise(row):
    """Nothing where there are too few rounds to say."""
    return f"{row['noise'] * 100:.0f} %" if row["count"] > 2 else "-"


def table(head, lines):
    texts = [head, ["---"] + ["---:"] * (len(head) - 1), *lines]
    return "\n".join("| " + " | ".join(str(cell) for cell in line) + " |" for line in texts)


def beside(rows, names):
    """A table of the rows that were measured, with their ratios to the first."""
    there = [(label, rows[name]) for label, name in names if name in rows]
    if not there:
        return "Not measured."
    first = there[0][1]["value"]
    return table(["", "ns a message", "noise", "ratio"],
                 [[label, number(row["value"]), noise(row), f"{row['value'] / first:.2f}"]
                  for label, row in there])


def grown(head, curves):
    """A table of curves, a line for each number."""
    curves = {label: dict(points) for label, points in curves.items() if points}
    numbers = sorted({each for points in curves.values() for each in points})
    return table([head, *curves], [[f"{each:,}", *(number(points[each]) if each in points else "" for points in curves.values())]
                                   for each in numbers])


def curves_of(rows, pattern, labels):
    """{label: points} of "PATTERN<label's words>"."""
    found = {label: curve(rows, pattern + words + "$") for label, words in labels.items()}
    return {label: points for label, points in found.items() if points}


def machine_text(about):
    processor = about["processor"].replace("(R)", "").replace("(TM)", "")
    return f"{processor}, {about['cores']} cores, Linux {about['kernel']}, {about['time'][:10]}, commit {about['commit']}"


def write_report(rows, about, root):
    """Throws KeyError when a plot has nothing to show."""
    pictures = root / "docs" / "pictures"
    readers = {"library": ", library", "two threads": ", two threads", "ZeroMQ": ", ZeroMQ"}
    ages = {f"{label}, {share}": curve(rows, rf"Growth, messages a second: (\d+){words}, {share}$")
            for label, words in readers.items() for share in ("p99", "p50")}
    ages = {label: points for label, points in ages.items() if points}
    symbols = curves_of(rows, r"Growth, symbols: (\d+)", {"library": "", "two threads": ", two threads"})
    hubs = {label: curve(rows, rf"Growth, {label}: (\d+)$") for label in ("hubs", "feeds")}
    requests = curves_of(rows, r"Requests, (\d+): ", {"send": "send, processor time", "answer": "processor time until answered"})
    peers = [(label, rows[name]["value"]) for label, name in PEER_ROWS if name in rows]
    draw_bars(pictures / "performance-peers.svg", "Processor time of a message", "ns", peers)
    draw_curves(pictures / "performance-messages.svg", "Age of a message", "messages a second", "us", ages, logarithmic=True)
    draw_curves(pictures / "performance-symbols.svg", "Processor time of a message", "symbols", "ns", symbols)
    draw_curves(pictures / "performance-hubs.svg", "Processor time of a message", "how many", "ns", hubs)
    draw_curves(pictures / "performance-requests.svg", "Processor time of a standing request", "standing requests", "us", requests)
    busy = (f" The machine was busy with other work (load {about['load']:.0f}): on an idle "
            "one all times are shorter, and ages of messages, most of which are waits for a processor here, very much so."
            if about["load"] > about["cores"] / 4 else "")
    (root / "docs" / "performance.md").write_text(
        HEAD.format(machine=machine_text(about), busy=busy)
        + PEERS.format(peers=beside(rows, PEER_ROWS), decoding=beside(rows, DECODING_ROWS))
        + GROWTH.format(messages=grown("messages a second, us", ages), symbols=grown("symbols, ns a message", symbols),
                        hubs=grown("number, ns a message", hubs), requests=grown("requests, us each", requests)))
