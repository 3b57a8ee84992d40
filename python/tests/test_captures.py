import datetime
import signal
import threading
import time
import warnings

import numpy
import pytest

import tivra
from capturefile import block, capture
from days import SAMPLE

SECOND = 1_000_000_000
BUILTIN = tivra.Dictionary.builtin()


def body(symbol, bid):
    return f"4=100|5={symbol}|101={bid}".encode()


def write(path, data):
    path.write_bytes(data)
    return path


def test_a_capture_of_the_day_has_the_rows_of_the_day(tmp_path):
    path = tmp_path / "day.cap"
    assert tivra.write_capture(tivra.open_day(SAMPLE), path, BUILTIN) == 40000
    recording = tivra.read_capture(path, dictionary=BUILTIN, max_rows=7000)
    assert recording.to_arrow().equals(tivra.open_day(SAMPLE, max_rows=7000).to_arrow())
    assert recording.messages == 40000 and recording.is_complete


def test_a_capture_that_cannot_be_written_leaves_the_one_before(tmp_path):
    path = write(tmp_path / "few.cap", capture([(SECOND, body("A", 1))]))
    before = path.read_bytes()

    def batches():
        yield from tivra.read_capture(path, dictionary=BUILTIN)
        raise RuntimeError("the source ends badly")

    with pytest.raises(RuntimeError):
        tivra.write_capture(batches(), path, BUILTIN)
    assert [(each.name, each.read_bytes()) for each in tmp_path.iterdir()] == [("few.cap", before)]


@pytest.mark.parametrize("wanted, bids", [
    ({"symbols": ["B"]}, [2, 4]),
    ({"start": 3 * SECOND}, [3, 4, 5]),
    ({"end": datetime.datetime(1970, 1, 1, 0, 0, 3, tzinfo=datetime.timezone.utc)}, [1, 2]),
    ({"start": "1970-01-01T01:00:02+01:00", "end": "1970-01-01T00:00:05Z", "symbols": {"A", "C"}}, [3]),
    ({"start": numpy.int64(3 * SECOND + 1), "end": "1970-01-01T00:00:05.000000001Z"}, [4, 5]),
    ({"start": "1970-01-01T00:00:04.000000001+00:00"}, [5]),
    ({"symbols": ["nobody"]}, []),
])
def test_rows_are_chosen_by_symbol_and_time(tmp_path, wanted, bids):
    messages = [(time * SECOND, body("AB"[time % 2 == 0], time)) for time in range(1, 6)]
    path = write(tmp_path / "few.cap", capture(messages[:3], messages[3:]))
    batches = tivra.read_capture(path, dictionary=BUILTIN, fields=["BID"], **wanted)
    assert [row["BID"] for batch in batches for row in batch] == bids


@pytest.mark.filterwarnings("ignore::tivra.CaptureWarning")
@pytest.mark.parametrize("reads", [lambda path: list(tivra.read_capture(path, symbols=["nobody"])),
                                   lambda path: list(tivra.read_capture(path, fields=["101"], symbols=["nobody"]))])
def test_a_signal_ends_a_long_reading(tmp_path, reads):
    class Alarm(Exception):
        pass

    def ring(*_):
        raise Alarm

    path = write(tmp_path / "long.cap", capture(ends=False) + 600 * block([(SECOND, body("A", 1))] * 10_000))
    # A timer that counts processor time rings during the reading, however busy the machine is.
    before = signal.signal(signal.SIGVTALRM, ring)
    try:
        begin = time.process_time()
        with pytest.raises(Alarm):
            signal.setitimer(signal.ITIMER_VIRTUAL, 0.01)
            reads(path)
        interrupted = time.process_time() - begin
    finally:
        signal.setitimer(signal.ITIMER_VIRTUAL, 0)
        signal.signal(signal.SIGVTALRM, before)
    begin = time.process_time()
    reads(path)
    assert interrupted < (time.process_time() - begin) / 2


# A reader that takes the interpreter's lock for a moment must find it, whoever looks at its figures.
def test_figures_can_be_watched_while_another_thread_reads(tmp_path):
    path = write(tmp_path / "long.cap", capture(ends=False) + 200 * block([(SECOND, body("A", 1))] * 10_000))
    recording = tivra.read_capture(path, symbols=["nobody"])
    reader = threading.Thread(target=lambda: list(recording), daemon=True)
    with pytest.warns(tivra.CaptureWarning):
        reader.start()
        while reader.is_alive():
            assert recording.messages in (0, 2_000_000)
        reader.join()
    assert recording.messages == 2_000_000


def test_blocks_that_go_back_in_time_are_not_skipped(tmp_path):
    path = write(tmp_path / "back.cap", capture([(9 * SECOND, body("A", 1))], [(2 * SECOND, body("A", 2))],
                                                [(8 * SECOND, body("A", 3))]))
    batches = tivra.read_capture(path, dictionary=BUILTIN, start=8 * SECOND)
    assert [row["BID"] for batch in batches for row in batch] == [1, 3]


def test_fields_without_a_dictionary_are_texts_by_their_numbers(tmp_path):
    path = write(tmp_path / "few.cap", capture([(SECOND, b"3=7|4=100|5=IBM|101=1.50|70000=x"), (SECOND, b"4=100|5026=9|5001=-12")]))
    batch = next(tivra.read_capture(path))
    assert batch.fields == ["PERMISSION", "101", "70000"]
    assert [list(row.values())[1:6] + list(row.values())[7:] for row in batch] == [
        [100, "IBM", "update", None, None, 7, "1.50", "x"], [100, "", "status", 9, -12, None, None, None]]


def test_gaps_stand_where_they_were_noted(tmp_path):
    path = write(tmp_path / "gaps.cap", capture([
        (1 * SECOND, body("A", 1)), (2 * SECOND, b"!kind=interrupted|text=the hub is lost"), (4 * SECOND, b"!kind=restored|text="),
        (5 * SECOND, body("A", 2)), (6 * SECOND, body("A", 3)), (7 * SECOND, b"!kind=hole|source=100|missing=4|after=1|before=6"),
        (8 * SECOND, body("A", 4)), (9 * SECOND, b"!kind=reset|text=full")]))
    recording = tivra.read_capture(path, dictionary=BUILTIN)
    batch = next(recording)
    assert [row["gap"] for row in batch] == [False, True, False, True]
    assert [(gap.cause, gap.row, gap.messages, gap.start.second) for gap in batch.gaps] == [("interrupted", 1, None, 2), ("hole", 3, 4, 7)]
    assert batch.gaps[0].end.second == 4 and "4 messages" in str(batch.gaps[1])
    assert list(recording) == [] and [gap.cause for gap in recording.gaps] == ["interrupted", "hole", "reset"]


WHOLE = capture([(SECOND, body("A", 1)), (2 * SECOND, body("A", 2))], [(3 * SECOND, body("A", 3))])


@pytest.mark.parametrize("ends", [True, False])
@pytest.mark.parametrize("block, left, marked", [(1, [3, 4, 5], [3]), (2, [1, 2, 4, 5], [4]), (3, [1, 2, 3], [])])
def test_a_damaged_block_costs_nothing_else_and_is_told(tmp_path, block, left, marked, ends):
    data = bytearray(capture([(SECOND, body("A", 1)), (2 * SECOND, body("A", 2))], [(3 * SECOND, body("A", 3))],
                             [(4 * SECOND, body("A", 4)), (5 * SECOND, body("A", 5))], ends=ends))
    place = -1
    for _ in range(block):
        place = data.index(b"BLCK", place + 1)
    data[place + 40] ^= 1
    recording = tivra.read_capture(write(tmp_path / "spoilt.cap", bytes(data)), dictionary=BUILTIN)
    batch = next(recording)
    assert [row["BID"] for row in batch] == left
    assert [row["BID"] for row in batch if row["gap"]] == marked
    with warnings.catch_warnings(), pytest.raises(tivra.CaptureError, match=rf"spoilt.cap: at byte {place}: the block is damaged \(1 damaged"):
        warnings.simplefilter("ignore", tivra.CaptureWarning)
        next(recording)
    assert [gap.cause for gap in recording.gaps] == ["damaged"] and f"byte {place}" in recording.gaps[0].text


@pytest.mark.parametrize("place, text", [(WHOLE.rindex(b"INDX") + 9, "the index is damaged"),
                                         (len(WHOLE) - 12, "the end of the file doesn't say where the index is")])
def test_a_damaged_index_costs_no_message(tmp_path, place, text):
    data = bytearray(WHOLE)
    data[place] ^= 0x40
    recording = tivra.read_capture(write(tmp_path / "spoilt.cap", bytes(data)), dictionary=BUILTIN)
    assert [row["BID"] for row in next(recording)] == [1, 2, 3]
    with warnings.catch_warnings(), pytest.raises(tivra.CaptureError, match=text):
        warnings.simplefilter("ignore", tivra.CaptureWarning)
        next(recording)


def test_a_capture_that_was_cut_off_gives_its_whole_blocks_and_says_so(tmp_path):
    path = write(tmp_path / "cut.cap", WHOLE[:WHOLE.rindex(b"BLCK") + 45])
    with pytest.warns(tivra.CaptureWarning, match="cut.cap: the capture was cut off; its 2 whole messages were read"):
        assert sum(map(len, tivra.read_capture(path, dictionary=BUILTIN))) == 2


def test_messages_that_cannot_be_decoded_are_counted_and_the_others_kept(tmp_path):
    path = write(tmp_path / "odd.cap", capture([(SECOND, body("A", 1)), (SECOND, b"4=100|101=abc"), (SECOND, b"nonsense"),
                                                (SECOND, body("A", 2))]))
    recording = tivra.read_capture(path, dictionary=BUILTIN)
    assert [row["BID"] for row in next(recording)] == [1, 2]
    with pytest.raises(tivra.CaptureError, match="2 messages can't be decoded.*the first is message 2: .*pos"):
        next(recording)


@pytest.mark.parametrize("call, error, text", [
    (lambda path: tivra.read_capture(path.parent / "none.cap"), tivra.CaptureError, "cannot open.*none.cap: No such file"),
    (lambda path: tivra.read_capture(SAMPLE), tivra.CaptureError, "not a capture"),
    (lambda path: tivra.read_capture(path, fields=["BIDD"], dictionary=BUILTIN), tivra.CaptureError, 'no field "BIDD"'),
    (lambda path: tivra.read_capture(path, fields="BID"), TypeError, "a list of names"),
    (lambda path: tivra.read_capture(path, symbols="IBM"), TypeError, "a list of names"),
    (lambda path: tivra.read_capture(path, symbols=[]), ValueError, "no symbols named"),
    (lambda path: tivra.read_capture(path, max_rows=0), ValueError, "max_rows can't be 0; give one from 1"),
    (lambda path: tivra.read_capture(path, start=datetime.datetime(2013, 10, 7)), ValueError, "start has no time zone"),
    (lambda path: tivra.read_capture(path, end="tomorrow"), ValueError, "end is no time of ISO 8601"),
    (lambda path: tivra.read_capture(path, start="3000-01-01T00:00:00Z"), ValueError, "start is too far from 1970"),
    (lambda path: tivra.read_capture(path, end=1.5), TypeError, "end must be a datetime"),
    (lambda path: tivra.open_day(path), tivra.CaptureError, "few.cap:1: the first line must be"),
    (lambda path: tivra.open_day(path.parent), tivra.CaptureError, "cannot"),
])
def test_what_cannot_be_read_or_asked_for_says_why(tmp_path, call, error, text):
    path = write(tmp_path / "few.cap", WHOLE)
    with pytest.raises(error, match=text):
        call(path)


def test_a_day_names_the_line_that_is_wrong(tmp_path):
    path = tmp_path / "day.csv"
    path.write_text("ms,symbol,kind,bid,bid_size,ask,ask_size,price,size,exchange,condition,suspicious\n"
                    "1,A,Q,1,1,,,,,K,1,0\n2,A,X,1,1,,,,,K,1,0\n")
    recording = tivra.open_day(path)
    assert len(next(recording)) == 1
    with pytest.raises(tivra.CaptureError, match=r"day.csv:3: the kind must be Q or T"):
        next(recording)


def test_a_map_gives_names_and_its_line_when_it_is_wrong(tmp_path):
    lines = ["cmd=AddToken|name=UNKNOWNTOKEN|token=45028|storage=string", "cmd=AddToken|name=PRICE|token=101|storage=double"]
    path = write(tmp_path / "few.cap", WHOLE)
    good = write(tmp_path / "good.map", "\n".join(lines).encode())
    batch = next(tivra.read_capture(path, dictionary=tivra.Dictionary.from_map(good)))
    assert [row["PRICE"] for row in batch] == [1.0, 2.0, 3.0]
    with pytest.raises(ValueError, match="bad.map:2: Unknown storage"):
        tivra.Dictionary.from_map(write(tmp_path / "bad.map", f"{lines[0]}\ncmd=AddToken|name=P|token=1|storage=x\n".encode()))
