"""The library's log, by way of Python's ``logging``: loggers "tivra.connection", "tivra.login" and so on."""

from __future__ import annotations

import logging
import os

from . import _core

_LEVELS = (logging.CRITICAL, logging.WARNING, logging.INFO, logging.DEBUG)
_AREAS = ("other", "connection", "login", "dictionary", "requests", "queue", "statistics")
_loggers = [logging.getLogger(f"tivra.{area}") for area in _AREAS]
logging.getLogger("tivra").addHandler(logging.NullHandler())

_is_connected = False


def _write(level: int, area: int, text: str, nanoseconds: int) -> None:
    logger = _loggers[area]
    if logger.isEnabledFor(_LEVELS[level]):
        record = logger.makeRecord(logger.name, _LEVELS[level], "tivra", 0, text, (), None)
        record.created = nanoseconds / 1e9
        record.msecs = nanoseconds // 1_000_000 % 1000
        logger.handle(record)


def connect() -> None:
    """Brings the library's lines to ``logging``, as the level of the logger "tivra" asks for. Feeds do it when they
    are opened; call it again when that level has changed later."""
    global _is_connected
    wanted = logging.getLogger("tivra").getEffectiveLevel()
    _core.set_log_level(next((number for number in (3, 2, 1) if wanted <= _LEVELS[number]), 0))
    if not _is_connected:
        _core.set_log_sink(_write)
        _is_connected = True


def disconnect() -> None:
    """Brings no more lines to ``logging``."""
    global _is_connected
    if _is_connected:
        _is_connected = False
        _core.set_log_sink(None)


def _forget() -> None:
    # A forked child has no sink.
    global _is_connected
    _is_connected = False


os.register_at_fork(after_in_child=_forget)
