"""Bridges onto a real Kafka broker, in which something is killed, stopped or restarted; each round is judged by
stream_check, which gets what kcat reads.
usage: kafka_rounds.py PROGRAMS [FAULT...]     PROGRAMS is the build folder; without a fault all are played
"""
import json
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter, defaultdict
from pathlib import Path

from rounds import Process, free_port, wait_until
from stream_check import SEQUENCE, Partition

PARTITIONS, SYMBOLS = 4, 60
FAULTS = ("end", "kill", "stop", "restart")
SCRIPT = Path(__file__).resolve().parents[2] / "scripts/kafka-broker"


def messages(servers, topic, partition, *start):
    """Offset, key and bytes of each message that is there, in order."""
    command = ["kcat", "-b", servers, "-C", "-q", "-e", "-t", topic, "-p", str(partition), "-f", "%o %K %S\n%k%s"]
    rest = subprocess.run([*command, *start], capture_output=True, check=True, timeout=120).stdout
    while rest:
        line, rest = rest.split(b"\n", 1)
        offset, key, size = (max(int(word), 0) for word in line.split())
        yield offset, rest[:key].decode(), rest[key:key + size]
        rest = rest[key + size:]


def accepted(batches, counts):
    """What a reader makes of a partition: batches of an older epoch after a newer one, and those that came before in the
    same epoch, are left out."""
    last = (0, 0)
    for _, _, data in batches:
        header = json.loads(data.split(b"\n", 1)[0])
        this = (header["epoch"], header["batch"])
        if this <= last:
            counts["of an older epoch" if this[0] < last[0] else "doubled"] += 1
            continue
        last = this
        yield data


class Round:
    def __init__(self, programs):
        self.folder, self.programs = Path(tempfile.mkdtemp(prefix="tivra-kafka-")), Path(programs)
        self.processes, self.port, self.controller = [], free_port(), free_port()
        self.servers = f"127.0.0.1:{self.port}"

    def run(self, name, *command):
        process = Process(self.folder, name, *command)
        self.processes.append(process)
        return process

    def begin(self):
        self.broker = self.run("broker", SCRIPT, "run", self.folder / "broker", self.port, self.controller)
        self.await_broker()
        tools = self.programs / "tools"
        self.hub = self.run("hub", tools / "tivra-hub/tivra-hub", "--port", 0, "--load", f"{SYMBOLS}:100000",
                            "--factor", "0.005", "--start-when", SYMBOLS + 1)
        wait_until("a hub", lambda: self.hub.says("listening on "))
        self.address = self.hub.log.read_text().split("listening on ")[1].split()[0]
        self.symbols = self.folder / "symbols"
        self.symbols.write_text("".join(f"LOAD{number:06d}\n" for number in range(SYMBOLS)))
        self.bridges = [self.bridge(name) for name in ("one", "two")]
        wait_until("a share for each", lambda: all(len(self.held(bridge)) == 2 for bridge in self.bridges), 90)
        # The truth subscribes last and sets the load going.
        self.truth = self.run("truth", tools / "tivra-cat/tivra-cat", "-H", self.address, "--user", "demo", "-s", 100,
                              "-o", "json", "--no-summary", "subscribe", "-f", self.symbols)
        wait_until("updates", lambda: self.truth.says(SEQUENCE))

    def bridge(self, name):
        return self.run(name, self.programs / "bridge/tivra-bridge", "-H", self.address, "--user", "demo", "-s", 100,
                        "-f", self.symbols, "--to", f"kafka://{self.servers}", "--partitions", PARTITIONS, "--name", name)

    def await_broker(self):
        def answers():
            return subprocess.run(["kcat", "-b", self.servers, "-L", "-m", "2"], capture_output=True).returncode == 0
        wait_until("a broker", answers, 90)

    @staticmethod
    def held(bridge):
        """The partitions that a bridge writes, by its log."""
        held = set()
        for number, what in re.findall(r"partition (\d+): (taken|dropped)", bridge.log.read_text(errors="replace")):
            (held.add if what == "taken" else held.discard)(number)
        return held

    def offsets(self):
        ends = subprocess.run(["kcat", "-b", self.servers, "-Q"] + [word for p in range(PARTITIONS)
                              for word in ("-t", f"tivra.tick:{p}:-1")], capture_output=True, text=True, timeout=60)
        return [int(line.rsplit(" ", 1)[1]) for line in ends.stdout.splitlines() if "offset" in line]

    def settle(self):
        """Waits until every partition is written again."""
        before = self.offsets()
        wait_until("all partitions are written", lambda: all(
            now >= then + 3 for now, then in zip(self.offsets(), before)), 90)

    def fault(self, kind):
        victim, other = self.bridges
        began = time.monotonic()
        if kind == "end":
            victim.end()
        elif kind == "kill":
            victim.end(signal.SIGKILL)
        elif kind == "stop":  # longer than the broker waits: it wakes up and writes what it still has
            victim.send(signal.SIGSTOP)
        else:
            self.broker.end(signal.SIGKILL)
            self.broker.start()
            self.await_broker()
        if kind != "restart":
            wait_until("a takeover", lambda: len(self.held(other)) == PARTITIONS, 90)
        taken = time.monotonic() - began
        victim.send(signal.SIGCONT)
        self.settle()
        if kind == "stop":
            wait_until("a share for each", lambda: all(len(self.held(bridge)) == 2 for bridge in self.bridges), 90)
        return taken

    def sent(self):
        truth = defaultdict(list)
        for line in self.truth.log.read_text(errors="replace").splitlines():
            if line.startswith("{") and line.endswith("}"):
                record = json.loads(line)
                if record["type"] == "update" and SEQUENCE in record["fields"]:
                    truth[record["symbol"]].append(record["fields"][SEQUENCE])
        return truth

    def judge(self):
        truth, counts, problems = self.sent(), Counter(), []
        for number in range(PARTITIONS):
            part = Partition(number, PARTITIONS)
            for data in accepted(messages(self.servers, "tivra.tick", number), counts):
                part.message(data)
            part.close_epoch()
            counts["missing"] += part.against(truth)
            counts["records"] += part.records
            counts.update({f"gaps of {cause}": count for cause, count in part.causes.items()})
            last = {key: json.loads(data) for _, key, data in messages(self.servers, "tivra.last", number)}
            if not last.keys() >= {f"100:{symbol}" for symbol in part.last_n}:
                part.fail("symbols have no last values")
            for key, message in last.items():
                part.last_values(key.split(":", 1)[1], message)
            problems += part.problems
        return counts, problems

    def play(self, kind):
        self.begin()
        taken = self.fault(kind)
        self.truth.end()
        for bridge in self.bridges:
            if bridge.child.poll() is None:
                bridge.end()
        return taken, *self.judge()

    def end(self):
        for process in self.processes:
            if process.child.poll() is None:
                process.end(signal.SIGKILL)


def main():
    bad = 0
    for kind in sys.argv[2:] or FAULTS:
        this = Round(sys.argv[1])
        try:
            taken, counts, problems = this.play(kind)
        except Exception as error:  # whatever it is, the round has failed and the next one is played
            taken, counts, problems = 0.0, {}, [f"{type(error).__name__}: {error}"]
        finally:
            this.end()
        print(f"{kind}: over after {taken:.1f} s, {dict(counts)}: {'bad' if problems else 'good'}", flush=True)
        for problem in problems[:10]:
            print("    " + problem)
        if problems:
            bad += 1
            print(f"    its logs are in {this.folder}")
        else:
            shutil.rmtree(this.folder)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
