"""Requests and their answers."""

from __future__ import annotations

from collections.abc import Generator, Iterator
from typing import Any, Generic, Optional, TypeVar

from . import _arguments
from ._core import Record
from ._loop import notified
from .errors import Error, Timeout

T = TypeVar("T")


class Snapshot:
    """The whole answer to a request: as many records as the hub has sent, in its order.

    The snapshot of one symbol has one record as a rule, an order book one for each line, a pattern one for each
    symbol, a list one for each entry. ``snap["BID"]`` is the value in the first record that has the field.
    """

    def __init__(self, records: tuple[Record, ...], failures: tuple[Error, ...]) -> None:
        #: all records, each with ``source``, ``symbol`` and its fields
        self.records = records
        #: the errors of hubs that have failed while others answered; where all fail the answer raises
        self.failures = failures

    @property
    def complete(self) -> bool:
        """Whether all hubs that were asked have given what they have."""
        return not self.failures

    def get(self, name: str, default: Any = None) -> Any:
        """The value of a field in the first record that has it, or the default."""
        for record in self.records:
            if name in record:
                return record[name]
        return default

    def __getitem__(self, name: str) -> Any:
        for record in self.records:
            if name in record:
                return record[name]
        raise KeyError(name)

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and any(name in record for record in self.records)

    def __iter__(self) -> Iterator[Record]:
        return iter(self.records)

    def __len__(self) -> int:
        return len(self.records)

    def __repr__(self) -> str:
        failures = f", {len(self.failures)} hubs failed" if self.failures else ""
        return f"<tivra.Snapshot of {len(self.records)} records{failures}>"


class Answer(Generic[T]):
    """An answer that is still to come: ``await`` it in a coroutine, or ``get()`` it anywhere else, once.

    One that isn't asked for gives the request up when it goes.
    """

    def __init__(self, native: Any, make: Any, timeout: Optional[float], what: str) -> None:
        self._native = native
        self._make = make
        self._timeout = timeout
        self._what = what

    def get(self, timeout: Optional[float] = None) -> T:
        """Waits for the answer and returns it. Ctrl-C interrupts.

        :param timeout: seconds, in place of those of the call.
        :raises tivra.Timeout: when they have passed; the request has been given up.
        """
        seconds = self._timeout if timeout is None else _arguments.seconds("timeout", timeout)
        if not self._native.wait(seconds):
            self._give_up(seconds)
        return self._take()

    def __await__(self) -> Generator[Any, None, T]:
        return self._wait().__await__()

    async def _wait(self) -> T:
        if not await notified(self._native.notify, self._timeout):
            self._give_up(self._timeout)
        return self._take()

    def done(self) -> bool:
        """Whether the answer, or its failure, is there."""
        return bool(self._native.ready())

    def cancel(self) -> None:
        """Gives the request up; whoever waits for it gets tivra.Cancelled."""
        self._native.cancel()

    def _take(self) -> T:
        made: T = self._make(self._native.take())
        return made

    def _give_up(self, seconds: Optional[float]) -> None:
        self._native.cancel()
        raise Timeout(f"no answer to {self._what} within {seconds:g} seconds", code="TimedOut", phase="Answer",
                      advice="give it more time, or look whether the hub is well", retry=True)


def make_snapshot(answer: tuple[tuple[Record, ...], tuple[Error, ...]]) -> Snapshot:
    return Snapshot(*answer)
