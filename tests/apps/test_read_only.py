"""A store that lies where nothing can be written is read all the same, and weights go to standard
output where a file is named "-".

Method: a file system mounted for reading only, and the folder of somebody else.
"""

from __future__ import annotations

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest

from program import call, folder_of, submitted_ids

NOBODY = 65534
LOOKS = (("signals",), ("attempts",), ("show", "ID"), ("export", "ID", "--weights", "-"))


def looks_at(store: Path, prices: Path, signal: str, **how) -> dict[str, str]:
    """What each command that only looks tells."""
    told = {}
    for name, *more in LOOKS:
        more = [signal if word == "ID" else word for word in more]
        if name == "export":
            more += ["--prices", str(prices)]
        ended = call(name, store, *more, **how)
        assert ended.returncode == 0, (name, ended.stderr)
        told[name] = ended.stdout.replace(str(store), "STORE")
    return told


def test_on_a_file_system_that_is_mounted_for_reading_only(
    tmp_path: Path, store: Path, prices: Path
):
    signal = submitted_ids(store)[0]
    expected = looks_at(store, prices, signal)
    mounted = tmp_path / "what? 100%#1"
    mounted.mkdir()
    if subprocess.run(
        ["mount", "-t", "tmpfs", "tmpfs", str(mounted)], capture_output=True, check=False
    ).returncode != 0:
        pytest.skip("only the superuser can mount, and not in every container")
    try:
        copy = Path(shutil.copy(store, mounted / "runs.db"))
        subprocess.run(["mount", "-o", "remount,ro", str(mounted)], check=True)
        assert looks_at(copy, prices, signal) == expected
        refused = call("run", "--prices", prices, "--db", copy, "--generations", "1")
        assert refused.returncode == 2 and f"store {copy}: " in refused.stderr
        # What a search has not moved into the file yet is not passed over in silence.
        subprocess.run(["mount", "-o", "remount,rw", str(mounted)], check=True)
        (mounted / "runs.db-wal").write_bytes(b"x" * 100)
        subprocess.run(["mount", "-o", "remount,ro", str(mounted)], check=True)
        refused = call("signals", copy)
        assert refused.returncode == 2
        assert f"what was written last lies in {copy}-wal" in refused.stderr
        assert "copy both files into a folder that can be written" in refused.stderr
    finally:
        subprocess.run(["umount", str(mounted)], check=True)


def test_in_the_folder_of_somebody_else(store: Path, prices: Path):
    if os.geteuid() != 0:
        pytest.skip("only the superuser can become somebody who may not write")
    signal = submitted_ids(store)[0]
    expected = looks_at(store, prices, signal)
    # Not in pytest's own folder, which nobody else may enter.
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        folder.chmod(0o755)
        copy = Path(shutil.copy(store, folder / "runs.db"))
        copy.chmod(0o444)
        readable = Path(shutil.copy(prices, folder / "prices.csv"))
        readable.chmod(0o644)
        before = folder_of(folder)
        assert looks_at(copy, readable, signal, user=NOBODY) == expected
        assert folder_of(folder) == before and len(list(folder.iterdir())) == 2


def test_weights_on_standard_output(tmp_path: Path, store: Path, prices: Path):
    signal = submitted_ids(store)[0]
    file = tmp_path / "w.csv"
    assert call("export", store, signal, "--weights", file).returncode == 0
    told = call("export", store, signal, "--weights", "-", cwd=tmp_path)
    assert told.returncode == 0
    assert told.stdout == file.read_text()
    assert told.stderr == (
        f"standard output: the weights of {signal} on 150 days, 2020-01-01 to 2020-06-25, in 5 "
        "instruments\n"
    )
    assert not (tmp_path / "-").exists()
