"""Calls that may wait for the event loop's own callbacks."""

from __future__ import annotations

import asyncio
import functools
import threading
from collections.abc import Callable
from typing import TypeVar

T = TypeVar("T")


async def finished(call: Callable[[], T]) -> T:
    """What the call gives, which runs on a thread of its own. It goes on when this is cancelled."""
    loop = asyncio.get_running_loop()
    future: asyncio.Future[T] = loop.create_future()

    def settle(settler: Callable[[], None]) -> None:
        if not future.done():
            settler()

    def run() -> None:
        try:
            result = call()
        except BaseException as error:
            settler: Callable[[], None] = functools.partial(future.set_exception, error)
        else:
            settler = functools.partial(future.set_result, result)
        try:
            loop.call_soon_threadsafe(settle, settler)
        except RuntimeError:
            pass  # the loop has been closed meanwhile

    threading.Thread(target=run, name="tivra-close", daemon=True).start()
    return await future
