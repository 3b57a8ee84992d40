"""Hubs and feeds that tests share."""

import pytest

import tivra.sim
from hubs import make_feed


@pytest.fixture
def hub():
    with tivra.sim.Hub() as running:
        yield running


@pytest.fixture
def feed(hub):
    with make_feed(hub) as opened:
        yield opened
