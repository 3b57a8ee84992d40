"""Reads what bridges have written, with nothing of theirs but the description in docs/bridge.md, and judges it.

What a hub has sent is known from a reader of its own: for each symbol the times at which its updates came, whose
sequence numbers are 1, 2 and so on in the field SEQUENCE.
"""
from collections import defaultdict
from datetime import datetime

from payloads import records_of

SEQUENCE = "BID.SIZE"
VALUES = ("update", "image", "refresh")
SLACK = 1.0  # seconds between a machine's clock at one process and at another, when all are busy


def partition_of(source, symbol, partitions):
    value = 14695981039346656037
    for byte in f"{source}:{symbol}".encode():
        value = (value ^ byte) * 1099511628211 % 2**64
    return value % partitions


def seconds(text):
    return datetime.fromisoformat(text.replace("Z", "+00:00")).timestamp()


class Gap:
    def __init__(self, record):
        self.cause, self.told = record["cause"], record.get("messages")
        self.begin, self.end = seconds(record["from"]) - SLACK, seconds(record["to"]) + SLACK
        # A bridge that takes over may have to ask its hub for an image first, and hubs may be slow or away.
        self.lasts_until_image = self.cause == "takeover"

    def covers(self, time, kind):
        return self.begin <= time and (time <= self.end or kind == "image" and self.lasts_until_image)


class Hole:
    """The servers have lost here what they had acknowledged: every reader sees it in the numbers of the batches."""

    cause = "lost by the engine"

    def covers(self, _time, _kind):
        return True


class Symbol:
    """What the stream has of a symbol."""

    def __init__(self):
        self.items = []  # ("update" or "image", sequence) and gaps, in order
        self.fields = {}  # as they are after the last record, for a reader of the present epoch; None if unknown
        self.history = {}  # (epoch, n) -> fields
        self.n = 0  # of the present epoch
        self.is_after_hole = False  # until the next image or update
        self.is_repaired = False  # the next image follows an overflow


class Partition:
    """Goes over one stream in its order. `problems` is what it finds."""

    def __init__(self, number, partitions):
        self.number, self.partitions = number, partitions
        self.problems = []
        self.epoch = self.batch = self.records = self.missing = 0
        self.skipped = self.told = 0  # numbers of this epoch that don't appear, and what its gaps tell of them
        self.holes = 0  # batches that the stream has had
        self.has_hole = False  # in this epoch
        self.symbols = defaultdict(Symbol)
        self.causes = defaultdict(int)
        self.payloads = defaultdict(int)  # how many batches have it
        self.partition_gaps = []

    def fail(self, text):
        self.problems.append(f"partition {self.number}, epoch {self.epoch}, batch {self.batch}: {text}")

    def message(self, data, hole=0):
        """@param hole  messages that the stream has had before this one and doesn't have any more"""
        header, records = records_of(data)
        if header["tivra"] != 1 or header["partition"] != self.number:
            self.fail(f"a header of something else: {header}")
        if len(records) != header["records"]:
            self.fail(f"{len(records)} records, and the header says {header['records']}")
        self.payloads[header["payload"]] += 1
        if header["epoch"] != self.epoch:
            self.begin(header, records[0], hole)
        elif self.batch < header["batch"] - 1 <= self.batch + hole:
            self.lose(hole)
        elif header["batch"] != self.batch + 1:
            self.fail(f"is followed by {header['batch']}")
        elif header["writer"] != self.writer:
            self.fail(f"is followed by {header['batch']} of another writer")
        self.batch = header["batch"]
        for record in records:
            self.record(record)

    def begin(self, header, first, hole):
        self.end_epoch(is_last=False)
        self.has_hole = False
        if header["epoch"] < self.epoch:
            self.fail(f"is followed by epoch {header['epoch']}")
        is_whole = header["batch"] == 1 and first["type"] == "gap" and first["cause"] == "takeover"
        if not is_whole and not 1 < header["batch"] <= 1 + hole:
            self.fail(f"epoch {header['epoch']} begins with batch {header['batch']} and {first}")
        self.epoch, self.writer = header["epoch"], header["writer"]
        for symbol in self.symbols.values():
            symbol.n, symbol.fields, symbol.is_after_hole = 0, {}, False
        if not is_whole:
            self.lose(hole)

    def lose(self, hole):
        self.holes += hole
        self.has_hole = True
        gap = Hole()
        self.partition_gaps.append(gap)
        for symbol in self.symbols.values():
            symbol.items.append(gap)
            symbol.is_after_hole = True

    def end_epoch(self, is_last):
        """A writer that was lost may not have come to saying what it had left out, and has written none of it."""
        if self.has_hole:
            self.skipped = self.told = 0
        if self.skipped > self.told or is_last and self.skipped != self.told:
            self.fail(f"{self.skipped} numbers are left out, and gaps tell {self.told}")
        self.skipped = self.told = 0

    def record(self, record):
        self.records += 1
        if record["type"] == "gap":
            return self.gap(record)
        if self.has_hole and record["symbol"] not in self.symbols:
            self.symbols[record["symbol"]].is_after_hole = True
        symbol, n = self.symbols[record["symbol"]], record["n"]
        if partition_of(record["source"], record["symbol"], self.partitions) != self.number:
            self.fail(f"{record['symbol']} belongs elsewhere")
        if record["type"] == "state":
            symbol.is_repaired = record["cause"] == "after an overflow"
        elif symbol.is_repaired and record["type"] == "image":
            self.skipped += n - symbol.n  # this image has the number of the last that was left out
            symbol.is_repaired = False
            self.values(symbol, record)
        elif n == symbol.n + 1 or symbol.is_after_hole and n > symbol.n:
            self.values(symbol, record)
        else:
            self.fail(f"{record['symbol']}: {record['type']} {n} comes after {symbol.n}")
        return None

    def values(self, symbol, record):
        if symbol.is_after_hole:
            symbol.fields = None  # what they are shows with the next image
        symbol.is_after_hole = False
        symbol.n = record["n"]
        if record["type"] == "image":
            symbol.fields = record["fields"]
        elif symbol.fields is not None:
            symbol.fields = {**symbol.fields, **record["fields"]}
        symbol.history[(self.epoch, symbol.n)] = symbol.fields
        if SEQUENCE in record["fields"]:
            symbol.items.append((record["type"], record["fields"][SEQUENCE]))

    def gap(self, record):
        self.causes[record["cause"]] += 1
        gap = Gap(record)
        if record["cause"] == "overflow":
            self.told += record["messages"]
        if "symbol" in record:
            self.symbols[record["symbol"]].items.append(gap)
            return
        self.partition_gaps.append(gap)
        for symbol in self.symbols.values():
            symbol.items.append(gap)

    def against(self, truth):
        """Each symbol's sequences against those that the hub has sent."""
        told = sum(gap.told for gap in self.partition_gaps if gap.cause == "overflow")
        overflown = 0
        for name, times in truth.items():
            if partition_of(100, name, self.partitions) != self.number:
                continue
            # A gap before the symbol's first record is about it too.
            items = self.symbols[name].items
            gaps = [gap for gap in self.partition_gaps if gap not in items]
            place = 0
            for item in items:
                if isinstance(item, Gap):
                    gaps.append(item)
                    continue
                kind, sequence = item
                if sequence <= place and kind == "update" and not any(gap.cause == "takeover" for gap in gaps):
                    self.fail(f"{name}: {sequence} comes after {place}")
                # What an image shows needn't have come as an update of its own: it has if no gap is before it.
                lost = range(place + 1, sequence if kind == "update" else sequence + 1)
                overflown += self.excuse(name, lost, gaps, times, kind)
                place, gaps = sequence, [gap for gap in gaps if kind != "update" and gap.cause == "takeover"]
            if place != len(times):
                self.fail(f"{name} ends with {place}, and the hub's last is {len(times)}")
        if overflown > told:
            self.fail(f"{overflown} updates are missing for an overflow, and gaps tell {told}")

    def excuse(self, name, lost, gaps, times, kind):
        """@return how many of them an overflow excuses and nothing else does"""
        overflown = 0
        for sequence in lost:
            causes = {gap.cause for gap in gaps if gap.covers(times[sequence - 1], kind)}
            if not causes:
                said = ", ".join(f"{gap.cause} {gap.begin:.3f}-{gap.end:.3f}" for gap in gaps)
                self.fail(f"{name}: {sequence} of {times[sequence - 1]:.3f} is missing, and no gap tells it ({said})")
                break
            overflown += causes == {"overflow"}
        self.missing += len(lost)
        return overflown

    def last_values(self, name, message, times):
        """What is kept as last values is the hub's last, and what the stream comes to at the same number."""
        symbol = self.symbols[name]
        if message["fields"].get(SEQUENCE) != len(times):
            self.fail(f"{name}: last values of {message['fields'].get(SEQUENCE)}, and the hub's last is {len(times)}")
        place = (message["epoch"], message["n"])
        fields = symbol.history.get(place)
        if place not in symbol.history and not self.holes:
            self.fail(f"{name}: last values of {message['epoch']}, {message['n']}, which the stream doesn't have")
        elif fields is not None and fields != message["fields"]:
            different = {k for k in fields.keys() | message["fields"].keys() if fields.get(k) != message["fields"].get(k)}
            self.fail(f"{name}: last values at {message['n']} differ in {different}")
