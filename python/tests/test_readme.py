"""The README's example, run exactly as a new user would run it."""
import os
import pathlib
import re
import subprocess
import sys

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"


def readme_script():
    text = README.read_text()
    section = text[text.index("## Scripting from Python"):]
    return re.search(r"```python\n(.*?)```", section, re.S).group(1)


def test_readme_script_mirrors_a_write_to_the_peer(tmp_path):
    script = tmp_path / "script.py"
    script.write_text(readme_script())
    env = dict(os.environ)
    env.pop("SIMULATION_VMID", None)
    result = subprocess.run([sys.executable, str(script)], env=env, capture_output=True,
                            text=True, timeout=120)
    assert result.returncode == 0, result.stderr
    assert result.stdout.splitlines() == [
        "local ready: True remote ready: True",
        "copy pending: True",
        "peer holds the same bytes",
    ]
    vmid_regions = [n for n in os.listdir("/dev/shm") if "demo-" in n]
    assert vmid_regions == []
