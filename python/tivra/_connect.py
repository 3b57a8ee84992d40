"""Hubs and the bus by their URLs."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any, Union

from . import _arguments
from .bus import SCHEMES, Bus
from .feed import Feed


def connect(url: str, *, password: Union[str, Callable[[str], str], None] = None, **options: Any) -> Union[Feed, Bus]:
    """A feed of hubs, or a connection to the bus, by how the URL begins; to be opened by ``with``, ``async with``, open()
    or aopen(). Both have subscribe(), snapshot(), snapshots(), board, state and stats().

    :param url: "tivra://user@host:port,.../" of hubs, as for Feed.from_url(); "nats://...", "tls://..." or "kafka://..." of
        the bus, as for tivra.bus.connect().
    :param password: of the user of hubs. The bus, whose users are in a credentials file, doesn't ask for it.
    :param options: ``on_state``, ``on_error`` and ``request_timeout``, which both have, and those of the one that is meant.
    :raises tivra.ConfigError: for what can't be meant.
    """
    if _arguments.text("url", url).startswith(SCHEMES):
        return Bus(url, **options)
    if password is not None:
        options["password"] = password
    return Feed.from_url(url, **options)
