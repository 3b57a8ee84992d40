"""Readers of the bus in the middle of a day that a hub plays and bridges publish: each symbol's bid sizes count its
updates, so that what a reader has printed shows what it has lost or doubled.
usage: reader_rounds.py PROGRAMS [ROUNDS [SEED]]     PROGRAMS is the build folder; each round plays all faults
"""
import json
import re
import signal
import sys
from collections import defaultdict

from rounds import Round, report, wait_until

COUNT = "BID.SIZE"
FAULTS = ("none", "kill", "restart")


class Reader:
    """A tivra-cat that reads from the bus, and what it has printed."""

    def __init__(self, this, name):
        self.process = this.run(name, this.programs / "tools/tivra-cat/tivra-cat", "--from", this.url, "-s", 100,
                                "-o", "json", "subscribe", "--snapshot", "-f", this.folder / "symbols")

    def values(self):
        values = defaultdict(list)  # symbol -> (type, count)
        for line in self.process.log.read_text(errors="replace").splitlines():
            if line.startswith("{") and line.endswith("}"):
                record = json.loads(line)
                if COUNT in record["fields"]:
                    values[record["symbol"]].append((record["type"], record["fields"][COUNT]))
        return values

    def has_ended(self, updates):
        """Whether the day's last values have come."""
        values = self.values()
        return all(values[symbol] and values[symbol][-1][1] == last for symbol, last in updates.items())

    def order(self):
        """What is doubled or out of order, how many updates are missing, and whether there were any."""
        problems, missing, has_updates = [], 0, False
        for symbol, values in self.values().items():
            for (_, before), (kind, count) in zip(values, values[1:]):
                has_updates = has_updates or kind == "update"
                if count < before or count == before and kind == "update":
                    problems.append(f"{symbol}: {kind} {count} comes after {before}")
                missing += max(0, count - before - 1)
        return problems, missing, has_updates

    def judge(self, fault):
        """Ends it, and says what is wrong."""
        self.process.end()
        text = self.process.log.read_text(errors="replace")
        problems, missing, has_updates = self.order()
        said = int(re.search(r"gaps (\d+)\)", text)[1])
        code, gap = self.process.child.returncode, "takeover" if fault == "kill" else ""
        if not has_updates:
            problems.append("no update came after the last values")
        if code != (7 if gap else 0):
            problems.append(f"it ended with {code}")
        if gap and f"gap: {gap} of " not in text:
            problems.append(f"no gap \"{gap}\" was told")
        if fault != "kill" and missing != said:
            problems.append(f"{missing} updates are missing, and its gaps tell {said}")
        if fault in ("none", "restart") and missing > 0:
            problems.append(f"{missing} updates are missing, and the stream has them")
        return problems, missing


def make(this, fault):
    if fault == "kill":
        this.bridges[0].end(signal.SIGKILL)
    elif fault == "restart":
        this.server.end(signal.SIGKILL)
        this.server.start()
        this.wait_for_server()


def play(programs, fault, seed):
    """@return whether it was good"""
    this = Round(programs, seed)
    this.names = this.names[:2 if fault == "kill" else 1]
    this.plan = [(5.0, "none", 0.0)]  # the day takes four seconds more
    this.megabytes = 64  # so that nothing is left out while the server is away
    problems, missing = [], 0
    try:
        this.begin()
        wait_until("equal shares", lambda: len(set(this.holders().values())) == len(this.names))
        first = Reader(this, "first")
        wait_until("updates at the first reader", lambda: first.process.says('"type":"update"'))
        make(this, fault)
        second = Reader(this, "second")  # it joins in the middle
        for reader in (first, second):
            wait_until("the day's last values", lambda: reader.has_ended(this.updates))
        problems, missing = first.judge(fault)
        if fault != "kill":
            problems += second.judge("none")[0]
    except Exception as error:  # whatever it is, the round has failed and the next one is played
        problems = [f"{type(error).__name__}: {error}"]
    finally:
        this.end()
    return report(this, f"round {seed}, {fault}: {missing} updates missing at the first reader", problems)


def main():
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else 7
    played = [play(sys.argv[1], fault, number) for number in range(seed, seed + count) for fault in FAULTS]
    return 0 if all(played) else 1


if __name__ == "__main__":
    sys.exit(main())
