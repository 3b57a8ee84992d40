"""What the numbers of fields mean."""

from __future__ import annotations

import os
import time
from collections.abc import Iterable
from typing import Any, Union

from . import _arguments, _core
from .errors import Error
from .feed import Feed

PathLike = Union[str, "os.PathLike[str]"]


class Dictionary:
    """Names and types of fields by their numbers, which a capture doesn't hold.

    Without a dictionary a field is called by its number, and is a text as it was sent.
    """

    def __init__(self, fields: Iterable[tuple[int, str, str]] = ()) -> None:
        """Of number, name and type of each field. Types are the words of hubs: INTEGER, BOOL, FLOAT, STRING, DATETIME,
        DATE, YEAR and MONTHYEAR."""
        if isinstance(fields, (str, bytes)) or not isinstance(fields, Iterable):
            raise TypeError(f"fields must be a list of (number, name, type), not {type(fields).__name__}")
        self.fields = [_field(field) for field in fields]

    @classmethod
    def builtin(cls) -> Dictionary:
        """That of the simulator, of ``tivra-hub`` and of trading-day files."""
        return cls(_core.builtin_fields())

    @classmethod
    def from_map(cls, path: PathLike) -> Dictionary:
        """A map file, as ``tivra-wire map`` writes it. It knows no times: they are floating-point numbers, in seconds
        since 1970-01-01 00:00 UTC.

        Raises ValueError with the line that is wrong."""
        name = _arguments.path("path", path)
        with open(path, "rb") as file:
            return cls(_core.map_fields(file.read(), name))

    @classmethod
    def from_hub(cls, host: str, user: str, password: str, timeout: float = 30.0) -> Dictionary:
        """Logs in at a hub ("host:port") and asks it for its fields. Raises ValueError when they can't be had in that
        many seconds. Ctrl-C interrupts."""
        end = time.monotonic() + _arguments.seconds("timeout", timeout)
        try:
            with Feed(_arguments.text("host", host), user=user, password=password, open_timeout=timeout) as feed:
                records = feed.list("fields").get(max(0.0, end - time.monotonic())).records
        except Error as error:
            raise ValueError(f"no dictionary from {host}: {error}") from None
        return cls((record["KVN.TOKEN.NUM"], record["KVN.TOKEN.NAME"], record.get("KVN.TOKEN.TYPE", ""))
                   for record in records if "KVN.TOKEN.NUM" in record and "KVN.TOKEN.NAME" in record)

    def __len__(self) -> int:
        return len(self.fields)

    def __repr__(self) -> str:
        return f"<tivra.Dictionary: {len(self.fields)} fields>"


def _field(given: Any) -> tuple[int, str, str]:
    if not isinstance(given, (tuple, list)) or len(given) != 3:
        raise TypeError(f"each of fields must be (number, name, type), not {given!r:.80}")
    number, name, type_ = given
    return (_arguments.integer("the number of a field", number, 0), _arguments.text("the name of a field", name),
            _arguments.text("the type of a field", type_))
