"""Plays a trading day from a hub in this process, and shows what a feed makes of it: usage: morning.py DAY.csv.gz"""

import asyncio
import sys

import pandas

import tivra
import tivra.sim

SYMBOLS = ["AIG", "BAC", "IBM", "SPY"]
EVENTS = 40_000


async def read(address: str) -> tuple[list[pandas.DataFrame], int]:
    """Frames of all that comes, and how many rows were lost."""
    frames, rows, lost = [], 0, 0
    async with tivra.Feed(address, user="demo", password="demo") as feed:
        sub = feed.subscribe(100, SYMBOLS, fields=["BID", "ASK", "TRADE.PRICE", "TRADE.SIZE"])
        async for batch in sub.batches(max_rows=10_000, max_wait=0.1):
            lost += sum(gap.messages or 0 for gap in batch.gaps)
            frame = batch.to_pandas()
            frames.append(frame[frame["kind"] == "update"])
            rows += len(frames[-1])
            if rows + lost >= EVENTS:
                return frames, lost
    return frames, lost


def main() -> int:
    with tivra.sim.Hub(playback=sys.argv[1], start_when=len(SYMBOLS), max_events=EVENTS) as hub:
        frames, lost = asyncio.run(asyncio.wait_for(read(hub.address), 60))
        sent = hub.stats()["playback_sent"]
    frame = pandas.concat(frames, ignore_index=True)
    print(f"\nThe last of {len(frame)} rows, from a hub at {hub.address}:\n")
    print(frame[["received", "symbol", "BID", "ASK", "TRADE.PRICE", "TRADE.SIZE"]].tail(8).to_string(index=False))
    trades = frame.dropna(subset=["TRADE.PRICE"])
    volume = trades["TRADE.SIZE"].groupby(trades["symbol"], observed=True).sum()
    value = (trades["TRADE.PRICE"] * trades["TRADE.SIZE"]).groupby(trades["symbol"], observed=True).sum()
    print("\nVolume-weighted average prices:\n")
    print(pandas.DataFrame({"VWAP": (value / volume).round(4), "shares": volume}).to_string())
    print(f"\nsent {sent}, received {len(frame)}, lost {sent - len(frame)}")
    return 0 if lost == 0 and sent == len(frame) else 1


if __name__ == "__main__":
    sys.exit(main())
