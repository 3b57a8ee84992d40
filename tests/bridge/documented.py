"""Whether the programs of docs/bridge.md show what it says, when a bridge publishes the morning.
usage: documented.py PROGRAMS     PROGRAMS is the build folder
"""
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

from rounds import Process, free_port, wait_until

ROOT = Path(__file__).resolve().parents[2]
BLOCKS = re.findall(r"^```python\n(.*?)^```$", (ROOT / "docs/bridge.md").read_text(), re.M | re.S)
PLACES = {"IBM": 12, "AIG": 5, "BRK.B": 11}  # that the page says


def block(text):
    return next(each for each in BLOCKS if text in each)


def written(folder, name, text, url):
    """A program of the page, for this server."""
    program = folder / name
    program.write_text(block(text).replace("nats://127.0.0.1:4222", url))
    return [sys.executable, "-u", program]


def commands(programs, folder, url):
    """What is started, and what it has to print in this order."""
    compiled = folder / "last_and_ticks"
    subprocess.run(["cc", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-o", compiled,
                    ROOT / "examples/bridge/last_and_ticks.c", "-lnats"], check=True)
    yield "C", [compiled, url, "100.IBM", 12], r'"symbol":"IBM",.*"fields".*\n(.*\n)*{"type":"update",.*"symbol":"IBM"'
    yield "nats-py", written(folder, "plain.py", "message.data.splitlines()", url), r"^{'QUERY.TAG'.*'BID'.*\n(.*\n)*{'type': 'update',.*'IBM'"
    yield "C++", ["stdbuf", "-oL", programs / "tests/bridge/documented_reader"], r"^(IBM|AIG) [0-9.]+$"


def tables(folder, url):
    """The same where batches are Arrow streams."""
    return written(folder, "tables.py", "import pyarrow\n", url), r"^\d+ \d+ \d+\n\[{'symbol': 'IBM', 'n': \d+, 'BID': [0-9.]+}"


def takers_of_signals(process):
    """Threads of a process, besides its first, that would run its handlers of signals."""
    for thread in Path(f"/proc/{process}/task").iterdir():
        blocked = int(re.search(r"SigBlk:\s*(\w+)", (thread / "status").read_text()).group(1), 16)
        if thread.name != str(process) and not blocked >> signal.SIGTERM - 1 & 1:
            yield (thread / "comm").read_text().strip()


def places():
    names = {}
    exec(block("def partition"), names)
    return {symbol: names["partition"](100, symbol, 16) for symbol in PLACES}


def main():
    programs = Path(sys.argv[1]).resolve()
    folder = Path(tempfile.mkdtemp(prefix="tivra-bridge-"))
    (folder / "symbols").write_text("AIG\nIBM\n")
    url = f"nats://127.0.0.1:{(port := free_port())}"
    running = []

    def run(name, *command):
        running.append(Process(folder, name, *command, TIVRA_BUS=url))
        return running[-1]

    def run_bridge(name, *options):
        bridge = run(name, programs / "bridge/tivra-bridge", "-H", hub.log.read_text().split("listening on ")[1].split()[0],
                     "--user", "demo", "-s", 100, "-f", folder / "symbols", "--to", url, "--partitions", 16, *options)
        wait_until("its partitions", lambda: bridge.says("partition 12: taken") and bridge.says("partition 5: taken"))
        return bridge

    bad = [] if places() == PLACES else ["the partitions of symbols"]

    def show(name, command, pattern):
        shown = run(name, *command)
        try:
            wait_until(name, lambda: re.search(pattern, shown.log.read_text(), re.M))
        except TimeoutError:
            bad.append(f"{name}:\n{shown.log.read_text()}")
        return shown

    try:
        hub = run("hub", programs / "tools/tivra-hub/tivra-hub", "--port", 0, "--playback",
                  ROOT / "data/sample-20131007.csv.gz", "--factor", 1, "--repeat", 100)
        server = run("server", shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin"), "-a", "127.0.0.1", "-p",
                     port, "-js", "-sd", folder / "js")
        wait_until("hub and server", lambda: hub.says("listening on ") and server.says("Server is ready"))
        bridge = run_bridge("bridge")
        for name, command, pattern in commands(programs, folder, url):
            shown = show(name, command, pattern)
        bad += [f"C++: the thread {thread} takes signals" for thread in takers_of_signals(shown.child.pid)]
        bridge.end()
        run_bridge("bridge of tables", "--payload", "arrow")
        show("pyarrow", *tables(folder, url))
    finally:
        for process in reversed(running):
            process.end()
    print(f"4 programs, {len(bad)} bad", *bad, sep="\n")
    if not bad:
        shutil.rmtree(folder)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
