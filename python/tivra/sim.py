"""A hub in a box, for tests of programs that read a feed.

::

    with tivra.sim.Hub(symbols=[(100, "IBM")]) as hub, tivra.Feed(hub.address, user="demo", password="demo") as feed:
        sub = feed.subscribe(100, "IBM")
        hub.wait_for_subscriptions(1)
        hub.publish(100, "IBM", {"BID": 189.5})

It has the user "demo" with the password "demo", the sources 100 (equities), 101 (options) and 4100 (news), a dictionary
of more than 200 fields, and some symbols. It runs on a thread of its own with real sockets.
"""

from __future__ import annotations

import datetime
import contextlib
import json
import os
import time
from collections.abc import Callable, Iterator, Mapping
from types import TracebackType
from typing import Any, Optional, Union

from . import _arguments, _sim
from .errors import Error

FieldValue = Union[str, int, float, datetime.datetime]


class HubError(Error):
    """The hub can't listen, or can't have what it is configured with."""


@contextlib.contextmanager
def _hub_errors(attempt: str) -> Iterator[None]:
    try:
        yield
    except (RuntimeError, ValueError) as error:
        if isinstance(error, Error):
            raise
        raise HubError(f"{attempt}: {error}", code="Hub") from None


class Hub:
    """A hub that listens on this machine, from start() or the beginning of a ``with`` block until stop() or its end.

    :param port: where it listens; 0 for a free port, see ``address``.
    :param quiet: whether it sends nothing of its own accord, not even a heartbeat.
    :param symbols: symbols that it carries from the start, as (source, symbol); others are known once they are published.
    :param playback: a CSV file of a trading day (perhaps gzipped), which it plays to whoever subscribes its symbols.
    :param factor: the pace: 1 for that of the day, 60 for an hour in a minute, 0 for full speed.
    :param start_when: how many symbols have to be subscribed for the playback to begin; 0 waits for start_playback().
    :param max_events: how many events are played; 0 for all.
    :param repeat: how often they are played.
    :param config: in place of these, what docs/tools.md says of the configuration of a hub, as JSON or as a dict.
    """

    def __init__(self, *, port: int = 0, quiet: bool = True, symbols: Optional[list[tuple[int, str]]] = None,
                 playback: Union[str, os.PathLike[str], None] = None, factor: float = 0.0, start_when: int = 0,
                 max_events: int = 0, repeat: int = 1,
                 config: Union[str, Mapping[str, Any], None] = None) -> None:
        port = _arguments.integer("port", port, 0, 65535)
        instruments = [_instrument(one) for one in _arguments.iterable("symbols", symbols or ())]
        if playback is not None:
            playback = _arguments.path("playback", playback)
        factor = _arguments.number("factor", factor)
        with _hub_errors("a hub can't be made of that"):
            if config is not None:
                native = _sim.HubConfig.from_json(config if isinstance(config, str) else json.dumps(dict(_arguments.mapping("config", config))))
            else:
                native = _sim.HubConfig.quiet() if quiet else _sim.HubConfig.realistic()
            if port:
                native.port = port
            for source, symbol in instruments:
                native.add_symbol(source, symbol)
            if playback is not None:
                native.set_playback(playback, factor, _arguments.integer("start_when", start_when, 0),
                                    _arguments.integer("max_events", max_events, 0, _arguments.INT64),
                                    _arguments.integer("repeat", repeat, 0))
            self._native = _sim.Hub(native)
        self._fields: dict[str, tuple[int, str]] = self._native.fields()

    # --- life ---

    def start(self) -> Hub:
        """Listens and serves. :return: the hub itself. :raises HubError: when the port can't be had, for example."""
        with _hub_errors("the hub can't be started"):
            self._native.start()
        return self

    def stop(self) -> None:
        """Closes all connections. What it has counted stays readable."""
        self._native.stop()

    def restart(self) -> None:
        """Stops and starts on the same port, with its values kept."""
        with _hub_errors("the hub can't be started again"):
            self._native.restart()

    def __enter__(self) -> Hub:
        return self.start()

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.stop()

    @property
    def address(self) -> str:
        """"host:port", as Feed takes it."""
        return self._native.address()

    @property
    def port(self) -> int:
        """The port that it listens on; 0 before the first start."""
        return self._native.port()

    # --- data ---

    def publish(self, source: int, symbol: str, values: Mapping[str, FieldValue]) -> int:
        """Stores values of a symbol, which it makes known, and sends them to its subscribers.

        :return: how many got them.
        :raises KeyError: for a field that the hub's dictionary doesn't have.
        """
        pairs = [(self._fields[name][0], self._text(name, value))
                 for name, value in _arguments.mapping("values", values).items()]
        return self._native.publish(*_instrument((source, symbol)), pairs)

    def _text(self, name: str, value: FieldValue) -> str:
        if isinstance(value, bool):
            return "1" if value else "0"
        if isinstance(value, datetime.datetime):
            return f"{value.timestamp():.6f}"
        return str(value)

    def refresh(self, source: int, symbol: str) -> int:
        """Sends the last values of a symbol as a refresh. :return: how many got it."""
        return self._native.refresh(*_instrument((source, symbol)))

    def start_playback(self) -> None:
        """Plays the file from its beginning, whatever is subscribed."""
        self._native.start_playback()

    def stop_playback(self) -> None:
        """Plays no further."""
        self._native.stop_playback()

    def grant(self, source: int) -> None:
        """Gives all users the permission for a source, and tells them."""
        self._native.grant(_arguments.integer("source", source))

    def withdraw(self, source: int) -> None:
        """Takes the permission for a source from all users, and tells them."""
        self._native.withdraw(_arguments.integer("source", source))

    # --- faults ---

    def drop_connections(self, reset: bool = False) -> None:
        """Closes every connection at once; bytes still waiting are lost.

        :param reset: whether they are reset, and not closed in order.
        """
        self._native.drop_connections(_arguments.truth("reset", reset))

    def drop_after_frames(self, frames: int, reset: bool = False) -> None:
        """Closes each connection that is open now once that many more messages have gone out on it."""
        self._native.drop_after_frames(_arguments.integer("frames", frames, 0, _arguments.INT64), _arguments.truth("reset", reset))

    def set_accepting(self, on: bool) -> None:
        """Closes new connections at once while off."""
        self._native.set_accepting(_arguments.truth("on", on))

    def set_silent(self, on: bool) -> None:
        """Keeps everything that should be sent until it is switched off."""
        self._native.set_silent(_arguments.truth("on", on))

    def set_answer_delay(self, seconds: float) -> None:
        """Sends every answer that much later."""
        self._native.set_answer_delay(_arguments.seconds("seconds", seconds))

    def refuse(self, command: str, status: int, times: int = 0) -> None:
        """Answers a command, "*" for all but a login, with a status and nothing else.

        :param command: "LoginUser", "QuerySnap" or "Subscribe", for example.
        :param times: how often; 0 for good.
        """
        self._native.refuse(_arguments.text("command", command), _arguments.integer("status", status),
                            _arguments.integer("times", times, 0))

    def ignore(self, command: str, times: int = 0) -> None:
        """Leaves a command without an answer."""
        self._native.ignore(_arguments.text("command", command), _arguments.integer("times", times, 0))

    def clear_refusals(self) -> None:
        """Ends every refuse() and ignore()."""
        self._native.clear_refusals()

    def send_body(self, body: bytes) -> None:
        """Sends the body of a message as it is to every connection."""
        if not isinstance(body, bytes):
            raise TypeError(f"body must be bytes, not {type(body).__name__}")
        self._native.send_body(body)

    # --- what has happened ---

    def stats(self) -> dict[str, int]:
        """What it has done so far: connections, requests, updates sent and so on."""
        return self._native.statistics()

    def requests(self) -> list[str]:
        """The texts of all requests, in order of arrival."""
        return self._native.requests()

    def wait_for_connections(self, count: int, timeout: float = 10.0) -> bool:
        """Waits for exactly so many open connections. :return: False when the time has passed."""
        wanted = _arguments.integer("count", count, 0)
        return _in_pieces(timeout, lambda seconds: self._native.wait_for_connections(wanted, seconds))

    def wait_for_subscriptions(self, count: int, timeout: float = 10.0) -> bool:
        """Waits until so many symbols at least are subscribed. :return: False when the time has passed."""
        wanted = _arguments.integer("count", count, 0)
        return _in_pieces(timeout, lambda seconds: self._native.wait_for_subscriptions(wanted, seconds))

    def wait_for_playback(self, timeout: float = 60.0) -> bool:
        """Waits until all of the playback is on its way. :return: False when the time has passed."""
        return _in_pieces(timeout, self._native.wait_for_playback)

    def wait_for_command(self, command: str, timeout: float = 10.0) -> bool:
        """Waits for a request of that command, those that have come included. :return: False when the time has passed."""
        wanted = _arguments.text("command", command)
        return _in_pieces(timeout, lambda seconds: self._native.wait_for_command(wanted, seconds))

    def __repr__(self) -> str:
        return f"<tivra.sim.Hub {self.address}>"


def _instrument(given: Any) -> tuple[int, str]:
    if not isinstance(given, (tuple, list)) or len(given) != 2:
        raise TypeError(f"a symbol must be given as (source, symbol), not as {given!r}")
    return _arguments.integer("source", given[0]), _arguments.text("symbol", given[1])


def _in_pieces(timeout: float, wait: Callable[[float], bool]) -> bool:
    """Waits in pieces that are short enough for Ctrl-C to be felt at once."""
    end = time.monotonic() + _arguments.seconds("timeout", timeout)
    while not wait(max(0.0, min(0.05, end - time.monotonic()))):
        if time.monotonic() >= end:
            return False
    return True
