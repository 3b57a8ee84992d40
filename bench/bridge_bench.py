#!/usr/bin/env python3
"""What tivra-bridge costs beside tivra-cat --quiet, which only counts the same updates, and what the engine makes of it.
Both read one hub in turn, round by round; a server of its own stores what the bridge writes. The same batches are published
onto the same server by a plain publisher too, which makes none of them.
usage: bridge_bench.py [ROUNDS] [--quick] [--json FILE] [--programs FOLDER] [--plain FILE] [--load SYMBOLS:RATE] [--seconds N]
                       [--core N] [--bridge "OPTIONS"] [--only cost|rate|one_partition|last|takeover ...]
"""
import argparse
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request
from pathlib import Path
from statistics import median

from judging import noise_of

ROOT = Path(__file__).resolve().parent.parent
TICKS = os.sysconf("SC_CLK_TCK")
PATIENCE = 60.0  # seconds within which anything awaited has to come
PARTITIONS = 16
SERVER = shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin")
# The rate of the row that asks how much one server takes end to end: more than the aim.
FULL_RATE = 600_000
MEASUREMENTS = ["cost", "rate", "one_partition", "last", "takeover"]


def wait_until(what, condition):
    deadline = time.monotonic() + PATIENCE
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise TimeoutError(f"in vain for {PATIENCE:.0f} s: {what}")
        time.sleep(0.005)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Process:
    """A program that runs until the block is left, with its output in a file."""

    def __init__(self, folder, name, *command, core=None):
        self.log = folder / f"{name}.log"
        words = [str(word) for word in command]
        if core is not None:
            words = ["taskset", "-c", str(core)] + words
        self.file = open(self.log, "w+")
        self.child = subprocess.Popen(words, stdout=self.file, stderr=self.file, stdin=subprocess.DEVNULL,
                                      env={**os.environ, "TIVRA_PASSWORD": "demo"})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.child.poll() is None:
            self.child.send_signal(signal.SIGTERM)
            try:
                self.child.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                self.child.kill()
                self.child.wait()
        self.file.close()

    def text(self):
        if self.child.poll() is not None:
            raise RuntimeError(f"{self.log.name} has ended: {self.log.read_text(errors='replace')[-500:]}")
        return self.log.read_text(errors="replace")

    def finds(self, pattern):
        return wait_until(f"{pattern} in {self.log.name}", lambda: re.search(pattern, self.text())).group(1)

    def seconds(self):
        """Of processor time, in the process and in the kernel for it."""
        fields = Path(f"/proc/{self.child.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / TICKS


class Counters:
    """What a program's statistics say."""

    def __init__(self, process):
        self.url = process.finds(r"(http://127\.0\.0\.1:\d+)") + "/metrics"

    def read(self):
        lines = wait_until(self.url, self.lines)
        return {line.split()[0]: float(line.split()[1]) for line in lines if line and line[0] != "#" and "{" not in line}

    def lines(self):
        try:
            with urllib.request.urlopen(self.url, timeout=PATIENCE) as answer:
                return answer.read().decode().splitlines()
        except urllib.error.HTTPError:
            return None  # it has nothing to say yet


class Bench:
    def __init__(self, options, folder):
        self.options, self.folder = options, folder
        self.programs = Path(options.programs).resolve()
        self.symbols = int(options.load.split(":")[0])
        self.symbols_file = folder / "symbols"
        self.symbols_file.write_text("".join(f"LOAD{number:06d}\n" for number in range(self.symbols)))
        self.rows = {}
        self.count = 0

    def note(self, name, unit, better, value):
        self.rows.setdefault(name, {"name": name, "unit": unit, "better": better, "values": []})["values"].append(value)

    def hub(self, load):
        hub = Process(self.folder, "hub", self.programs / "tools/tivra-hub/tivra-hub", "--port", 0, "--load", load)
        hub.address = hub.finds(r"listening on (\S+)")
        return hub

    def server(self):
        """A server whose store is new."""
        self.count += 1
        store = self.folder / f"store{self.count}"
        port = free_port()
        server = Process(self.folder, "server", SERVER, "-a", "127.0.0.1", "-p", port, "-js", "-sd", store)
        server.url, server.store = f"nats://127.0.0.1:{port}", store
        server.finds(r"(Server is ready)")
        return server

    def cat(self, hub):
        return Process(self.folder, "cat", self.programs / "tools/tivra-cat/tivra-cat", "-H", hub.address, "--user", "demo",
                       "-s", 100, "--quiet", "--progress", "never", "--no-summary", "--stats-listen", 0,
                       "subscribe", "-f", self.symbols_file, core=self.options.core)

    def bridge(self, hub, server, *more, name="bridge", partitions=PARTITIONS):
        return Process(self.folder, name, self.programs / "bridge/tivra-bridge", "-H", hub.address, "--user", "demo",
                       "-s", 100, "-f", self.symbols_file, "--to", server.url, "--partitions", partitions,
                       "--stats-listen", 0, "--name", name, *more, *self.options.bridge.split(), core=self.options.core)

    def window(self, processes, counters):
        """Processor seconds of each and what was counted, in the time of one measurement."""
        before, begin = [process.seconds() for process in processes], counters.read()
        start = time.monotonic()
        time.sleep(self.options.seconds)
        end, took = counters.read(), time.monotonic() - start
        after = [process.seconds() for process in processes]
        return [b - a for a, b in zip(before, after)], {key: end[key] - begin.get(key, 0.0) for key in end}, took

    def cost_of_cat(self, hub):
        with self.cat(hub) as cat:
            counters = Counters(cat)
            wait_until("updates", lambda: counters.read().get("tivra_delivered_messages_total", 0) > self.symbols)
            (seconds,), counted, _ = self.window([cat], counters)
        return seconds * 1e6 / counted["tivra_delivered_messages_total"]

    def established(self, bridge):
        counters = Counters(bridge)
        wait_until("batches of all partitions",
                   lambda: counters.read().get("tivra_bridge_last_values_total", 0) >= self.symbols)
        return counters

    def cost_of_payload(self, hub, payload):
        """Of a bridge that writes the hub's bytes, or tables."""
        with self.server() as server, self.bridge(hub, server, "--payload", payload) as bridge:
            counters = self.established(bridge)
            (own,), counted, _ = self.window([bridge], counters)
        shutil.rmtree(server.store, ignore_errors=True)
        return own, counted

    def cost(self, hub):
        """One round: both, whoever comes first in turn."""
        self.count += 1
        cat = self.cost_of_cat(hub) if self.count % 2 == 0 else None
        with self.server() as server:
            with self.bridge(hub, server) as bridge:
                counters = self.established(bridge)
                (own, servers), counted, took = self.window([bridge, server], counters)
            # What is left out costs nothing to send.
            updates = counted["tivra_bridge_records_total"]
            self.note_plain_cost(server, own / updates)
        shutil.rmtree(server.store, ignore_errors=True)
        cat = cat or self.cost_of_cat(hub)
        others = {payload: self.cost_of_payload(hub, payload) for payload in ("body", "arrow")}
        self.note("Bridge: processor time of an update, to tivra-cat --quiet", "", "lower", own * 1e6 / updates / cat)
        self.note("Bridge: processor time of an update", "us", "lower", own * 1e6 / updates)
        self.note("Bridge: processor time of an update, tivra-cat --quiet", "us", "lower", cat)
        self.note("Bridge: processor time of an update, the server", "us", "lower", servers * 1e6 / updates)
        self.note("Bridge: updates of the rounds above", "1/s", "higher", updates / took)
        self.note("Bridge: share of updates that were left out", "%", "lower",
                  100 * counted["tivra_bridge_dropped_total"] / max(counted["tivra_bridge_updates_total"], 1))
        self.note("Bridge: bytes of a record in its batch", "B", "lower",
                  counted["tivra_bridge_bytes_total"] / max(counted["tivra_bridge_records_total"], 1))
        for payload, (own_of_other, other) in others.items():
            self.note(f"Bridge: processor time of an update, --payload {payload}", "us", "lower",
                      own_of_other * 1e6 / other["tivra_bridge_records_total"])
            self.note(f"Bridge: bytes of a record in its batch, --payload {payload}", "B", "lower",
                      other["tivra_bridge_bytes_total"] / max(other["tivra_bridge_records_total"], 1))
        self.note("Bridge: records of a batch", "", "higher",
                  counted["tivra_bridge_records_total"] / max(counted["tivra_bridge_batches_total"], 1))
        self.note("Bridge: last values", "1/s", "higher", counted["tivra_bridge_last_values_total"] / took)

    def plain(self, server):
        """What plain publishing of what is on the server comes to, and the server's processor time with it; nothing where the
        publisher isn't built."""
        if not Path(self.options.plain).exists():
            return None, 0.0
        with Process(self.folder, "plain", self.options.plain, server.url, PARTITIONS, self.options.seconds,
                     core=self.options.core) as plain:
            wait_until("plain publishing", lambda: "publishing" in plain.log.read_text() or plain.child.poll() is not None)
            before = server.seconds()
            code, servers = plain.child.wait(PATIENCE), server.seconds() - before
            if code != 0:
                raise RuntimeError(f"plain publishing ended with {code}: {plain.log.read_text()[-500:]}")
            return json.loads(plain.log.read_text().splitlines()[-1]), servers

    def note_plain_cost(self, server, cost):
        plain, servers = self.plain(server)
        if plain is None:
            return
        updates = plain["records"]
        self.note("Bridge: processor time of an update, to plain publishing of the same batches", "", "lower",
                  cost * updates / plain["processor"])
        self.note("Plain publishing: processor time of an update", "us", "lower", plain["processor"] * 1e6 / updates)
        self.note("Plain publishing: processor time of an update, the server", "us", "lower", servers * 1e6 / updates)

    def rate(self):
        """How many updates a second one server has stored and acknowledged, of more than the bridge can take; and how many
        of the same batches."""
        with self.server() as server:
            with self.hub(f"{self.symbols}:{FULL_RATE}") as hub, self.bridge(hub, server) as bridge:
                counters = self.established(bridge)
                _, counted, took = self.window([bridge], counters)
            rate = counted["tivra_bridge_records_total"] / took
            self.note("Bridge: updates acknowledged end to end", "1/s", "higher", rate)
            plain, _ = self.plain(server)
            if plain is not None:
                self.note("Bridge: updates a second, to plain publishing of the same batches", "", "higher",
                          rate * plain["seconds"] / plain["records"])
                self.note("Plain publishing: updates", "1/s", "higher", plain["records"] / plain["seconds"])
        shutil.rmtree(server.store, ignore_errors=True)

    def one_partition(self):
        """The same of a single partition, of which one batch is on its way at a time."""
        with self.hub(f"{self.symbols}:{FULL_RATE}") as hub, self.server() as server, \
                self.bridge(hub, server, partitions=1) as bridge:
            counters = self.established(bridge)
            _, counted, took = self.window([bridge], counters)
            self.note("Bridge: updates acknowledged of one partition", "1/s", "higher",
                      counted["tivra_bridge_records_total"] / took)
        shutil.rmtree(server.store, ignore_errors=True)

    def last(self):
        """From the start of a reader's process until it has the last values of all symbols."""
        with self.hub(f"{self.symbols}:1000") as hub, self.server() as server, self.bridge(hub, server) as bridge:
            self.established(bridge)
            with Process(self.folder, "reader", self.programs / "tools/tivra-cat/tivra-cat", "--from", server.url, "-s", 100,
                         "-o", "json", "--no-summary", "--progress", "never", "snapshot", "-f", self.symbols_file) as reader:
                start = time.monotonic()
                if reader.child.wait(PATIENCE) != 0:
                    raise RuntimeError(f"a reader: {reader.log.read_text(errors='replace')[-500:]}")
                took = time.monotonic() - start
            have = sum('"fields":' in line for line in reader.log.read_text().splitlines())
            if have != self.symbols:
                raise RuntimeError(f"a reader has last values of {have} symbols, not {self.symbols}")
        shutil.rmtree(server.store, ignore_errors=True)
        self.note(f"Bridge: last values of {self.symbols:,} symbols to a new reader", "s", "lower", took)

    def takeover(self):
        """From the death of one of two bridges until the other has all partitions."""
        with self.hub(f"{self.symbols}:10000") as hub, self.server() as server, \
                self.bridge(hub, server, name="one") as one:
            self.established(one)
            with self.bridge(hub, server, name="two") as two:
                counters = Counters(two)
                held = "tivra_bridge_partitions"
                wait_until("an equal share", lambda: counters.read().get(held) == PARTITIONS / 2)
                one.child.kill()
                start = time.monotonic()
                wait_until("all partitions", lambda: counters.read().get(held) == PARTITIONS)
                self.note("Bridge: takeover of a bridge that was killed", "s", "lower", time.monotonic() - start)
        shutil.rmtree(server.store, ignore_errors=True)

    def run(self, rounds):
        if "cost" in self.options.only:
            with self.hub(self.options.load) as hub:
                for _ in range(rounds):
                    self.cost(hub)
        for name in ("rate", "one_partition", "last", "takeover"):
            if name in self.options.only:
                for _ in range(rounds):
                    getattr(self, name)()
        rows = []
        for row in self.rows.values():
            values = row.pop("values")
            rows.append({**row, "value": median(values), "noise": noise_of(values)})
            print(f"{row['name']:85} {median(values):12.4g} {row['unit']:4} +-{noise_of(values) * 100:.1f} %", flush=True)
        return rows


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("rounds", nargs="?", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="shorter measurements")
    parser.add_argument("--json", metavar="FILE", help="write the figures there")
    parser.add_argument("--programs", default=str(ROOT / "build/release"), help="the build folder of the programs")
    parser.add_argument("--plain", default=str(ROOT / "build/bench/bench/tivra_plain_publisher"), metavar="FILE",
                        help="the plain publisher")
    parser.add_argument("--load", default="1000:200000", metavar="SYMBOLS:RATE", help="what the hub sends")
    parser.add_argument("--seconds", type=float, help="of each measurement")
    parser.add_argument("--core", type=int, help="let what is measured run on this one only")
    parser.add_argument("--bridge", default="", metavar="OPTIONS", help="more options of the bridge")
    parser.add_argument("--only", nargs="+", choices=MEASUREMENTS, default=MEASUREMENTS)
    options = parser.parse_args()
    options.seconds = options.seconds or (2.0 if options.quick else 5.0)
    rows = []
    if SERVER is None or not (Path(options.programs) / "bridge/tivra-bridge").exists():
        print("The bridge is left out: scripts/install-packages base bridge, then build the release preset.")
    else:
        if not Path(options.plain).exists():
            print("Plain publishing is left out: build tivra_plain_publisher of the bench preset.")
        with tempfile.TemporaryDirectory(prefix="tivra-bench-") as folder:
            rows = Bench(options, Path(folder)).run(options.rounds)
    if options.json:
        Path(options.json).write_text(json.dumps({"rows": rows}, indent=1) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
