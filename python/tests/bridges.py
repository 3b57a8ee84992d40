"""A NATS server with a bridge, for tests that read the bus."""

import os
import pathlib
import shutil
import socket
import subprocess

import pytest

from days import ROOT
from hubs import wait_until

BUILD = pathlib.Path(os.environ.get("BUILD", ROOT / "build" / "debug"))
BRIDGE = BUILD / "bridge" / "tivra-bridge"
SERVER = shutil.which("nats-server", path=os.environ.get("PATH", "") + ":/usr/sbin")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Bridge:
    """A server and a bridge that publishes symbols of a hub there, until the block ends."""

    def __init__(self, hub, folder, symbols=("IBM", "AIG", "SPY")):
        if SERVER is None or not BRIDGE.exists():
            pytest.skip(f"no nats-server, or no {BRIDGE}")
        self.hub, self.folder, self.port = hub, folder, free_port()
        self.url = f"nats://127.0.0.1:{self.port}"
        (folder / "symbols").write_text("".join(f"{symbol}\n" for symbol in symbols))
        self.children = []

    def __enter__(self):
        self.server = self.run("server", SERVER, "-a", "127.0.0.1", "-p", self.port, "-js", "-sd", self.folder / "js")
        wait_until(self.answers, "the server")
        self.bridge = self.run("bridge", BRIDGE, "-H", self.hub.address, "--user", "demo", "-s", 100, "-f",
                               self.folder / "symbols", "--to", self.url, "--partitions", 2)
        return self

    def __exit__(self, *_):
        for child in reversed(self.children):
            child.kill()
            child.wait()

    def run(self, name, *command):
        with open(self.folder / f"{name}.log", "ab") as log:
            child = subprocess.Popen([str(word) for word in command], stdout=log, stderr=log,
                                     stdin=subprocess.DEVNULL, env={**os.environ, "TIVRA_PASSWORD": "demo"})
        self.children.append(child)
        return child

    def answers(self):
        try:
            socket.create_connection(("127.0.0.1", self.port), 1).close()
            return True
        except OSError:
            return False
