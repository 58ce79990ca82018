"""The Python example of README.md runs as it stands."""

import os
import re
import subprocess
import sys

import pricemsg
from conftest import SOURCE_DIR


def test_readme_python_example(tmp_path):
    readme = open(os.path.join(SOURCE_DIR, "README.md")).read()
    blocks = re.findall(r"^<!-- ci: python example -->\n```python\n(.*?)^```$", readme,
                        re.M | re.S)
    assert len(blocks) == 1
    # The package this suite tests, wherever the example runs.
    env = dict(os.environ, PYTHONPATH=os.path.dirname(os.path.dirname(pricemsg.__file__)))
    done = subprocess.run([sys.executable, "-c", blocks[0]], cwd=tmp_path, env=env,
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith("M_IrNoteCF(iPeriodNo=4")
