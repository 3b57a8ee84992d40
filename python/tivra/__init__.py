"""Client for a real-time market-data feed."""

from ._core import version as _version

__version__ = _version()
