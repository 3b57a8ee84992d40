"""Bridges onto a real Kafka broker, or onto three, in which something is killed, stopped or restarted; each round is judged
by stream_check, which gets what kcat reads.
usage: kafka_rounds.py PROGRAMS [FAULT...]     PROGRAMS is the build folder; without a fault all are played
"""
import json
import re
import signal
import subprocess
import sys
import time
from collections import Counter
from pathlib import Path

from payloads import records_of
from reader_rounds import Reader
from rounds import PARTITIONS, Round, free_port, report, wait_until
from stream_check import SEQUENCE, Partition

DAY = 25.0  # seconds that the hub plays
PATIENCE = 90.0
FAULTS = ("end", "kill", "stop", "restart")
CLUSTER_FAULTS = ("leader", "halt", "majority")
OUTAGE = 4.0  # seconds that brokers of a cluster are away, if they come back by themselves
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
        header, _ = records_of(data)
        this = (header["epoch"], header["batch"])
        if this <= last:
            counts["of an older epoch" if this[0] < last[0] else "doubled"] += 1
            continue
        last = this
        yield data


class KafkaRound(Round):
    def __init__(self, programs):
        super().__init__(programs, seed=1)
        self.plan, self.megabytes = [(DAY - 4.0, "", 0.0)], 64
        self.controller = free_port()
        self.servers = f"127.0.0.1:{self.port}"
        self.url, self.names = f"kafka://{self.servers}", ["one", "two"]

    def begin_engine(self):
        self.broker = self.run("broker", SCRIPT, "run", self.folder / "broker", self.port, self.controller)
        self.await_broker()

    def await_shares(self):
        wait_until("a share for each", lambda: all(len(self.held(bridge)) == 2 for bridge in self.bridges), PATIENCE)

    def await_broker(self):
        def answers():
            return subprocess.run(["kcat", "-b", self.servers, "-L", "-m", "2"], capture_output=True).returncode == 0
        wait_until("a broker", answers, PATIENCE)

    @staticmethod
    def held(bridge):
        """The partitions that a bridge writes, by its log."""
        held = set()
        for number, what in re.findall(r"partition (\d+): (taken|dropped)", bridge.log.read_text(errors="replace")):
            (held.add if what == "taken" else held.discard)(number)
        return held

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
            wait_until("a takeover", lambda: len(self.held(other)) == PARTITIONS, PATIENCE)
        taken = time.monotonic() - began
        victim.send(signal.SIGCONT)
        if kind == "stop":
            self.await_shares()
        return taken

    def judge(self, truth):
        counts, problems = Counter(), []
        for number in range(PARTITIONS):
            part = Partition(number, PARTITIONS)
            for data in accepted(messages(self.servers, "tivra.tick", number), counts):
                part.message(data)
            part.end_epoch(is_last=True)
            part.against(truth)
            counts.update(missing=part.missing, records=part.records)
            counts.update({f"gaps of {cause}": count for cause, count in part.causes.items()})
            last = self.last_values(number)
            for symbol in part.symbols:
                part.last_values(symbol, last[f"100:{symbol}"], truth[symbol])
            problems += part.problems
        return counts, problems

    def last_values(self, partition):
        return {key: json.loads(data) for _, key, data in messages(self.servers, "tivra.last", partition)}

    def settle(self):
        """Waits until last values are the hub's last. @return how long that took"""
        began = time.monotonic()
        while time.monotonic() < began + PATIENCE:
            last = {key: value for number in range(PARTITIONS) for key, value in self.last_values(number).items()}
            if all(last[f"100:{symbol}"]["fields"].get(SEQUENCE) == count for symbol, count in self.updates.items()):
                break
            time.sleep(0.2)
        return time.monotonic() - began

    def play(self, kind):
        self.begin()
        reader = Reader(self, "reader")
        wait_until("a reader", lambda: len(reader.values()) == len(self.symbols), PATIENCE)
        taken = self.fault(kind)
        whole = sum(self.updates.values())
        wait_until("the day's end", lambda: self.truth.log.read_bytes().count(b'"type":"update"') >= whole)
        alive = [bridge for bridge in self.bridges if bridge.child.poll() is None]
        wait_until("all partitions", lambda: sum(len(self.held(bridge)) for bridge in alive) == PARTITIONS, PATIENCE)
        wait_until("the reader's last values", lambda: reader.has_ended(self.updates), PATIENCE)
        recovered = self.settle()
        self.truth.end()
        for bridge in alive:
            bridge.end()
        counts, problems = self.judge(self.sent())
        return taken, recovered, counts, problems + self.judge_reader(reader, kind)

    @staticmethod
    def judge_reader(reader, kind):
        """What reads by tivra-cat meanwhile has each update once, or hears that it hasn't."""
        reader.process.end()
        problems, missing, has_updates = reader.order()
        if not has_updates:
            problems.append("the reader got no update")
        gaps = int(re.search(r"(\d+) gaps, ", reader.process.log.read_text(errors="replace"))[1])
        if gaps == 0 and (missing > 0 or kind in ("end", "kill", "stop")):
            problems.append(f"the reader misses {missing} updates, and heard of no gap")
        return problems


class ClusterRound(KafkaRound):
    """Three brokers have each batch, and acknowledge it when two of them do."""

    bridge_options = ["--replicas", 3]

    def __init__(self, programs):
        super().__init__(programs)
        self.ports = {node: (free_port(), free_port()) for node in (1, 2, 3)}
        self.servers = ",".join(f"127.0.0.1:{port}" for port, _ in self.ports.values())
        self.url = f"kafka://{self.servers}"

    def begin_engine(self):
        voters = ",".join(f"{node}@127.0.0.1:{controller}" for node, (_, controller) in self.ports.items())
        self.brokers = [self.run(f"broker{node}", SCRIPT, "run", self.folder / f"broker{node}", port, controller,
                                 f"node.id={node}", f"controller.quorum.voters={voters}", "min.insync.replicas=2")
                        for node, (port, controller) in self.ports.items()]
        self.await_broker()

    def await_broker(self):
        wait_until("three brokers", lambda: len(self.metadata().get("brokers", [])) == 3, PATIENCE)

    def metadata(self):
        shown = subprocess.run(["kcat", "-b", self.servers, "-L", "-J", "-m", "2"], capture_output=True).stdout
        return json.loads(shown or "{}")

    def leader(self):
        """@return of the first partition of batches; nothing while it has none"""
        for topic in self.metadata().get("topics", []):
            if topic["topic"] == "tivra.tick" and topic["partitions"][0]["leader"] > 0:
                return self.brokers[topic["partitions"][0]["leader"] - 1]
        return None

    def fault(self, kind):
        leader = self.leader()
        others = [broker for broker in self.brokers if broker is not leader]
        began = time.monotonic()
        if kind == "halt":  # for so long that another one leads
            leader.send(signal.SIGSTOP)
            wait_until("another leader", lambda: self.leader() not in (None, leader), PATIENCE)
            leader.send(signal.SIGCONT)
        else:
            lost = [leader] if kind == "leader" else [leader, others[0]]
            for broker in lost:
                broker.end(signal.SIGKILL)
            time.sleep(OUTAGE)
            for broker in lost:
                broker.start()
        self.await_broker()
        return time.monotonic() - began


def main():
    bad = 0
    for kind in sys.argv[2:] or FAULTS + CLUSTER_FAULTS:
        this = (ClusterRound if kind in CLUSTER_FAULTS else KafkaRound)(sys.argv[1])
        try:
            taken, recovered, counts, problems = this.play(kind)
        except Exception as error:  # whatever it is, the round has failed and the next one is played
            taken, recovered, counts, problems = 0.0, 0.0, {}, [f"{type(error).__name__}: {error}"]
        finally:
            this.end()
        bad += not report(this, f"{kind}: over after {taken:.1f} s, last values right {recovered:.1f} s after the day, "
                                f"{dict(counts)}", problems)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
