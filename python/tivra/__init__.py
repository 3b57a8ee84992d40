"""Client for a real-time market-data feed."""

from ._core import version as _version
from .batch import Batch
from .captures import CaptureError, CaptureWarning, Recording, open_day, read_capture
from .dictionary import Dictionary
from .gap import Gap
from .replay import Replay
from .writing import write_capture

__version__ = _version()

__all__ = ["Batch", "CaptureError", "CaptureWarning", "Dictionary", "Gap", "Recording", "Replay", "open_day",
           "read_capture", "write_capture"]
