"""Packages that tivra can do without."""

from __future__ import annotations

import importlib
from typing import Any


def require(package: str, purpose: str) -> Any:
    """The package, which may be missing until somebody wants what it is for."""
    try:
        return importlib.import_module(package)
    except ImportError as error:
        root = package.split(".")[0]
        raise ImportError(f"{purpose} needs {root}, which can't be imported ({error}): pip install {root}") from error
