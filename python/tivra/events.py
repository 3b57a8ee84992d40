"""What happens to feeds and subscriptions: states, and changes of them."""

from __future__ import annotations

import datetime
import enum
from dataclasses import dataclass
from typing import Any, Optional

from .errors import Error


class _State(str, enum.Enum):
    """States compare equal to their texts: ``sub.state("IBM") == "live"``."""

    def __str__(self) -> str:
        return str(self.value)


class FeedState(_State):
    """What a feed can do at the moment."""

    CONNECTING = "connecting"  #: no hub is ready
    RECOVERING = "recovering"  #: some hubs are lost and being dialled, others serve data
    ESTABLISHED = "established"
    CLOSED = "closed"  #: or not opened yet


class HubState(_State):
    """How far the connection to one hub is."""

    IDLE = "idle"
    RESOLVING = "resolving"
    CONNECTING = "connecting"
    LOGGING_IN = "logging in"
    DOWNLOADING = "downloading"
    READY = "ready"
    LOST = "lost"
    REFUSED = "refused"


class DataState(_State):
    """How far what a subscription shows can be relied on."""

    PENDING = "pending"  #: asked for, and not answered yet
    LIVE = "live"  #: image and updates are complete up to now
    STALE = "stale"  #: the hub is lost, so the last values are old
    RECOVERING = "recovering"  #: the hub is back, and the new image is on its way
    REFUSED = "refused"  #: the hub has said no; nothing will come
    CLOSED = "closed"  #: given up by the application, or with its feed


# In the order of the library's numbers.
FEED_STATES = (FeedState.CONNECTING, FeedState.RECOVERING, FeedState.ESTABLISHED, FeedState.CLOSED)
HUB_STATES = (HubState.IDLE, HubState.RESOLVING, HubState.CONNECTING, HubState.LOGGING_IN, HubState.DOWNLOADING,
              HubState.READY, HubState.LOST, HubState.REFUSED)
DATA_STATES = (DataState.PENDING, DataState.LIVE, DataState.STALE, DataState.RECOVERING, DataState.REFUSED,
               DataState.CLOSED)


@dataclass(frozen=True)
class FeedStateChange:
    """The feed has come from one state to another."""

    before: FeedState
    after: FeedState
    cause: str
    time: Optional[datetime.datetime]


@dataclass(frozen=True)
class HubStatus:
    """How the connection to a hub stands, and since when."""

    hub: str  #: "host:port"
    state: HubState
    before: HubState
    cause: str  #: for a hub that is lost or has refused, else empty
    system_error: int  #: errno, where the system knows why
    status: int  #: the hub's code, where it has refused the login
    status_name: str
    next_attempt: Optional[datetime.datetime]  #: when it is dialled next
    time: Optional[datetime.datetime]


@dataclass(frozen=True)
class StateChange:
    """A subscription has come from one state to another."""

    source: int
    symbol: str
    before: DataState
    after: DataState
    cause: str
    error: Optional[Error]  #: why the hub has refused it, else None
    time: Optional[datetime.datetime]


def state_change(source: int, symbol: str, before: int, after: int, cause: str, error: Optional[Error],
                 time: Optional[datetime.datetime]) -> StateChange:
    return StateChange(source, symbol, DATA_STATES[before], DATA_STATES[after], cause, error, time)


def hub_status(status: dict[str, Any]) -> HubStatus:
    fields = dict(status)
    fields["before"] = HUB_STATES[fields.pop("from_state")]
    fields["state"] = HUB_STATES[fields["state"]]
    return HubStatus(**fields)
