"""What bridges have published on NATS or Kafka, read as a feed is read.

``tivra.bus.connect("nats://a,b,c")`` gives an object with the subscriptions, batches, last values, states and gaps of
tivra.Feed, so that a program moves from a hub to the bus by its URL alone: see tivra.connect().
"""

from __future__ import annotations

import os
from collections.abc import Callable, Iterable
from types import TracebackType
from typing import Any, Optional, Union

from . import _arguments, _core, _engines
from ._core import Event
from ._loop import notified
from ._subscribing import Subscribing, instrument, open_sources
from ._thread import finished
from .answer import Answer, Snapshot, make_snapshot
from .errors import Closed, Error
from .events import FEED_STATES, FeedState, FeedStateChange
from .feed import state_caller

__all__ = ["Bus", "Problem", "SCHEMES", "connect"]

#: How URLs of the bus begin.
SCHEMES = ("nats://", "tls://", "kafka://")

#: What a Problem may be about, in the order of the library's numbers.
_KINDS = ("engine", "batch", "last_values", "callback")


class Problem(Error):
    """Something that was met on the bus, and that reading goes on from. What is missing because of it is a gap too.

    Attributes:
        kind: "engine" (it is lost, refuses something or doesn't answer), "batch" (a message that can't be read),
            "last_values" (the same of last values), or "callback" (one of the program has raised).
        partition: of a batch, else -1.
        position: of the message in its stream, from 1; 0 where there is none.
    """

    def __init__(self, cause: str, **details: Any) -> None:
        self.kind = str(details.pop("kind", "engine"))
        self.partition = int(details.pop("partition", -1))
        self.position = int(details.pop("position", 0))
        super().__init__(cause, **details)


class Bus(Subscribing):
    """A connection to the engine that bridges publish on. It is opened, closed and read as a tivra.Feed is.

    What the bus doesn't have are patterns, order books, lists and enumerations; a symbol that no bridge publishes stays
    pending. The causes of gaps are more than those of a feed: see tivra.Gap.

    :param url: "nats://HOST[:PORT],...", "tls://HOST[:PORT],..." or "kafka://HOST[:PORT],...".
    :param name: under which the engine lists the connection.
    :param credentials_file: of a user of the engine; with Kafka a file of its client library's properties.
    :param ca_file: certificates that the engine's is checked with; turns TLS on.
    :param certificate_file: of this program, with ``key_file``.
    :param answer_timeout: seconds that an answer of the engine may take, from 0.1.
    :param look_back: seconds of the stream that are read again to join it where last values end, to 3600; more than what
        bridges were given as ``--last-every``.
    :param request_timeout: seconds that snapshot() waits unless told otherwise.
    :param on_state: called with a FeedStateChange, on a thread of the library.
    :param on_error: called with a Problem, on a thread of the library.
    :raises tivra.ConfigError: from open(), for what can't be meant.
    :raises ImportError: where the engines' client libraries aren't there, with what to install.
    """

    def __init__(self, url: str, *, name: str = "tivra-python", credentials_file: Union[str, os.PathLike[str]] = "",
                 ca_file: Union[str, os.PathLike[str]] = "", certificate_file: Union[str, os.PathLike[str]] = "",
                 key_file: Union[str, os.PathLike[str]] = "", answer_timeout: float = 2.0, look_back: float = 1.0,
                 request_timeout: float = 10.0, on_state: Optional[Callable[[FeedStateChange], object]] = None,
                 on_error: Optional[Callable[[Error], object]] = None) -> None:
        _engines.load()
        self._url = _arguments.text("url", url)
        self._options = _core.BusOptions()
        self._options.url = self._url
        self._options.name = _arguments.text("name", name)
        self._options.credentials_file = _arguments.path("credentials_file", credentials_file)
        self._options.ca_file = _arguments.path("ca_file", ca_file)
        self._options.certificate_file = _arguments.path("certificate_file", certificate_file)
        self._options.key_file = _arguments.path("key_file", key_file)
        self._options.set_times(_arguments.seconds("answer_timeout", answer_timeout),
                                _arguments.seconds("look_back", look_back))
        self._request_timeout = _arguments.seconds("request_timeout", request_timeout)
        for what, callback in (("on_state", on_state), ("on_error", on_error)):
            _arguments.function(what, callback)
        if on_state is not None:
            self._options.on_state(state_caller(on_state))
        if on_error is not None:
            self._options.on_problem(_problem_caller(on_error))
        self._native: Optional[_core.Bus] = None
        self._process = 0
        self._is_closed = False
        self._begin_subscribing()

    # --- opening and closing ---

    def open(self) -> Bus:
        """Connects, and looks how the engine is laid out. Ctrl-C interrupts.

        :return: the object itself.
        :raises tivra.OpenFailed: when no server can be reached, or no bridge has published there.
        """
        opening = self._begin_opening()
        opening.wait(None)
        return self._opened(opening)

    async def aopen(self) -> Bus:
        """The same in a coroutine."""
        opening = self._begin_opening()
        await notified(opening.notify)
        return self._opened(opening)

    def _begin_opening(self) -> _core.BusOpening:
        if self._native is not None or self._is_closed:
            raise Closed("this connection to the bus has been opened before", code="Closed", advice="make another one")
        return _core.BusOpening(self._options)

    def _opened(self, opening: _core.BusOpening) -> Bus:
        self._native = opening.take()
        self._process = os.getpid()
        open_sources.add(self)
        return self

    def close(self) -> bool:
        """Closes: subscriptions and snapshots end, and callbacks that run are waited for. Further calls do nothing.

        :return: True.
        """
        self._is_closed = True
        if self._native is not None:
            self._require_open().close()
        self._end_subscriptions()
        open_sources.discard(self)
        return True

    async def aclose(self) -> bool:
        """The same in a coroutine. The event loop goes on meanwhile, for callbacks that wait for it."""
        return await finished(self.close)

    def __enter__(self) -> Bus:
        return self.open()

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()

    async def __aenter__(self) -> Bus:
        return await self.aopen()

    async def __aexit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                        traceback: Optional[TracebackType]) -> None:
        await self.aclose()

    def _make_stream(self, fields: list[str], policy: int, max_rows: int, max_bytes: int,
                     *callbacks: Optional[Callable[[Event], object]]) -> _core.Stream:
        return _core.Stream(self._require_open(), fields, policy, max_rows, max_bytes, *callbacks)

    def _make_board(self) -> _core.BusBoard:
        return _core.BusBoard(self._require_open(), 1_000_000)

    def _require_open(self) -> _core.Bus:
        if self._native is None:
            raise Closed("the connection to the bus isn't open", code="Closed",
                         advice="open it by with, async with, open() or aopen()")
        if os.getpid() != self._process:
            raise Closed("the connection to the bus belongs to the process that this one was forked from", code="Closed",
                         advice="open another one")
        return self._native

    # --- how it is ---

    @property
    def state(self) -> FeedState:
        """ESTABLISHED while the engine is connected, RECOVERING while it is lost."""
        return FeedState.CLOSED if self._native is None else FEED_STATES[self._native.state()]

    @property
    def partitions(self) -> int:
        """How many partitions the engine is laid out with."""
        return self._require_open().partitions()

    def stats(self) -> dict[str, int]:
        """What has been counted since it was opened."""
        return dict(self._require_open().statistics())

    # --- asking ---

    def snapshot(self, source: int, symbol: str, timeout: Optional[float] = None) -> Answer[Snapshot]:
        """The last values of a symbol, once: ``await bus.snapshot(100, "IBM")``, or ``.get()``.

        :param timeout: seconds; ``request_timeout`` unless given.
        :raises tivra.RequestRefused: from the answer, when the bridge's hub has said no.
        :raises tivra.Timeout: from the answer, also when no bridge publishes the symbol.
        :raises tivra.Closed: from the answer, when the connection is closed meanwhile.
        """
        native = _core.BusAnswer(self._require_open(), *instrument(source, symbol))
        seconds = self._request_timeout if timeout is None else _arguments.seconds("timeout", timeout)
        return Answer(native, make_snapshot, seconds, f"the last values of {symbol}")

    def snapshots(self, source: int, symbols: Iterable[str], timeout: Optional[float] = None) -> list[Answer[Snapshot]]:
        """The same for many symbols, each with an answer of its own, in their order."""
        return [self.snapshot(source, symbol, timeout) for symbol in _arguments.texts("symbols", symbols)]

    def __repr__(self) -> str:
        return f"<tivra.bus.Bus of {self._url}: {self.state}>"


def connect(url: str, **options: Any) -> Bus:
    """A connection to the bus, to be opened by ``with``, ``async with``, open() or aopen().

    :param url: "nats://HOST[:PORT],...", "tls://HOST[:PORT],..." or "kafka://HOST[:PORT],...".
    :param options: those of Bus.
    """
    return Bus(url, **options)


def _problem_caller(function: Callable[[Error], object]) -> Callable[[int, int, int, str], None]:
    def call(kind: int, partition: int, position: int, text: str) -> None:
        function(Problem(text, code="Problem", phase="Subscription", kind=_KINDS[kind], partition=partition,
                         position=position, retry=kind == 0))

    return call
