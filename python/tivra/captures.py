"""Captures and trading days as batches, and back."""

from __future__ import annotations

import datetime
import operator
import re
import warnings
from collections.abc import Iterable, Iterator, Sequence
from typing import TYPE_CHECKING, Any, Union

from . import _arguments, _core
from ._optional import require
from .batch import Batch, frame_of, time_of
from .dictionary import Dictionary, PathLike
from .errors import Error
from .gap import Gap

if TYPE_CHECKING:
    import pandas
    import polars
    import pyarrow

TimeLike = Union[datetime.datetime, str, int]

DAY_FIELDS = ("PERMISSION", "FEED.SEQUENCE", "BID", "BID.SIZE", "ASK", "ASK.SIZE", "QUOTE.EXCHANGE", "QUOTE.CONDITION",
              "TRADE.PRICE", "TRADE.SIZE", "TRADE.EXCHANGE", "TRADE.CONDITION", "SUSPICIOUS.IND", "QUOTE.DATETIME",
              "TRADE.DATETIME")
"""The fields of a trading-day file, by the names that the simulator sends them with."""

DAY_MIDNIGHT = datetime.datetime(2013, 10, 7, 4, tzinfo=datetime.timezone.utc)
"""Midnight in New York of the day that comes with the simulator."""


_LATEST = 2**63 - 10**14
"""What 64 bits hold of nanoseconds, less a day."""


class CaptureError(Error, ValueError):
    """A file that can't be read, or isn't what it should be. The text names the file, the place and the fault."""

    def __init__(self, cause: str) -> None:
        super().__init__(cause, code="CaptureError")

    def _line(self) -> str:
        return self.cause


class CaptureWarning(UserWarning):
    """A capture that was cut off: its end is missing, and all that is left was read."""


class Recording(Iterator[Batch]):
    """The batches of a file, one after the other: an iterator.

    Damaged blocks of a capture and messages that can't be decoded are passed over and counted, the former as gaps too;
    behind the last batch CaptureError says so. A wrong line of a day ends it: what stands in front comes first, and then
    CaptureError. The end of a capture that was cut off is a CaptureWarning.
    """

    def __init__(self, batches: _core.FileBatches, path: str) -> None:
        self.path = path
        self.gaps: list[Gap] = []
        """All that is known to be missing, as far as the file was read."""
        self.repeated = 0
        """Values that were left out so far because their message had one of the same field before."""
        self._batches = batches
        self._interruption: dict[str, Any] | None = None
        self._is_judged = False

    @property
    def is_complete(self) -> bool:
        """Whether the file has its end."""
        return self._batches.is_complete

    @property
    def messages(self) -> int:
        """Messages that were read so far, whether wanted or not."""
        return self._batches.messages

    @property
    def damages(self) -> int:
        """Damaged blocks of a capture that were passed over so far."""
        return self._batches.damages

    @property
    def unreadable(self) -> int:
        """Messages that couldn't be decoded so far."""
        return self._batches.unreadable

    def __next__(self) -> Batch:
        try:
            columns, notes = self._batches.next()
        except _core.FileFault as fault:
            self._gaps_of(self._batches.take_notes())
            raise CaptureError(str(fault)) from None
        gaps = self._gaps_of(notes)
        if columns is None:
            self._end()
            raise StopIteration
        self.repeated += columns.repeated
        return Batch(columns, gaps)

    def _end(self) -> None:
        if self._is_judged:
            return
        self._is_judged = True
        if self._interruption is not None:
            self.gaps.append(Gap(**self._interruption))
        if not self.is_complete:
            warnings.warn(f"{self.path}: the capture was cut off; its {self.messages} whole messages were read",
                          CaptureWarning, stacklevel=3)
        faults = []
        if self.damages:
            faults.append(f"{self._batches.first_damage} ({self.damages} damaged blocks in all; what stands in others was read)")
        if self.unreadable:
            faults.append(f"{self.path}: {self.unreadable} messages can't be decoded and were left out; the first is "
                          f"{self._batches.first_unreadable}")
        if faults:
            raise CaptureError("; ".join(faults))

    def _gaps_of(self, notes: list[tuple[int, int, bytes, dict[bytes, bytes]]]) -> list[Gap]:
        gaps = []
        for time, row, kind, values in notes:
            gap = self._gap_of(time, row, kind.decode(errors="replace"), values)
            if gap is not None:
                gaps.append(gap)
        self.gaps.extend(gaps)
        return gaps

    def _gap_of(self, time: int, row: int, kind: str, values: dict[bytes, bytes]) -> Gap | None:
        """A loss begins with one note and ends with another."""
        if kind == "restored":
            begun, self._interruption = self._interruption, None
            return Gap(**{**begun, "end": time_of(time), "row": row}) if begun else None
        if kind == "source-back":
            return None
        about: dict[str, Any] = {"cause": kind, "source": _number(values.get(b"source")), "start": time_of(time), "row": row,
                 "messages": _number(values.get(b"missing", values.get(b"messages"))) or None,
                 "bytes": _number(values.get(b"bytes")) or None, "text": values.get(b"text", b"").decode(errors="replace")}
        if kind in ("interrupted", "reset"):
            self._interruption = self._interruption or about
            return None
        return Gap(**about)

    def reader(self) -> pyarrow.RecordBatchReader:
        """What is left of the file, for libraries that read Arrow batch by batch. It reads the first one at once."""
        reader: pyarrow.RecordBatchReader = self._reader()
        return reader

    def _reader(self) -> Any:
        pa = require("pyarrow", "reader()")
        first = next(self, None)
        if first is None:
            return pa.RecordBatchReader.from_batches(pa.schema([]), [])
        head = first.to_arrow()

        def batches() -> Iterator[Any]:
            yield head
            for batch in self:
                yield batch.to_arrow()

        return pa.RecordBatchReader.from_batches(head.schema, batches())

    def __arrow_c_stream__(self, requested_schema: object = None) -> object:
        stream: object = self._reader().__arrow_c_stream__(requested_schema)
        return stream

    def to_arrow(self) -> pyarrow.Table:
        """What is left of the file as one table in memory."""
        return self.reader().read_all()

    def to_pandas(self) -> pandas.DataFrame:
        """What is left of the file as one frame; see Batch.to_pandas."""
        frame: pandas.DataFrame = frame_of(self.to_arrow().unify_dictionaries())
        return frame

    def to_polars(self) -> polars.DataFrame:
        """What is left of the file as one frame."""
        frame: polars.DataFrame = require("polars", "to_polars()").DataFrame(self.to_arrow())
        return frame

    def __repr__(self) -> str:
        return f"<tivra.Recording of {self.path}: {self.messages} messages read>"


def read_capture(path: PathLike, fields: Sequence[str] | None = None, symbols: Iterable[str] | None = None,
                 start: TimeLike | None = None, end: TimeLike | None = None, *, max_rows: int = 65536,
                 dictionary: Dictionary | None = None) -> Recording:
    """The messages of a capture, as ``tivra-cat --record`` writes it, in batches of at most ``max_rows`` rows.

    ``fields`` are the names (or numbers) of those that get a column; without them all do that occur, which takes a first
    look at the whole file. ``symbols`` leaves all others out. ``start`` (included) and ``end`` (not included) bound the
    times of receipt: aware datetimes, texts of ISO 8601 with a time zone, or nanoseconds since 1970.

    ``dictionary`` says what the numbers of the fields mean, see Dictionary.

    Raises CaptureError for a file that isn't a capture, and ValueError for what can't be asked for.
    """
    name = _arguments.path("path", path)
    rows = _arguments.instance("dictionary", dictionary, Dictionary).fields if dictionary is not None else []
    wanted = _symbols(symbols)
    from_, to = _nanoseconds(start, "start"), _nanoseconds(end, "end")
    try:
        if fields is None:
            fields = _core.capture_fields(name, rows)
        batches = _core.open_capture(name, rows, _names(fields), wanted, from_, to, _positive(max_rows))
    except _core.FileFault as fault:
        raise CaptureError(str(fault)) from None
    return Recording(batches, name)


def open_day(csv: PathLike, fields: Sequence[str] | None = None, symbols: Iterable[str] | None = None,
             start: TimeLike | None = None, end: TimeLike | None = None, *, max_rows: int = 65536, source: int = 100,
             midnight: datetime.datetime = DAY_MIDNIGHT) -> Recording:
    """The events of a trading-day file (CSV, gzipped or plain), as a hub that plays it sends them.

    The times of the file count from ``midnight``, an aware datetime; ``source`` is the number that the rows get. The
    rest is as read_capture has it.
    """
    name = _arguments.path("csv", csv)
    moment = _nanoseconds(midnight, "midnight")
    assert moment is not None
    number = _arguments.integer("source", source)
    wanted = _symbols(symbols)
    from_, to = _nanoseconds(start, "start"), _nanoseconds(end, "end")
    try:
        batches = _core.open_day(name, number, moment // 1_000_000_000, _names(DAY_FIELDS if fields is None else fields),
                                 wanted, from_, to, _positive(max_rows))
    except _core.FileFault as fault:
        raise CaptureError(str(fault)) from None
    return Recording(batches, name)


def _names(fields: Sequence[str]) -> list[str]:
    if isinstance(fields, str):
        raise TypeError("fields must be a list of names, not one text")
    return _arguments.texts("fields", fields)


def _symbols(symbols: Iterable[str] | None) -> list[str]:
    if isinstance(symbols, str):
        raise TypeError("symbols must be a list of names, not one text")
    if symbols is None:
        return []
    wanted = _arguments.texts("symbols", symbols)
    if not wanted:
        raise ValueError("no symbols named: leave symbols out to have all of them")
    return wanted


def _positive(max_rows: int) -> int:
    return _arguments.integer("max_rows", max_rows, 1)


def _nanoseconds(time: TimeLike | None, what: str) -> int | None:
    """Nanoseconds since 1970; a time without a zone could be any."""
    if time is None:
        return None
    nanoseconds = _nanoseconds_of(time, what)
    if abs(nanoseconds) > _LATEST:
        raise ValueError(f"{what} is too far from 1970: {time!r}")
    return nanoseconds


def _nanoseconds_of(time: TimeLike, what: str) -> int:
    given, fraction = time, 0
    if isinstance(time, str):
        time, fraction = _time_of(time, what)
    if not isinstance(time, datetime.datetime):
        try:
            return operator.index(time)
        except TypeError:
            raise TypeError(f"{what} must be a datetime, a text or nanoseconds, not {type(given).__name__}") from None
    if time.tzinfo is None:
        raise ValueError(f"{what} has no time zone: {given!r}")
    if hasattr(time, "value"):  # pandas' times know nanoseconds
        return int(time.value)
    since = time - datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc)
    return ((since.days * 86400 + since.seconds) * 1_000_000 + since.microseconds) * 1000 + fraction


def _time_of(text: str, what: str) -> tuple[datetime.datetime, int]:
    """The time of a text to the second, and nanoseconds: datetime has no more than microseconds."""
    fraction = re.search(r"(?<=:\d\d:\d\d)[.,](\d+)", text)
    whole = text[:fraction.start()] + text[fraction.end():] if fraction else text
    try:
        time = datetime.datetime.fromisoformat(whole.replace("Z", "+00:00"))
    except ValueError:
        raise ValueError(f"{what} is no time of ISO 8601: {text!r}") from None
    return time, int(fraction[1][:9].ljust(9, "0")) if fraction else 0


def _number(value: bytes | None) -> int:
    return int(value) if value is not None and value.isdigit() and len(value) < 20 else 0
