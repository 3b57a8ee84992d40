import base64
import os
import pathlib
import sys

import nbclient
import nbformat
import pytest

import tivra
from days import ROOT

NOTEBOOKS = sorted((ROOT / "examples" / "notebooks").glob("*.ipynb"))


def outputs(notebook, kind):
    return [output["data"][kind] for cell in notebook.cells for output in cell.get("outputs", []) if kind in output.get("data", {})]


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)
def test_a_notebook_runs_and_draws(path, monkeypatch):
    monkeypatch.setenv("PYTHONPATH", os.pathsep.join([str(pathlib.Path(tivra.__file__).parents[1]), *sys.path]))
    monkeypatch.delenv("TIVRA_DAY", raising=False)
    notebook = nbformat.read(path, as_version=4)
    assert not any(cell.get("outputs") for cell in notebook.cells), "a notebook is kept without what it has printed"
    nbclient.NotebookClient(notebook, timeout=120, resources={"metadata": {"path": str(path.parent)}}).execute()
    pictures = outputs(notebook, "image/png")
    assert pictures and outputs(notebook, "text/html")
    if folder := os.environ.get("TIVRA_PICTURES"):
        for number, picture in enumerate(pictures):
            pathlib.Path(folder, f"{path.stem}-{number}.png").write_bytes(base64.b64decode(picture))
