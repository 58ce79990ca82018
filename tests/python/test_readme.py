"""The Python example of README.md runs as it stands."""

import os
import re
import subprocess
import sys

import pricemsg

SOURCE_DIR = os.environ.get("PRICEMSG_SOURCE_DIR") or os.path.dirname(
    os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def test_readme_python_example(tmp_path):
    with open(os.path.join(SOURCE_DIR, "README.md")) as fh:
        blocks = re.findall(r"^<!-- ci: python example -->\n```python\n(.*?)^```$", fh.read(),
                            re.M | re.S)
    assert len(blocks) == 1
    # The package this suite tests, wherever the example runs.
    env = dict(os.environ, PYTHONPATH=os.path.dirname(os.path.dirname(pricemsg.__file__)))
    done = subprocess.run([sys.executable, "-c", blocks[0]], cwd=tmp_path, env=env,
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith("M_IrNoteCF(iPeriodNo=4")
