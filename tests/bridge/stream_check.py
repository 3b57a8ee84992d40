"""Reads what bridges have written, with nothing of theirs but the description in docs/bridge.md, and judges it.

What a hub has sent is known from a reader of its own: a symbol's list of sequence numbers.
"""
import json
from collections import defaultdict

SEQUENCE = "FEED.SEQUENCE"
VALUES = ("update", "image", "refresh")


def partition_of(source, symbol, partitions):
    value = 14695981039346656037
    for byte in f"{source}:{symbol}".encode():
        value = (value ^ byte) * 1099511628211 % 2**64
    return value % partitions


class Partition:
    """Goes over one stream in its order. `problems` is what it finds."""

    def __init__(self, number, partitions):
        self.number, self.partitions = number, partitions
        self.problems = []
        self.epoch = self.batch = 0
        self.records = self.gaps = self.left_out = 0
        self.epochs = []
        self.last_n = {}  # of the present epoch
        self.skipped = 0  # numbers that don't appear in this epoch
        self.excused = 0  # of those that gaps tell
        self.images = defaultdict(dict)  # of the present epoch, by symbol
        self.history = defaultdict(dict)  # symbol -> n -> image then
        self.seen = defaultdict(list)  # symbol -> items: a sequence, or None for a gap
        self.causes = defaultdict(int)

    def fail(self, text):
        self.problems.append(f"partition {self.number}, epoch {self.epoch}, batch {self.batch}: {text}")

    def message(self, data):
        lines = data.split(b"\n")
        header = json.loads(lines[0])
        if header["tivra"] != 1 or header["partition"] != self.number:
            self.fail(f"a header of something else: {header}")
        if lines[-1] != b"" or len(lines) - 2 != header["records"]:
            self.fail(f"{len(lines) - 2} records, and the header says {header['records']}")
        if header["epoch"] != self.epoch:
            self.begin(header, json.loads(lines[1]))
        elif header["batch"] != self.batch + 1:
            self.fail(f"is followed by {header['batch']}")
        self.batch = header["batch"]
        for line in lines[1:-1]:
            self.record(json.loads(line))

    def begin(self, header, first):
        self.close_epoch()
        if header["epoch"] < self.epoch:
            self.fail(f"is followed by epoch {header['epoch']}")
        if header["batch"] != 1 or first["type"] != "gap" or first["cause"] != "takeover":
            self.fail(f"epoch {header['epoch']} begins with batch {header['batch']} and {first}")
        self.epoch = header["epoch"]
        self.epochs.append((self.epoch, header["time"]))
        self.last_n.clear()
        self.images.clear()

    def close_epoch(self):
        if self.skipped > self.excused:
            self.fail(f"{self.skipped} numbers are left out, and gaps tell {self.excused}")
        self.skipped = self.excused = 0

    def record(self, record):
        self.records += 1
        if record["type"] == "gap":
            return self.gap(record)
        symbol, n = record["symbol"], record["n"]
        if partition_of(record["source"], symbol, self.partitions) != self.number:
            self.fail(f"{symbol} belongs elsewhere")
        last = self.last_n.get(symbol, 0)
        if record["type"] not in VALUES:
            return None
        if record["type"] == "refresh" and n in (last, last + 1):
            pass
        elif n <= last:
            return None  # the header of the layout shows it: a reader leaves it out
        self.skipped += max(0, n - last - 1)
        self.last_n[symbol] = n
        if record["type"] == "image" or record["type"] == "refresh" and n > last + 1:
            self.images[symbol] = {}
        self.images[symbol] = {**self.images[symbol], **record["fields"]}
        self.history[symbol][(self.epoch, n)] = self.images[symbol]
        if record["type"] == "update" and SEQUENCE in record["fields"]:
            self.seen[symbol].append(record["fields"][SEQUENCE])
        return None

    def gap(self, record):
        self.gaps += 1
        self.causes[record["cause"]] += 1
        if record["cause"] == "overflow":
            self.left_out += record["messages"]
            self.excused += record["messages"]
        if "symbol" in record:
            self.seen[record["symbol"]].append(None)
        else:
            for items in self.seen.values():
                items.append(None)

    def against(self, truth):
        """Each symbol's sequences against those that the hub has sent."""
        missing = 0
        for symbol, sent in truth.items():
            if partition_of(100, symbol, self.partitions) != self.number:
                continue
            place = {sequence: index for index, sequence in enumerate(sent)}
            before, has_gap = None, False
            for item in self.seen.get(symbol, []):
                if item is None:
                    has_gap = True
                    continue
                if item not in place:
                    continue  # came after the other reader had ended
                if before is not None and place[item] <= before and not has_gap:
                    self.fail(f"{symbol}: {item} comes after a later one")
                lost = 0 if before is None else place[item] - before - 1
                if lost > 0 and not has_gap:
                    self.fail(f"{symbol}: {lost} updates before {item} are missing without a gap")
                missing += max(0, lost)
                before, has_gap = max(place[item], before or 0), False
        return missing

    def last_values(self, symbol, message):
        """What is kept as last values is what the stream comes to at the same number."""
        if message["epoch"] != self.epoch:
            self.fail(f"{symbol}: last values of epoch {message['epoch']}")
            return
        image = self.history[symbol].get((message["epoch"], message["n"]))
        if message["n"] > 0 and image is None:
            self.fail(f"{symbol}: last values of {message['n']}, which the stream doesn't have")
        elif image is not None and image != message["fields"]:
            different = {k for k in image.keys() | message["fields"].keys() if image.get(k) != message["fields"].get(k)}
            self.fail(f"{symbol}: last values at {message['n']} differ in {different}")
        if message["n"] < self.last_n.get(symbol, 0):
            self.fail(f"{symbol}: last values of {message['n']}, and the stream has {self.last_n[symbol]}")
