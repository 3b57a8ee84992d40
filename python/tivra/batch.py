"""Rows of messages in columns."""

from __future__ import annotations

import datetime
import html
from collections.abc import Iterator, Sequence
from typing import TYPE_CHECKING, Any

from . import _core
from ._optional import require

if TYPE_CHECKING:
    import numpy
    import pandas
    import polars
    import pyarrow

HEAD = ("received", "source", "symbol", "kind", "tag", "status", "gap")
"""The columns that stand in front of those of the fields."""

_SHOWN_ROWS = 10
_EPOCH = datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc)


def time_of(nanoseconds: int) -> datetime.datetime:
    """The time in UTC, cut to the microseconds that Python's times have."""
    return _EPOCH + datetime.timedelta(microseconds=nanoseconds // 1000)


class Batch:
    """Messages as rows of columns, which never change and outlive whatever they came from.

    Every batch has the columns ``received`` (when the message came, in UTC), ``source``, ``symbol``, ``kind`` ("image",
    "update", "refresh" or "status"), ``tag`` and ``status`` (of answers), and ``gap`` (whether messages are missing in
    front of the row: of its symbol, or of any where a slow reader lost rows), and behind them one for each field. Where a message doesn't have a field, its row has NULL.

    A batch goes to pyarrow, polars, pandas or duckdb without a copy of its values: they take it as it is (it has the
    methods of Arrow's PyCapsule interface), or by ``to_arrow()``, ``to_polars()`` and ``to_pandas()``. ``numpy()`` gives
    arrays. Iteration gives each row as a dict, which is convenient for few rows and slow for many.
    """

    def __init__(self, columns: _core.Columns, gaps: Sequence[Any] = (), states: Sequence[Any] = ()) -> None:
        self._columns = columns
        self.gaps = tuple(gaps)
        """What is missing, in the order of the rows; empty when nothing is."""
        self.states = tuple(states)
        """How states of symbols have changed, in the order of the rows."""

    def __len__(self) -> int:
        return len(self._columns)

    @property
    def fields(self) -> list[str]:
        """Names of the columns of fields."""
        return [name for name, _ in self._columns.columns()]

    @property
    def nbytes(self) -> int:
        """Memory of the values, in bytes."""
        return self._columns.nbytes

    @property
    def repeated(self) -> int:
        """Values that were left out because their message had one of the same field before."""
        return self._columns.repeated

    @property
    def mismatched(self) -> int:
        """Values that are NULL because they weren't of their column's type."""
        return self._columns.mismatched

    def __arrow_c_schema__(self) -> object:
        return self._columns.__arrow_c_schema__()

    def __arrow_c_array__(self, requested_schema: object = None) -> tuple[object, object]:
        return self._columns.__arrow_c_array__(requested_schema)

    def to_arrow(self) -> pyarrow.RecordBatch:
        """The same memory as a ``pyarrow.RecordBatch``."""
        batch: pyarrow.RecordBatch = require("pyarrow", "Batch.to_arrow()").record_batch(self._columns)
        return batch

    def to_polars(self) -> polars.DataFrame:
        """A ``polars.DataFrame``."""
        frame: polars.DataFrame = require("polars", "Batch.to_polars()").DataFrame(self.to_arrow())
        return frame

    def to_pandas(self) -> pandas.DataFrame:
        """A ``pandas.DataFrame``: symbols and kinds are categories, times are aware, and integers with NULLs are
        ``Int64`` rather than floating-point numbers."""
        require("pandas", "Batch.to_pandas()")
        frame: pandas.DataFrame = frame_of(self.to_arrow())
        return frame

    def numpy(self) -> dict[str, numpy.ndarray[Any, Any]]:
        """An array for each column, by its name. Those with NULLs are masked arrays.

        Numbers and times (``datetime64[ns]``, in UTC) are views of the batch's own memory, and read-only. Texts are
        arrays of ``str``.
        """
        np = require("numpy", "Batch.numpy()")
        received, source, symbol, kind, tag, no_tag, status, no_status, gap = self._columns.head()
        arrays = {
            "received": received.view("datetime64[ns]"),
            "source": source,
            "symbol": _texts(np, self._columns.symbols())[symbol],
            "kind": _texts(np, _core.kind_names())[kind],
            "tag": np.ma.MaskedArray(tag, no_tag),
            "status": np.ma.MaskedArray(status, no_status),
            "gap": gap,
        }
        for index, (name, type_) in enumerate(self._columns.columns()):
            arrays[name] = self._array(np, index, type_)
        return arrays

    def _array(self, np: Any, index: int, type_: str) -> Any:
        if type_ == "text":
            texts = self._columns.values(index, 0, len(self))
            mask = np.fromiter((text is None for text in texts), bool, len(texts))
            values = _texts(np, texts)
            return np.ma.MaskedArray(values, mask) if mask.any() else values
        numbers, nulls = self._columns.numbers(index)
        if type_ == "time":
            numbers = numbers.view("datetime64[ns]")
        return numbers if nulls is None else np.ma.MaskedArray(numbers, nulls)

    def rows(self, start: int = 0, stop: int | None = None) -> Iterator[dict[str, Any]]:
        """Rows as dicts, with None for NULL. Times are cut to microseconds."""
        start, stop, _ = slice(start, stop).indices(len(self))
        columns = [(name, self._values(index, type_, start, stop))
                   for index, (name, type_) in enumerate(self._columns.columns())]
        for row in range(start, stop):
            values: dict[str, Any] = dict(zip(HEAD, self._columns.head_at(row)))
            values["received"] = time_of(values["received"])
            for name, column in columns:
                values[name] = column[row - start]
            yield values

    def _values(self, index: int, type_: str, start: int, stop: int) -> list[Any]:
        values = self._columns.values(index, start, stop)
        if type_ == "time":
            return [None if value is None else time_of(value) for value in values]
        return values

    def __iter__(self) -> Iterator[dict[str, Any]]:
        return self.rows()

    def __repr__(self) -> str:
        gaps = f", {len(self.gaps)} gaps" if self.gaps else ""
        if len(self) == 0:
            return f"<tivra.Batch: no rows, {len(self.fields)} fields{gaps}>"
        first, last = (time_of(self._columns.head_at(row)[0]) for row in (0, len(self) - 1))
        symbols = len(self._columns.symbols())
        return (f"<tivra.Batch: {len(self)} rows of {symbols} symbols, {len(self.fields)} fields, "
                f"{first:%Y-%m-%d %H:%M:%S.%f} to {last:%H:%M:%S.%f} UTC{gaps}>")

    def _repr_html_(self) -> str:
        return html_table(self.rows(0, _SHOWN_ROWS), list(HEAD) + self.fields, repr(self)[1:-1])


def frame_of(arrow: Any) -> Any:
    """A frame of an Arrow table or batch, in which integers stay integers."""
    pa, pd = require("pyarrow", "to_pandas()"), require("pandas", "to_pandas()")
    frame = arrow.to_pandas()
    for index, column in enumerate(arrow.schema):
        if pa.types.is_integer(column.type) and arrow.column(index).null_count > 0:
            nullable = {pa.int64(): pd.Int64Dtype(), pa.int32(): pd.Int32Dtype()}
            frame[column.name] = arrow.column(index).to_pandas(types_mapper=nullable.get)
    return frame


def html_table(rows: Iterator[dict[str, Any]], names: Sequence[str], caption: str) -> str:
    """Rows as a table of HTML, for notebooks."""
    def cell(value: Any) -> str:
        if value is None:
            return "<td></td>"
        if isinstance(value, datetime.datetime):
            value = f"{value:%Y-%m-%d %H:%M:%S.%f}"
        return f"<td>{html.escape(str(value))}</td>"

    head = "".join(f"<th>{html.escape(name)}</th>" for name in names)
    body = "".join("<tr>" + "".join(cell(row.get(name)) for name in names) + "</tr>" for row in rows)
    return (f"<table><caption>{html.escape(caption)}</caption><thead><tr>{head}</tr></thead>"
            f"<tbody>{body}</tbody></table>")


def _texts(np: Any, texts: Sequence[str | None]) -> Any:
    array = np.empty(len(texts), object)
    array[:] = texts
    return array
