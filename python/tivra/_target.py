"""Where a file is written until it is whole."""

from __future__ import annotations

import os


_DESCRIPTORS = ("/dev/std", "/dev/fd/", "/proc/")


class Target:
    """The place of a file, which has its name once it is whole. A device, a pipe or standard output is written as it is."""

    def __init__(self, path: str) -> None:
        self._path = os.path.realpath(path)  # what a link leads to is replaced, not the link
        in_place = os.path.exists(path) and (not os.path.isfile(path) or path.startswith(_DESCRIPTORS))
        self.part = path if in_place else self._path + ".part"
        self._is_moved = not in_place

    def keep(self) -> None:
        """Ends the file, in place of one that is there."""
        if self._is_moved:
            os.replace(self.part, self._path)

    def discard(self) -> None:
        """Removes what there is of it."""
        if self._is_moved and os.path.exists(self.part):
            os.remove(self.part)
