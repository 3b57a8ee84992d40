"""What connects to engines of the bus, which not every build and not every machine has."""

from __future__ import annotations

import importlib
import re

from . import _core

#: What has the client libraries, by the names that the loader knows.
_PACKAGES = {"libnats.so": "libnats3.4, as Debian calls it", "librdkafka.so": "librdkafka1, as Debian calls it"}


def load() -> None:
    """Loads the engines' client libraries, on first use.

    :raises ImportError: when this build or this machine hasn't got them, with what to install.
    """
    try:
        module = importlib.import_module("tivra._bus")
    except ModuleNotFoundError as error:
        raise ImportError("this build of tivra can't read the bus, since libnats wasn't there when it was made: install "
                          "libnats-dev, and librdkafka-dev for Kafka, and build it again by pip install",
                          name=error.name) from error
    except ImportError as error:
        raise ImportError(f"the bus needs a client library that can't be loaded ({error}){_advice(str(error))}",
                          name=error.name, path=error.path) from error
    _core.use_engines(module.engines)


def _advice(text: str) -> str:
    missing = re.match(r"(lib\w+\.so)\S*: cannot open shared object file", text)
    if missing is None:
        return ""
    return f": install {_PACKAGES.get(missing[1], 'the package that has it')}"
