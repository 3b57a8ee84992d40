import csv
import gc
import gzip
import math
import sys

import numpy
import polars
import pyarrow
import pytest

import tivra
from capturefile import capture
from days import SAMPLE

SECOND = 1_000_000_000


def csv_rows(path, count):
    with gzip.open(path, "rt") as file:
        return [row for _, row in zip(range(count), csv.DictReader(file))]


def number(text):
    return float(text) if text else None


def test_every_form_of_a_batch_has_the_values_of_the_day():
    expected = csv_rows(SAMPLE, 3000)
    batch = next(tivra.open_day(SAMPLE, max_rows=3000))
    arrow, frame, lazy, arrays = batch.to_arrow(), batch.to_pandas(), batch.to_polars(), batch.numpy()
    arrow.validate(full=True)
    for column, field in (("bid", "BID"), ("ask_size", "ASK.SIZE"), ("price", "TRADE.PRICE"), ("suspicious", "SUSPICIOUS.IND")):
        values = [number(row[column]) for row in expected]
        assert arrow.column(field).to_pylist() == values
        assert [None if math.isnan(value) else value for value in frame[field].to_numpy(float, na_value=math.nan)] == values
        assert lazy[field].to_list() == values
        assert numpy.ma.asarray(arrays[field]).tolist() == values
        assert [row[field] for row in batch] == values
    assert list(arrays["symbol"]) == list(frame["symbol"]) == [row["symbol"] for row in expected]
    assert polars.DataFrame(batch).equals(lazy)
    times = [1381118400 * SECOND + int(row["ms"]) * 1_000_000 for row in expected]
    assert arrays["received"].astype("int64").tolist() == times == arrow.column("received").cast("int64").to_pylist()


def test_arrays_outlive_their_batch_and_are_read_only():
    batch = next(tivra.open_day(SAMPLE))
    arrays, arrow = batch.numpy(), batch.to_arrow()
    expected = arrow.column("FEED.SEQUENCE").to_pylist()
    del batch
    gc.collect()
    assert arrays["FEED.SEQUENCE"].tolist() == expected
    with pytest.raises(ValueError, match="read-only"):
        arrays["FEED.SEQUENCE"][0] = 7


def test_null_zero_empty_and_taken_away_differ(tmp_path):
    path = tmp_path / "few.cap"
    path.write_bytes(capture([(SECOND, b"4=100|5=IBM|102=0|105="), (2 * SECOND, b"4=100|5=IBM|101=|104=5"),
                              (3 * SECOND, b"4=100|5=\xe9|101=1|101=2|777=x")]))
    batch = next(tivra.read_capture(path, dictionary=tivra.Dictionary.builtin()))
    rows = [{name: value for name, value in row.items() if value is not None and name in batch.fields} for row in batch]
    assert rows == [{"BID.SIZE": 0, "QUOTE.EXCHANGE": ""}, {"ASK.SIZE": 5, "TOKEN.DEL": "BID"}, {"BID": 1.0, "777": "x"}]
    assert batch.repeated == 1
    assert batch.numpy()["symbol"].tolist() == ["IBM", "IBM", "\ufffd"]
    assert "777" in batch._repr_html_() and "IBM" in batch._repr_html_()


def test_html_escapes_what_a_hub_has_sent(tmp_path):
    path = tmp_path / "bad.cap"
    path.write_bytes(capture([(SECOND, b"4=100|5=<script>|301=<b>")]))
    assert "<script>" not in next(tivra.read_capture(path))._repr_html_()


@pytest.mark.parametrize("package, call", [("pyarrow", "to_arrow"), ("polars", "to_polars"), ("pandas", "to_pandas"),
                                           ("numpy", "numpy")])
def test_a_package_that_is_missing_is_named(monkeypatch, package, call):
    batch = next(tivra.open_day(SAMPLE, max_rows=10))
    monkeypatch.setitem(sys.modules, package, None)
    with pytest.raises(ImportError, match=f"needs {package}.*pip install {package}"):
        getattr(batch, call)()
    assert len(list(batch)) == 10


def test_what_was_exported_twice_is_released_by_itself():
    batch = next(tivra.open_day(SAMPLE, max_rows=100))
    first, second = pyarrow.record_batch(batch), pyarrow.record_batch(batch)
    unused = batch.__arrow_c_array__()
    del batch, first, unused
    gc.collect()
    assert second.column("FEED.SEQUENCE").to_pylist() == list(range(1, 101))
