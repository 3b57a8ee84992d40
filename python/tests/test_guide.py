"""The pieces of the guide, but for those of files, run in their order."""

import re

import tivra.sim
from days import ROOT


def test_the_pieces_of_the_guide_run_in_their_order(monkeypatch, capsys):
    monkeypatch.setenv("TIVRA_PASSWORD", "demo")
    pages = (ROOT / "docs" / "python.md").read_text().split("\n## Files\n", 1)[0]
    pieces = re.findall(r"```python\n(.*?)```", pages, re.S)
    with tivra.sim.Hub() as hub:
        hub.publish(100, "SPY", {"BID": 168.0})
        names = {}
        for piece in pieces:
            exec(compile(piece.replace("127.0.0.1:9100", hub.address), "docs/python.md", "exec"), names)
    printed = capsys.readouterr().out
    assert len(pieces) == 7
    for part in ("International Business Machines", "US4592001014", "established ready", "'NEW'", "cause='loss'"):
        assert part in printed, part
