"""What the package needs of the interpreter."""

import sys


def check() -> None:
    """Refuses a free-threaded interpreter whose lock was kept off. Importing the extension switches it on, unless the
    user has forbidden that; what callbacks and batches share is guarded by it.

    :raises ImportError: with what to do.
    """
    is_locked = getattr(sys, "_is_gil_enabled", lambda: True)
    if not is_locked():
        raise ImportError("tivra needs Python's global lock, which is off: leave out PYTHON_GIL=0 and -X gil=0, and "
                          "importing tivra switches it on")
