"""Files that are played again."""

from __future__ import annotations

import os
import tempfile
from types import TracebackType
from typing import Any

from . import _arguments, _core
from ._optional import require
from .captures import CaptureError, open_day
from .dictionary import Dictionary, PathLike
from .writing import fields_of, write_capture


class Replay:
    """A hub on this machine that plays a file: a capture, a trading-day file, or a Parquet file that was exported.

    It takes the user "demo" with the password "demo", and plays to whoever subscribes; the first subscriptions start
    it. Use it in a ``with`` block, or close() it.

        with tivra.Replay("day.parquet") as hub:
            print(hub.port)
    """

    def __init__(self, path: PathLike, *, port: int = 0, factor: float = 0.0, start_when: int = 1,
                 dictionary: Dictionary | None = None) -> None:
        """``port`` 0 takes a free one. ``factor`` 1 plays at the pace of the recording, 60 an hour in a minute, and 0 as
        fast as clients read. It begins when ``start_when`` symbols are subscribed. ``dictionary`` is for Parquet files
        that don't say what their fields are.

        Raises CaptureError for a file that can't be played, or a port that can't be had."""
        port = _arguments.integer("port", port, 0, 65535)
        start_when = _arguments.integer("start_when", start_when, 0)
        factor = _arguments.number("factor", factor)
        name = _arguments.path("path", path)
        if dictionary is not None:
            _arguments.instance("dictionary", dictionary, Dictionary)
        with tempfile.TemporaryDirectory(prefix="tivra-replay-") as folder:
            capture = _capture_of(name, os.path.join(folder, "day.cap"), dictionary)
            try:
                # It has read all when it returns.
                self._hub = _core.replay_capture(capture, port, factor, start_when)
            except _core.FileFault as fault:
                raise CaptureError(str(fault)) from None

    @property
    def port(self) -> int:
        """Where it listens."""
        return self._hub.port

    @property
    def is_played_out(self) -> bool:
        """Whether all has been sent."""
        return self._hub.is_played_out

    @property
    def played(self) -> int:
        """Messages that were played so far."""
        return self._hub.played

    @property
    def left_out(self) -> int:
        """Messages without a source and a symbol, and answers: nobody can subscribe them."""
        return self._hub.left_out

    @property
    def connections(self) -> int:
        """Clients that are connected."""
        return self._hub.connections

    def close(self) -> None:
        """Stops it."""
        self._hub.stop()

    def __enter__(self) -> Replay:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()


def kind_of(path: str) -> str:
    """Whether it is a "capture", "parquet" or "day", by the first bytes of the file. Raises OSError when it can't be read."""
    with open(path, "rb") as file:
        head = file.read(8)
    if head == b"TIVRACAP":
        return "capture"
    return "parquet" if head[:4] == b"PAR1" else "day"


def _capture_of(path: str, target: str, dictionary: Dictionary | None) -> str:
    """The name of a capture with what the file holds."""
    kind = kind_of(path)
    if kind == "capture":
        return path
    if kind == "day":
        write_capture(open_day(path), target, Dictionary.builtin())
        return target
    parquet: Any = require("pyarrow.parquet", "a Parquet file")
    pa = require("pyarrow", "a Parquet file")
    try:
        with parquet.ParquetFile(path) as file:
            known = dictionary or fields_of(file.schema_arrow)
            if known is None:
                raise CaptureError(f"{path}: the file doesn't say what its fields are; give a dictionary")
            write_capture(file.iter_batches(), target, known)
    except pa.ArrowException as error:
        raise CaptureError(f"{path}: {error}") from None
    except CaptureError as error:
        raise CaptureError(f"{path}: {error}") from None
    return target
