"""Events, batches, callbacks, states and gaps."""

import asyncio
import sys
import threading
import time

import pytest

import tivra
from capturefile import capture
from hubs import DEADLINE, make_feed, wait_live, wait_until


def publish_bids(hub, count, symbol="IBM", first=0):
    for number in range(first, first + count):
        hub.publish(100, symbol, {"BID": float(number)})


def bids_of(batch):
    return batch.to_arrow().column("BID").to_pylist()


def read_bids(batches, last):
    """All bids up to this one, and the gaps on the way."""
    found, gaps = [], []
    for batch in batches:
        found += [bid for bid in bids_of(batch) if bid is not None]
        gaps += batch.gaps
        if found and found[-1] == last:
            return found, gaps
    return found, gaps


@pytest.mark.parametrize("policy", ["drop_oldest", "block", "latest"])
def test_events_come_in_order_with_their_values(hub, feed, policy):
    sub = feed.subscribe(100, ["IBM", "AIG"], policy=policy)
    wait_live(sub, "IBM", "AIG")
    states = [event.state for event in (next(sub) for _ in range(4)) if event.kind == "state"]
    assert {(state.symbol, str(state.after)) for state in states} == {("IBM", "live"), ("AIG", "live")}
    for number in range(3):
        hub.publish(100, "IBM", {"BID": float(number)})
        event = next(sub)
        assert (event.kind, event.source, event.symbol, event["BID"]) == ("update", 100, "IBM", float(number))
        assert "ASK" not in event and event.get("ASK") is None and event.fields["BID"] == number
        assert abs(event.received / 1e9 - event.time.timestamp()) < 1e-3
    sub.close()
    assert [str(event.state.after) for event in sub] == ["closed", "closed"]


def test_symbols_come_and_go(hub, feed):
    sub = feed.subscribe(100, "IBM")
    assert sub.add(["AIG", "IBM"]) == 1
    assert sorted(sub.symbols) == [(100, "AIG"), (100, "IBM")]
    wait_live(sub, "IBM", "AIG")
    assert sub.remove("IBM") == 1
    assert sub.state("IBM") == "closed" and sub.age("IBM") is None
    assert sub.age("AIG") >= 0
    with pytest.raises(tivra.InvalidArgument):
        sub.add("A|B")


def test_a_refusal_is_told_and_kept(hub, feed):
    sub = feed.subscribe(102, "IBM", fields=["BID"])
    batch = next(sub.batches())
    assert len(batch) == 0 and batch.states[-1].after == "refused"
    assert isinstance(batch.states[-1].error, tivra.RequestRefused)
    assert isinstance(sub.error("IBM"), tivra.RequestRefused)


def test_patterns_and_order_books(hub, feed):
    hub.publish(100, "ZZOLD", {"BID": 3.0})
    with feed.subscribe_wildcard(100, "ZZ*", fields=["BID"]) as sub:
        wait_live(sub, "ZZ*")
        hub.publish(100, "ZZNEW", {"BID": 4.0})
        assert read_bids(sub.batches(), 4.0)[0] == [3.0, 4.0]
    with feed.subscribe_depth(100, "IBM") as book:
        wait_live(book, "IBM")


@pytest.mark.parametrize("policy", ["drop_oldest", "block"])
@pytest.mark.parametrize("is_async", [False, True])
def test_batches_have_every_row_in_order(hub, feed, policy, is_async):
    sub = feed.subscribe(100, "IBM", fields=["BID", "ASK"], policy=policy)
    wait_live(sub, "IBM")
    batches = sub.batches(max_rows=100, max_wait=0.01)
    writer = threading.Thread(target=publish_bids, args=(hub, 1000))
    writer.start()

    async def read():
        found = []
        async for batch in batches:
            assert len(batch) <= 100 and not batch.gaps
            found += [bid for bid in bids_of(batch) if bid is not None]
            if found and found[-1] == 999.0:
                return found

    found = asyncio.run(read()) if is_async else read_bids(batches, 999.0)[0]
    writer.join()
    assert found == [float(number) for number in range(1000)]


@pytest.mark.parametrize("policy", ["drop_oldest", "block"])
def test_live_rows_and_those_of_a_capture_are_alike(hub, feed, tmp_path, policy):
    fields = ["BID", "SYMBOL.TICKER", "ENUM.SRC.ID", "QUERY.TAG", "REFRESH"]
    sub = feed.subscribe(100, "IBM", fields=fields, policy=policy)
    wait_live(sub, "IBM")
    publish_bids(hub, 1)
    hub.refresh(100, "IBM")
    live = []
    for batch in sub.batches(max_rows=1):
        live += batch.to_arrow().to_pylist()
        if live and live[-1]["kind"] == "refresh":
            break
    tag = live[0]["tag"]
    assert tag > 0 and [(row["kind"], row["tag"], row["status"]) for row in live] == [
        ("image", tag, None), ("update", None, None), ("refresh", None, None)]
    bodies = [b"4=100|5=IBM|5026=%d" % tag, b"4=100|5=IBM|101=0", b"4=100|5=IBM|101=0|24=1"]
    path = tmp_path / "same.cap"
    path.write_bytes(capture([(1, body) for body in bodies]))
    recorded = tivra.read_capture(path, fields=fields, dictionary=tivra.Dictionary.builtin()).to_arrow()
    assert [{**row, "received": None} for row in recorded.to_pylist()] == [{**row, "received": None} for row in live]


def test_rows_before_the_first_batches_are_not_lost(hub, feed):
    sub = feed.subscribe(100, "IBM", fields=["BID"])
    wait_live(sub, "IBM")
    publish_bids(hub, 10)
    wait_until(lambda: sub.stats()["updates"] == 11)
    batch = next(sub.batches(max_wait=0))
    assert bids_of(batch)[-10:] == [float(number) for number in range(10)]
    table = batch.to_arrow()
    assert table.column("ASK" if "ASK" in table.column_names else "status").null_count == len(table)


@pytest.mark.parametrize("policy, rows", [("drop_oldest", 100), ("drop_oldest", 1), ("latest", 100)])
def test_a_slow_reader_learns_what_it_lost(hub, feed, policy, rows):
    sub = feed.subscribe(100, "IBM", fields=["BID"], max_rows=rows, policy=policy)
    wait_live(sub, "IBM")
    batches = sub.batches(max_rows=25, max_wait=0)
    publish_bids(hub, 1000)
    wait_until(lambda: sub.stats()["updates"] == 1001)
    # The image counts among what is lost.
    assert sub.stats()["waiting"] <= rows
    found, gaps = read_bids(batches, 999.0)
    lost = sum(gap.messages for gap in gaps)
    assert all(gap.cause == "overflow" for gap in gaps)
    stats = sub.stats()
    assert lost == stats["dropped"]
    assert len(found) + lost + stats["merged"] in (1000, 1001)
    assert (policy == "latest") == (stats["merged"] > 0)


def test_a_reader_that_blocks_the_hub_loses_nothing(hub, feed):
    sub = feed.subscribe(100, "IBM", fields=["BID"], max_rows=10, policy="block")
    wait_live(sub, "IBM")
    publish_bids(hub, 500)
    wait_until(lambda: sub.stats()["waiting"] >= 9)
    found, gaps = read_bids(sub.batches(max_rows=5), 499.0)
    assert found == [float(number) for number in range(500)] and not gaps


def test_a_reader_that_blocks_the_hub_loses_no_row_for_want_of_bytes(hub, feed):
    sub = feed.subscribe(100, "IBM", fields=["BID"], max_bytes=20_000, policy="block")
    wait_live(sub, "IBM")
    writer = threading.Thread(target=publish_bids, args=(hub, 5000))
    writer.start()
    found, gaps = read_bids(sub.batches(), 4999.0)
    writer.join()
    assert found == [float(number) for number in range(5000)] and not gaps


@pytest.mark.parametrize("policy", ["drop_oldest", "block"])
@pytest.mark.parametrize("max_rows", [1, 1000])
def test_a_gap_is_told_at_once_whatever_waits(hub, feed, policy, max_rows):
    sub = feed.subscribe(100, "IBM", fields=["BID"], policy=policy)
    batches = sub.batches(max_rows=max_rows, max_wait=DEADLINE)
    wait_live(sub, "IBM")
    publish_bids(hub, 2)
    hub._native.overrun(1000, 0)
    wait_until(lambda: sub.stats()["gaps"] == 1)
    start = time.monotonic()
    found, gaps, states = [], [], []
    while not gaps:
        batch = next(batches)
        found += bids_of(batch)
        gaps += batch.gaps
        states += batch.states
    assert time.monotonic() - start < DEADLINE / 2
    assert found[-2:] == [0.0, 1.0] and [gap.cause for gap in gaps] == ["overrun"]
    sub.close()
    states += [state for batch in batches for state in batch.states]
    assert [str(state.after) for state in states] == ["live", "closed"]


def test_a_loss_is_a_gap_before_the_new_image(hub, feed):
    gaps = []
    sub = feed.subscribe(100, "IBM", fields=["BID"], on_gap=gaps.append)
    wait_live(sub, "IBM")
    hub.publish(100, "IBM", {"BID": 1.0})
    batches = sub.batches(max_wait=0)
    assert read_bids(batches, 1.0)[1] == []
    hub.drop_connections()
    wait_until(lambda: sub.stats()["gaps"] == 1 and sub.state("IBM") == "live")
    hub.publish(100, "IBM", {"BID": 2.0})
    found, seen = read_bids(batches, 2.0)
    assert found == [1.0, 2.0], "the image after the gap, and the update"
    assert [(gap.cause, gap.symbol, gap.row) for gap in seen] == [("loss", "IBM", 0)]
    assert seen[0].start <= seen[0].end
    assert [event.gap.cause for event in gaps] == ["loss"]


@pytest.mark.parametrize("policy", ["drop_oldest", "block"])
def test_the_first_row_behind_a_gap_is_marked(hub, feed, policy):
    sub = feed.subscribe(100, ["IBM", "AIG"], fields=["BID", "BID"], policy=policy)
    wait_live(sub, "IBM", "AIG")
    publish_bids(hub, 2)
    hub._native.overrun(1000, 0)
    wait_until(lambda: sub.stats()["gaps"] == 2)
    for symbol in ("IBM", "AIG", "IBM"):
        hub.publish(100, symbol, {"BID": 5.0})
    wait_until(lambda: sub.stats()["updates"] == 7)
    rows = list(next(sub.batches(max_wait=0)))
    assert [row["gap"] for row in rows] == [False] * 4 + [True, True, False]
    assert [row["symbol"] for row in rows[4:]] == ["IBM", "AIG", "IBM"]
    assert list(rows[0])[7:] == ["BID"]


def test_the_first_row_behind_what_a_slow_reader_lost_is_marked(hub, feed):
    sub = feed.subscribe(100, "IBM", fields=["BID"], max_rows=20)
    wait_live(sub, "IBM")
    batches = sub.batches(max_rows=5, max_wait=0)
    publish_bids(hub, 100)
    wait_until(lambda: sub.stats()["updates"] == 101)
    batch = next(batches)
    assert [gap.cause for gap in batch.gaps] == ["overflow"]
    assert [row["gap"] for row in batch] == [True, False, False, False, False]
    assert not any(row["gap"] for row in next(batches))


def test_cancelled_reads_lose_no_row(hub, feed):
    sub = feed.subscribe(100, "IBM", fields=["BID"])
    wait_live(sub, "IBM")
    writer = threading.Thread(target=publish_bids, args=(hub, 400))

    async def main():
        batches = sub.batches(max_rows=50, max_wait=0.003)
        writer.start()
        found, cancelled = [], 0
        while not found or found[-1] != 399.0:
            reading = asyncio.ensure_future(batches.__anext__())
            await asyncio.sleep(0.001)
            if not reading.done():
                reading.cancel()
            try:
                found += [bid for bid in bids_of(await reading) if bid is not None]
            except asyncio.CancelledError:
                cancelled += 1
        return found, cancelled

    found, cancelled = asyncio.run(asyncio.wait_for(main(), DEADLINE))
    writer.join()
    assert found == [float(number) for number in range(400)]
    assert cancelled > 0


def test_one_loop_reads_many_subscriptions_and_loops_follow_each_other(hub, feed):
    subs = [feed.subscribe(100, symbol) for symbol in ("IBM", "AIG", "SPY")]
    for sub, symbol in zip(subs, ("IBM", "AIG", "SPY")):
        wait_live(sub, symbol)

    async def read(sub, bid):
        async for event in sub:
            if event.get("BID") == bid:
                return event.symbol

    async def main(bid):
        readers = [asyncio.ensure_future(read(sub, bid)) for sub in subs]
        await asyncio.sleep(0)
        for symbol in ("IBM", "AIG", "SPY"):
            hub.publish(100, symbol, {"BID": bid})
        return await asyncio.gather(*readers)

    for bid in (1.5, 2.5):
        assert asyncio.run(asyncio.wait_for(main(bid), DEADLINE)) == ["IBM", "AIG", "SPY"]


def test_subscriptions_of_one_loop_may_come_and_go(hub, feed):
    # A descriptor that is closed under a loop leaves its number deaf for the next one that gets it.
    async def collect(sub, bids):
        async for event in sub:
            bids.append(event.get("BID"))

    async def read(number):
        sub = feed.subscribe(100, "IBM")
        bids = []
        reading = asyncio.ensure_future(collect(sub, bids))
        for bid in (number + 0.25, number + 0.5):
            while sub.state("IBM") != "live":
                await asyncio.sleep(0.001)
            hub.publish(100, "IBM", {"BID": bid})
            while bids[-1:] != [bid]:
                await asyncio.sleep(0.001)
        reading.cancel()
        await asyncio.gather(reading, return_exceptions=True)
        if number % 3 == 2:
            sub.close()

    async def main():
        for number in range(9):
            await asyncio.wait_for(read(number), DEADLINE)

    asyncio.run(main())


@pytest.mark.parametrize("who", ["subscription", "feed"])
@pytest.mark.parametrize("fields", [None, ["BID"]])
@pytest.mark.parametrize("symbols", [["IBM"], []])
def test_iteration_ends_when_what_it_reads_is_closed(hub, who, fields, symbols):
    async def main():
        async with make_feed(hub) as feed:
            sub = feed.subscribe(100, symbols, fields=fields)

            async def read():
                reader = sub if fields is None else sub.batches(max_wait=0)
                return [one async for one in reader]

            reading = asyncio.ensure_future(read())
            await asyncio.sleep(0.05)
            (sub if who == "subscription" else feed).close()
            await asyncio.wait_for(reading, DEADLINE)

    asyncio.run(main())


def test_callbacks_hear_and_what_they_raise_is_reported(hub, monkeypatch):
    unraisable, errors, heard = [], [], []
    monkeypatch.setattr(sys, "unraisablehook", lambda report: unraisable.append(str(report.exc_value)))

    def on_update(event):
        heard.append(event.get("BID"))
        if event.get("BID") == 1.0:
            raise RuntimeError("on purpose")

    with make_feed(hub, on_error=errors.append) as feed:
        sub = feed.subscribe(100, "IBM", on_update=on_update)
        wait_live(sub, "IBM")
        publish_bids(hub, 4)
        wait_until(lambda: heard[-1:] == [3.0])
        assert heard[-4:] == [0.0, 1.0, 2.0, 3.0]
        with pytest.raises(tivra.InvalidArgument):
            next(iter(sub))
    assert unraisable == ["on purpose"]
    assert [type(error) for error in errors] == [tivra.InvalidArgument] and "on purpose" in str(errors[0])


def test_a_callback_may_do_anything(hub, feed):
    done = threading.Event()
    subs = []

    def on_update(event):
        if event.get("BID") == 1.0:
            subs.append(feed.subscribe(100, "AIG"))
            subs[0].close()
            feed.stats(), feed.hubs(), feed.state
            done.set()

    subs.append(feed.subscribe(100, "IBM", on_update=on_update))
    wait_live(subs[0], "IBM")
    publish_bids(hub, 2)
    assert done.wait(DEADLINE)


def test_readers_that_cant_be(feed):
    with pytest.raises(tivra.UnknownField, match="NO.SUCH"):
        feed.subscribe(100, "IBM", fields=["NO.SUCH"])
    with pytest.raises(tivra.InvalidArgument, match="fields"):
        feed.subscribe(100, "IBM").batches()
    with pytest.raises(tivra.InvalidArgument, match="drop_oldest"):
        feed.subscribe(100, "IBM", policy="never")
    sub = feed.subscribe(100, "IBM", fields=["BID"])
    for wrong in ({"max_rows": 0}, {"max_wait": -1}, {"max_wait": float("nan")}):
        with pytest.raises(tivra.InvalidArgument):
            sub.batches(**wrong)
    sub.batches()
    for read in (iter, next):
        with pytest.raises(tivra.InvalidArgument):
            read(sub)
    events = feed.subscribe(100, "IBM", fields=["BID"])
    next(events)
    with pytest.raises(tivra.InvalidArgument, match="events"):
        events.batches()
    with pytest.raises(tivra.InvalidArgument):
        feed.subscribe(100, ["IBM", "A|B"])
    with pytest.raises(TypeError):
        feed.subscribe("100", "IBM")


def test_batches_outlive_their_feed(hub):
    with make_feed(hub) as feed:
        sub = feed.subscribe(100, "IBM", fields=["BID"])
        wait_live(sub, "IBM")
        publish_bids(hub, 5)
        batches = sub.batches(max_wait=0)
        tables = []
        while not tables or tables[-1].column("BID").to_pylist()[-1] != 4.0:
            tables.append(next(batches).to_arrow())
    del feed, sub, batches
    assert [bid for table in tables for bid in table.column("BID").to_pylist()][-5:] == [0.0, 1.0, 2.0, 3.0, 4.0]


def test_the_board_keeps_the_last_values(hub, feed):
    board = feed.board
    assert board.add(100, ["IBM", "AIG"]) == 2
    hub.wait_for_subscriptions(2)
    hub.publish(100, "IBM", {"BID": 1.0, "ASK": 2.0})
    hub.publish(100, "IBM", {"BID": 1.5})
    wait_until(lambda: (100, "IBM") in board and board[100, "IBM"].get("BID") == 1.5)
    row = board[100, "IBM"]
    assert (row["ASK"], row.symbol, row.stale) == (2.0, "IBM", False) and row.age >= 0
    assert {changed.symbol for changed in board.changes()} == {"IBM", "AIG"}
    assert board.changes() == []
    assert "1.5" in board._repr_html_()
    with pytest.raises(KeyError):
        board[100, "NONE"]
    assert board.remove(100, "AIG") == 1
    wait_until(lambda: board[100, "AIG"].state == "closed")
    assert board.stats()["symbols"] == 2 and board.stats()["left_out"] == 0
    assert board.forget_closed() == 1 and list(board) == [(100, "IBM")]
    hub.stop()
    wait_until(lambda: board[100, "IBM"].stale)


def test_the_log_goes_to_logging(hub, caplog):
    with caplog.at_level("DEBUG", logger="tivra"), make_feed(hub):
        wait_until(lambda: any(record.name == "tivra.connection" for record in caplog.records))
    assert all("demo" not in record.getMessage() or "password" not in record.getMessage() for record in caplog.records)
