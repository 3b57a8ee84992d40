"""What tests do with hubs and feeds."""

import time

import tivra

DEADLINE = 20.0


def make_feed(hub, **options):
    return tivra.Feed(hub.address, user="demo", password="demo", **options)


def wait_until(condition, what="the condition"):
    """Waits for something that nobody reports."""
    end = time.monotonic() + DEADLINE
    while not condition():
        assert time.monotonic() < end, f"{what} didn't come true"
        time.sleep(0.005)


def wait_live(sub, *symbols):
    wait_until(lambda: all(sub.state(symbol) == "live" for symbol in symbols), f"{symbols} live")
