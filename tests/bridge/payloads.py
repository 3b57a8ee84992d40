"""Reads a batch of any payload, with nothing of ours but the description in docs/bridge.md, into what it says as JSON."""
import json
import re
from datetime import datetime, timezone

import pyarrow

MEMBERS = ("type", "source", "symbol", "n", "state", "cause", "from", "to", "messages", "bytes")
# Fields of a hub's message that are no values of the record when they come once.
ONCE = {"ENUM.SRC.ID", "PERMISSION", "SYMBOL.TICKER", "REFRESH", "ENUM.DISPLAY.PRECISION", "PART.CODE"}


def records_of(data):
    """@return header and records of a batch"""
    return of_text(data) if data.startswith(b"{") else of_table(data)


def of_text(data):
    line, _, rest = data.partition(b"\n")
    header = json.loads(line)
    names = None
    if header["payload"] == "body":
        line, _, rest = rest.partition(b"\n")
        names = json.loads(line)["fields"]
    records = []
    while rest:
        line, end, rest = rest.partition(b"\n")
        if not end:
            raise ValueError("the last line isn't whole")
        record = json.loads(line)
        if "body" in record:
            length = record.pop("body")
            record["fields"] = fields_of(rest[:length], names)
            if rest[length:length + 1] != b"\n":
                raise ValueError("a body doesn't end where it should")
            rest = rest[length + 1:]
        records.append(record)
    return header, records


def fields_of(body, names):
    fields, seen = {}, set()
    for part in body.split(b"|"):
        number, _, value = part.partition(b"=")
        name, kind = names[number.decode()]
        if name in ONCE and name not in seen:
            seen.add(name)
            continue
        text = value.decode(errors="replace")
        add(fields, *(("TOKEN.DEL", int(number)) if not value else (name, as_type(text, kind))))
    return fields


def as_type(text, kind):
    if kind == "time":
        whole, _, part = text.partition(".")
        return as_time(datetime.fromtimestamp(int(whole), timezone.utc).replace(microsecond=int(f"{part:0<6}"[:6])))
    return {"integer": int, "double": float, "text": str}[kind](text)


def add(fields, name, value):
    """A field that is repeated is an array."""
    if name not in fields:
        fields[name] = value
    elif isinstance(fields[name], list):
        fields[name].append(value)
    else:
        fields[name] = [fields[name], value]


def of_table(data):
    with pyarrow.ipc.open_stream(data) as stream:
        header, table = json.loads(stream.schema.metadata[b"tivra"]), stream.read_all()
    fields = {}
    for name in table.column_names[len([name for name in table.column_names if name in MEMBERS]):]:
        metadata = table.schema.field(name).metadata or {}
        fields[name] = metadata.get(b"field", re.sub(r"\[\]$", "", name).encode()).decode()
    records = []
    for row in table.to_pylist():
        row = {name: as_json(value) for name, value in row.items() if value is not None}
        record = {name: value for name, value in row.items() if name not in fields}
        if record["type"] in ("image", "update", "refresh"):
            record["fields"] = {fields[name]: value for name, value in row.items() if name in fields}
        records.append(record)
    return header, records


def as_json(value):
    if isinstance(value, list):
        return [as_json(each) for each in value]
    if isinstance(value, datetime):
        return as_time(value)
    return value.decode(errors="replace") if isinstance(value, bytes) else value


def as_time(value):
    return value.astimezone(timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.%fZ")
