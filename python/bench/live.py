"""What live updates cost in Python, beside a C++ handler in the same run.

usage: live.py HANDLER [--runs N]     HANDLER is the program of handler.cpp

A hub in another process plays the sample day. Rates are updates for each second of processor time that the whole client
process takes, all threads together; the ratio is to the C++ handler's. Latency is from the read of the socket to the
coroutine, at 10,000 updates a second, in batches of what is there.

The row of nats-py needs that package, and nats-server on the path (`scripts/install-packages nats`).
"""

import argparse
import asyncio
import contextlib
import json
import pathlib
import socket
import statistics
import subprocess
import sys
import threading
import time

import tivra
import tivra.sim

SAMPLE = pathlib.Path(__file__).resolve().parents[2] / "data" / "sample-20131007.csv.gz"
SYMBOLS = ["AIG", "BAC", "IBM", "SPY"]
FIELDS = ["BID", "ASK", "TRADE.PRICE"]
REPEAT = 25
EVENTS = 40_000 * REPEAT
_HUB = f"""
import sys, tivra.sim
hub = tivra.sim.Hub(playback=sys.argv[1], start_when={len(SYMBOLS)}, repeat=int(sys.argv[2]), factor=float(sys.argv[3])).start()
print(hub.address, flush=True)
sys.stdin.read()
"""


@contextlib.contextmanager
def hub_beside(repeat=REPEAT, factor=0.0):
    command = [sys.executable, "-c", _HUB, str(SAMPLE), str(repeat), str(factor)]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as process:
        try:
            yield process.stdout.readline().strip()
        finally:
            process.stdin.close()


def handler(program):
    with hub_beside() as address:
        done = subprocess.run([program, address, str(EVENTS), *SYMBOLS], capture_output=True, text=True, check=True)
    count, seconds, _ = done.stdout.split()
    return float(count) / float(seconds)


def in_process(read, **how):
    """The rate of a reader: read(feed, sub) returns how many updates it has had."""
    with hub_beside() as address, tivra.Feed(address, user="demo", password="demo", compression=False, queue_size=512) as feed:
        before = time.process_time()
        sub = feed.subscribe(100, SYMBOLS, policy=how.pop("policy", "drop_oldest"), max_rows=2_000_000, max_bytes=1 << 30, **how)
        count = read(sub)
        return count / (time.process_time() - before)


def batches(sub):
    count = 0
    for batch in sub.batches(max_rows=10_000):
        assert not batch.gaps, batch.gaps
        count += len(batch)
        if count >= EVENTS:
            return count


def batches_async(sub):
    async def read():
        count = 0
        async for batch in sub.batches(max_rows=10_000):
            count += len(batch)
            if count >= EVENTS:
                return count

    return asyncio.run(read())


def events(sub):
    count = 0
    for event in sub:
        if event.kind == "update":
            count += 1
            if count >= EVENTS:
                return count


def callbacks():
    done = threading.Event()
    count = 0

    def on_update(event):
        nonlocal count
        count += 1
        if count >= EVENTS:
            done.set()

    def read(sub):
        done.wait()
        return count

    return in_process(read, on_update=on_update)


_PUBLISHER = """
import asyncio, csv, gzip, json, sys, nats
async def main():
    bus = await nats.connect(sys.argv[1])
    with gzip.open(sys.argv[2], "rt") as file:
        rows = [row for row in csv.DictReader(file) if row["kind"] == "Q"][:20_000]
    bodies = [json.dumps({"symbol": row["symbol"], "BID": float(row["bid"] or 0), "BID.SIZE": int(row["bid_size"] or 0),
                          "ASK": float(row["ask"] or 0), "ASK.SIZE": int(row["ask_size"] or 0)}).encode() for row in rows]
    sys.stdin.readline()
    for number in range(int(sys.argv[3])):
        await bus.publish("ticks", bodies[number % len(bodies)])
        if number % 1000 == 999:
            await bus.flush(60)
    await bus.flush(60)
asyncio.run(main())
"""
_NATS_EVENTS = 200_000


def nats_client():
    """The rate of a subscriber of nats-py that decodes quotes from JSON; 0 where it isn't installed."""
    try:
        import nats
    except ImportError:
        return 0.0

    async def read(address, process):
        bus = await nats.connect(address)
        sub = await bus.subscribe("ticks", pending_msgs_limit=_NATS_EVENTS, pending_bytes_limit=1 << 30)
        await bus.flush(60)
        process.stdin.write("go\n")
        process.stdin.flush()
        before = time.process_time()
        for _ in range(_NATS_EVENTS):
            json.loads((await sub.next_msg(60)).data)
        seconds = time.process_time() - before
        await bus.close()
        return _NATS_EVENTS / seconds

    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    address = f"nats://127.0.0.1:{port}"
    with subprocess.Popen(["nats-server", "-a", "127.0.0.1", "-p", str(port)], stderr=subprocess.PIPE, text=True) as server:
        try:
            for line in server.stderr:
                if "Server is ready" in line:
                    break
            command = [sys.executable, "-c", _PUBLISHER, address, str(SAMPLE), str(_NATS_EVENTS)]
            with subprocess.Popen(command, stdin=subprocess.PIPE, text=True) as process:
                return asyncio.run(read(address, process))
        finally:
            server.terminate()


def latency():
    """Microseconds from the socket to the coroutine: (p50, p99)."""
    seen = []

    async def read(address):
        async with tivra.Feed(address, user="demo", password="demo", compression=False, queue_size=512) as feed:
            async for event in feed.subscribe(100, SYMBOLS):
                if event.kind == "update":
                    seen.append((time.time_ns() - event.received) / 1e3)
                    if len(seen) == 30_000:
                        return

    # The first minute of the day has 4,749 events.
    with hub_beside(repeat=1, factor=10_000 * 60 / 4749) as address:
        asyncio.run(read(address))
    seen.sort()
    return seen[len(seen) // 2], seen[len(seen) * 99 // 100]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("handler")
    parser.add_argument("--runs", type=int, default=3)
    arguments = parser.parse_args()
    rows = {
        "C++ handler": lambda: handler(arguments.handler),
        "batches": lambda: in_process(batches, fields=FIELDS),
        "batches, asyncio": lambda: in_process(batches_async, fields=FIELDS),
        "batches, policy block": lambda: in_process(batches, fields=FIELDS, policy="block"),
        "events": lambda: in_process(events),
        "callbacks": callbacks,
        "nats-py, JSON": nats_client,
    }
    rates = {name: [] for name in rows}
    for _ in range(arguments.runs):
        for name, measure in rows.items():
            rates[name].append(measure())
    base = statistics.median(rates["C++ handler"])
    print(f"{'':24}{'updates/cpu-s':>14}{'ratio':>8}{'noise':>8}")
    for name, values in rates.items():
        middle = statistics.median(values)
        if middle == 0:
            print(f"{name}: not installed, left out")
            continue
        print(f"{name:24}{middle:14,.0f}{middle / base:8.2f}{(max(values) - min(values)) / middle:8.0%}")
    times = [latency() for _ in range(arguments.runs)]
    print(f"asyncio, event by event, 10,000/s: p50 {statistics.median(t[0] for t in times):.0f} us, "
          f"p99 {statistics.median(t[1] for t in times):.0f} us")


if __name__ == "__main__":
    main()
