"""Rounds of three bridges, a hub and a server, in which something is killed, stopped or restarted; each is judged by
stream_check. The hub plays a day that ends, and half of its symbols go quiet before. A round is made again by its seed, which
says of the payload too: the bridges have one each, as if they were being moved from one to another.
usage: rounds.py PROGRAMS ROUNDS [SEED]     PROGRAMS is the build folder
"""
import asyncio
import json
import os
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from collections import Counter, defaultdict
from pathlib import Path

import nats

from stream_check import SEQUENCE, Partition, seconds

PARTITIONS, SYMBOLS, BRIDGES = 4, 60, 3
FAULTS = ["kill", "stop", "restart", "pause", "steal", "double"]
PAYLOADS = ["json", "body", "arrow"]
RATES = {1: 100, 64: 30}  # updates a second of each symbol, by the megabytes that may wait: a pause fills the small ones
DEADLINE = 60.0


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(what, condition, patience=DEADLINE):
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"in vain for {patience} s: {what}")
        time.sleep(0.02)


class Process:
    def __init__(self, folder, name, *command, **environment):
        self.name, self.log = name, folder / f"{name}.log"
        self.command, self.environment = [str(word) for word in command], environment
        self.start()

    def start(self):
        with open(self.log, "ab") as log:
            self.child = subprocess.Popen(self.command, stdout=log, stderr=log, stdin=subprocess.DEVNULL,
                                          env={**os.environ, "TIVRA_PASSWORD": "demo", **self.environment})

    def send(self, number):
        if self.child.poll() is None:
            self.child.send_signal(number)

    def end(self, number=signal.SIGTERM):
        self.send(signal.SIGCONT)
        self.send(number)
        self.child.wait(DEADLINE)

    def says(self, text):
        return text in self.log.read_text(errors="replace")


class Round:
    faults = FAULTS
    settle_within = 10.0  # seconds after which last values have to be right
    hub_place, hub_options, bridge_options = [], [], []

    def __init__(self, programs, seed):
        self.chance, self.seed = random.Random(seed), seed
        self.folder = Path(tempfile.mkdtemp(prefix="tivra-bridge-"))
        self.programs = Path(programs).resolve()
        self.processes = []
        self.port = free_port()
        self.url = f"nats://127.0.0.1:{self.port}"
        self.names = [f"bridge{i}" for i in range(BRIDGES)]
        self.symbols = [f"Q{number:03d}" for number in range(SYMBOLS)]
        self.plan = [(self.chance.uniform(0.3, 1.5), self.chance.choice(self.faults), self.chance.uniform(0.2, 6.0))
                     for _ in range(self.chance.choice([1, 1, 2]))]
        self.megabytes = self.chance.choice(list(RATES))
        self.away = defaultdict(list)  # bridge -> times in which it was stopped or dead

    def run(self, name, *command, **environment):
        process = Process(self.folder, name, *command, **environment)
        self.processes.append(process)
        return process

    def run_bridge(self, name, *command):
        return self.run(name, *command)

    def write_day(self):
        """Each symbol's bid sizes count its updates; every second one ends somewhere in the middle."""
        length = sum(pause + 4.0 for pause, _, _ in self.plan)
        events = []
        self.updates = {}
        for number, symbol in enumerate(self.symbols):
            end = length if number % 2 == 0 else self.chance.uniform(0.1, length)
            times = sorted(self.chance.uniform(0.0, end) for _ in range(int(end * RATES[self.megabytes]) + 1))
            self.updates[symbol] = len(times)
            events += [(time, symbol, count) for count, time in enumerate(times, 1)]
        day = self.folder / "day.csv"
        with open(day, "w") as file:
            file.write("ms,symbol,kind,bid,bid_size,ask,ask_size,price,size,exchange,condition,suspicious\n")
            for time, symbol, count in sorted(events):
                file.write(f"{34200000 + int(time * 1000)},{symbol},Q,{10 + count / 100:.2f},{count},,,,,K,1,0\n")
        return day

    def begin(self):
        self.begin_engine()
        tools = self.programs / "tools"
        # The bridges' symbols are one each, so this many are subscribed when the reader of the truth has come too.
        self.hub = self.run("hub", *self.hub_place, tools / "tivra-hub/tivra-hub", "--port", 0, "--playback",
                            self.write_day(), "--factor", 1, "--start-when", 2 * SYMBOLS, *self.hub_options)
        wait_until("a hub", lambda: self.hub.says("listening on "))
        hub = self.hub.log.read_text().split("listening on ")[1].split()[0]
        symbols = self.folder / "symbols"
        symbols.write_text("".join(symbol + "\n" for symbol in self.symbols))
        self.bridges = [self.run_bridge(name, self.programs / "bridge/tivra-bridge", "-H", hub, "--user", "demo",
                                        "-s", 100, "-f", symbols, "--to", self.url, "--partitions", PARTITIONS,
                                        "--name", name, "--buffer-megabytes", self.megabytes,
                                        "--payload", PAYLOADS[(self.seed + number) % len(PAYLOADS)], *self.bridge_options)
                        for number, name in enumerate(self.names)]
        self.await_shares()
        # The truth subscribes last and sets the day going.
        self.truth = self.run("truth", tools / "tivra-cat/tivra-cat", "-H", hub, "--user", "demo", "-s", 100,
                              "-o", "json", "--no-summary", "subscribe", "-f", symbols)
        wait_until("updates", lambda: self.truth.says(SEQUENCE))

    def begin_engine(self):
        server = shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin")
        self.server = self.run("server", server, "-a", "127.0.0.1", "-p", self.port, "-js", "-sd", self.folder / "js")
        self.wait_for_server()

    def await_shares(self):
        wait_until("all partitions", lambda: len(self.holders()) == PARTITIONS)

    def wait_for_server(self):
        def answers():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", self.port)) == 0
        wait_until("a server", answers)

    def lines(self):
        """Of the bridges that are left, in order: time, bridge, text."""
        lines = []
        for bridge in self.bridges:
            for line in bridge.log.read_text(errors="replace").splitlines():
                time, _, text = line.partition(" tivra-bridge: ")
                if text:
                    lines.append((seconds(time), bridge, text))
        return sorted(lines, key=lambda line: line[0])

    def holders(self):
        """Which bridge has which partition, as far as the bridges know that are alive."""
        holders = {}
        for _, bridge, text in self.lines():
            words = text.split()
            if words[0] != "partition" or bridge.child.poll() is not None:
                continue
            if "taken" in words[2]:
                holders[words[1]] = bridge
            elif "dropped:" in words[2] and holders.get(words[1]) is bridge:
                del holders[words[1]]
        return holders

    def engine_is_lost(self):
        """Whether the servers have not come back by themselves, which no bridge can mend."""
        return False

    def troubled(self):
        """Partitions that their holders can't write, as they have said last."""
        troubled = {}
        for _, bridge, text in self.lines():
            words = text.split()
            if words[0] == "partition":
                troubled[(words[1], bridge)] = text.endswith("tried again")
        return [held for held in self.holders().items() if troubled[held]]

    def fault(self, kind, duration):
        victim = self.chance.choice(self.alive())
        if kind == "kill":
            self.away[victim.name].append((time.time(), float("inf")))
            victim.end(signal.SIGKILL)
        elif kind == "stop":  # longer than a lease or shorter: it wakes up believing that it holds its own
            began = time.time()
            victim.send(signal.SIGSTOP)
            time.sleep(duration)
            victim.send(signal.SIGCONT)
            self.away[victim.name].append((began, time.time()))
        elif kind == "restart":
            self.server.end(self.chance.choice([signal.SIGKILL, signal.SIGTERM]))
            time.sleep(duration / 3)
            self.server.start()
            self.wait_for_server()
        elif kind == "pause":
            self.server.send(signal.SIGSTOP)
            time.sleep(duration)
            self.server.send(signal.SIGCONT)
        else:
            asyncio.run(self.change_lease(kind, victim))
        return f"{kind} {victim.name if kind in ('kill', 'stop') else ''} {duration:.1f}".replace("  ", " ")

    async def change_lease(self, kind, other):
        """Takes a lease from its holder, which doesn't know, or has another one believe that it is its own."""
        client = await self.connect()
        bucket = await client.jetstream().key_value("TIVRA_LEASES")
        key = f"lease.{self.chance.randrange(PARTITIONS)}"
        lease = json.loads((await bucket.get(key)).value)
        if kind == "double":
            nonce = json.loads((await bucket.get(f"member.{other.name}")).value)["nonce"]
            lease.update(holder=other.name, nonce=nonce)
        else:
            lease.update(holder="", nonce="")
        await bucket.put(key, json.dumps(lease).encode())
        await client.close()

    def alive(self):
        return [bridge for bridge in self.bridges if bridge.child.poll() is None]

    def needless(self):
        """Partitions that were taken from bridges that nothing had happened to."""
        found = []
        for when, bridge, text in self.lines():
            if " taken over from " not in text:
                continue
            former = text.split(" taken over from ")[1].split(",")[0]
            if former != bridge.name and not any(begin < when < end + 4.0 for begin, end in self.away[former]):
                found.append(f"{bridge.name} at {when:.1f}: {text}")
        return found

    async def connect(self):
        return await nats.connect(self.url.split(","))

    async def judge(self, truth):
        client = await self.connect()
        stream = client.jetstream()
        parts = []
        for number in range(PARTITIONS):
            part = Partition(number, PARTITIONS)
            state = await self.settled(stream, f"TIVRA_TICK_{number}")
            reader = await stream.subscribe(f"tivra.v1.tick.{number}", ordered_consumer=True)
            position = state.first_seq - 1
            while position < state.last_seq:
                message = await reader.next_msg(timeout=DEADLINE)
                position, before = message.metadata.sequence.stream, position
                part.message(message.data, position - before - 1)
            await reader.unsubscribe()
            part.end_epoch(is_last=True)
            part.against(truth)
            parts.append(part)
        for symbol, times in truth.items():
            message = await stream.get_last_msg("TIVRA_LAST", f"tivra.v1.last.100.{symbol}")
            next(p for p in parts if symbol in p.symbols).last_values(symbol, json.loads(message.data), times)
        await client.close()
        return parts

    async def settled(self, stream, name):
        """@return the state of a stream whose servers all have the same: a consumer may be with any of them"""
        deadline = time.monotonic() + DEADLINE
        while True:
            info = await stream.stream_info(name)
            behind = [peer for peer in info.cluster and info.cluster.replicas or [] if not peer.current or peer.lag]
            if not behind or time.monotonic() > deadline:
                return info.state
            await asyncio.sleep(0.1)

    async def sequence(self, stream, symbol):
        """@return of the symbol's last values; nothing while the engine has none or doesn't answer"""
        try:
            message = await stream.get_last_msg("TIVRA_LAST", f"tivra.v1.last.100.{symbol}")
        except (nats.js.errors.Error, nats.errors.Error):
            return None
        return json.loads(message.data)["fields"].get(SEQUENCE)

    async def settle(self):
        """Waits until last values are the hub's last. @return how long that took"""
        client = await self.connect()
        stream = client.jetstream()
        began = time.monotonic()
        for symbol, updates in self.updates.items():
            while await self.sequence(stream, symbol) != updates and time.monotonic() < began + self.settle_within:
                await asyncio.sleep(0.02)
        await client.close()
        return time.monotonic() - began

    def sent(self):
        truth = defaultdict(list)
        for line in self.truth.log.read_text(errors="replace").splitlines():
            if line.startswith('{"type":"update"') and line.endswith("}"):
                record = json.loads(line)
                truth[record["symbol"]].append(seconds(record["received"]))
        return truth

    def play(self):
        self.begin()
        faults = []
        for pause, kind, duration in self.plan:
            time.sleep(pause)
            if len(self.alive()) > 1:
                faults.append(self.fault(kind, duration))
        whole = sum(self.updates.values())
        wait_until("the day's end", lambda: self.truth.log.read_bytes().count(b'"type":"update"') >= whole)
        wait_until("all partitions", lambda: len(self.holders()) == PARTITIONS)
        recovered = asyncio.run(self.settle())
        wait_until("what waits is written", lambda: not self.troubled())
        needless = self.needless()
        # What the bridges have is written, and they end while the hub is still there.
        self.truth.end()
        for bridge in self.alive():
            bridge.end()
        return faults, recovered, needless, asyncio.run(self.judge(self.sent()))

    def end(self):
        for process in self.processes:
            if process.child.poll() is None:
                process.end(signal.SIGKILL)


def report(this, text, problems):
    """Says how a round was, and keeps its logs if it was bad. @return whether it was good"""
    print(f"{text}: {'bad' if problems else 'good'}", flush=True)
    for problem in problems[:10]:
        print("    " + problem)
    if problems:
        print(f"    its logs are in {this.folder}")
    else:
        shutil.rmtree(this.folder)
    return not problems


def play(this, total):
    """@return whether it was good"""
    faults, recovered, needless, parts, problems = [], 0.0, [], [], []
    try:
        faults, recovered, needless, parts = this.play()
        problems = [problem for part in parts for problem in part.problems]
    except Exception as error:  # whatever it is, the round has failed and the next one is played
        problems = [f"{type(error).__name__}: {error}"]
        if this.engine_is_lost():
            total["engine lost"] += 1
            return report(this, f"round {this.seed}: the servers don't agree any more, so it isn't judged", [])
    finally:
        this.end()
    problems += [f"taken without need: {text}" for text in needless]
    causes = sum((Counter(part.causes) for part in parts), Counter())
    total.update({f"batches of {name}": number for part in parts for name, number in part.payloads.items()})
    records, missing = sum(p.records for p in parts), sum(p.missing for p in parts)
    total.update(records=records, missing=missing, gaps=sum(causes.values()), needless=len(needless))
    total.update({"batches that the servers lost": sum(part.holes for part in parts)})
    total.update(fault.split()[0] for fault in faults)
    return report(this, f"round {this.seed}: {', '.join(faults) or 'none'}: last values right after {recovered:.1f} s, "
                        f"{records} records, {missing} missing, gaps {dict(causes)}", problems)


def main(kind=Round):
    programs, rounds = sys.argv[1], int(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    total = Counter()
    bad = sum(not play(kind(programs, number), total) for number in range(seed, seed + rounds))
    print(f"{rounds} rounds, {bad} bad; {dict(total)}")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
