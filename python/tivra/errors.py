"""What goes wrong, as exceptions: tivra.Error and a subclass for each case that a program may handle."""

from __future__ import annotations

from typing import Any


class Error(Exception):
    """What went wrong. ``str(error)`` is one line for a log: what was attempted, with whom, the cause, and what to do.

    Attributes:
        code: the name of the case, "TimedOut" for example.
        phase: where on its way a request or a connection was, "Login" for example; "None" where that says nothing.
        hub: "host:port"; empty when no hub is concerned, or which one isn't known.
        cause: what happened.
        advice: what the reader can do about it; may be empty.
        status, status_name: the hub's code and its name; 0 and "" when the error isn't an answer.
        system_error: errno; 0 when the system has no part in it.
        retry: whether the same call may succeed later without anybody changing anything.
    """

    def __init__(self, cause: str, *, code: str = "System", phase: str = "None", hub: str = "", advice: str = "",
                 status: int = 0, status_name: str = "", system_error: int = 0, retry: bool = False) -> None:
        self.code = code
        self.phase = phase
        self.hub = hub
        self.cause = cause
        self.advice = advice
        self.status = status
        self.status_name = status_name
        self.system_error = system_error
        self.retry = retry
        super().__init__(self._line())

    @property
    def name(self) -> str:
        """The same as ``code``."""
        return self.code

    def _line(self) -> str:
        line = f"{self.code}: {self.hub}: {self.cause}" if self.hub else f"{self.code}: {self.cause}"
        if self.status:
            line += f" (status {self.status}, {self.status_name})" if self.status_name else f" (status {self.status})"
        return f"{line}; {self.advice}" if self.advice else line

    def __reduce__(self) -> tuple[Any, ...]:
        return _rebuild, (type(self), self.cause, {name: value for name, value in vars(self).items() if name != "cause"})


class InvalidArgument(Error, ValueError):
    """A value in the call can't be meant."""


class ConfigError(Error, ValueError):
    """An option of the feed can't be meant, in a call, a URL, a file or the environment."""


class UnknownField(Error, LookupError):
    """No hub of the feed has a field of that name."""


class WrongType(Error, TypeError):
    """The field holds another type than the one asked for."""


class Closed(Error):
    """The feed or the object has been closed, or isn't open yet."""


class InCallback(Error):
    """The call would wait for the thread that it was made on."""


class Timeout(Error, TimeoutError):
    """No answer, or no connection, within the time that was given."""


class Cancelled(Error):
    """The application has given the request up."""


class RequestRefused(Error):
    """The hub has said no: ``status`` and ``status_name`` say why."""


class LoginRefused(RequestRefused):
    """The hub doesn't accept the user."""


class ConnectionLost(Error, ConnectionError):
    """The hub was lost before its answer."""


class OpenFailed(Error, ConnectionError):
    """The feed couldn't be opened."""


class QueueFull(Error):
    """More requests wait than the parameters of the feed allow."""


_BY_CODE: dict[str, type[Error]] = {
    "InvalidArgument": InvalidArgument,
    "InvalidOption": ConfigError,
    "UnknownField": UnknownField,
    "WrongType": WrongType,
    "Closed": Closed,
    "InCallback": InCallback,
    "TimedOut": Timeout,
    "Cancelled": Cancelled,
    "Refused": RequestRefused,
    "ConnectionLost": ConnectionLost,
    "OpenFailed": OpenFailed,
    "QueueFull": QueueFull,
}


def from_native(code: str, phase: str, cause: str, advice: str, hub: str, status: int, status_name: str,
                system_error: int, retry: bool) -> Error:
    """The exception for an error of the library."""
    kind = LoginRefused if (code, phase) == ("Refused", "Login") else _BY_CODE.get(code, Error)
    return kind(cause, code=code, phase=phase, hub=hub, advice=advice, status=status, status_name=status_name,
                system_error=system_error, retry=retry)


def _rebuild(kind: type[Error], cause: str, details: dict[str, Any]) -> Error:
    error = kind.__new__(kind)
    vars(error).update(details, cause=cause)
    Exception.__init__(error, error._line())
    return error
