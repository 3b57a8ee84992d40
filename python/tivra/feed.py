"""The feed: connections, subscriptions and answers in one object."""

from __future__ import annotations

import datetime
import functools
import html
import json
import os
import sys
from collections.abc import Callable, Iterable, Mapping
from types import TracebackType
from typing import Any, Optional, Union

from . import _arguments, _core, log
from ._core import Event
from ._loop import notified
from ._subscribing import Subscribing, index, instrument, open_sources
from ._thread import finished
from .answer import Answer, Snapshot, make_snapshot
from .enumerations import Enumerations, EnumerationsAnswer
from .errors import Closed, ConfigError, Error
from .events import FEED_STATES, FeedState, FeedStateChange, HubStatus, hub_status
from .subscription import Subscription

OptionValue = Union[str, int, float, bool, datetime.timedelta, Iterable[str]]

#: What Feed.list() can ask for, in the order of the library's numbers.
LISTS = ("fields", "enumerations", "sources", "permissions", "subscribed_symbols", "clients", "users", "administration")

_TIMES = {"open_timeout", "request_timeout", "close_timeout", "slow_callback", "retry_first", "retry_longest"}


def password_from_env(name: str = "TIVRA_PASSWORD") -> str:
    """The password in an environment variable. :raises tivra.ConfigError: when it isn't set."""
    return str(_core.password_from_environment(_arguments.text("name", name)))


def password_from_file(path: Union[str, os.PathLike[str]]) -> str:
    """The first line of a file. :raises tivra.ConfigError: when it can't be read."""
    return str(_core.password_from_file(_arguments.path("path", path)))


class Feed(Subscribing):
    """A connection to the data of one user: it finds the hubs, logs in, keeps the connections up, and brings answers
    and updates. Any number of feeds may be open in a process.

    ``with`` opens it and closes it, and so does ``async with`` without holding up the event loop::

        with tivra.Feed("127.0.0.1:9100", user="demo", password=tivra.password_from_env()) as feed:
            print(feed.snapshot(100, "IBM").get()["BID"])

    Where a block doesn't fit, open() and close() do, or ``await aopen()`` and ``await aclose()``.

    :param hosts: the hubs, or connection managers, each "host:port"; one text or several.
    :param user: who logs in.
    :param password: the user's password; see password_from_env() and password_from_file(). Or a function that is asked for
        it at each login, with the "host:port" of who is to get it, on a thread of the library; when it raises, that
        login counts as refused and sys.unraisablehook gets the exception.
    :param on_state: called with a FeedStateChange, on a thread of the library.
    :param on_connection: called with the HubStatus of a hub whenever that changes, on a thread of the library.
    :param on_error: called with a tivra.Error for what fails outside a call: a callback that raises, for example.
    :param on_slow_callback: called with a dict when a callback runs for longer than ``slow_callback``.
    :param options: any option or parameter of docs/parameters.md by its name: ``min_hubs=1``, ``compression=False``,
        ``read_timeout=10``. The times of feeds, such as ``open_timeout``, are seconds or timedeltas here.
    :raises tivra.ConfigError: for what can't be meant, before anything is connected.
    """

    def __init__(self, hosts: Union[str, Iterable[str]] = (), *, user: Optional[str] = None,
                 password: Union[str, Callable[[str], str], None] = None,
                 on_state: Optional[Callable[[FeedStateChange], object]] = None,
                 on_connection: Optional[Callable[[HubStatus], object]] = None,
                 on_error: Optional[Callable[[Error], object]] = None,
                 on_slow_callback: Optional[Callable[[dict[str, Any]], object]] = None,
                 **options: OptionValue) -> None:
        self._setup(_core.Options(), hosts, user=user, password=password, on_state=on_state,
                    on_connection=on_connection, on_error=on_error, on_slow_callback=on_slow_callback, **options)

    def _setup(self, native: _core.Options, hosts: Union[str, Iterable[str]] = (), *, user: Optional[str] = None,
               password: Union[str, Callable[[str], str], None] = None,
               on_state: Optional[Callable[[FeedStateChange], object]] = None,
               on_connection: Optional[Callable[[HubStatus], object]] = None,
               on_error: Optional[Callable[[Error], object]] = None,
               on_slow_callback: Optional[Callable[[dict[str, Any]], object]] = None, **options: OptionValue) -> None:
        self._options = native
        self._native: Optional[_core.Feed] = None
        self._is_closed = False
        self._begin_subscribing()
        names = _arguments.texts("hosts", hosts)
        if names:
            options = {"hosts": names, **options}
        if user is not None:
            options["user"] = _arguments.text("user", user)
        for name, value in options.items():
            self._options.set(name, _option_text(name, value))
        if callable(password):
            self._options.on_password(password)
        elif password is not None:
            self._options.set_password(_arguments.text("password", password))
        for name, callback in (("on_state", on_state), ("on_connection", on_connection), ("on_error", on_error),
                               ("on_slow_callback", on_slow_callback)):
            _arguments.function(name, callback)
        if on_state is not None:
            self._options.on_state(state_caller(on_state))
        if on_connection is not None:
            self._options.on_connection(_hub_caller(on_connection))
        if on_error is not None:
            self._options.on_error(on_error)
        if on_slow_callback is not None:
            self._options.on_slow_callback(on_slow_callback)

    @classmethod
    def from_url(cls, url: str, **options: Any) -> Feed:
        """A feed from "tivra://user@host:port,host:port/?compression=0", and over it what Feed() takes by name."""
        return cls._over(lambda native: native.apply_url(_arguments.text("url", url)), options)

    @classmethod
    def from_file(cls, path: Union[str, os.PathLike[str]], **options: Any) -> Feed:
        """A feed from a file whose name ends in ".toml" or ".json", and over it what Feed() takes by name."""
        return cls._over(lambda native: native.apply_file(_arguments.path("path", path)), options)

    @classmethod
    def from_env(cls, **options: Any) -> Feed:
        """A feed from TIVRA_URL, TIVRA_HOSTS, TIVRA_PASSWORD and so on, and over it what Feed() takes by name."""
        return cls._over(lambda native: native.apply_environment(), options)

    @classmethod
    def _over(cls, apply: Callable[[_core.Options], None], options: Mapping[str, Any]) -> Feed:
        native = _core.Options()
        apply(native)
        feed = cls.__new__(cls)
        feed._setup(native, **options)
        return feed

    # --- opening and closing ---

    def open(self) -> Feed:
        """Connects, logs in and waits until the hubs are ready. Ctrl-C interrupts.

        :return: the feed itself.
        :raises tivra.Error: with the phase and the hub that it failed at.
        """
        opening = self._begin_opening()
        try:
            opening.wait(None)
        except BaseException:
            opening.cancel()
            raise
        return self._opened(opening)

    async def aopen(self) -> Feed:
        """The same in a coroutine."""
        opening = self._begin_opening()
        try:
            await notified(opening.notify)
        except BaseException:
            opening.cancel()
            raise
        return self._opened(opening)

    def _begin_opening(self) -> _core.Opening:
        if self._native is not None or self._is_closed:
            raise Closed("the feed has been opened before", code="Closed", advice="make another one")
        log.connect()
        return _core.Opening(self._options)

    def _opened(self, opening: _core.Opening) -> Feed:
        self._native = opening.take()
        open_sources.add(self)
        return self

    def close(self, deadline: Optional[float] = None) -> bool:
        """Closes: subscriptions end, outstanding answers fail with tivra.Closed, callbacks that run are waited for.
        Further calls do nothing.

        :param deadline: seconds; ``close_timeout`` unless given.
        :return: False when a callback still ran at the deadline.
        """
        deadline = _arguments.optional_seconds("deadline", deadline)
        self._is_closed = True
        is_done = self._native is None or bool(self._native.close(deadline))
        self._end()
        return is_done

    def _end(self) -> None:
        self._end_subscriptions()
        open_sources.discard(self)

    async def aclose(self, deadline: Optional[float] = None) -> bool:
        """The same in a coroutine. The event loop goes on meanwhile, for callbacks that wait for it."""
        deadline = _arguments.optional_seconds("deadline", deadline)
        self._is_closed = True
        is_done = self._native is None or await finished(functools.partial(self._native.close, deadline))
        self._end()
        return is_done

    def __enter__(self) -> Feed:
        return self.open()

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()

    async def __aenter__(self) -> Feed:
        return await self.aopen()

    async def __aexit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                        traceback: Optional[TracebackType]) -> None:
        await self.aclose()

    def _make_stream(self, fields: list[str], policy: int, max_rows: int, max_bytes: int,
                     *callbacks: Optional[Callable[[Event], object]]) -> _core.Stream:
        return _core.Stream(self._require_open(), fields, policy, max_rows, max_bytes, *callbacks)

    def _make_board(self) -> _core.Board:
        return _core.Board(self._require_open(), 1_000_000)

    def _require_open(self) -> _core.Feed:
        if self._native is None:
            raise Closed("the feed isn't open", code="Closed", advice="open it by with, async with, open() or aopen()")
        return self._native

    # --- how it is ---

    @property
    def state(self) -> FeedState:
        """What the feed can do at the moment."""
        return FeedState.CLOSED if self._native is None else FEED_STATES[self._native.state()]

    def hubs(self) -> list[HubStatus]:
        """How the connection to each hub stands."""
        return [hub_status(hub) for hub in self._require_open().hubs()]

    def reconnect_now(self) -> None:
        """Dials every hub that isn't connected at once, whatever pause is left."""
        self._require_open().reconnect_now()

    def stats(self) -> dict[str, Any]:
        """What has been counted since the feed was opened; times are seconds."""
        statistics: dict[str, Any] = json.loads(self._require_open().statistics_json())
        return statistics

    def open_metrics(self, labels: Optional[Mapping[str, str]] = None) -> str:
        """The same in the OpenMetrics 1.0 text form.

        :param labels: names and values that tell this feed from others.
        """
        pairs = [(_arguments.text("each name of labels", name), _arguments.text("each value of labels", value))
                 for name, value in _arguments.mapping("labels", labels or {}).items()]
        return str(self._require_open().open_metrics(pairs))

    # --- asking ---

    def snapshot(self, source: int, symbol: str, timeout: Optional[float] = None) -> Answer[Snapshot]:
        """The present state of a symbol, once: ``await feed.snapshot(100, "IBM")``, or ``.get()``.

        :param source: the number of the source.
        :param timeout: seconds; ``request_timeout`` unless given.
        :raises tivra.RequestRefused: from the answer, when the hub has said no.
        :raises tivra.Timeout: from the answer.
        """
        return self._answer(self._require_open().snapshot(*instrument(source, symbol)), timeout, f"the snapshot of {symbol}")

    def snapshots(self, source: int, symbols: Iterable[str], timeout: Optional[float] = None) -> list[Answer[Snapshot]]:
        """The same for many symbols, each with an answer of its own, in their order."""
        names = _arguments.texts("symbols", symbols)
        natives = self._require_open().snapshots(_arguments.integer("source", source), names)
        return [self._answer(native, timeout, f"the snapshot of {name}") for native, name in zip(natives, names)]

    def depth(self, source: int, symbol: str, timeout: Optional[float] = None) -> Answer[Snapshot]:
        """The order book of a symbol, a record for each line."""
        return self._answer(self._require_open().depth(*instrument(source, symbol)), timeout, f"the order book of {symbol}")

    def wildcard(self, source: int, pattern: str, timeout: Optional[float] = None) -> Answer[Snapshot]:
        """The present state of all symbols of a source that match: "*" for any characters, "?" for one."""
        number, pattern = _arguments.integer("source", source), _arguments.text("pattern", pattern)
        return self._answer(self._require_open().wildcard(number, pattern), timeout, f"the pattern {pattern}")

    def xref(self, source: int, symbol: str, timeout: Optional[float] = None) -> Answer[Snapshot]:
        """Cross references of a symbol."""
        native = self._require_open().xref(*instrument(source, symbol))
        return self._answer(native, timeout, f"the cross references of {symbol}")

    def list(self, what: str, timeout: Optional[float] = None) -> Answer[Snapshot]:
        """A list of the hubs, a record for each entry. Hubs may refuse some of them to ordinary users.

        :param what: "fields", "enumerations", "sources", "permissions", "subscribed_symbols", "clients", "users" or
            "administration".
        """
        return self._answer(self._require_open().list(index(LISTS, what, "list")), timeout, f"the list of {what}")

    def enumerations(self, timeout: Optional[float] = None) -> Answer[Enumerations]:
        """What the numbers of enumerated fields stand for: ``texts.text("ENUM.INSTRUMENT.TYPE", 1)``."""
        return EnumerationsAnswer(self._require_open(), self.list("fields", timeout), self.list("enumerations", timeout))

    def _answer(self, native: _core.Answer, timeout: Optional[float], what: str) -> Answer[Snapshot]:
        return Answer(native, make_snapshot, _arguments.optional_seconds("timeout", timeout), what)

    # --- patterns and order books ---

    def subscribe_wildcard(self, source: int, pattern: str, *, fields: Optional[Iterable[str]] = None,
                           max_rows: int = 100_000, max_bytes: int = 64 << 20, policy: str = "drop_oldest",
                           on_update: Optional[Callable[[Event], object]] = None,
                           on_state: Optional[Callable[[Event], object]] = None,
                           on_gap: Optional[Callable[[Event], object]] = None) -> Subscription:
        """All symbols of a source that match, those that the hub lists later included: "*" for any characters, "?"
        for one. States and gaps are those of the pattern as a whole. Arguments as in subscribe()."""
        number, pattern = _arguments.integer("source", source), _arguments.text("pattern", pattern)
        stream = self._stream(fields, max_rows, max_bytes, policy, on_update, on_state, on_gap)
        stream.add_wildcard(number, pattern)
        return self._enter(stream, source, on_update, on_state, on_gap)

    def subscribe_depth(self, source: int, symbol: str, *, fields: Optional[Iterable[str]] = None,
                        max_rows: int = 100_000, max_bytes: int = 64 << 20, policy: str = "drop_oldest",
                        on_update: Optional[Callable[[Event], object]] = None,
                        on_state: Optional[Callable[[Event], object]] = None,
                        on_gap: Optional[Callable[[Event], object]] = None) -> Subscription:
        """The order book of a symbol, an image for each line, and then its changes. Arguments as in subscribe()."""
        number, symbol = instrument(source, symbol)
        stream = self._stream(fields, max_rows, max_bytes, policy, on_update, on_state, on_gap)
        stream.add_depth(number, symbol)
        return self._enter(stream, source, on_update, on_state, on_gap)

    def __repr__(self) -> str:
        return f"<tivra.Feed of {', '.join(self._options.hosts)}: {self.state}>"

    def _repr_html_(self) -> str:
        hubs = self.hubs() if self._native is not None else []
        lines = "".join(f"<tr><td>{html.escape(hub.hub)}</td><td>{hub.state}</td><td>{html.escape(hub.cause)}</td></tr>"
                        for hub in hubs)
        return (f"<table><caption>Feed: {self.state}</caption><thead><tr><th>hub</th><th>state</th><th>cause</th></tr>"
                f"</thead><tbody>{lines}</tbody></table>")


def _option_text(name: str, value: OptionValue) -> str:
    """The text that the library reads an option from."""
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, datetime.timedelta) or (name in _TIMES and isinstance(value, (int, float))):
        seconds = value.total_seconds() if isinstance(value, datetime.timedelta) else value
        if not 0 <= seconds < 1e9:
            raise ConfigError(f"{name} is {seconds} seconds", code="InvalidOption", phase="Options",
                              advice="give a time from 0")
        return f"{round(seconds * 1000)}ms"
    if isinstance(value, (str, int, float)):
        return str(value)
    try:
        return ",".join(value)
    except TypeError:
        raise ConfigError(f"{name} is {value!r}", code="InvalidOption", phase="Options",
                          advice="give a text, a number, a bool, or a list of texts") from None


def state_caller(function: Callable[[FeedStateChange], object]) -> Callable[..., None]:
    def call(before: int, after: int, cause: str, time: Optional[datetime.datetime]) -> None:
        function(FeedStateChange(FEED_STATES[before], FEED_STATES[after], cause, time))

    return call


def _hub_caller(function: Callable[[HubStatus], object]) -> Callable[[dict[str, object]], None]:
    def call(status: dict[str, object]) -> None:
        function(hub_status(status))

    return call


def close_all() -> None:
    """The interpreter ends."""
    for source in list(open_sources):
        try:
            source.close()
        except Error:
            pass  # a child that was forked closes nothing
    log.disconnect()
    _core.end_hand_overs()
    if sim := sys.modules.get("tivra._sim"):
        sim.end_hand_overs()
