"""How event loops hear of what the library's threads have brought: by descriptors, and without threads of Python."""

from __future__ import annotations

import asyncio
import itertools
import os
import weakref
from typing import Callable, Optional

from . import _core


class _LoopNotifier:
    """The descriptor of one loop, and the futures that wait for it."""

    def __init__(self, loop: asyncio.AbstractEventLoop) -> None:
        self.native = _core.Notifier()
        self.tokens = itertools.count(1)
        self.waiting: dict[int, asyncio.Future[None]] = {}
        loop.add_reader(self.native.fileno(), self._drain)

    def _drain(self) -> None:
        for token in self.native.drain():
            future = self.waiting.pop(token, None)
            if future is not None and not future.done():
                future.set_result(None)


_notifiers: weakref.WeakKeyDictionary[asyncio.AbstractEventLoop, _LoopNotifier] = weakref.WeakKeyDictionary()


def _forget_notifiers() -> None:
    # A forked child shares the descriptors with its parent.
    global _notifiers
    _notifiers = weakref.WeakKeyDictionary()


os.register_at_fork(after_in_child=_forget_notifiers)


def _notifier_of(loop: asyncio.AbstractEventLoop) -> _LoopNotifier:
    notifier = _notifiers.get(loop)
    if notifier is None:
        notifier = _notifiers[loop] = _LoopNotifier(loop)
    return notifier


async def notified(ask: Callable[[_core.Notifier, int], bool], timeout: Optional[float] = None) -> bool:
    """Waits until the library tells the running loop.

    :param ask: asks to be told; returns True when there is nothing to wait for.
    :return: False when the time has passed.
    """
    loop = asyncio.get_running_loop()
    notifier = _notifier_of(loop)
    token = next(notifier.tokens)
    future: asyncio.Future[None] = loop.create_future()
    notifier.waiting[token] = future
    timer = None
    try:
        if ask(notifier.native, token):
            return True
        if timeout is not None:
            timer = loop.call_later(timeout, _cancel_quietly, future)
        try:
            await future
        except _TimeIsUp:
            return False
        return True
    finally:
        if timer is not None:
            timer.cancel()
        notifier.waiting.pop(token, None)


class _TimeIsUp(Exception):
    pass


def _cancel_quietly(future: asyncio.Future[None]) -> None:
    if not future.done():
        future.set_exception(_TimeIsUp())


class _OwnDescriptor:
    """A second descriptor of the same file. A loop that has it as a reader keeps it open: were it closed under the
    loop, whoever got its number next would not be heard of."""

    def __init__(self, descriptor: int) -> None:
        self._number = os.dup(descriptor)

    def fileno(self) -> int:
        return self._number

    def __del__(self) -> None:
        if hasattr(self, "_number"):
            os.close(self._number)


class Readiness:
    """Lets the coroutines of one loop wait until a descriptor can be read. It stays with the loop as long as that is
    what they do, since going and coming costs two system calls."""

    def __init__(self, loop: asyncio.AbstractEventLoop, descriptor: int) -> None:
        self._loop = loop
        self._descriptor = _OwnDescriptor(descriptor)
        self._waiting: set[asyncio.Future[None]] = set()
        self._is_registered = False

    def is_of(self, loop: asyncio.AbstractEventLoop) -> bool:
        return self._loop is loop

    def is_in_use(self) -> bool:
        return bool(self._waiting) and not self._loop.is_closed()

    async def wait(self, timeout: Optional[float] = None) -> bool:
        if not self._is_registered:
            self._loop.add_reader(self._descriptor, self._wake)
            self._is_registered = True
        future: asyncio.Future[None] = self._loop.create_future()
        self._waiting.add(future)
        timer = self._loop.call_later(timeout, _cancel_quietly, future) if timeout is not None else None
        try:
            await future
        except _TimeIsUp:
            return False
        finally:
            if timer is not None:
                timer.cancel()
            self._waiting.discard(future)
        return True

    def _wake(self) -> None:
        if not self._waiting:
            self._leave()
        for future in self._waiting:
            if not future.done():
                future.set_result(None)

    def _leave(self) -> None:
        if self._is_registered and not self._loop.is_closed():
            self._loop.remove_reader(self._descriptor)
        self._is_registered = False

    def end(self) -> None:
        """Nobody must wait any longer, and the loop forgets the descriptor. On any thread."""
        try:
            self._loop.call_soon_threadsafe(self._end)
        except RuntimeError:
            pass  # the loop is closed, and has forgotten it

    def _end(self) -> None:
        self._wake()
        self._leave()
