"""The last values of symbols."""

from __future__ import annotations

import datetime
import html
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from typing import Any, Optional, Union

from . import _arguments, _core
from ._core import Record
from .events import DATA_STATES, DataState


@dataclass(frozen=True)
class BoardRow:
    """A symbol of a board at one moment: a copy, which may be kept. ``row["BID"]`` is the last value of a field."""

    record: Record  #: source, symbol, and the last value of each field
    state: DataState
    last_update: Optional[datetime.datetime]  #: to about a millisecond; None before the first
    updates: int
    gaps: int

    @property
    def source(self) -> int:
        return self.record.source

    @property
    def symbol(self) -> str:
        return self.record.symbol

    @property
    def stale(self) -> bool:
        """Whether the values are old: after a loss and until the new image has come, or when nothing more comes."""
        return self.state not in (DataState.PENDING, DataState.LIVE)

    @property
    def age(self) -> Optional[float]:
        """Seconds since the last update; None before the first."""
        if self.last_update is None:
            return None
        return max(0.0, (datetime.datetime.now(datetime.timezone.utc) - self.last_update).total_seconds())

    def get(self, name: str, default: Any = None) -> Any:
        """The last value of a field, or the default when none has come."""
        return self.record.get(name, default)

    def __getitem__(self, name: str) -> Any:
        return self.record[name]

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and name in self.record


class Board:
    """The last value of each field of each symbol that is added to it, kept up to date by the library's threads.

    ``feed.board.add(100, ["IBM", "SPY"])``, and then ``feed.board[100, "IBM"]["BID"]`` at any time. After a loss the
    values are stale until the new image has come; ``row.stale`` says so.
    """

    def __init__(self, native: Union[_core.Board, _core.BusBoard]) -> None:
        self._native = native
        self._position = 0

    def add(self, source: int, symbols: Union[str, Iterable[str]]) -> int:
        """Subscribes symbols for the board. :return: how many are new."""
        return int(self._native.add(_arguments.integer("source", source), _arguments.texts("symbols", symbols)))

    def remove(self, source: int, symbols: Union[str, Iterable[str]]) -> int:
        """Ends their subscriptions; their rows stay, as CLOSED. :return: how many have ended."""
        return int(self._native.remove(_arguments.integer("source", source), _arguments.texts("symbols", symbols)))

    def forget_closed(self) -> int:
        """Drops the rows that are CLOSED. :return: how many there were."""
        return int(self._native.forget_closed())

    def __getitem__(self, key: tuple[int, str]) -> BoardRow:
        if not isinstance(key, tuple) or len(key) != 2:
            raise TypeError(f"a row is asked for by its source and symbol, not by {key!r}")
        row = self.get(*key)
        if row is None:
            raise KeyError(key)
        return row

    def get(self, source: int, symbol: str) -> Optional[BoardRow]:
        """The present row of a symbol; None when it has none."""
        found = self._native.find(_arguments.integer("source", source), _arguments.text("symbol", symbol))
        return None if found is None else _row(found)

    def changes(self) -> list[BoardRow]:
        """The present rows of the symbols whose values or states have changed since the last call; all at the first."""
        rows, self._position = self._native.changed_since(self._position)
        return [_row(row) for row in rows]

    def stats(self) -> dict[str, int]:
        """Symbols, those that are CLOSED included, and the bytes that they take; changes; and what had no room: updates
        of symbols that were refused, and values that were left out of their rows."""
        return dict(self._native.statistics())

    def __contains__(self, key: object) -> bool:
        if not (isinstance(key, tuple) and len(key) == 2 and isinstance(key[0], int) and isinstance(key[1], str)):
            return False
        return self.get(*key) is not None

    def __iter__(self) -> Iterator[tuple[int, str]]:
        return iter(self._native.instruments())

    def __len__(self) -> int:
        return len(self._native.instruments())

    def _repr_html_(self) -> str:
        rows = [row for row in (self.get(*key) for key in self) if row is not None]
        names = list(dict.fromkeys(name for row in rows for name in row.record.fields))
        head = "".join(f"<th>{html.escape(name)}</th>" for name in ["source", "symbol", "state", *names])
        lines = []
        for row in sorted(rows, key=lambda row: (row.source, row.symbol)):
            cells = [row.source, row.symbol, row.state, *("" if row.get(name) is None else row.get(name) for name in names)]
            style = ' style="color: gray"' if row.stale else ""
            lines.append(f"<tr{style}>" + "".join(f"<td>{html.escape(str(cell))}</td>" for cell in cells) + "</tr>")
        return f"<table><thead><tr>{head}</tr></thead><tbody>{''.join(lines)}</tbody></table>"

    def __repr__(self) -> str:
        return f"<tivra.Board of {len(self)} symbols>"


def _row(row: tuple[Record, int, Optional[datetime.datetime], int, int]) -> BoardRow:
    record, state, last_update, updates, gaps = row
    return BoardRow(record, DATA_STATES[state], last_update, updates, gaps)
