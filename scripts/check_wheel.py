#!/usr/bin/env python3
"""Looks into a wheel of the Python module, and installs it beside a host.

    scripts/check_wheel.py build/test-results/wheel/*.whl

In a virtual environment of its own, with nothing else installed: the example of a host in one file
runs; then, with a host's package in the same folders, a search runs on that; and when the wheel is
uninstalled the host's package is left as it was.
"""

from __future__ import annotations

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import venv
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
EXAMPLE = ROOT / "examples" / "minimal_host.py"
HOST = ROOT / "tests" / "python" / "host" / "varnholt"
PACKAGE = "varnholt/search_templates/genetic/"
PARTS = {"__init__.py", "__init__.pyi", "py.typed"}

SEARCH = """
import types
from varnholt.search_templates import genetic

ended = []
genetic.with_config(batch_size=2)(types.SimpleNamespace(
    _stop_event=types.SimpleNamespace(is_set=lambda: True),
    record_search_run_metrics=lambda **metrics: ended.append(metrics["terminal_reason"]),
))
assert ended == ["stopped"], ended
print(genetic.__file__)
"""


class WheelError(Exception):
    """The wheel is not what it should be."""


def check_contents(wheel: Path) -> None:
    """What it holds is what the host's package can bear: our folder, and nothing above it."""
    names = [name for name in zipfile.ZipFile(wheel).namelist() if ".dist-info/" not in name]
    strangers = [name for name in names if not name.startswith(PACKAGE)]
    missing = PARTS - {name.removeprefix(PACKAGE) for name in names}
    if strangers or missing or not any(name.endswith(".so") for name in names):
        raise WheelError(f"the wheel holds {strangers or names}, without {missing or 'nothing'}")


class Environment:
    """A virtual environment that sees nothing of this one."""

    def __init__(self, folder: Path) -> None:
        venv.create(folder, with_pip=True, symlinks=True)
        self._python = folder / "bin" / "python"
        self.packages = next(folder.glob("lib/python*/site-packages"))

    def run(self, *arguments: object) -> str:
        """What Python prints with these arguments."""
        own = {name: value for name, value in os.environ.items() if not name.startswith("PYTHON")}
        done = subprocess.run(
            [self._python, *map(str, arguments)], cwd=self.packages.parent, env=own,
            capture_output=True, text=True, check=False, timeout=300,
        )
        if done.returncode != 0:
            raise WheelError(f"{arguments[0]} failed:\n{done.stdout}{done.stderr}")
        return done.stdout

    def pip(self, *arguments: object) -> None:
        """Runs pip, which asks nobody."""
        self.run("-m", "pip", "--no-input", "--disable-pip-version-check", *arguments)


def files_under(folder: Path) -> set[Path]:
    """The files of a package, but for what the interpreter makes of them."""
    return {path for path in folder.rglob("*") if path.is_file() and path.suffix != ".pyc"}


def install_host(packages: Path) -> set[Path]:
    """Installs a host's package, with an `__init__.py` in each folder, and returns its files."""
    own = packages / "varnholt"
    ours = files_under(own)
    shutil.copytree(HOST, own, dirs_exist_ok=True, ignore=shutil.ignore_patterns("__pycache__"))
    for folder in (own, *(own / path.relative_to(HOST) for path in HOST.iterdir())):
        if folder.is_dir():
            (folder / "__init__.py").touch()
    return files_under(own) - ours


def check(wheel: Path) -> None:
    """Raises a WheelError for the first thing that is wrong."""
    check_contents(wheel)
    with tempfile.TemporaryDirectory() as folder:
        environment = Environment(Path(folder))
        environment.pip("install", "--quiet", "--no-index", wheel)
        found = environment.run(EXAMPLE, "60").splitlines()
        if len(found) != 3 or not found[1].startswith("best: 1.0000 "):
            raise WheelError(f"the example found {found}")
        host = install_host(environment.packages)
        environment.run("-c", SEARCH)
        environment.pip("uninstall", "--quiet", "--yes", "varnholt-search-templates-genetic")
        left = files_under(environment.packages / "varnholt")
        if left != host:
            raise WheelError(f"uninstalling it has left {left - host} and taken {host - left}")


def main() -> int:
    """Returns the exit code."""
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("wheel", type=Path)
    wheel = parser.parse_args().wheel.resolve()
    try:
        check(wheel)
    except WheelError as error:
        print(f"check_wheel: {wheel.name}: {error}", file=sys.stderr)
        return 1
    print(f"{wheel.name}: installs beside a host, runs, and is uninstalled without a trace")
    return 0


if __name__ == "__main__":
    sys.exit(main())
