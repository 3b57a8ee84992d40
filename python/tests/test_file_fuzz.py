import warnings

from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import tivra
from capturefile import capture

SECOND = 1_000_000_000
BUILTIN = tivra.Dictionary.builtin()
HEAD = b"ms,symbol,kind,bid,bid_size,ask,ask_size,price,size,exchange,condition,suspicious\n"
FEW = settings(max_examples=150, deadline=None, suppress_health_check=[HealthCheck.function_scoped_fixture])

field = st.tuples(st.sampled_from([b"3", b"4", b"5", b"24", b"101", b"105", b"202", b"5001", b"5004", b"5026", b"70000", b"-1",
                                   b"99999999999", b"x", b""]),
                  st.one_of(st.binary(max_size=9), st.sampled_from([b"1", b"1.5", b"-7", b"1e999", b"", b"\xff"])))
body = st.lists(field, max_size=8).map(lambda fields: b"|".join(name + b"=" + value for name, value in fields)) | st.binary(max_size=60)
blocks = st.lists(st.lists(st.tuples(st.integers(-2**63, 2**63 - 1), body), min_size=1, max_size=5), max_size=3)
line = st.lists(st.one_of(st.text(max_size=5), st.sampled_from(["1", "Q", "T", "A", "1.5", ""])), min_size=10, max_size=13)


def read_all(open_):
    """All rows of a file; only our own error may come out of it, and what came before it is whole."""
    rows = 0
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", tivra.CaptureWarning)
        try:
            for batch in open_():
                batch.to_arrow().validate(full=True)
                rows += len(list(batch))
        except tivra.CaptureError as error:
            assert "file.bin" in str(error)
    return rows


@FEW
@given(blocks, st.lists(st.tuples(st.integers(0, 2**16), st.integers(1, 255)), max_size=3), st.integers(0, 2**16))
def test_captures_of_any_bytes(tmp_path, blocks, flips, length):
    data = bytearray(capture(*blocks, ends=length % 2 == 0))
    for place, bits in flips:
        data[place % len(data)] ^= bits
    path = tmp_path / "file.bin"
    path.write_bytes(data if length % 3 else data[:length % (len(data) + 1)])
    read_all(lambda: tivra.read_capture(path, dictionary=BUILTIN, max_rows=2))


@FEW
@given(blocks)
def test_messages_of_any_bytes_in_a_whole_capture(tmp_path, blocks):
    path = tmp_path / "file.bin"
    path.write_bytes(capture(*blocks))
    recording = tivra.read_capture(path)
    rows = read_all(lambda: recording)
    notes = sum(message.startswith(b"!") for block in blocks for _, message in block)
    assert rows + recording.unreadable + notes == sum(map(len, blocks))


@FEW
@given(st.one_of(st.binary(max_size=300).map(lambda data: HEAD + data),
                 st.lists(line, max_size=5).map(lambda lines: HEAD + "\n".join(map(",".join, lines)).encode(errors="replace"))))
def test_days_of_any_bytes(tmp_path, data):
    path = tmp_path / "file.bin"
    path.write_bytes(data)
    read_all(lambda: tivra.open_day(path))
