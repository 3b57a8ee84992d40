import re
import shutil

import tivra
from days import ROOT, SAMPLE
from tivra.__main__ import main


def test_the_pieces_of_the_guide_run_in_their_order(tmp_path, monkeypatch, capsys):
    monkeypatch.chdir(tmp_path)
    shutil.copy(SAMPLE, "sample-20131007.csv.gz")
    tivra.write_capture(tivra.open_day(SAMPLE), "morning.cap", tivra.Dictionary.builtin())
    chapter = (ROOT / "docs" / "python.md").read_text().split("\n## Files\n", 1)[1].split("\n## ", 1)[0]
    command = re.search(r"^    python -m tivra (export .*)$", chapter, re.M)
    assert main(command[1].split()) == 0
    pieces = re.findall(r"```python\n(.*?)```", chapter, re.S)
    names = {}
    for piece in pieces:
        exec(compile(piece, "docs/python.md", "exec"), names)
    printed = capsys.readouterr().out
    assert len(pieces) == 6 and "40000 rows" in printed and re.search(r"\d+ messages", printed)
