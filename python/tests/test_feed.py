"""Opening, asking and closing."""

import asyncio
import datetime
import pickle
import queue
import signal
import subprocess
import sys
import threading
import time

import pytest

import tivra
import tivra.sim
from hubs import DEADLINE, make_feed


def test_a_feed_opens_closes_and_says_how_it_is(hub):
    changes = []
    feed = make_feed(hub, on_state=changes.append)
    assert feed.state == tivra.FeedState.CLOSED
    with feed:
        assert feed.state == "established"
        assert [(status.hub, status.state) for status in feed.hubs()] == [(hub.address, "ready")]
        assert feed.stats()["hubs"][0]["hub"] == hub.address
        assert f'hub="{hub.address}"' in feed.open_metrics({"app": "test"})
    assert feed.state == "closed"
    assert [(change.before, change.after) for change in changes] == [("connecting", "established")]
    with pytest.raises(tivra.Closed):
        feed.snapshot(100, "IBM").get()
    assert feed.close() is True


def test_asyncio_opens_asks_and_closes(hub):
    async def main():
        async with make_feed(hub) as feed:
            one, two = await asyncio.gather(feed.snapshot(100, "IBM", timeout=5), feed.snapshot(100, "AIG"))
            return one["ISIN"], two.records[0].symbol, feed.state

    assert asyncio.run(main()) == ("US4592001014", "AIG", "established")


@pytest.mark.parametrize("make", ["url", "file", "env"])
def test_options_come_from_elsewhere_and_keywords_go_over_them(hub, make, tmp_path, monkeypatch):
    if make == "url":
        feed = tivra.Feed.from_url(f"tivra://demo@{hub.address}/?compression=0", password="demo")
    elif make == "file":
        path = tmp_path / "feed.toml"
        path.write_text(f'hosts = ["{hub.address}"]\nuser = "nobody"\npassword = "demo"\n')
        path.chmod(0o600)
        feed = tivra.Feed.from_file(path, user="demo")
    else:
        monkeypatch.setenv("TIVRA_HOSTS", hub.address)
        monkeypatch.setenv("TIVRA_USER", "demo")
        monkeypatch.setenv("TIVRA_PASSWORD", "demo")
        feed = tivra.Feed.from_env(open_timeout=datetime.timedelta(seconds=20))
    with feed:
        assert feed.state == "established"


@pytest.mark.parametrize(
    "options, part",
    [
        ({"no_such_option": 1}, "no_such_option"),
        ({"open_timeout": -1}, "open_timeout"),
        ({"min_hubs": "many"}, "min_hubs"),
        ({"compression": object()}, "compression"),
        ({"user": "demo", "password": ""}, "password"),
        ({"hosts": [], "user": "demo", "password": "demo"}, "host"),
    ],
)
def test_an_option_that_cant_be_meant_is_named(options, part):
    with pytest.raises(tivra.ConfigError, match=part) as raised:
        tivra.Feed(**{"hosts": "127.0.0.1:1", **options}).open()
    assert raised.value.code == "InvalidOption" and not raised.value.retry
    assert isinstance(raised.value, ValueError)


def test_a_password_that_isnt_there_is_a_config_error(monkeypatch):
    monkeypatch.delenv("TIVRA_PASSWORD", raising=False)
    with pytest.raises(tivra.ConfigError, match="TIVRA_PASSWORD"):
        tivra.password_from_env()


def test_a_function_is_asked_for_the_password_at_each_login(hub):
    asked = queue.Queue()
    with tivra.Feed(hub.address, user="demo", password=lambda who: asked.put(who) or "demo") as feed:
        assert asked.get(timeout=DEADLINE) == hub.address
        hub.drop_connections()
        assert asked.get(timeout=DEADLINE) == hub.address
        assert feed.snapshot(100, "IBM").get(DEADLINE)["ISIN"] == "US4592001014"


@pytest.mark.parametrize("answer, text", [(lambda who: 5, "TypeError: the password has to be a text, not int"),
                                          (lambda who: "", "returned none"),
                                          (lambda who: "a\ud800", "UnicodeEncodeError"),
                                          (lambda who: {}[who], "KeyError")])
def test_a_function_without_a_password_opens_nothing_and_says_why(hub, answer, text, monkeypatch):
    told = []
    monkeypatch.setattr(sys, "unraisablehook", lambda it: told.append(f"{it.exc_type.__name__}: {it.exc_value}"))
    with pytest.raises(tivra.Error) as raised:
        tivra.Feed(hub.address, user="demo", password=answer, open_timeout=5).open()
    assert "the callback for the password has" in str(raised.value)
    assert text in str(raised.value) + str(told)
    assert not [request for request in hub.requests() if "Login" in request]


def test_a_refused_login_says_who_and_why(hub):
    with pytest.raises(tivra.LoginRefused) as raised:
        tivra.Feed(hub.address, user="demo", password="wrong", open_timeout=5).open()
    error = raised.value
    assert (error.phase, error.hub) == ("Login", hub.address)
    assert error.status != 0 and error.status_name and "wrong" not in str(error)
    again = pickle.loads(pickle.dumps(error))
    assert type(again) is type(error) and vars(again) == vars(error) and str(again) == str(error)


def test_a_hub_that_isnt_there_fails_within_the_time():
    with tivra.sim.Hub() as gone:
        address = gone.address
    began = time.monotonic()
    with pytest.raises(tivra.Error) as raised:
        tivra.Feed(address, user="demo", password="demo", open_timeout=0.5).open()
    assert time.monotonic() - began < 10
    assert raised.value.retry


def test_answers_refused_late_and_given_up(hub, feed):
    with pytest.raises(tivra.RequestRefused) as raised:
        feed.snapshot(102, "IBM").get()
    assert raised.value.status != 0

    hub.ignore("QuerySnap")
    with pytest.raises(tivra.Timeout) as late:
        feed.snapshot(100, "IBM", timeout=0.05).get()
    assert late.value.retry and isinstance(late.value, TimeoutError)

    async def wait_in_vain():
        await feed.snapshot(100, "IBM", timeout=0.05)

    with pytest.raises(tivra.Timeout):
        asyncio.run(wait_in_vain())

    answer = feed.snapshot(100, "IBM")
    answer.cancel()
    with pytest.raises(tivra.Cancelled):
        answer.get()
    hub.clear_refusals()
    assert feed.snapshot(100, "IBM").get()["ISIN"]
    for symbol in ("", "A|B", "X" * 33):
        with pytest.raises(tivra.InvalidArgument):
            feed.snapshot(100, symbol)


def test_what_can_be_asked_for(hub, feed):
    hub.publish(100, "ZZA", {"BID": 1.5})
    hub.publish(100, "ZZB", {"BID": 2.5})
    assert sorted(record["BID"] for record in feed.wildcard(100, "ZZ*").get()) == [1.5, 2.5]
    many = [answer.get() for answer in feed.snapshots(100, ["ZZA", "ZZB"])]
    assert [snap["BID"] for snap in many] == [1.5, 2.5]
    fields = feed.list("fields").get()
    assert len(fields) > 200
    assert feed.xref(100, "IBM").get().complete
    with pytest.raises(tivra.InvalidArgument, match="enumerations"):
        feed.list("enumeration")


@pytest.mark.parametrize("is_async", [False, True])
def test_enumerated_values_have_texts(feed, is_async):
    async def ask():
        return await feed.enumerations()

    texts = asyncio.run(ask()) if is_async else feed.enumerations().get()
    assert len(texts) >= 1 and "BID" not in texts
    name = next(name for name in ("ENUM.TRADING.STATUS", "ENUM.INSTRUMENT.TYPE") if name in texts)
    text = texts.text(name, 1)
    assert not text.isdigit() and texts.value(name, text) == 1
    assert texts.text(name, 98765) == "98765" and texts.value(name, "NO SUCH") is None and texts.text(name, None) is None


def test_values_have_the_types_of_python(hub, feed):
    when = datetime.datetime(2013, 10, 7, 13, 30, 0, 250000, tzinfo=datetime.timezone.utc)
    hub.publish(100, "ALL", {"BID": 0.0, "BID.SIZE": 0, "SYMBOL.NAME": "Größe", "TRADE.DATETIME": when})
    hub.send_body(b"")
    snap = feed.snapshot(100, "ALL").get()
    assert (snap["BID"], snap["BID.SIZE"], snap["SYMBOL.NAME"]) == (0.0, 0, "Größe")
    assert abs(snap["TRADE.DATETIME"] - when) < datetime.timedelta(milliseconds=1)
    assert "ASK" not in snap and snap.get("ASK", -1) == -1
    with pytest.raises(KeyError):
        snap["ASK"]
    record = snap.records[0]
    assert dict(record.fields)["BID"] == 0.0 and list(record)[0] in record and len(record) >= 4


def test_an_open_that_is_cancelled_leaves_nothing(hub):
    hub.ignore("LoginUser")

    async def main():
        feed = make_feed(hub)
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(feed.aopen(), 0.2)

    asyncio.run(main())
    assert hub.wait_for_connections(0)


_INTERRUPTED = """
import sys, tivra
feed = tivra.Feed(sys.argv[1], user="demo", password="demo").open()
waits = {
    "answer": lambda: feed.snapshot(100, "IBM", timeout=60).get(),
    "events": lambda: [event for event in feed.subscribe(100, "NONE")],
    "batches": lambda: [batch for batch in feed.subscribe(100, "NONE", fields=["BID"]).batches()],
    "blocking batches": lambda: [b for b in feed.subscribe(100, "NONE", fields=["BID"], policy="block").batches()],
    "open": lambda: tivra.Feed(sys.argv[3], user="demo", password="demo").open(),
}
try:
    print("waiting", flush=True)
    waits[sys.argv[2]]()
except KeyboardInterrupt:
    print("interrupted", flush=True)
"""


@pytest.mark.parametrize("wait", ["answer", "events", "batches", "blocking batches", "open"])
def test_ctrl_c_interrupts_every_wait(hub, wait):
    hub.ignore("QuerySnap")
    with tivra.sim.Hub() as deaf:
        deaf.ignore("LoginUser")
        command = [sys.executable, "-c", _INTERRUPTED, hub.address, wait, deaf.address]
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as child:
            assert child.stdout.readline() == "waiting\n"
            if wait == "open":
                assert deaf.wait_for_command("LoginUser")
            # The interpreter may not be in the wait yet, which makes no difference.
            child.send_signal(signal.SIGINT)
            assert child.communicate(timeout=20)[0] == "interrupted\n"
            assert child.returncode == 0


def test_feeds_close_from_other_threads_while_somebody_waits(hub):
    feed = make_feed(hub).open()
    hub.ignore("QuerySnap")
    answer = feed.snapshot(100, "IBM", timeout=60)
    closer = threading.Thread(target=feed.close)
    closer.start()
    with pytest.raises(tivra.Error):
        answer.get()
    closer.join(20)
    assert not closer.is_alive()


def test_closing_in_a_coroutine_lets_callbacks_have_the_loop(hub):
    async def one():
        return 1

    async def main():
        loop = asyncio.get_running_loop()
        heard = []
        entered = threading.Event()
        async with make_feed(hub) as feed:
            def ask(event):
                entered.set()
                heard.append(asyncio.run_coroutine_threadsafe(one(), loop).result())

            feed.subscribe(100, "IBM", on_update=ask)
            entered.wait(DEADLINE)  # the loop can't answer before it is closing
        return heard

    assert asyncio.run(main()) == [1]


def test_a_callback_cant_wait_for_what_its_thread_has_to_bring(hub, feed):
    heard = queue.Queue()

    def ask(event):
        try:
            feed.snapshot(100, "AIG").get()
        except tivra.Error as error:
            heard.put(error.code)

    feed.subscribe(100, "IBM", on_update=ask)
    assert heard.get(timeout=DEADLINE) == "InCallback"


def test_a_feed_that_nobody_takes_goes_while_its_callbacks_run(hub):
    states = []
    options = tivra._core.Options()
    options.set("hosts", hub.address)
    options.set("user", "demo")
    options.set_password("demo")
    options.on_state(lambda *change: states.append(change))
    opening = tivra._core.Opening(options)
    assert opening.wait(DEADLINE)
    begin = time.monotonic()
    del opening
    assert time.monotonic() - begin < 5  # of the 10 s that closing waits for callbacks
    assert len(states) > 0
