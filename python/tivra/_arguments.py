"""What public functions are given, before the library gets it."""

from __future__ import annotations

import datetime
import operator
import os
from collections.abc import Callable, Iterable, Mapping
from typing import Any, Optional, TypeVar, Union

from .errors import InvalidArgument

T = TypeVar("T")

INT32 = 2**31 - 1
INT64 = 2**63 - 1

Seconds = Union[int, float, datetime.timedelta]


def integer(name: str, value: Any, low: int = -INT32 - 1, high: int = INT32) -> int:
    """An integer in these bounds, of NumPy too."""
    try:
        number = operator.index(value)
    except TypeError:
        raise _wrong(name, "an integer", value) from None
    if not low <= number <= high:
        raise InvalidArgument(f"{name} can't be {number}", code="InvalidArgument", advice=f"give one from {low} to {high}")
    return number


def text(name: str, value: Any) -> str:
    if not isinstance(value, str):
        raise _wrong(name, "a text", value)
    try:
        value.encode()
    except UnicodeEncodeError:
        raise InvalidArgument(f"{name} has half a character: {value!r}", code="InvalidArgument",
                              advice="give whole characters") from None
    return value


def path(name: str, value: Any) -> str:
    try:
        return text(name, os.fsdecode(value))
    except TypeError:
        raise _wrong(name, "a path", value) from None


def number(name: str, value: Any, low: float = 0.0, below: float = float("inf")) -> float:
    """A number from ``low`` that is less than ``below``, of NumPy too."""
    if isinstance(value, (str, bytes, bytearray)):
        raise _wrong(name, "a number", value)
    try:
        given = float(value)
    except (TypeError, ValueError):
        raise _wrong(name, "a number", value) from None
    if not low <= given < below:
        raise InvalidArgument(f"{name} can't be {given:g}", code="InvalidArgument", advice=f"give a number from {low:g}")
    return given


def truth(name: str, value: Any) -> bool:
    if not isinstance(value, bool):
        raise _wrong(name, "True or False", value)
    return value


def instance(name: str, value: Any, kind: type[T]) -> T:
    """An object of a class of this package."""
    if not isinstance(value, kind):
        raise _wrong(name, f"a tivra.{kind.__name__}", value)
    return value


def texts(name: str, value: Any) -> list[str]:
    """One text or several."""
    if isinstance(value, str):
        return [text(name, value)]
    if not isinstance(value, Iterable) or isinstance(value, (bytes, bytearray)):
        raise _wrong(name, "a text or a list of texts", value)
    return [text(f"each of {name}", one) for one in value]


def iterable(name: str, value: Iterable[T]) -> Iterable[T]:
    if not isinstance(value, Iterable):
        raise _wrong(name, "a sequence", value)
    return value


def mapping(name: str, value: Any) -> Mapping[Any, Any]:
    if not isinstance(value, Mapping):
        raise _wrong(name, "a dict", value)
    return value


def seconds(name: str, value: Any) -> float:
    if isinstance(value, datetime.timedelta):
        value = value.total_seconds()
    if isinstance(value, (str, bytes)):
        raise _wrong(name, "a number of seconds or a timedelta", value)
    try:
        number = float(value)
    except (TypeError, ValueError):
        raise _wrong(name, "a number of seconds or a timedelta", value) from None
    if not number >= 0:
        raise InvalidArgument(f"{name} can't be {number:g} seconds", code="InvalidArgument", advice="give a time from 0")
    return number


def optional_seconds(name: str, value: Any) -> Optional[float]:
    return None if value is None else seconds(name, value)


def function(name: str, value: Optional[Callable[..., T]]) -> Optional[Callable[..., T]]:
    if value is not None and not callable(value):
        raise _wrong(name, "a function", value)
    return value


def _wrong(name: str, wanted: str, value: Any) -> TypeError:
    try:
        shown = repr(value)
    except Exception:  # whatever the object's own method does
        shown = "what can't be shown"
    return TypeError(f"{name} must be {wanted}, not {type(value).__name__} ({shown[:80]})")
