"""The example of a host in one file runs as it stands.

Goal: whoever copies it has a search that finds what is planted. Method: run it as its first lines
say, in an empty folder, with the package that is tested.
"""

import os
import subprocess
import sys

import conftest


def test_it_finds_the_planted_expression(tmp_path):
    done = subprocess.run(
        [sys.executable, str(conftest.ROOT / "examples" / "minimal_host.py"), "120"],
        env={**os.environ, "PYTHONPATH": str(conftest.STAGED)}, cwd=tmp_path,
        capture_output=True, text=True, timeout=300,
    )
    assert done.returncode == 0, done.stderr
    counts, best, attempts = done.stdout.splitlines()
    candidates, submitted = (int(word) for word in counts.split() if word.isdigit())
    assert 0 < submitted <= candidates
    assert best.startswith("best: 1.0000 ")
    # Each attempt was created, started and ended by its record, once.
    assert attempts == "attempts: ['evaluated']"
