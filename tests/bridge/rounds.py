"""Rounds of three bridges, a hub and a server, in which something is killed, stopped or restarted; each is judged by
stream_check. A round is made again by its seed.
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

from stream_check import SEQUENCE, Partition

PARTITIONS, SYMBOLS, BRIDGES = 4, 60, 3
DEADLINE = 30.0


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
    def __init__(self, folder, name, *command):
        self.name, self.log = name, folder / f"{name}.log"
        self.command = [str(word) for word in command]
        self.start()

    def start(self):
        with open(self.log, "ab") as log:
            self.child = subprocess.Popen(self.command, stdout=log, stderr=log, stdin=subprocess.DEVNULL,
                                          env={**os.environ, "TIVRA_PASSWORD": "demo"})

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
    def __init__(self, programs, seed):
        self.chance, self.seed = random.Random(seed), seed
        self.folder = Path(tempfile.mkdtemp(prefix="tivra-bridge-"))
        self.programs = Path(programs)
        self.processes = []
        self.port = free_port()
        self.url = f"nats://127.0.0.1:{self.port}"

    def run(self, name, *command):
        process = Process(self.folder, name, *command)
        self.processes.append(process)
        return process

    def begin(self):
        server = shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin")
        self.server = self.run("server", server, "-a", "127.0.0.1", "-p", self.port, "-js", "-sd", self.folder / "js")
        self.wait_for_server()
        tools = self.programs / "tools"
        # One round of the load is longer than the test, so that no sequence number comes twice.
        self.hub = self.run("hub", tools / "tivra-hub/tivra-hub", "--port", 0, "--load", f"{SYMBOLS}:100000",
                            "--factor", "0.02", "--start-when", SYMBOLS + 1)
        wait_until("a hub", lambda: self.hub.says("listening on "))
        hub = self.hub.log.read_text().split("listening on ")[1].split()[0]
        symbols = self.folder / "symbols"
        symbols.write_text("".join(f"LOAD{number:06d}\n" for number in range(SYMBOLS)))
        self.bridges = [self.run(f"bridge{i}", self.programs / "bridge/tivra-bridge", "-H", hub, "--user", "demo",
                                 "-s", 100, "-f", symbols, "--to", self.url, "--partitions", PARTITIONS,
                                 "--name", f"bridge{i}", "--buffer-megabytes", self.chance.choice([1, 64]))
                        for i in range(BRIDGES)]
        wait_until("all partitions", lambda: sum(
            bridge.log.read_text().count(": taken") for bridge in self.bridges) >= PARTITIONS)
        # The truth subscribes last and sets the load going.
        self.truth = self.run("truth", tools / "tivra-cat/tivra-cat", "-H", hub, "--user", "demo", "-s", 100,
                              "-o", "json", "--no-summary", "subscribe", "-f", symbols)
        wait_until("updates", lambda: self.truth.says(SEQUENCE))

    def wait_for_server(self):
        def answers():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", self.port)) == 0
        wait_until("a server", answers)

    def fault(self):
        kind = self.chance.choice(["kill", "stop", "restart", "pause", "steal"])
        victim = self.chance.choice(self.bridges)
        seconds = self.chance.uniform(0.2, 6.0)
        if kind == "kill":
            victim.end(signal.SIGKILL)
        elif kind == "stop":  # longer than a lease or shorter: it wakes up believing that it holds its own
            victim.send(signal.SIGSTOP)
            time.sleep(seconds)
            victim.send(signal.SIGCONT)
        elif kind == "restart":
            self.server.end(self.chance.choice([signal.SIGKILL, signal.SIGTERM]))
            time.sleep(seconds / 3)
            self.server.start()
            self.wait_for_server()
        elif kind == "pause":
            self.server.send(signal.SIGSTOP)
            time.sleep(seconds)
            self.server.send(signal.SIGCONT)
        else:
            asyncio.run(self.steal())
        return f"{kind} {victim.name if kind in ('kill', 'stop') else ''} {seconds:.1f}".replace("  ", " ")

    async def steal(self):
        """Gives a lease to another bridge, which its holder doesn't know."""
        client = await nats.connect(self.url)
        bucket = await client.jetstream().key_value("TIVRA_LEASES")
        key = f"lease.{self.chance.randrange(PARTITIONS)}"
        entry = json.loads((await bucket.get(key)).value)
        await bucket.put(key, json.dumps({"holder": "", "epoch": entry["epoch"]}).encode())
        await client.close()

    def alive(self):
        return [bridge for bridge in self.bridges if bridge.child.poll() is None]

    async def judge(self, truth):
        client = await nats.connect(self.url)
        stream = client.jetstream()
        parts = []
        for number in range(PARTITIONS):
            part = Partition(number, PARTITIONS)
            name = f"TIVRA_TICK_{number}"
            last = (await stream.stream_info(name)).state.last_seq
            reader = await stream.subscribe(f"tivra.v1.tick.{number}", ordered_consumer=True)
            for _ in range(last):
                part.message((await reader.next_msg(timeout=DEADLINE)).data)
            await reader.unsubscribe()
            part.close_epoch()
            part.missing = part.against(truth)
            parts.append(part)
        for symbol in truth:
            part = next(p for p in parts if symbol in p.last_n or symbol in p.history)
            message = await stream.get_last_msg("TIVRA_LAST", f"tivra.v1.last.100.{symbol}")
            part.last_values(symbol, json.loads(message.data))
        await client.close()
        return parts

    async def settle(self):
        """Waits until every partition is written again, and says how long the longest pause of one was."""
        client = await nats.connect(self.url)
        stream = client.jetstream()
        began = time.monotonic()
        for number in range(PARTITIONS):
            name = f"TIVRA_TICK_{number}"
            before = (await stream.stream_info(name)).state.last_seq
            while (await stream.stream_info(name)).state.last_seq < before + 3:
                if time.monotonic() - began > DEADLINE:
                    raise TimeoutError(f"nobody writes partition {number}")
                await asyncio.sleep(0.02)
        await client.close()
        return time.monotonic() - began

    def sent(self):
        truth = defaultdict(list)
        for line in self.truth.log.read_text(errors="replace").splitlines():
            if line.startswith("{") and line.endswith("}"):
                record = json.loads(line)
                if record["type"] == "update" and SEQUENCE in record["fields"]:
                    truth[record["symbol"]].append(record["fields"][SEQUENCE])
        return truth

    def play(self):
        self.begin()
        faults, recovered = [], 0.0
        for _ in range(self.chance.choice([1, 1, 2])):
            time.sleep(self.chance.uniform(0.3, 1.5))
            if len(self.alive()) == 1:
                break
            faults.append(self.fault())
            recovered = max(recovered, asyncio.run(self.settle()))
        self.hub_stops()
        parts = asyncio.run(self.judge(self.sent()))
        return faults, recovered, parts

    def hub_stops(self):
        """What the bridges have is written, and they end while the hub is still there."""
        self.truth.end()
        for bridge in self.alive():
            bridge.end()

    def end(self):
        for process in self.processes:
            if process.child.poll() is None:
                process.end(signal.SIGKILL)


def main():
    programs, rounds = sys.argv[1], int(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    total, bad, slowest = Counter(), 0, 0.0
    for number in range(seed, seed + rounds):
        this = Round(programs, number)
        try:
            faults, recovered, parts = this.play()
            problems = [problem for part in parts for problem in part.problems]
        except Exception as error:  # whatever it is, the round has failed and the next one is played
            faults, recovered, parts, problems = [], 0.0, [], [f"{type(error).__name__}: {error}"]
        finally:
            this.end()
        causes = sum((Counter(part.causes) for part in parts), Counter())
        records, missing = sum(p.records for p in parts), sum(p.missing for p in parts)
        total.update(records=records, missing=missing, gaps=sum(causes.values()))
        total.update(fault.split()[0] for fault in faults)
        slowest = max(slowest, recovered)
        print(f"round {number}: {', '.join(faults) or 'none'}: written again after {recovered:.1f} s, {records} records, "
              f"{missing} missing, gaps {dict(causes)}: {'bad' if problems else 'good'}", flush=True)
        for problem in problems[:10]:
            print("    " + problem)
        if problems:
            bad += 1
            print(f"    its logs are in {this.folder}")
        else:
            shutil.rmtree(this.folder)
    print(f"{rounds} rounds, {bad} bad; slowest recovery {slowest:.1f} s; {dict(total)}")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
