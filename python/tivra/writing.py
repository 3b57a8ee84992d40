"""Batches into files: Parquet, CSV, JSON lines and captures."""

from __future__ import annotations

import json
import os
from abc import ABC, abstractmethod
from collections.abc import Callable, Iterable, Sequence
from typing import Any

from . import _arguments, _core
from ._optional import require
from ._target import Target
from .captures import CaptureError
from .dictionary import Dictionary, PathLike
from .gap import Gap

FORMATS = ("parquet", "csv", "jsonl")

FIELDS_KEY = b"tivra.fields"
"""Where a Parquet file has the numbers and types of its fields, so that it can be played again without a dictionary."""

GAPS_KEY = b"tivra.gaps"
"""Where a Parquet file has what is known to be missing in it, as a list of texts."""

_ROW_GROUP = 1 << 20
_MOST_HELD = 256 << 20
"""Bytes that wait to be written, in all files of an export."""
_TIME_LENGTH = 30
_MOST_PARTS = 256


class Writer(ABC):
    """Writes record batches of one schema into a file, which has its name once it is whole."""

    def __init__(self, path: str, schema: Any) -> None:
        self.schema = schema
        self.path = path
        self.rows = 0
        self.held_bytes = 0  #: of what write_held() would write
        self._target = Target(path)
        self._part = self._target.part

    @abstractmethod
    def write(self, batch: Any) -> None:
        """Adds a ``pyarrow.RecordBatch``."""

    def write_held(self) -> None:
        """Gives up what waits in memory for more."""

    @abstractmethod
    def _finish(self) -> None:
        """Closes the file."""

    def note_gaps(self, gaps: Sequence[Gap]) -> None:
        """Keeps what is missing, in forms that have a place for it."""

    def close(self) -> None:
        """Ends the file, in place of one that is there."""
        self._finish()
        self._target.keep()

    def discard(self) -> None:
        """Gives the file up."""
        try:
            self._finish()
        except (OSError, ValueError):
            pass  # after a failure nothing can be written; pyarrow's exceptions are a ValueError
        finally:
            self._target.discard()


class ParquetFile(Writer):
    """Parquet with dictionaries, statistics and zstd; a million rows to a group."""

    def __init__(self, path: str, schema: Any) -> None:
        super().__init__(path, schema)
        pa, parquet = require("pyarrow", "Parquet"), require("pyarrow.parquet", "Parquet")
        self._pa = pa
        self._batches: list[Any] = []
        self._held = 0
        text = [column.name for column in schema if pa.types.is_dictionary(column.type) or pa.types.is_string(column.type)]
        self._writer = parquet.ParquetWriter(self._part, schema, compression="zstd", compression_level=1,
                                             use_dictionary=text, write_statistics=True, store_schema=True)

    def write(self, batch: Any) -> None:
        self._batches.append(batch)
        self._held += batch.num_rows
        self.held_bytes += batch.nbytes
        self.rows += batch.num_rows
        if self._held >= _ROW_GROUP:
            self.write_held()

    def note_gaps(self, gaps: Sequence[Gap]) -> None:
        self._writer.add_key_value_metadata({GAPS_KEY: json.dumps([str(gap) for gap in gaps])})

    def write_held(self) -> None:
        if not self._batches:
            return
        table = self._pa.Table.from_batches(self._batches).unify_dictionaries()
        self._writer.write_table(table, row_group_size=_ROW_GROUP)
        self._batches, self._held, self.held_bytes = [], 0, 0

    def _finish(self) -> None:
        self.write_held()
        self._writer.close()


class CsvFile(Writer):
    """CSV with a head line. NULL is nothing between two commas, an empty text is ""."""

    def __init__(self, path: str, schema: Any) -> None:
        super().__init__(path, schema)
        self._pa, csv = require("pyarrow", "CSV"), require("pyarrow.csv", "CSV")
        self._plain = plain_schema(schema)
        self._times = [index for index, column in enumerate(schema) if self._pa.types.is_timestamp(column.type)]
        self._schema = self._plain
        for index in self._times:
            self._schema = self._schema.set(index, self._plain.field(index).with_type(self._pa.string()))
        self._writer = csv.CSVWriter(self._part, self._schema)

    def write(self, batch: Any) -> None:
        columns = batch.cast(self._plain).columns
        for index in self._times:
            columns[index] = self._texts_of(columns[index])
        self._writer.write(self._pa.record_batch(columns, schema=self._schema))
        self.rows += batch.num_rows

    def _texts_of(self, times: Any) -> Any:
        """The same as pyarrow's own, of times that have different seconds seldom."""
        pa = self._pa
        schema, array = times.__arrow_c_array__()
        texts = pa.py_buffer(_core.time_texts(schema, array, " "))
        offsets = pa.array(range(0, (len(times) + 1) * _TIME_LENGTH, _TIME_LENGTH), pa.int32()).buffers()[1]
        validity = times.is_valid().buffers()[1] if times.null_count else None
        return pa.Array.from_buffers(pa.string(), len(times), [validity, offsets, texts])

    def _finish(self) -> None:
        self._writer.close()


class JsonLinesFile(Writer):
    """An object per line; NULL has no entry. Times are texts of ISO 8601 with nanoseconds."""

    def __init__(self, path: str, schema: Any) -> None:
        super().__init__(path, schema)
        self._schema = plain_schema(schema)
        self._lines = _core.JsonLines()
        self._file = open(self._part, "wb")

    def write(self, batch: Any) -> None:
        self._file.write(self._lines.write(*batch.cast(self._schema).__arrow_c_array__()))
        self.rows += batch.num_rows

    def _finish(self) -> None:
        self._file.close()


_WRITERS: dict[str, Callable[[str, Any], Writer]] = {"parquet": ParquetFile, "csv": CsvFile, "jsonl": JsonLinesFile}


class SplitWriter:
    """One file for all rows, or one for each hour or source, whose name then has it in front of its suffix."""

    def __init__(self, path: str, format_: str, split: str | None, dictionary: Dictionary) -> None:
        self._path, self._format, self._split = path, format_, split
        self._dictionary = dictionary
        self._parts: dict[str, Writer] = {}

    @property
    def parts(self) -> list[Writer]:
        """The files so far, in the order of their names."""
        return [self._parts[key] for key in sorted(self._parts)]

    def write(self, batch: Any) -> None:
        """Adds a ``pyarrow.RecordBatch``."""
        if self._split is None:
            self._part("", batch.schema).write(batch)
        else:
            self._write_split(batch)
        while sum(part.held_bytes for part in self._parts.values()) > _MOST_HELD:
            max(self._parts.values(), key=lambda part: part.held_bytes).write_held()

    def _write_split(self, batch: Any) -> None:
        compute = require("pyarrow.compute", "--split")
        if self._split == "hour":
            keys = compute.strftime(batch.column("received"), format="%Y-%m-%dT%H")
        else:
            keys = batch.column("source").cast("string")
        for key in compute.unique(keys).to_pylist():
            self._part(key, batch.schema).write(batch.filter(compute.equal(keys, key)))

    def _part(self, key: str, schema: Any) -> Writer:
        part = self._parts.get(key)
        if part is None:
            if len(self._parts) >= _MOST_PARTS:
                raise CaptureError(f"the rows would make more than {_MOST_PARTS} files; bound them by fewer hours or "
                                   f"sources")
            base, suffix = os.path.splitext(self._path)
            path = f"{base}-{key}{suffix}" if key else self._path
            part = _WRITERS[self._format](path, with_fields(schema, self._dictionary))
            self._parts[key] = part
        return part

    def close(self, gaps: Sequence[Gap] = ()) -> None:
        """Ends all files. What is missing may be so in any of them."""
        for part in self.parts:
            part.note_gaps(gaps)
            part.close()

    def discard(self) -> None:
        for part in self.parts:
            part.discard()


def plain_schema(schema: Any) -> Any:
    """The schema with texts in place of numbers of texts."""
    pa = require("pyarrow", "export")
    return pa.schema([column.with_type(pa.string()) if pa.types.is_dictionary(column.type) else column
                      for column in schema])


def with_fields(schema: Any, dictionary: Dictionary) -> Any:
    """The schema with what is known of its fields."""
    return schema.with_metadata({**(schema.metadata or {}), FIELDS_KEY: json.dumps(dictionary.fields).encode()})


def fields_of(schema: Any) -> Dictionary | None:
    """What with_fields has written; None for a file of others."""
    text = (schema.metadata or {}).get(FIELDS_KEY)
    if text is None:
        return None
    try:
        return Dictionary(json.loads(text))
    except (ValueError, TypeError):
        raise CaptureError("what the file says of its fields can't be read") from None


def write_capture(batches: Iterable[Any], path: PathLike, dictionary: Dictionary) -> int:
    """Writes batches (of tivra or of pyarrow) as the messages that they came from, into a capture.

    They need the columns of every batch, ``gap`` aside, and one for each field, by a name that the dictionary has.
    Returns how many messages the capture has. Raises CaptureError with the row that can't be a message; a capture that
    was there is then as before.
    """
    name = _arguments.path("path", path)
    fields = _arguments.instance("dictionary", dictionary, Dictionary).fields
    batches = _arguments.iterable("batches", batches)
    pa = require("pyarrow", "write_capture()")
    target = Target(name)
    try:
        writer = _core.BodyWriter(target.part, fields)
        for batch in batches:
            record = _writable(pa, _record_batch(pa, batch))
            writer.add(*record.__arrow_c_array__())
        writer.finish()
        target.keep()
    except _core.FileFault as fault:
        target.discard()
        raise CaptureError(f"cannot write {name}: {fault}") from None
    except BaseException:
        target.discard()
        raise
    return writer.messages


def _record_batch(pa: Any, batch: Any) -> Any:
    try:
        return pa.record_batch(batch)
    except TypeError:
        raise TypeError(f"each of batches must be a batch of tivra, pyarrow, pandas or polars, not {type(batch).__name__}") from None


def _writable(pa: Any, batch: Any) -> Any:
    """The batch in the types that a message can be made of."""
    head = {"received": pa.timestamp("ns", "UTC"), "source": pa.int32(), "symbol": pa.string(), "kind": pa.string(),
            "tag": pa.int64(), "status": pa.int32()}
    missing = [name for name in head if name not in batch.schema.names]
    if missing:
        raise CaptureError(f"the rows have no column {missing[0]!r}: they are not messages of a capture or a feed")
    columns = []
    for column in batch.schema:
        if column.name == "gap":
            continue
        type_ = head.get(column.name) or _field_type(pa, column.type)
        try:
            columns.append((column.name, batch.column(column.name).cast(type_)))
        except pa.ArrowException as error:
            raise CaptureError(f"the column {column.name!r} ({column.type}) can't be a field: {error}") from None
    return pa.record_batch([values for _, values in columns], names=[name for name, _ in columns])


def _field_type(pa: Any, type_: Any) -> Any:
    if pa.types.is_floating(type_):
        return pa.float64()
    if pa.types.is_integer(type_) or pa.types.is_boolean(type_):
        return pa.int64()
    if pa.types.is_timestamp(type_):
        return pa.timestamp("ns", "UTC")
    return pa.string()
