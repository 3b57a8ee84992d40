"""What the numbers of fields mean."""

from __future__ import annotations

import os
from collections.abc import Iterable
from typing import Union

from . import _core

PathLike = Union[str, "os.PathLike[str]"]


class Dictionary:
    """Names and types of fields by their numbers, which a capture doesn't hold.

    Without a dictionary a field is called by its number, and is a text as it was sent.
    """

    def __init__(self, fields: Iterable[tuple[int, str, str]] = ()) -> None:
        """Of number, name and type of each field. Types are the words of hubs: INTEGER, BOOL, FLOAT, STRING, DATETIME,
        DATE, YEAR and MONTHYEAR."""
        self.fields = [(int(number), str(name), str(type_)) for number, name, type_ in fields]

    @classmethod
    def builtin(cls) -> Dictionary:
        """That of the simulator, of ``tivra-hub`` and of trading-day files."""
        return cls(_core.builtin_fields())

    @classmethod
    def from_map(cls, path: PathLike) -> Dictionary:
        """A map file, as ``tivra-wire map`` writes it. It knows no times: they are floating-point numbers, in seconds
        since 1970-01-01 00:00 UTC.

        Raises ValueError with the line that is wrong."""
        with open(path, "rb") as file:
            return cls(_core.map_fields(file.read(), os.fspath(path)))

    @classmethod
    def from_hub(cls, host: str, user: str, password: str, timeout: float = 30.0) -> Dictionary:
        """Logs in at a hub ("host:port") and asks it for its fields. Raises ValueError when they can't be had in that
        many seconds."""
        return cls(_core.hub_fields(host, user, password, timeout))

    def __len__(self) -> int:
        return len(self.fields)

    def __repr__(self) -> str:
        return f"<tivra.Dictionary: {len(self.fields)} fields>"
