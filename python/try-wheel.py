"""Reads from the simulator with the package that is installed: by await, by iteration, and as rows."""

import asyncio

import tivra
import tivra.sim


async def main(hub: tivra.sim.Hub) -> None:
    async with tivra.Feed(hub.address, user="demo", password="demo") as feed:
        snapshot = await feed.snapshot(100, "IBM", timeout=10)
        sub = feed.subscribe(100, "IBM", fields=["BID"])
        async for batch in sub.batches(max_rows=1, max_wait=10):
            rows = list(batch)
            if rows and rows[-1]["BID"] == 189.5:
                break
            if rows:
                hub.publish(100, "IBM", {"BID": 189.5})
        print(tivra.__version__, len(snapshot), "record,", rows[-1]["BID"])


with tivra.sim.Hub() as hub:
    asyncio.run(asyncio.wait_for(main(hub), 60))
