import concurrent.futures
import json
import os
import resource

import duckdb
import polars
import pyarrow
import pyarrow.csv
import pyarrow.parquet
import pytest

import tivra
from capturefile import capture
from days import SAMPLE, whole_day
from tivra.__main__ import main
from tivra.writing import _WRITERS

SECOND = 1_000_000_000
MESSAGES = [(time * SECOND, f"4={100 + time % 2}|5=IBM|101={time}|105=|202={time}.5".encode()) for time in range(1, 5)]


@pytest.fixture
def few(tmp_path):
    path = tmp_path / "few.cap"
    path.write_bytes(capture(MESSAGES[:2], MESSAGES[2:]))
    return path


def export(*arguments):
    return main(["export", *map(str, arguments)])


def differences(parquet, csv):
    """How many values of an exported day differ from those of its file, whose columns are read by themselves."""
    pairs = {"bid": "BID", "bid_size": "BID.SIZE", "ask": "ASK", "ask_size": "ASK.SIZE", "price": "TRADE.PRICE",
             "size": "TRADE.SIZE", "suspicious": "SUSPICIOUS.IND"}
    columns = {"ms": "DOUBLE", "symbol": "VARCHAR", "kind": "VARCHAR", "exchange": "VARCHAR", "condition": "BIGINT",
               **{name: "DOUBLE" for name in pairs}}
    names = ["ms", "symbol", "kind", "bid", "bid_size", "ask", "ask_size", "price", "size", "exchange", "condition", "suspicious"]
    types = ", ".join(f"'{name}': '{columns[name]}'" for name in names)
    tests = [f'c.{name} IS DISTINCT FROM p."{field}"' for name, field in pairs.items()]
    tests += ["c.symbol <> p.symbol", "(c.kind = 'T') <> (p.\"TRADE.DATETIME\" IS NOT NULL)",
              'c.exchange IS DISTINCT FROM coalesce(p."QUOTE.EXCHANGE", p."TRADE.EXCHANGE")',
              'c.condition IS DISTINCT FROM coalesce(p."QUOTE.CONDITION", p."TRADE.CONDITION")',
              "1381118400000000 + (c.ms * 1000)::BIGINT <> epoch_us(p.received::TIMESTAMPTZ)",
              'p.received <> coalesce(p."QUOTE.DATETIME", p."TRADE.DATETIME")']
    query = f"""SELECT count(*), count(*) FILTER ({' OR '.join(tests)}) FROM
        (SELECT *, row_number() OVER () AS n FROM read_csv('{csv}', header = true, columns = {{{types}}})) c FULL JOIN
        (SELECT * FROM '{parquet}') p ON c.n = p."FEED.SEQUENCE" """
    with duckdb.connect() as database:
        database.execute("SET preserve_insertion_order = true")
        return database.execute(query).fetchone()


@pytest.mark.parametrize("day", [SAMPLE, pytest.param(whole_day(), marks=[
    pytest.mark.skipif(whole_day() is None, reason="the whole day isn't beside the sources"),
    pytest.mark.timeout(280)])], ids=["sample", "whole"])  # a busy machine takes minutes for two million rows
def test_a_day_goes_out_and_back_with_every_value(tmp_path, day):
    first, made, second = tmp_path / "first.parquet", tmp_path / "made.cap", tmp_path / "second.parquet"
    assert export(day, "-o", first) == 0
    rows, different = differences(first, day)
    assert (different, rows) == (0, 40000 if day == SAMPLE else 2054274)
    with pyarrow.parquet.ParquetFile(first) as file:
        tivra.write_capture(file.iter_batches(), made, tivra.Dictionary.builtin())
    assert export(made, "-o", second, "--dictionary", "builtin") == 0
    assert polars.read_parquet(first).equals(polars.read_parquet(second))


def test_parquet_has_groups_statistics_dictionaries_and_its_fields(tmp_path):
    assert export(SAMPLE, "-o", tmp_path / "day.parquet", "--fields", "BID,QUOTE.EXCHANGE", "--symbols", "IBM,AIG") == 0
    with pyarrow.parquet.ParquetFile(tmp_path / "day.parquet") as file:
        columns = {file.metadata.row_group(0).column(i).path_in_schema: file.metadata.row_group(0).column(i)
                   for i in range(file.metadata.num_columns)}
        assert list(columns)[7:] == ["BID", "QUOTE.EXCHANGE"]
        assert columns["BID"].compression == "ZSTD" and columns["BID"].statistics.max > 100
        assert "RLE_DICTIONARY" in columns["QUOTE.EXCHANGE"].encodings and "RLE_DICTIONARY" in columns["symbol"].encodings
        assert [101, "BID", "FLOAT"] in json.loads(file.schema_arrow.metadata[b"tivra.fields"])


def test_csv_and_json_lines_keep_null_from_empty(tmp_path, few):
    for name in ("few.csv", "few.jsonl"):
        assert export(few, "-o", tmp_path / name, "--dictionary", "builtin") == 0
    lines = [json.loads(line) for line in (tmp_path / "few.jsonl").read_text().splitlines()]
    assert lines[0] == {"received": "1970-01-01T00:00:01.000000000Z", "source": 101, "symbol": "IBM", "kind": "update",
                        "gap": False, "BID": 1.0, "QUOTE.EXCHANGE": "", "QUOTE.DATETIME": "1970-01-01T00:00:01.500000000Z"}
    text = (tmp_path / "few.csv").read_text().splitlines()
    assert text[1] == '"1970-01-01 00:00:01.000000000Z",101,"IBM","update",,,false,1,"","1970-01-01 00:00:01.500000000Z"'


@pytest.mark.parametrize("name", ["odd.csv", "odd.jsonl"])
def test_values_that_are_hard_to_write_come_back(tmp_path, name):
    texts = ['"', "\\", "a,b", "\u00e9", "\x01", "\x0b", ""]
    numbers = [0.1, -1e300, 5e-324, 1e22, 123456789.125, -0.0, 3.0]
    times = [-1, 0, 999_999_999, 951_782_399_000_000_001, 4_102_444_800_000_000_000, None, -62_000_000_000_000_000]
    table = pyarrow.record_batch({"text": texts, "number": numbers, "time": pyarrow.array(times, pyarrow.timestamp("ns", "UTC")),
                                  "flag": [True, None] * 3 + [False], "count": [2**63 - 1, -2**63, *range(5)]})
    writer = _WRITERS[name[4:]](str(tmp_path / name), table.schema)
    for part in (table.slice(0, 3), table.slice(3)):
        writer.write(part)
    writer.close()
    if name == "odd.csv":
        types = pyarrow.csv.ConvertOptions(column_types=table.schema, strings_can_be_null=True, quoted_strings_can_be_null=False)
        assert pyarrow.csv.read_csv(tmp_path / name, convert_options=types).to_batches()[0].equals(table)
    else:
        lines = [json.loads(line) for line in (tmp_path / name).read_text(encoding="utf-8").splitlines()]
        assert [[line[column] for line in lines] for column in ("text", "number", "count")] == [
            texts, numbers, table["count"].to_pylist()]
        assert [line.get("flag") for line in lines] == table["flag"].to_pylist()
        whens = pyarrow.array([line.get("time") for line in lines]).cast(pyarrow.timestamp("ns", "UTC"))
        assert whens.equals(table["time"])


def test_long_texts_are_held_in_bounds(tmp_path, monkeypatch):
    path = tmp_path / "long.cap"
    path.write_bytes(capture(*[[(SECOND, b"4=%d|5=IBM|105=" % (100 + part % 2) + b"x" * 250_000)] for part in range(290)]))
    batches = tivra.read_capture(path, dictionary=tivra.Dictionary.builtin())
    assert [len(batch) for batch in batches] == [269, 21]
    monkeypatch.setattr("tivra.writing._MOST_HELD", 10_000_000)
    assert export(path, "-o", tmp_path / "long.parquet", "--split", "source") == 0
    for source in (100, 101):
        with pyarrow.parquet.ParquetFile(tmp_path / f"long-{source}.parquet") as file:
            assert file.metadata.num_rows == 145 and file.metadata.num_row_groups == 2


@pytest.mark.parametrize("split, target, names", [
    ("source", "few.parquet", ["few-100.parquet", "few-101.parquet"]),
    ("source", "v1.0/few", ["few-100", "few-101"]),
    ("hour", "few.parquet", ["few-1970-01-01T00.parquet"]),
])
def test_rows_are_split_over_files(tmp_path, few, split, target, names):
    folder = (tmp_path / target).parent
    folder.mkdir(exist_ok=True)
    assert export(few, "-o", tmp_path / target, "--format", "parquet", "--split", split) == 0
    assert sorted(path.name for path in folder.glob("few-*")) == names
    assert sum(pyarrow.parquet.read_table(folder / name).num_rows for name in names) == 4


def spoilt(path):
    data = bytearray(path.read_bytes())
    data[data.rindex(b"BLCK") + 40] ^= 1
    path.write_bytes(data)
    return "at byte"


def cut(path):
    data = path.read_bytes()
    path.write_bytes(data[:data.rindex(b"BLCK") + 45])
    return "cut off"


def odd(path):
    path.write_bytes(capture(MESSAGES[:2], [(3 * SECOND, b"4=100|5=IBM|101=abc")]))
    return "1 messages can't be decoded"


@pytest.mark.parametrize("spoil", [spoilt, cut, odd])
def test_what_can_be_read_of_a_damaged_capture_is_written_with_exit_code_3(tmp_path, few, capsys, spoil):
    text = spoil(few)
    assert export(few, "-o", tmp_path / "few.parquet", "--dictionary", "builtin") == 3
    assert text in capsys.readouterr().err
    assert polars.read_parquet(tmp_path / "few.parquet")["BID"].to_list() == [1.0, 2.0]


@pytest.mark.parametrize("arguments, code, text", [
    (["few.cap", "-o", "few.xls"], 2, "says no form: give --format"),
    (["few.cap", "-o", "few.csv", "--dictionary", "none.map"], 2, "there is no such file, and a hub is named HOST:PORT"),
    (["few.cap", "-o", "few.csv", "--dictionary", "127.0.0.1:1"], 2, "no user named"),
    (["few.cap", "-o", "few.csv", "--dictionary", "127.0.0.1:1", "--user", "demo"], 2, "no dictionary from 127.0.0.1:1"),
    (["few.cap", "-o", "few.csv", "--dictionary", "few.cap"], 2, "few.cap:1: "),
    (["few.cap", "-o", "few.csv", "--start", "noon"], 2, "start is no time"),
    (["few.cap", "-o", "few.csv", "--fields", "BIDD"], 4, 'no field "BIDD"'),
    (["none.cap", "-o", "few.csv"], 4, "cannot read none.cap: No such file"),
    (["few.cap", "-o", "none/few.parquet"], 5, "cannot write none/few.parquet: "),
])
def test_what_cannot_be_done_says_why(tmp_path, few, monkeypatch, capsys, arguments, code, text):
    monkeypatch.chdir(tmp_path)
    monkeypatch.delenv("TIVRA_USER", raising=False)
    assert export(*arguments) == code
    assert text in capsys.readouterr().err
    assert sorted(path.name for path in tmp_path.iterdir()) == ["few.cap"]


def test_gaps_are_reported(tmp_path, capsys):
    path = tmp_path / "gaps.cap"
    path.write_bytes(capture([(SECOND, b"4=100|5=IBM|101=1"), (2 * SECOND, b"!kind=dropped|messages=12")]))
    assert export(path, "-o", tmp_path / "gaps.parquet") == 0
    assert "1 gaps were noted when it was recorded:\n  dropped: 12 messages" in capsys.readouterr().out
    metadata = pyarrow.parquet.read_metadata(tmp_path / "gaps.parquet").metadata
    assert [text.split(" from")[0] for text in json.loads(metadata[b"tivra.gaps"])] == ["dropped: 12 messages"]


@pytest.mark.parametrize("suffix", _WRITERS)
def test_a_disk_that_is_full_leaves_nothing_behind(tmp_path, capsys, suffix):
    target = tmp_path / f"day.{suffix}"
    before = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (10_000, before[1]))
    try:
        assert export(SAMPLE, "-o", target, "--split", "source") == 5
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, before)
    assert "cannot write" in capsys.readouterr().err
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("suffix", ["csv", "jsonl"])
def test_a_pipe_stays_a_pipe_and_a_link_a_link(tmp_path, few, capsys, suffix):
    file, link, pipe = tmp_path / f"file.{suffix}", tmp_path / f"link.{suffix}", tmp_path / f"pipe.{suffix}"
    link.symlink_to(file)
    assert export(few, "-o", link) == 0 and link.is_symlink()
    os.mkfifo(pipe)
    with concurrent.futures.ThreadPoolExecutor() as reader:
        read = reader.submit(pipe.read_bytes)
        assert export(few, "-o", pipe) == 0
        assert read.result(20) == file.read_bytes() and pipe.is_fifo()
    assert export(few, "-o", pipe, "--format", "parquet") == 2 and pipe.is_fifo()
    assert "is no file, and Parquet can't be written" in capsys.readouterr().err


def test_the_input_is_never_the_output(few, capsys):
    before = few.read_bytes()
    assert export(few, "-o", few, "--format", "csv") == 2
    assert "is the input itself" in capsys.readouterr().err and few.read_bytes() == before


def test_ctrl_c_ends_quietly_and_leaves_nothing_behind(tmp_path, few, monkeypatch, capsys):
    def interrupt(writer, batch):
        raise KeyboardInterrupt

    monkeypatch.setattr("tivra.writing.JsonLinesFile.write", interrupt)
    assert export(few, "-o", tmp_path / "few.jsonl") == 130
    assert capsys.readouterr().err == "" and list(tmp_path.glob("*.jsonl*")) == []
