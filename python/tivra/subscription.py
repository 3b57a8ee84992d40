"""Subscriptions, and their readers."""

from __future__ import annotations

import asyncio
import datetime
import time
from collections.abc import AsyncIterator, Callable, Iterable, Iterator
from types import TracebackType
from typing import Optional, Union

from . import _arguments, _core
from ._core import Event
from ._loop import Readiness, notified
from .batch import Batch
from .errors import Error, InvalidArgument
from .events import DATA_STATES, DataState

#: What a full queue does, in the order of the library's numbers.
POLICIES = ("block", "drop_oldest", "latest")

_EVENTS_AT_ONCE = 256


class Subscription:
    """Standing requests for symbols, and the reader of what comes for them.

    Read it in one of these ways:

    - ``for event in sub``, or ``async for``: each update, change of state and gap as an object;
    - ``for batch in sub.batches()``, or ``async for``: rows of the fields that were named, as Arrow columns;
    - callbacks, given to Feed.subscribe.

    Losses and failovers need nothing from the application: there is a gap, and then a new image.
    """

    def __init__(self, native: _core.Stream, source: int, has_callback: bool,
                 release: Callable[[Subscription], None]) -> None:
        self._native = native
        self._source = source
        self._has_callback = has_callback
        self._release = release
        self._readiness: Optional[Readiness] = None  # of the loop that has read last
        self._events: list[Event] = []  # taken and not handed out yet, the next one last
        self._is_closed = False
        self._reads_rows = False
        self._reads_events = False

    # --- symbols ---

    def add(self, symbols: Union[str, Iterable[str]], source: Optional[int] = None) -> int:
        """Subscribes more symbols; those that are subscribed already are left as they are.

        :return: how many are new.
        """
        return int(self._native.add(self._source_of(source), _arguments.texts("symbols", symbols)))

    def remove(self, symbols: Union[str, Iterable[str]], source: Optional[int] = None) -> int:
        """Ends the subscriptions of these symbols; others are passed over.

        :return: how many have ended.
        """
        return int(self._native.remove(self._source_of(source), _arguments.texts("symbols", symbols)))

    @property
    def symbols(self) -> list[tuple[int, str]]:
        """What is subscribed: (source, symbol), in no particular order."""
        return list(self._native.instruments())

    def state(self, symbol: str, source: Optional[int] = None) -> DataState:
        """How far what comes for a symbol can be relied on; CLOSED for one that isn't subscribed here."""
        number = self._native.state(self._source_of(source), _arguments.text("symbol", symbol))
        return DataState.CLOSED if number is None else DATA_STATES[number]

    def error(self, symbol: str, source: Optional[int] = None) -> Optional[Error]:
        """Why the hub has refused a symbol; None in any other case."""
        found: Optional[Error] = self._native.error(self._source_of(source), _arguments.text("symbol", symbol))
        return found

    def age(self, symbol: str, source: Optional[int] = None) -> Optional[float]:
        """Seconds since the last update of a symbol; None before the first."""
        last = self._native.last_update(self._source_of(source), _arguments.text("symbol", symbol))
        if last is None:
            return None
        return max(0.0, (datetime.datetime.now(datetime.timezone.utc) - last).total_seconds())

    def _source_of(self, source: Optional[int]) -> int:
        return self._source if source is None else _arguments.integer("source", source)

    def stats(self) -> dict[str, int]:
        """What has been counted: subscriptions in each state; updates and gaps in all; events or rows that wait for
        this reader, and those that were dropped or merged because it was slow."""
        return dict(self._native.statistics())

    # --- the end ---

    def close(self) -> None:
        """Ends all subscriptions. What has come before can still be read; then iteration ends."""
        self._is_closed = True
        self._native.close()
        self._release(self)
        self._wake()

    def _end(self) -> None:
        """The feed has been closed."""
        self._is_closed = True
        self._native.end()
        self._release(self)
        self._wake()

    def _wake(self) -> None:
        if self._readiness is not None:
            self._readiness.end()

    def __del__(self) -> None:
        # The loop must not keep the descriptor of what is no more.
        self._wake()

    def __enter__(self) -> Subscription:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()

    async def __aenter__(self) -> Subscription:
        return self

    async def __aexit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                        traceback: Optional[TracebackType]) -> None:
        self.close()

    # --- reading ---

    def batches(self, max_rows: int = 10_000, max_wait: float = 0.1) -> Batches:
        """Rows of the fields that subscribe() was given, in batches: an iterator for ``for`` and ``async for``.

        A batch comes as soon as ``max_rows`` rows wait, or ``max_wait`` seconds after the first of them. With a gap or
        a refusal it comes at once, perhaps without rows. Cancelling loses nothing: the next batch has the rows.

        :param max_rows: rows of a batch at most; no more than a quarter of what may wait in all.
        :param max_wait: seconds; 0 for what is there at once.
        """
        max_rows = _arguments.integer("max_rows", max_rows, 1, _arguments.INT64)
        max_wait = _arguments.seconds("max_wait", max_wait)
        self._check_reader()
        if self._reads_events:
            raise InvalidArgument("events of this subscription have been read", code="InvalidArgument",
                                  advice="use one of the two ways, or subscribe twice")
        self._reads_rows = True
        return Batches(self, self._native, max_rows, max_wait)

    def _check_reader(self) -> None:
        if self._has_callback:
            raise InvalidArgument("on_update takes the updates of this subscription", code="InvalidArgument",
                                  advice="read it, or give on_update to subscribe(), not both")

    def _begin_events(self) -> None:
        self._check_reader()
        if self._reads_rows:
            raise InvalidArgument("this subscription is read by batches()", code="InvalidArgument",
                                  advice="use one of the two ways, or subscribe twice")

    def _next_event(self) -> Optional[Event]:
        if not self._events:
            self._begin_events()
            self._reads_events = True
            self._events = self._native.take_events(_EVENTS_AT_ONCE)
            self._events.reverse()
        return self._events.pop() if self._events else None

    def __iter__(self) -> Iterator[Event]:
        self._begin_events()
        return self

    def __next__(self) -> Event:
        while True:
            event = self._next_event()
            if event is not None:
                return event
            if self._native.finished():
                raise StopIteration
            self._native.wait_events(None)

    def __aiter__(self) -> AsyncIterator[Event]:
        self._begin_events()
        return self

    async def __anext__(self) -> Event:
        if not self._events:
            # Others have their turn, however much there is to read.
            await asyncio.sleep(0)
        while True:
            event = self._next_event()
            if event is not None:
                return event
            if self._native.finished():
                raise StopAsyncIteration
            await self._wait_async(None)

    async def _wait_async(self, timeout: Optional[float]) -> bool:
        loop = asyncio.get_running_loop()
        if self._readiness is None or not self._readiness.is_of(loop):
            if self._readiness is not None and self._readiness.is_in_use():
                raise InvalidArgument("another event loop reads this subscription", code="InvalidArgument",
                                      advice="read it in one loop")
            self._wake()
            self._readiness = Readiness(loop, self._native.descriptor())
        return await self._readiness.wait(timeout)

    def __repr__(self) -> str:
        stats = self.stats()
        closed = ", closed" if self._is_closed else ""
        return f"<tivra.Subscription of {stats['subscriptions']} symbols, {stats['live']} live{closed}>"


class Batches:
    """The batches of a subscription, for ``for`` and ``async for``; one reader at a time."""

    def __init__(self, owner: Subscription, native: _core.Stream, max_rows: int, max_wait: float) -> None:
        self._owner = owner
        self._native = native
        self._max_wait = max_wait
        self._max_rows = native.begin_rows(max_rows)
        self._is_direct = native.is_direct()
        self._deadline: Optional[float] = None  # of the batch whose rows wait, whoever waits for it

    def __iter__(self) -> Batches:
        return self

    def __next__(self) -> Batch:
        native = self._native
        rows = native.gather()
        while rows is None:
            if native.finished():
                raise StopIteration
            native.wait_rows(1, None)
            rows = native.gather()
        while self._wants_more(rows):
            left = self._left()
            if left <= 0 or not native.wait_rows(self._max_rows, left):
                break
            rows = native.gather() or 0
        return self._take()

    def __aiter__(self) -> Batches:
        return self

    async def __anext__(self) -> Batch:
        native = self._native
        # Others have their turn, however much there is to read.
        await asyncio.sleep(0)
        rows = native.gather()
        while rows is None:
            if native.finished():
                raise StopAsyncIteration
            await self._wait(1, None)
            rows = native.gather()
        while self._wants_more(rows):
            left = self._left()
            if left <= 0 or not await self._wait(self._max_rows, left):
                break
            rows = native.gather() or 0
        # From here on nothing is awaited, so that what is taken gets to the reader.
        return self._take()

    def _wants_more(self, rows: int) -> bool:
        return 0 < rows < self._max_rows and self._max_wait > 0 and not self._owner._is_closed

    def _left(self) -> float:
        now = time.monotonic()
        if self._deadline is None:
            self._deadline = now + self._max_wait
        return self._deadline - now

    def _take(self) -> Batch:
        self._deadline = None
        return Batch(*self._native.take_rows())

    async def _wait(self, rows: int, timeout: Optional[float]) -> bool:
        if not self._is_direct:
            return await self._owner._wait_async(timeout)
        return await notified(lambda notifier, token: self._native.notify(rows, notifier, token), timeout)
