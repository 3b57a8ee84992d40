"""A reader of what tivra-bridge publishes: the last values of some symbols, and then their updates as they come.
usage: last_and_ticks.py URL SECONDS SOURCE:SYMBOL...
"""
import asyncio
import json
import sys

import nats


def partition_of(name, partitions):
    value = 14695981039346656037
    for byte in name.encode():
        value = (value ^ byte) * 1099511628211 % 2**64
    return value % partitions


def subject_of(name):
    source, symbol = name.split(":", 1)
    plain = "".join(c if c.isascii() and (c.isalnum() or c in "_-") else "".join(f"={b:02X}" for b in c.encode())
                    for c in symbol)
    return f"tivra.v1.last.{source}.{plain}"


class Reader:
    def __init__(self, names, partitions):
        self.values = {name: {} for name in names}
        self.partitions = {name: partition_of(name, partitions) for name in names}
        self.places = {}  # of the last record that is in the values
        self.missing = set()  # symbols after a gap, until their next image
        self.updates = self.gaps = self.lost = 0

    def show(self, name, what=""):
        bid, ask, trade = (self.values[name].get(field, "-") for field in ("BID", "ASK", "TRADE.PRICE"))
        print(f"{name}{what}: bid {bid}, ask {ask}, last trade {trade}", flush=True)

    def last(self, name, message):
        self.values[name] = message["fields"]
        self.places[name] = (message["epoch"], message["n"])

    def batch(self, data):
        header, *records = map(json.loads, data.splitlines())
        for record in records:
            name = f"{record.get('source')}:{record.get('symbol')}"
            if record["type"] == "gap":
                self.gap(header["partition"], record)
            elif record["type"] != "state" and name in self.values:
                self.record(name, (header["epoch"], record["n"]), record)

    def gap(self, partition, record):
        self.gaps += 1
        symbol = record.get("symbol")
        print(f"gap of partition {partition} ({record['cause']}), {symbol or 'all its symbols'}: "
              f"from {record['from']} to {record['to']}", flush=True)
        self.missing |= {name for name, its in self.partitions.items()
                         if its == partition and symbol in (None, name.split(":", 1)[1])}

    def record(self, name, place, record):
        before = self.places.get(name, (0, 0))
        if place <= before:
            return  # it is in the last values already
        expected = before[1] + 1 if place[0] == before[0] else 1
        if name not in self.missing and place[1] > expected:
            self.lost += place[1] - expected
        self.places[name] = place
        self.values[name] = record["fields"] if record["type"] == "image" else {**self.values[name], **record["fields"]}
        self.updates += 1
        if record["type"] == "image" and name in self.missing:
            self.missing.remove(name)
            self.show(name, ", complete again")


async def main(url, seconds, names):
    client = await nats.connect(url)
    stream = client.jetstream()
    layout = json.loads((await (await stream.key_value("TIVRA_LEASES")).get("layout")).value)
    reader = Reader(names, layout["partitions"])

    early = []  # what comes before the last values
    async def take(message):
        early.append(message.data) if early is not None else reader.batch(message.data)

    # The stream is followed from now on, and then the last values are taken: nothing is between them.
    for partition in set(reader.partitions.values()):
        await stream.subscribe(f"tivra.v1.tick.{partition}", cb=take, ordered_consumer=True, deliver_policy="new")
    for name in names:
        reader.last(name, json.loads((await stream.get_last_msg("TIVRA_LAST", subject_of(name))).data))
        reader.show(name)
    waiting, early = early, None
    for data in waiting:
        reader.batch(data)
    await asyncio.sleep(seconds)
    await client.close()
    for name in names:
        reader.show(name)
    print(f"{reader.updates} updates, {reader.gaps} gaps, {reader.lost} updates missing without a gap")


if __name__ == "__main__":
    asyncio.run(main(sys.argv[1], float(sys.argv[2]), sys.argv[3:]))
