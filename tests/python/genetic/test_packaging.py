"""The package is found beside the host's, whichever way the host is laid out.

Goal: the three layouts of docs/python-host.md import, and nothing of ours stands above our folder.
Method: a fresh interpreter for each layout.
"""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[2]
EXTEND = "from pkgutil import extend_path\n\n__path__ = extend_path(__path__, __name__)\n"

PROGRAM = """
import types
from varnholt.search_templates import genetic
import varnholt.simulation.evaluation_verdicts

class Stopped:
    def is_set(self): return True

records = []
context = types.SimpleNamespace(
    _stop_event=Stopped(), record_search_run_metrics=lambda **record: records.append(record)
)
assert genetic(context) is None
print(len(records), records[0]["terminal_reason"])
"""


@pytest.fixture
def staged(genetic):
    return Path(genetic.__file__).resolve().parents[3]


def run(*paths):
    return subprocess.run(
        [sys.executable, "-c", PROGRAM],
        env={**os.environ, "PYTHONPATH": os.pathsep.join(map(str, paths))},
        capture_output=True,
        text=True,
        timeout=60,
        check=False,
    )


def with_init_files(host, text):
    for folder in ("", "config", "search_templates", "simulation"):
        (host / "varnholt" / folder / "__init__.py").write_text(text)


def test_a_host_without_init_files(staged):
    answer = run(HERE.parent / "host", staged)
    assert (answer.stdout, answer.stderr) == ("1 stopped\n", "")


def test_a_host_with_init_files_that_extend_their_paths(staged, tmp_path):
    shutil.copytree(HERE.parent / "host", tmp_path, dirs_exist_ok=True)
    with_init_files(tmp_path, EXTEND)
    for paths in ((tmp_path, staged), (staged, tmp_path)):
        answer = run(*paths)
        assert (answer.stdout, answer.stderr) == ("1 stopped\n", "")


def test_a_host_with_init_files_and_ours_installed_into_it(staged, tmp_path):
    shutil.copytree(HERE.parent / "host", tmp_path, dirs_exist_ok=True)
    with_init_files(tmp_path, "")
    shutil.copytree(staged, tmp_path, dirs_exist_ok=True)
    answer = run(tmp_path)
    assert (answer.stdout, answer.stderr) == ("1 stopped\n", "")


def test_a_host_with_init_files_elsewhere_does_not_find_us(staged, tmp_path):
    """Why the line is needed."""
    shutil.copytree(HERE.parent / "host", tmp_path, dirs_exist_ok=True)
    with_init_files(tmp_path, "")
    assert "cannot import name 'genetic'" in run(tmp_path, staged).stderr


def test_nothing_of_ours_stands_above_our_folder(staged):
    files = {path.relative_to(staged).as_posix() for path in staged.rglob("*") if path.is_file()}
    files = {name for name in files if "__pycache__" not in name}
    assert all(name.startswith("varnholt/search_templates/genetic/") for name in files)
    names = {Path(name).name.split(".")[0] for name in files}
    assert {"__init__", "_native", "py"} <= names


def test_the_page_for_hosts_gives_the_line(staged):
    assert EXTEND in (ROOT / "docs" / "python-host.md").read_text()
