"""What the numbers of enumerated fields stand for."""

from __future__ import annotations

from collections.abc import Generator
from typing import Any, Optional

from . import _arguments, _core
from .answer import Answer, Snapshot


class Enumerations:
    """The texts of enumerated fields, as the dictionary of a hub has them. Feed.enumerations() gives them."""

    def __init__(self, feed: _core.Feed, fields: Snapshot, values: Snapshot) -> None:
        self._feed = feed
        self._native = _core.Enumerations(list(fields.records), list(values.records))

    def __len__(self) -> int:
        """How many fields are enumerated."""
        return len(self._native)

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and self._native.has(self._feed, name)

    def text(self, name: str, value: Optional[int]) -> Optional[str]:
        """What a number stands for in a field; the number as a text where the dictionary has none, None for None."""
        if value is None:
            return None
        number = _arguments.integer("value", value, -_arguments.INT64 - 1, _arguments.INT64)
        return self._native.text(self._feed, _arguments.text("name", name), number) or str(number)

    def value(self, name: str, text: str) -> Optional[int]:
        """The number of a text, as the dictionary writes it; None for a text that it doesn't have."""
        return self._native.value(self._feed, _arguments.text("name", name), _arguments.text("text", text))


class EnumerationsAnswer(Answer[Enumerations]):
    """The answer to the two requests that enumerations take."""

    def __init__(self, feed: _core.Feed, fields: Answer[Snapshot], values: Answer[Snapshot]) -> None:
        self._feed = feed
        self._answers = (fields, values)

    def get(self, timeout: Optional[float] = None) -> Enumerations:
        fields, values = (answer.get(timeout) for answer in self._answers)
        return Enumerations(self._feed, fields, values)

    def __await__(self) -> Generator[Any, None, Enumerations]:
        return self._wait().__await__()

    async def _wait(self) -> Enumerations:
        fields, values = self._answers
        return Enumerations(self._feed, await fields, await values)

    def done(self) -> bool:
        return all(answer.done() for answer in self._answers)

    def cancel(self) -> None:
        for answer in self._answers:
            answer.cancel()
