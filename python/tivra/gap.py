"""What is missing."""

from __future__ import annotations

import dataclasses
import datetime


@dataclasses.dataclass(frozen=True)
class Gap:
    """Messages that were lost, as far as it is known which."""

    cause: str
    """What happened: "loss" of a connection, for example; of captures it is the kind of the note."""
    source: int = 0
    """Of the messages; 0 when they may be of any."""
    symbol: str = ""
    """Of the messages; empty when they may be of any."""
    start: datetime.datetime | None = None
    """When it began, in UTC."""
    end: datetime.datetime | None = None
    """When it was over, in UTC; None when that isn't known."""
    messages: int = 0
    """How many messages are missing; 0 when nobody knows."""
    bytes: int = 0
    """How many bytes are missing; 0 when nobody knows."""
    row: int = 0
    """The row of the batch that follows it."""
    text: str = ""
    """What else is known."""

    def __str__(self) -> str:
        where = f" of source {self.source}" if self.source else ""
        where += f" of {self.symbol}" if self.symbol else ""
        when = f" from {self.start:%Y-%m-%d %H:%M:%S.%f}" if self.start else ""
        when += f" to {self.end:%H:%M:%S.%f}" if self.end else ""
        counts = [f"{self.messages} messages" if self.messages else "", f"{self.bytes} bytes" if self.bytes else ""]
        lost = ", ".join(count for count in counts if count) or "an unknown number of messages"
        return f"{self.cause}{where}: {lost}{when}" + (f" ({self.text})" if self.text else "")
