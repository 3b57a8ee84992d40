"""Arguments that can't be meant are named, with what would do."""

import pytest

import tivra


class Unshowable:
    def __repr__(self):
        raise ValueError


@pytest.mark.parametrize("call, text", [
    (lambda feed, hub: tivra.Feed(5), r"hosts must be a text or a list of texts, not int \(5\)"),
    (lambda feed, hub: tivra.Feed("h:1", user=b"demo"), "user must be a text, not bytes"),
    (lambda feed, hub: tivra.Feed("h:1", on_state="print"), "on_state must be a function, not str"),
    (lambda feed, hub: tivra.Feed.from_url(None), "url must be a text, not NoneType"),
    (lambda feed, hub: feed.subscribe("100", "IBM"), "source must be an integer, not str"),
    (lambda feed, hub: feed.subscribe(100, [1]), "each of symbols must be a text, not int"),
    (lambda feed, hub: feed.subscribe(100, b"IBM"), "symbols must be a text or a list of texts, not bytes"),
    (lambda feed, hub: feed.subscribe(100, "IBM", fields=7), "fields must be a text or a list"),
    (lambda feed, hub: feed.subscribe(100, "IBM", max_rows=1e5), r"max_rows must be an integer, not float \(100000.0\)"),
    (lambda feed, hub: feed.subscribe(100, "IBM", on_gap=3), "on_gap must be a function"),
    (lambda feed, hub: feed.subscribe(100, "IBM", policy=3), "policy must be a text"),
    (lambda feed, hub: feed.subscribe(100, "IBM", fields="BID").batches(max_rows="9"), "max_rows must be an integer"),
    (lambda feed, hub: feed.subscribe(100, "IBM", fields="BID").batches(max_wait="1"), "max_wait must be a number of seconds"),
    (lambda feed, hub: feed.snapshot(100, Unshowable()), r"symbol must be a text, not Unshowable \(what can't be shown\)"),
    (lambda feed, hub: feed.snapshot(100, "IBM", timeout="2"), "timeout must be a number of seconds"),
    (lambda feed, hub: feed.depth(None, "IBM"), "source must be an integer, not NoneType"),
    (lambda feed, hub: feed.wildcard(100, 5), "pattern must be a text"),
    (lambda feed, hub: feed.list(5), "list must be a text"),
    (lambda feed, hub: feed.close("now"), "deadline must be a number of seconds"),
    (lambda feed, hub: feed.board["IBM"], "by its source and symbol, not by 'IBM'"),
    (lambda feed, hub: feed.board.add(100, 5), "symbols must be a text or a list"),
    (lambda feed, hub: tivra.read_capture("x", fields=[1]), "each of fields must be a text"),
    (lambda feed, hub: tivra.open_day("x", source="100"), "source must be an integer"),
    (lambda feed, hub: tivra.Replay("x", factor="1"), "factor must be a number"),
    (lambda feed, hub: tivra.Replay("x", dictionary="x.map"), "dictionary must be a tivra.Dictionary, not str"),
    (lambda feed, hub: tivra.read_capture(5), "path must be a path, not int"),
    (lambda feed, hub: tivra.read_capture("x", dictionary="x.map"), "dictionary must be a tivra.Dictionary, not str"),
    (lambda feed, hub: tivra.Dictionary([(101, b"BID", "FLOAT")]), "the name of a field must be a text, not bytes"),
    (lambda feed, hub: tivra.Dictionary([101]), r"each of fields must be \(number, name, type\), not 101"),
    (lambda feed, hub: tivra.Dictionary.from_hub(["h:1"], "u", "p"), "host must be a text"),
    (lambda feed, hub: tivra.write_capture(5, "x", tivra.Dictionary.builtin()), "batches must be a sequence, not int"),
    (lambda feed, hub: tivra.write_capture([5], "/dev/null", tivra.Dictionary.builtin()), "each of batches must be a batch of"),
    (lambda feed, hub: tivra.write_capture([], "x", None), "dictionary must be a tivra.Dictionary, not NoneType"),
    (lambda feed, hub: feed.enumerations().get().text("ENUM.SRC.ID", "100"), "value must be an integer, not str"),
    (lambda feed, hub: feed.open_metrics(["a"]), "labels must be a dict, not list"),
    (lambda feed, hub: tivra.password_from_file(None), "path must be a path, not NoneType"),
    (lambda feed, hub: hub.set_silent("no"), "on must be True or False, not str"),
    (lambda feed, hub: tivra.sim.Hub(factor="1"), "factor must be a number, not str"),
    (lambda feed, hub: tivra.sim.Hub(port="9100"), "port must be an integer"),
    (lambda feed, hub: tivra.sim.Hub(symbols=["IBM"]), r"as \(source, symbol\), not as 'IBM'"),
    (lambda feed, hub: hub.publish(100, "IBM", 5), "values must be a dict"),
])
def test_a_wrong_type_names_the_argument_and_what_is_accepted(hub, feed, call, text):
    with pytest.raises(TypeError, match=text):
        call(feed, hub)


@pytest.mark.parametrize("call, text", [
    (lambda feed: feed.subscribe(1 << 40, "IBM"), "source can't be 1099511627776; give one from"),
    (lambda feed: feed.subscribe(100, "IBM\ud800"), "symbols has half a character"),
    (lambda feed: feed.subscribe(100, "IBM", max_bytes=0), "max_bytes can't be 0; give one from 1"),
    (lambda feed: feed.snapshot(100, "IBM", timeout=-1), "timeout can't be -1 seconds"),
    (lambda feed: feed.subscribe(100, "IBM", fields="BID").batches(max_wait=float("nan")), "max_wait can't be nan"),
    (lambda feed: feed.subscribe(100, "IBM", policy="some"), "it is one of block, drop_oldest, latest"),
])
def test_a_value_that_cannot_be_meant_is_an_invalid_argument(feed, call, text):
    with pytest.raises(tivra.InvalidArgument, match=text):
        call(feed)


@pytest.mark.parametrize("make, text", [
    (lambda taken: tivra.sim.Hub(port=taken).start(), "the hub can't be started: .*in use"),
    (lambda taken: tivra.sim.Hub(config="{"), "a hub can't be made of that: .*"),
    (lambda taken: tivra.sim.Hub(playback="/nowhere.csv", factor=1.0).start(), "nowhere.csv"),
])
def test_a_hub_that_cannot_be_had_is_a_hub_error(hub, make, text):
    with pytest.raises(tivra.sim.HubError, match=text) as raised:
        make(hub.port)
    assert isinstance(raised.value, tivra.Error)
