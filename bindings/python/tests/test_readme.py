"""The Python examples of README.md run as written."""

import os
import re
import subprocess
import sys

from conftest import ROOT


def examples():
    text = (ROOT / "README.md").read_text()
    return re.findall(r"<!-- readme-example-python -->\s*```python\n(.*?)```", text, re.S)


def test_the_readme_has_python_examples():
    assert examples()


def test_every_python_example_runs(tmp_path):
    env = dict(os.environ, PYTHONPATH=str(ROOT / "bindings" / "python"),
               QUIV_KEY_STORE=str(tmp_path / "keys"))
    for number, code in enumerate(examples(), 1):
        script = tmp_path / f"example{number}.py"
        script.write_text(code)
        result = subprocess.run([sys.executable, str(script)], env=env, capture_output=True,
                                text=True, timeout=120)
        assert result.returncode == 0, f"example {number}:\n{result.stdout}\n{result.stderr}"
        assert result.stdout.strip(), f"example {number} printed nothing"
