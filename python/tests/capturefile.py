"""Captures written byte by byte, so that tests can spoil them."""

import struct
import zlib


def block(messages):
    """A block of (nanoseconds, body) pairs."""
    text = b"".join(struct.pack(">qI", time, len(body)) + body for time, body in messages)
    data = zlib.compress(text, 1)
    head = b"BLCK" + struct.pack(">IIIqI", len(data), len(text), len(messages), messages[0][0], zlib.crc32(data))
    return head + struct.pack(">I", zlib.crc32(head)) + data


def capture(*blocks, ends=True):
    """A whole capture, or one without its end, of blocks of messages."""
    data = b"TIVRACAP" + struct.pack(">II", 1, 0)
    index = b"INDX" + struct.pack(">I", len(blocks))
    for messages in blocks:
        index += struct.pack(">QqI", len(data), messages[0][0], len(messages))
        data += block(messages)
    if not ends:
        return data
    return data + index + struct.pack(">IQ", zlib.crc32(index), len(data)) + b"TIVRAEND"
