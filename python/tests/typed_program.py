"""A program that a type checker has to accept."""

import asyncio
from typing import Optional

import tivra
import tivra.sim


def plain(feed: tivra.Feed) -> Optional[float]:
    snap: tivra.Snapshot = feed.snapshot(100, "IBM").get(2)
    sub = feed.subscribe(100, ["IBM"], fields=["BID"], on_gap=lambda event: print(event.gap))
    for batch in sub.batches(max_rows=10):
        gaps: tuple[tivra.Gap, ...] = batch.gaps
        print(gaps, len(batch), sub.state("IBM") is tivra.DataState.LIVE)
    for event in feed.subscribe_wildcard(100, "I*"):
        if event.state is not None:
            print(event.state.after, event.kind.upper())
        bid: float = event["BID"]
        return bid
    row: tivra.BoardRow = feed.board[100, "IBM"]
    return row.age


async def main() -> None:
    with tivra.sim.Hub() as hub:
        async with tivra.Feed(hub.address, user="demo", password="demo", open_timeout=5, compression=False) as feed:
            snap = await feed.snapshot(100, "IBM", timeout=2)
            records: tuple[tivra.Record, ...] = snap.records
            async for batch in feed.subscribe(100, "IBM", fields=["BID"]).batches():
                print(batch.to_arrow(), records, feed.stats()["updates_total"])
            error: tivra.Error = tivra.Timeout("late", code="TimedOut")
            print(error.hub, hub.publish(100, "IBM", {"BID": 1.0}))


if __name__ == "__main__":
    asyncio.run(main())
