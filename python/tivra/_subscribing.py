"""What a feed and the bus have in common."""

from __future__ import annotations

import threading
import weakref
from collections.abc import Callable, Iterable
from typing import Any, Optional, Union

from . import _arguments, _core
from ._core import Event
from .board import Board
from .errors import InvalidArgument
from .subscription import POLICIES, Subscription

#: What is closed when the interpreter ends: each has a close().
open_sources: weakref.WeakSet[Any] = weakref.WeakSet()


class Subscribing:
    """Subscriptions, and a board, of whatever there is to subscribe."""

    def _begin_subscribing(self) -> None:
        self._lock = threading.Lock()
        self._board: Optional[Board] = None
        self._subscriptions: weakref.WeakSet[Subscription] = weakref.WeakSet()
        self._kept: set[Subscription] = set()  # those with callbacks, which nobody may hold otherwise

    def _end_subscriptions(self) -> None:
        for subscription in list(self._subscriptions):
            subscription._end()

    def _make_stream(self, fields: list[str], policy: int, max_rows: int, max_bytes: int,
                     *callbacks: Optional[Callable[[Event], object]]) -> _core.Stream:
        raise NotImplementedError

    def _make_board(self) -> Union[_core.Board, _core.BusBoard]:
        raise NotImplementedError

    def subscribe(self, source: int, symbols: Union[str, Iterable[str]], *, fields: Optional[Iterable[str]] = None,
                  max_rows: int = 100_000, max_bytes: int = 64 << 20, policy: str = "drop_oldest",
                  on_update: Optional[Callable[[Event], object]] = None,
                  on_state: Optional[Callable[[Event], object]] = None,
                  on_gap: Optional[Callable[[Event], object]] = None) -> Subscription:
        """The present state of symbols, and then their updates, until the Subscription is closed.

        :param source: the number of the source.
        :param symbols: one or many; more may follow by Subscription.add().
        :param fields: names of the fields that become columns; batches() needs them.
        :param max_rows: events or rows that may wait for the reader.
        :param max_bytes: memory that they may take, about.
        :param policy: what happens when there are more: "drop_oldest" (and a gap says how many), "block" (the hub is
            read no faster than this reader reads) or "latest" (updates of a symbol are merged).
        :param on_update: called with each update as an Event, on a thread of the library, in place of a reader. The
            feed keeps a subscription with callbacks until it is closed; any other ends when nobody has it any more.
        :param on_state: called with each change of state as an Event, on a thread of the library.
        :param on_gap: called with each gap as an Event, on a thread of the library.
        :raises tivra.InvalidArgument: for a symbol or source that can't be asked for.
        :raises tivra.UnknownField: for a field that no hub has.
        """
        names = _arguments.texts("symbols", symbols)
        stream = self._stream(fields, max_rows, max_bytes, policy, on_update, on_state, on_gap)
        stream.add(_arguments.integer("source", source), names)
        return self._enter(stream, source, on_update, on_state, on_gap)

    def _stream(self, fields: Optional[Iterable[str]], max_rows: int, max_bytes: int, policy: str,
                on_update: Optional[Callable[[Event], object]], on_state: Optional[Callable[[Event], object]],
                on_gap: Optional[Callable[[Event], object]]) -> _core.Stream:
        max_rows = _arguments.integer("max_rows", max_rows, 1, _arguments.INT64)
        max_bytes = _arguments.integer("max_bytes", max_bytes, 1, _arguments.INT64)
        for name, callback in (("on_update", on_update), ("on_state", on_state), ("on_gap", on_gap)):
            _arguments.function(name, callback)
        names = [] if fields is None else _arguments.texts("fields", fields)
        return self._make_stream(names, index(POLICIES, policy, "policy"), max_rows, max_bytes, on_update, on_state, on_gap)

    def _enter(self, stream: _core.Stream, source: int, on_update: Optional[Callable[[Event], object]],
               *others: Optional[Callable[[Event], object]]) -> Subscription:
        subscription = Subscription(stream, source, on_update is not None, self._kept.discard)
        self._subscriptions.add(subscription)
        if any(callback is not None for callback in (on_update, *others)):
            self._kept.add(subscription)
        return subscription

    @property
    def board(self) -> Board:
        """The last values of the symbols that are added to it: ``feed.board.add(100, "IBM")``, and then
        ``feed.board[100, "IBM"]["BID"]``."""
        with self._lock:
            if self._board is None:
                self._board = Board(self._make_board())
            return self._board


def instrument(source: Any, symbol: Any) -> tuple[int, str]:
    return _arguments.integer("source", source), _arguments.text("symbol", symbol)


def index(names: tuple[str, ...], name: str, what: str) -> int:
    if _arguments.text(what, name) not in names:
        raise InvalidArgument(f"there is no {what} {name!r}", code="InvalidArgument", advice=f"it is one of {', '.join(names)}")
    return names.index(name)
