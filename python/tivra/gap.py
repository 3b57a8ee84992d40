"""What is missing."""

from __future__ import annotations

import dataclasses
import datetime


@dataclasses.dataclass(frozen=True)
class Gap:
    """Messages that were lost, as far as it is known which."""

    cause: str
    """What happened; of captures it is the kind of the note.

    Of the bus besides: "takeover" (another bridge writes the symbol now); "overflow" (also: the engine was too slow for the
    bridge), which present values follow; "expired" (the stream has dropped it before it was read), "unreadable" (messages
    that are no batches) and "missing" (the numbers of records show it).
    Of subscriptions: "loss" (the connection was lost) and "withdrawal" (no permission for a time), which a new image
    follows; "overrun" and "conflation" (the hub has dropped or merged updates for want of room); "overflow" (the reader
    was so slow that rows were dropped); "unlisted" (it was so slow that `count` gaps aren't told one by one).
    """
    source: int = 0
    """Of the messages; 0 when they may be of any."""
    symbol: str = ""
    """Of the messages; empty when they may be of any."""
    start: datetime.datetime | None = None
    """When it began, in UTC."""
    end: datetime.datetime | None = None
    """When it was over, in UTC; None when that isn't known."""
    messages: int | None = None
    """How many messages are missing; None when nobody knows."""
    bytes: int | None = None
    """How many bytes are missing; None when nobody knows."""
    row: int = 0
    """The row of the batch that follows it."""
    text: str = ""
    """What else is known."""
    count: int = 1
    """How many gaps it stands for."""

    def __str__(self) -> str:
        where = f" of source {self.source}" if self.source else ""
        where += f" of {self.symbol}" if self.symbol else ""
        when = f" from {self.start:%Y-%m-%d %H:%M:%S.%f}" if self.start else ""
        when += f" to {self.end:%H:%M:%S.%f}" if self.end else ""
        counts = [f"{self.messages} messages" if self.messages else "", f"{self.bytes} bytes" if self.bytes else ""]
        lost = ", ".join(count for count in counts if count) or "an unknown number of messages"
        return f"{self.cause}{where}: {lost}{when}" + (f" ({self.text})" if self.text else "")
