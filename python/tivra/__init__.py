"""Client for a real-time market-data feed: asyncio, plain iteration, callbacks, and Arrow columns.

A feed asks for what is there and subscribes to what changes::

    import asyncio, tivra

    async def main():
        async with tivra.Feed("127.0.0.1:9100", user="demo", password=tivra.password_from_env()) as feed:
            snap = await feed.snapshot(100, "IBM", timeout=2)
            print(snap["BID"], snap.get("ASK"))
            sub = feed.subscribe(100, ["IBM", "SPY"], fields=["BID", "ASK", "TRADE.PRICE"])
            async for batch in sub.batches(max_rows=10_000, max_wait=0.1):
                for gap in batch.gaps:
                    print("missed", gap)
                print(batch.to_pandas())

    asyncio.run(main())

Without asyncio the same is ``with tivra.Feed(...) as feed``, ``feed.snapshot(...).get()`` and ``for batch in ...``.
``tivra.sim.Hub`` is a hub to try it against, and ``tivra.read_capture`` reads what was recorded.
"""

import atexit as _atexit

from . import _interpreter, bus
from ._connect import connect
from ._core import Event, Record
from ._core import version as _version
from .answer import Answer, Snapshot
from .batch import Batch
from .board import Board, BoardRow
from .captures import CaptureError, CaptureWarning, Recording, open_day, read_capture
from .dictionary import Dictionary
from .enumerations import Enumerations
from .errors import (Cancelled, Closed, ConfigError, ConnectionLost, Error, InCallback, InvalidArgument, LoginRefused,
                     OpenFailed, QueueFull, RequestRefused, Timeout, UnknownField, WrongType)
from .events import DataState, FeedState, FeedStateChange, HubState, HubStatus, StateChange
from .feed import Feed, close_all as _close_all, password_from_env, password_from_file
from .gap import Gap
from .replay import Replay
from .subscription import Batches, Subscription
from .writing import write_capture

_interpreter.check()

__version__ = _version()

__all__ = ["Answer", "Batch", "Batches", "Board", "BoardRow", "Cancelled", "CaptureError", "CaptureWarning", "Closed",
           "ConfigError", "ConnectionLost", "DataState", "Dictionary", "Enumerations", "Error", "Event", "Feed", "FeedState",
           "FeedStateChange", "Gap", "HubState", "HubStatus", "InCallback", "InvalidArgument", "LoginRefused", "OpenFailed",
           "QueueFull", "Record", "Recording", "Replay", "RequestRefused", "Snapshot", "StateChange", "Subscription",
           "Timeout", "UnknownField", "WrongType", "bus", "connect", "open_day", "password_from_env", "password_from_file", "read_capture",
           "write_capture"]

# Callbacks and the log end before the interpreter does.
_atexit.register(_close_all)
