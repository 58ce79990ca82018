"""The type stubs: every class and field of the module, and mypy accepts a
script that uses them and refuses one that puts a text into a double."""

import ast
import os
import shutil
import subprocess
import sys

import pricemsg
import pytest

PACKAGE = os.path.dirname(pricemsg.__file__)
MYPY = shutil.which("mypy", path="/usr/bin") or shutil.which("mypy")

GOOD = '''\
import datetime
import pricemsg

req = pricemsg.M_FxBarr(mOptBarr={"dStrike": 1.1}, maUnderData=[{"dCurrentPrice": 2}])
req.mOptBarr.dStrike = 1.2
strike: float | None = req.mOptBarr.dStrike
req.maUnderData.add(dCurrentPrice=3.0).daCorrCoeff.append(0.5)
first: pricemsg.M_UnderData = req.maUnderData[0]
tiv = pricemsg.M_Tiv.from_json(pricemsg.M_Tiv(nDate="20261123").to_json())
day: datetime.date | None = tiv.nDate
reply = pricemsg.M_FxBarr()
reply.load(req.to_msg())
diffs = [d.path for d in reply.diff(req)]
classes: list[type[pricemsg.Message]] = pricemsg.find("fx barrier")
'''
BAD = 'import pricemsg\n\npricemsg.M_FxBarr().mOptBarr.dStrike = "1.1"\n'


def test_stubs_cover_every_class_and_field():
    with open(os.path.join(PACKAGE, "__init__.pyi")) as fh:
        stubbed = {n.name: n for n in ast.parse(fh.read()).body if isinstance(n, ast.ClassDef)}
    for cls in pricemsg.classes():
        node = stubbed[cls.__name__]
        attributes = [a.target.id for a in node.body if isinstance(a, ast.AnnAssign)]
        assert attributes == [f.name for f in cls.fields()], cls.__name__
        init = [f for f in node.body if isinstance(f, ast.FunctionDef) and f.name == "__init__"]
        assert [a.arg for a in init[0].args.kwonlyargs] == attributes
    assert os.path.exists(os.path.join(PACKAGE, "py.typed"))
    for name in ("Message", "Msg", "MessageError", "MessageArray", "IntArray", "FloatArray"):
        assert name in stubbed and hasattr(pricemsg, name)


@pytest.mark.skipif(not MYPY and os.environ.get("CI") != "true", reason="no mypy here")
def test_mypy_accepts_use_and_refuses_a_text_in_a_double(tmp_path):
    assert MYPY, "mypy is needed in CI"
    env = dict(os.environ, MYPYPATH=os.path.dirname(PACKAGE))
    results = []
    for name, text in (("good.py", GOOD), ("bad.py", BAD)):
        (tmp_path / name).write_text(text)
        results.append(subprocess.run(
            [MYPY, "--strict", "--no-incremental", "--cache-dir", os.devnull,
             "--python-executable", sys.executable, name],
            cwd=tmp_path, env=env, capture_output=True, text=True))
    assert results[0].returncode == 0, results[0].stdout + results[0].stderr
    assert results[1].returncode == 1
    assert 'bad.py:3: error: Incompatible types in assignment (expression has type "str"' in \
        results[1].stdout
