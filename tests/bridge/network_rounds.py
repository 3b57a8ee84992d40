"""Rounds of three bridges, three servers and a hub, each on a machine of its own (network.py), in which links are cut,
leaders and majorities of the servers are lost, disks are full and clocks are stepped; stream_check judges them.
usage: network_rounds.py PROGRAMS ROUNDS [SEED]     PROGRAMS is the build folder
"""
import asyncio
import os
import shutil
import signal
import socket
import sys
import time
from contextlib import suppress

import nats

from network import Network, call
from rounds import BRIDGES, PARTITIONS, Round, main, wait_until

SERVERS = 3
PORT, ROUTES = 4222, 6222
# Seconds that servers may take to agree again, while nobody can renew a lease.
ELECTION = 8.0
REPAIR = 20.0  # after their disks were full
DISK = 64  # megabytes of each server
FAKETIME = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1"
STEPS = ["+3600s", "-3600s", "+2s", "-86400s", "+86400s"]


class NetworkRound(Round):
    faults = ["leader", "majority", "halt", "cut-engine", "cut-hub", "cut-servers", "deaf", "disk", "disks", "step"]
    settle_within = 30.0  # the servers elect leaders first
    bridge_options = ["--replicas", SERVERS, "--max-megabytes", 8]

    def __init__(self, programs, seed):
        super().__init__(programs, seed)
        if any(kind == "step" for _, kind, _ in self.plan):  # every record's time would be wrong after another fault
            self.plan = [(pause, "step", duration) for pause, _, duration in self.plan]
        self.network = Network()
        self.server_names = [f"server{i}" for i in range(SERVERS)]
        for name in ["hub", *self.server_names, *self.names]:
            self.network.add(name)
        self.hub_place = self.network.place("hub")
        self.hub_options = ["--bind", self.network.addresses["hub"]]
        self.url = ",".join(f"nats://{self.network.addresses[name]}:{PORT}" for name in self.server_names)

    def run_bridge(self, name, *command):
        clock = self.clock(name)
        clock.write_text("+0s\n")
        return self.run(name, *self.network.place(name), *command, LD_PRELOAD=FAKETIME, FAKETIME_TIMESTAMP_FILE=str(clock),
                        FAKETIME_CACHE_DURATION="1", FAKETIME_DONT_FAKE_MONOTONIC="1")

    def clock(self, name):
        return self.folder / f"{name}.clock"

    def disk(self, name):
        return self.folder / f"{name}.disk"

    def begin_engine(self):
        program = shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin")
        routes = ", ".join(f"nats://{self.network.addresses[name]}:{ROUTES}" for name in self.server_names)
        self.servers = {}
        for name in self.server_names:
            self.disk(name).mkdir()
            call("mount", "-t", "tmpfs", "-o", f"size={DISK}m", "none", self.disk(name))
            address = self.network.addresses[name]
            config = self.folder / f"{name}.conf"
            config.write_text(f"server_name: {name}\nlisten: {address}:{PORT}\n"
                              f"jetstream {{store_dir: {self.disk(name)}, max_file: {DISK}MB}}\n"
                              f"cluster {{name: test, listen: {address}:{ROUTES}, routes: [{routes}]}}\n")
            self.servers[name] = self.run(name, *self.network.place(name), program, "-c", config)
        for name in self.server_names:
            self.wait_for(name)
        wait_until("a leader of the servers", lambda: any(
            "JetStream cluster new metadata leader" in server.log.read_text() for server in self.servers.values()))

    def wait_for(self, name):
        def answers():
            with socket.socket() as probe:
                return probe.connect_ex((self.network.addresses[name], PORT)) == 0
        wait_until(name, answers)

    async def leader_of(self, partition):
        """@return of the partition's stream; another server while there is none"""
        client = await self.connect()
        leader = None
        with suppress(nats.js.errors.Error, nats.errors.Error):
            leader = (await client.jetstream().stream_info(f"TIVRA_TICK_{partition}")).cluster.leader
        await client.close()
        return leader or self.server_names[0]

    def engine_is_lost(self):
        return any("has NO quorum, stalled" in server.log.read_text(errors="replace") for server in self.servers.values())

    def fault(self, kind, duration):
        victim = self.chance.choice(self.alive()).name
        leader = asyncio.run(self.leader_of(self.chance.randrange(PARTITIONS)))
        others = [name for name in self.server_names if name != leader]
        began = time.time()
        self.make(kind, duration, victim, leader, others)
        if kind in ("cut-engine", "cut-hub", "deaf"):
            self.away[victim].append((began, time.time()))
        elif kind != "step":
            for name in self.names:
                self.away[name].append((began, time.time() + (REPAIR if kind.startswith("disk") else ELECTION)))
        return f"{kind} {victim if kind in ('cut-engine', 'cut-hub', 'deaf', 'step') else leader} {duration:.1f}"

    def make(self, kind, duration, victim, leader, others):
        if kind == "leader":
            self.kill_for(duration, [leader])
        elif kind == "majority":
            self.kill_for(duration, [leader, others[0]])
        elif kind == "halt":
            self.servers[leader].send(signal.SIGSTOP)
            time.sleep(duration)
            self.servers[leader].send(signal.SIGCONT)
        elif kind == "step":
            self.clock(victim).write_text(self.chance.choice(STEPS) + "\n")
            time.sleep(duration)
        elif kind.startswith("disk"):
            self.fill_for(duration, [leader] if kind == "disk" else self.server_names)
        else:
            self.cut_for(kind, duration, victim, leader, others)

    def kill_for(self, duration, names):
        for name in names:
            self.servers[name].end(signal.SIGKILL)
        time.sleep(duration)
        for name in names:
            self.servers[name].start()
        for name in names:
            self.wait_for(name)

    def fill_for(self, duration, names):
        """Nothing more can be stored; then there is room again, and the servers are started anew as somebody would."""
        for name in names:
            with open(self.disk(name) / "ballast", "wb", buffering=0) as ballast, suppress(OSError):
                while True:
                    ballast.write(bytes(4096))
        time.sleep(duration)
        for name in names:
            (self.disk(name) / "ballast").unlink()
            self.servers[name].end(signal.SIGKILL)  # a server with a full disk may not end by itself
            self.servers[name].start()
            self.wait_for(name)

    def cut_for(self, kind, duration, victim, leader, others):
        if kind == "cut-hub":
            self.network.cut(victim, "hub")
        elif kind == "cut-servers":
            for other in others:
                self.network.cut(leader, other)
        else:  # a deaf bridge is heard by the servers and doesn't hear them
            for server in self.server_names:
                self.network.cut(*((server, victim) if kind == "deaf" else (victim, server)), kind != "deaf")
        time.sleep(duration)
        self.network.heal()

    def end(self):
        super().end()
        for name in self.server_names:
            call("umount", self.disk(name))
        self.network.remove()


if __name__ == "__main__":
    sys.exit(main(NetworkRound))
