"""The Python example of README.md runs as it stands."""

import os
import re
import subprocess
import sys

from conftest import SOURCE_DIR


def test_readme_python_example(tmp_path):
    readme = open(os.path.join(SOURCE_DIR, "README.md")).read()
    blocks = re.findall(r"^<!-- ci: python example -->\n```python\n(.*?)^```$", readme,
                        re.M | re.S)
    assert len(blocks) == 1
    done = subprocess.run([sys.executable, "-c", blocks[0]], cwd=tmp_path, capture_output=True,
                          text=True)
    assert done.returncode == 0, done.stderr
    assert done.stdout.startswith("M_IrNoteCF(iPeriodNo=4")
