"""``python -m tivra``: files from one form into another, and played again."""

from __future__ import annotations

import argparse
import contextlib
import os
import signal
import sys
import threading
import warnings
from collections.abc import Sequence

from . import __version__
from .captures import CaptureError, CaptureWarning, Recording, open_day, read_capture
from .dictionary import Dictionary
from .replay import Replay, kind_of
from .writing import FORMATS, SplitWriter

ENDED, WRONG_USAGE, DAMAGED, NO_INPUT, NO_OUTPUT, INTERRUPTED = 0, 2, 3, 4, 5, 130

_SUFFIXES = {".parquet": "parquet", ".pq": "parquet", ".csv": "csv", ".jsonl": "jsonl", ".ndjson": "jsonl"}
_EXIT_CODES = """exit codes: 0 ended well, 2 wrong usage or a dictionary that can't be had, 3 the input is damaged or was
cut off (all that could be read is written), 4 the input can't be read, 5 the output can't be written, 130 ended by
Ctrl-C, which leaves no output"""


class Failure(Exception):
    """What ends the program, with its exit code."""

    def __init__(self, code: int, text: str) -> None:
        super().__init__(text)
        self.code = code


def main(arguments: Sequence[str] | None = None) -> int:
    """Runs the program; the result is its exit code."""
    parser = argparse.ArgumentParser(prog="python -m tivra", description="Recorded market data in other forms.")
    parser.add_argument("--version", action="version", version=__version__)
    commands = parser.add_subparsers(dest="command", required=True)
    _declare_export(commands.add_parser("export", help="write a capture or a day as Parquet, CSV or JSON lines",
                                        epilog=_EXIT_CODES))
    _declare_replay(commands.add_parser("replay", help="play a Parquet file, a capture or a day as a hub",
                                        epilog=_EXIT_CODES))
    options = parser.parse_args(arguments)
    try:
        return int(options.run(options))
    except Failure as failure:
        print(f"tivra: {failure}", file=sys.stderr)
        return failure.code
    except ImportError as error:
        print(f"tivra: {error}", file=sys.stderr)
        return WRONG_USAGE
    except KeyboardInterrupt:
        return INTERRUPTED


def _declare_dictionary(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("--dictionary", metavar="MAP|HUB",
                        help="what the numbers of the fields mean: a map file, a hub as HOST:PORT (with --user, and its "
                             "password in TIVRA_PASSWORD), or \"builtin\" for the simulator's; without it fields are "
                             "called by their numbers")
    parser.add_argument("-u", "--user", default=os.environ.get("TIVRA_USER", ""), help="user at the hub")


def _declare_export(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("input", metavar="CAPTURE", help="a capture of tivra-cat --record, or a trading-day file")
    parser.add_argument("-o", "--output", required=True, metavar="FILE", help="the file to write")
    parser.add_argument("--format", choices=FORMATS, help="its form; else its suffix says it")
    parser.add_argument("--fields", metavar="NAME,...", help="fields that get a column; else all that occur")
    parser.add_argument("--symbols", metavar="NAME,...", help="symbols to take; else all")
    parser.add_argument("--start", metavar="TIME", help="what came from then on, such as 2013-10-07T13:30:00Z")
    parser.add_argument("--end", metavar="TIME", help="what came before")
    parser.add_argument("--split", choices=("hour", "source"), help="a file for each hour (in UTC) or source")
    _declare_dictionary(parser)
    parser.set_defaults(run=_export)


def _declare_replay(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("input", metavar="FILE", help="a Parquet file of export, a capture, or a trading-day file")
    parser.add_argument("-p", "--port", type=int, default=0, help="port to listen on; 0 (default) takes a free one")
    parser.add_argument("--factor", type=float, default=0.0, help="1 is the pace of the recording, 0 (default) full speed")
    parser.add_argument("--start-when", type=int, default=1, metavar="N", help="begin when N symbols are subscribed")
    parser.add_argument("--once", action="store_true", help="end when all was played and every client has gone")
    _declare_dictionary(parser)
    parser.set_defaults(run=_replay)


def _dictionary(options: argparse.Namespace) -> Dictionary | None:
    name = options.dictionary
    if name is None:
        return None
    try:
        if name == "builtin":
            return Dictionary.builtin()
        if os.path.exists(name):
            return Dictionary.from_map(name)
        if ":" not in name:
            raise Failure(WRONG_USAGE, f"--dictionary {name}: there is no such file, and a hub is named HOST:PORT")
        if not options.user:
            raise Failure(WRONG_USAGE, "no user named: give --user or TIVRA_USER")
        return Dictionary.from_hub(name, options.user, os.environ.get("TIVRA_PASSWORD", ""))
    except (OSError, ValueError) as error:
        raise Failure(WRONG_USAGE, f"the dictionary can't be had: {error}") from None


def _kind_of(path: str) -> str:
    try:
        return kind_of(path)
    except OSError as error:
        raise Failure(NO_INPUT, f"cannot read {path}: {error.strerror}") from None


def _list(text: str | None) -> list[str] | None:
    return None if text is None else [item for item in text.split(",") if item]


def _open(options: argparse.Namespace, dictionary: Dictionary | None) -> Recording:
    wanted = {"fields": _list(options.fields), "symbols": _list(options.symbols), "start": options.start,
              "end": options.end}
    kind = _kind_of(options.input)
    if kind == "parquet":
        raise Failure(WRONG_USAGE, f"{options.input} is a Parquet file already")
    try:
        if kind == "day":
            return open_day(options.input, **wanted)
        return read_capture(options.input, dictionary=dictionary, **wanted)
    except CaptureError as error:
        raise Failure(NO_INPUT, str(error)) from None
    except ValueError as error:
        raise Failure(WRONG_USAGE, str(error)) from None


def _export(options: argparse.Namespace) -> int:
    format_ = options.format or _SUFFIXES.get(os.path.splitext(options.output)[1].lower())
    if format_ is None:
        raise Failure(WRONG_USAGE, f"the suffix of {options.output} says no form: give --format {'|'.join(FORMATS)}")
    _kind_of(options.input)
    if os.path.exists(options.output) and os.path.samefile(options.input, options.output):
        raise Failure(WRONG_USAGE, f"{options.output} is the input itself: name another file")
    if format_ == "parquet" and os.path.exists(options.output) and not os.path.isfile(options.output):
        raise Failure(WRONG_USAGE, f"{options.output} is no file, and Parquet can't be written into anything else: "
                                   f"take --format csv or jsonl")
    dictionary = _dictionary(options)
    recording = _open(options, dictionary)
    known = Dictionary.builtin() if _kind_of(options.input) == "day" else dictionary or Dictionary()
    report = sys.stderr if _is_stdout(options.output) else sys.stdout
    writer = SplitWriter(options.output, format_, options.split, known)
    fault = ""
    try:
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always", CaptureWarning)
            fault = _copy(recording, writer)
        for warning in caught:
            fault = fault or str(warning.message)
        writer.close(recording.gaps)
    except OSError as error:
        writer.discard()
        raise Failure(NO_OUTPUT, f"cannot write {options.output}: {error.strerror or error}") from None
    except BaseException:
        writer.discard()
        raise
    with contextlib.redirect_stdout(report):
        _report(writer, recording, dictionary)
    if fault:
        raise Failure(DAMAGED, fault)
    return ENDED


def _is_stdout(path: str) -> bool:
    return os.path.exists(path) and os.path.samefile(path, "/dev/stdout")


def _copy(recording: Recording, writer: SplitWriter) -> str:
    """Writes all batches. The result is what was wrong with the input."""
    try:
        for batch in recording:
            writer.write(batch.to_arrow())
    except CaptureError as error:
        return str(error)
    return ""


def _report(writer: SplitWriter, recording: Recording, dictionary: Dictionary | None) -> None:
    for part in writer.parts:
        print(f"{part.path}: {part.rows} rows")
    if not writer.parts:
        print(f"no rows: none of {recording.messages} messages was wanted, so that no file was written")
    if recording.repeated:
        print(f"{recording.repeated} values were left out: their message had one of the same field before")
    if recording.gaps:
        print(f"{len(recording.gaps)} gaps were noted when it was recorded:")
        for gap in recording.gaps:
            print(f"  {gap}")


def _replay(options: argparse.Namespace) -> int:
    _kind_of(options.input)
    ended = threading.Event()
    before = {number: signal.signal(number, lambda *_: ended.set()) for number in (signal.SIGINT, signal.SIGTERM)}
    try:
        return _play(options, ended)
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)


def _play(options: argparse.Namespace, ended: threading.Event) -> int:
    try:
        hub = Replay(options.input, port=options.port, factor=options.factor, start_when=options.start_when,
                     dictionary=_dictionary(options))
    except CaptureError as error:
        raise Failure(NO_INPUT, f"cannot play: {error}") from None
    except ValueError as error:
        raise Failure(WRONG_USAGE, str(error)) from None
    with hub:
        print(f"listening on 127.0.0.1:{hub.port}", flush=True)
        while not ended.wait(0.1):
            if options.once and hub.is_played_out and hub.connections == 0:
                break
        left = f"; {hub.left_out} have no symbol or answer a request and were left out" if hub.left_out else ""
        print(f"played {hub.played} messages{left}")
    return ENDED


if __name__ == "__main__":
    sys.exit(main())
