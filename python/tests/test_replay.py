import subprocess
import sys

import pyarrow
import pyarrow.compute
import pyarrow.parquet
import pytest

import tivra
from capturefile import capture
from days import SAMPLE
from tivra.__main__ import main

SECOND = 1_000_000_000


@pytest.fixture(scope="module")
def parquet(tmp_path_factory):
    path = tmp_path_factory.mktemp("days") / "day.parquet"
    assert main(["export", SAMPLE, "-o", str(path)]) == 0
    return path


def test_a_hub_that_replays_gives_its_dictionary(parquet):
    with tivra.Replay(parquet, start_when=99) as hub:
        dictionary = tivra.Dictionary.from_hub(f"127.0.0.1:{hub.port}", "demo", "demo")
        assert set(tivra.Dictionary.builtin().fields) <= set(dictionary.fields)
        with pytest.raises(ValueError, match="no dictionary from"):
            tivra.Dictionary.from_hub(f"127.0.0.1:{hub.port}", "demo", "wrong")


def test_what_was_exported_comes_again_over_a_connection(parquet):
    expected = pyarrow.parquet.read_table(parquet, columns=["symbol", "FEED.SEQUENCE", "BID", "TRADE.PRICE", "QUOTE.EXCHANGE"])
    expected = expected.cast(pyarrow.schema([expected.schema.field(i).with_type(pyarrow.string()) if i in (0, 4)
                                             else expected.schema.field(i) for i in range(5)]))
    names = ["AIG", "BAC", "IBM", "SPY"]
    with tivra.Replay(parquet, start_when=len(names)) as hub:
        with tivra.Feed(f"127.0.0.1:{hub.port}", user="demo", password="demo") as feed:
            sub = feed.subscribe(100, names, fields=expected.column_names[1:], max_rows=100_000, policy="block")
            got, rows = [], 0
            for batch in sub.batches(max_rows=10_000, max_wait=0.2):
                assert not batch.gaps
                arrow = batch.to_arrow()
                updates = arrow.filter(pyarrow.compute.is_valid(arrow.column("FEED.SEQUENCE")))
                got.append(updates.select(expected.column_names).cast(expected.schema))
                rows += updates.num_rows
                if rows >= expected.num_rows:
                    break
    assert pyarrow.Table.from_batches(got).sort_by("FEED.SEQUENCE").equals(expected.combine_chunks())


def test_the_program_plays_and_ends_with_its_clients(parquet):
    program = subprocess.Popen([sys.executable, "-m", "tivra", "replay", str(parquet), "--once"], stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True)
    try:
        address = program.stdout.readline().removeprefix("listening on ").strip()
        with tivra.Feed(address, user="demo", password="demo") as feed:
            sub = feed.subscribe(100, "IBM", fields=["FEED.SEQUENCE"], policy="block")
            rows = 0
            for batch in sub.batches():
                rows += sum(row["FEED.SEQUENCE"] is not None for row in batch)
                if rows >= 4114:
                    break
        rest = program.communicate(timeout=60)[0]
    finally:
        program.kill()
        program.wait()
    assert (rest, program.returncode) == ("played 40000 messages\n", 0)


@pytest.mark.parametrize("arguments, code, text", [
    (["none.parquet"], 4, "cannot read none.parquet: No such file"), (["no.csv"], 4, "cannot play: no.csv:1: the first line"),
    (["no.csv", "--port", "70000"], 2, "port can't be 70000; give one from 0 to 65535"), (["no.csv", "--factor", "-1"], 2, "factor can't be -1")])
def test_what_cannot_be_played_says_why(tmp_path, monkeypatch, capsys, arguments, code, text):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "no.csv").write_text("a,b\n")
    assert main(["replay", *arguments]) == code
    assert text in capsys.readouterr().err


def table(**columns):
    rows = {"received": pyarrow.array([SECOND], pyarrow.timestamp("ns", "UTC")), "source": [100], "symbol": ["IBM"],
            "kind": ["update"], "tag": pyarrow.array([None], pyarrow.int64()),
            "status": pyarrow.array([None], pyarrow.int32())}
    rows.update(columns)
    return pyarrow.table({name: values for name, values in rows.items() if values is not None})


@pytest.mark.parametrize("rows, text", [
    (table(BIDD=[1.0]), 'no field "BIDD"'),
    (table(symbol=None), "the rows have no column 'symbol'"),
    (table(BID=[[1.0]]), r"the column 'BID' \(list.*can't be a field"),
    (table(source=["here"]), "the column 'source'.*can't be a field"),
    (table(symbol=["I|M"]), "row 1: .*separates"),
    (table(**{"TOKEN.DEL": ["BIDD"]}), 'row 1: .*no field "BIDD"'),
    (table(symbol=["A" * 300_000]), "row 1: it is longer than any message"),
])
def test_rows_that_are_no_messages_are_refused(tmp_path, rows, text):
    path = tmp_path / "rows.parquet"
    pyarrow.parquet.write_table(rows, path)
    with pytest.raises(tivra.CaptureError, match=f"rows.parquet: .*{text}"):
        tivra.Replay(path, dictionary=tivra.Dictionary.builtin())


@pytest.mark.parametrize("data, text", [
    (b"PAR1 and nothing else", "few.bin: "), (b"", "few.bin:0: the first line"), (b"TIVRACAP\0\0", "not a capture")])
def test_files_of_other_forms_are_refused(tmp_path, data, text):
    path = tmp_path / "few.bin"
    path.write_bytes(data)
    with pytest.raises(tivra.CaptureError, match=text):
        tivra.Replay(path)


def test_a_parquet_file_of_others_needs_a_dictionary(tmp_path):
    path = tmp_path / "rows.parquet"
    pyarrow.parquet.write_table(table(BID=[1.5]), path)
    with pytest.raises(tivra.CaptureError, match="doesn't say what its fields are"):
        tivra.Replay(path)
    with tivra.Replay(path, dictionary=tivra.Dictionary.builtin()) as hub:
        assert (hub.port > 0, hub.is_played_out, hub.played) == (True, False, 0)


def test_a_message_that_comes_back_is_the_same(tmp_path):
    bodies = [b"4=100|5=IBM|24=1|101=1.25|102=7|105=K|202=1381152599.000001000", b"4=100|5=IBM|5026=7|101=0.1",
              b"5026=7|5001=-12", b"4=100|5=IBM|101=", b"3=5|4=100|5=IBM|103=0.0000001|777=a b"]
    first, second = tmp_path / "first.cap", tmp_path / "second.cap"
    first.write_bytes(capture([(SECOND * (i + 1), body) for i, body in enumerate(bodies)]))
    known = tivra.Dictionary([*tivra.Dictionary.builtin().fields, (777, "OURS", "STRING")])
    tivra.write_capture(tivra.read_capture(first, dictionary=known), second, known)
    tables = [tivra.read_capture(path, dictionary=known).to_arrow() for path in (first, second)]
    assert tables[0].num_rows == 5 and tables[0].equals(tables[1])
