"""What type checkers and help() see."""

import ast
import inspect
import pathlib
import subprocess
import sys

import pytest

import tivra
from tivra import _core, _sim

_HERE = pathlib.Path(__file__).parent


def test_the_package_and_a_program_pass_mypy_strict(tmp_path):
    done = subprocess.run([sys.executable, "-m", "mypy", "--strict", f"--cache-dir={tmp_path}", "-p", "tivra",],
                          capture_output=True, text=True, cwd=tmp_path)
    assert done.returncode == 0, done.stdout + done.stderr
    done = subprocess.run([sys.executable, "-m", "mypy", "--strict", f"--cache-dir={tmp_path}",
                           str(_HERE / "typed_program.py")], capture_output=True, text=True, cwd=tmp_path)
    assert done.returncode == 0, done.stdout + done.stderr


def _names(scope):
    return {name for name in vars(scope) if not name.startswith("_")}


@pytest.mark.parametrize("module", [_core, _sim], ids=lambda module: module.__name__)
def test_the_stub_has_what_the_module_has(module):
    stub = ast.parse((pathlib.Path(tivra.__file__).parent / (module.__name__.split(".")[-1] + ".pyi")).read_text())
    kinds = (ast.FunctionDef, ast.ClassDef)
    assert {node.name for node in stub.body if isinstance(node, kinds)} == _names(module)
    for node in stub.body:
        if isinstance(node, ast.ClassDef) and issubclass(getattr(module, node.name), Exception) is False:
            has = {item.name if isinstance(item, ast.FunctionDef) else item.target.id for item in node.body
                   if isinstance(item, (ast.FunctionDef, ast.AnnAssign))}
            assert {name for name in has if not name.startswith("_")} == _names(getattr(module, node.name)), node.name


def test_everything_public_says_what_it_is():
    missing = []
    for name in tivra.__all__:
        thing = getattr(tivra, name)
        if not inspect.getdoc(thing):
            missing.append(name)
        if inspect.isclass(thing) and not issubclass(thing, (Exception, tivra.DataState)):
            missing += [f"{name}.{member}" for member, value in vars(thing).items()
                        if not member.startswith("_") and callable(value) and not inspect.getdoc(value)]
    assert not missing
