"""./run and scripts/setup.sh do what they say, seen from outside.

Both run in a copy of their own, with stand-ins first on the PATH for the commands that change the
machine (apt-get, sudo) or take long (cmake). The stand-ins write down how they were called.
"""

from __future__ import annotations

import os
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]


class Copy:
    """A copy of the commands in a folder of its own, and stand-ins for what they call."""

    def __init__(self, folder: Path) -> None:
        self.root = folder / "project"
        self.elsewhere = folder / "elsewhere"
        self.stand_ins = folder / "bin"
        self.calls = folder / "calls.txt"
        for made in (self.root / "scripts", self.elsewhere, self.stand_ins):
            made.mkdir(parents=True)
        for name in ("run", "requirements.txt", "scripts/setup.sh", "scripts/packages.txt"):
            shutil.copy(ROOT / name, self.root / name)
        shutil.copy(ROOT / "scripts/make_sample_prices.py", self.root / "scripts")

    def stand_in(self, name: str, body: str) -> None:
        path = self.root / name if "/" in name else self.stand_ins / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(
            f'#!/bin/bash\nprintf "%s\\n" "{Path(name).name} $*" >>"{self.calls}"\n{body}\n'
        )
        path.chmod(0o755)

    def call(self, command: str, *arguments: str, **environment: str):
        kept = {key: os.environ[key] for key in ("HOME", "LANG") if key in os.environ}
        return subprocess.run(
            [str(self.root / command), *arguments],
            cwd=self.elsewhere,
            env={**kept, "PATH": f"{self.stand_ins}:/usr/bin:/bin", "CI": "true", **environment},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            check=False,
            timeout=60,
        )

    def called(self) -> list[str]:
        return self.calls.read_text().splitlines() if self.calls.exists() else []


@pytest.fixture
def copy(tmp_path: Path) -> Copy:
    made = Copy(tmp_path)
    made.stand_in("dpkg-query", "echo installed")
    made.stand_in("apt-get", "")
    made.stand_in("sudo", 'while [[ $1 == -* ]]; do shift; done; "$@"')
    program = made.root / "build/release/bin/genetic-search"
    made.stand_in(
        "cmake",
        f"""[[ $1 == --preset ]] && mkdir -p build/release && : >build/release/build.ninja
        if [[ $1 == --build ]]; then
          mkdir -p {program.parent}
          printf '#!/bin/bash\\nprintf "%%s\\\\n" "$PWD" "$@"\\nexit 7\\n' >{program}
          chmod +x {program}
        fi""",
    )
    made.stand_in("build/venv/bin/python", 'mkdir -p "${2%/*}"; : >"$2"')
    return made


def test_run_gives_the_sample_and_a_database_and_hands_on_the_exit_code(copy: Copy) -> None:
    done = copy.call("run", "--generations", "3", VARNHOLT_SKIP_PYTHON="1")
    assert done.returncode == 7, done.stderr
    sample, database = copy.root / "build/sample/prices.csv", copy.root / "build/run.db"
    assert done.stdout.splitlines() == [
        str(copy.elsewhere),
        "run",
        *("--prices", str(sample)),
        *("--db", str(database)),
        *("--generations", "3"),
    ]
    assert sample.exists()


@pytest.mark.parametrize(
    ("named", "file", "database"),
    [
        (["--universe", "sp20"], "sp20.csv", "run-sp20.db"),
        (["--universe=sp20"], "sp20.csv", "run-sp20.db"),
        (["--universe", "sample"], "prices.csv", "run.db"),
    ],
)
def test_run_takes_the_universe_that_is_named(
    copy: Copy, named: list[str], file: str, database: str
) -> None:
    done = copy.call("run", "--quiet", *named, "--seed", "3", VARNHOLT_SKIP_PYTHON="1")
    assert done.returncode == 7, done.stderr
    prices = copy.root / "build/sample" / file
    assert done.stdout.splitlines()[1:] == [
        "run",
        *("--prices", str(prices)),
        *("--db", str(copy.root / "build" / database)),
        *("--quiet", "--seed", "3"),
    ]
    universe = named[-1].split("=")[-1]
    maker = copy.root / "scripts/make_sample_prices.py"
    made = [line for line in copy.called() if line.startswith("python ")]
    assert made == [f"python {maker} {prices} --universe {universe}"]
    # What is there already is not made again, and the caller's database is left alone.
    done = copy.call("run", *named, "--db", "my.db", VARNHOLT_SKIP_PYTHON="1")
    assert done.stdout.splitlines()[2:] == ["--prices", str(prices), "--db", "my.db"]
    assert [line for line in copy.called() if line.startswith("python ")] == made


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["--universe", "sp21"], 'there is no universe "sp21"; there are sample and sp20'),
        (["--universe="], 'there is no universe ""'),
        (["--universe"], "--universe needs a name"),
        (["--universe=sp20", "--prices=mine.csv"], "leave one of them out"),
    ],
)
def test_run_refuses_universes_that_it_cannot_take(
    copy: Copy, arguments: list[str], message: str
) -> None:
    done = copy.call("run", *arguments, VARNHOLT_SKIP_PYTHON="1")
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith("run: ") and message in done.stderr
    assert copy.called() == []


@pytest.mark.parametrize("written", [["--prices", "mine.csv"], ["--prices=mine.csv"]])
def test_run_leaves_the_callers_prices_and_database(copy: Copy, written: list[str]) -> None:
    done = copy.call("run", *written, "--db=my.db", "a b")
    assert done.returncode == 7, done.stderr
    assert done.stdout.splitlines()[1:] == ["run", *written, "--db=my.db", "a b"]
    assert not [line for line in copy.called() if line.startswith("python ")]


def test_run_configures_once_and_leaves_a_configured_tree_alone(copy: Copy) -> None:
    for _ in range(2):
        copy.call("run", "--prices=mine.csv")
    configured = [line for line in copy.called() if line.startswith("cmake --preset")]
    assert len(configured) == 1
    assert "release" in configured[0] and "-DVARNHOLT_TESTS=OFF" in configured[0]


def test_run_stops_when_the_build_fails(copy: Copy) -> None:
    copy.stand_in("cmake", "exit 3")
    done = copy.call("run", "--prices=mine.csv")
    assert done.returncode == 3
    assert done.stdout == ""


def test_setup_with_everything_there_asks_nobody(copy: Copy) -> None:
    done = copy.call("scripts/setup.sh", "test", VARNHOLT_SKIP_PYTHON="1")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert {line.split()[0] for line in copy.called()} == {"dpkg-query"}


def test_setup_for_run_wants_no_test_tools(copy: Copy) -> None:
    copy.call("scripts/setup.sh", "run", VARNHOLT_SKIP_PYTHON="1")
    for_run = {line.split()[-1] for line in copy.called()}
    copy.call("scripts/setup.sh", "test", VARNHOLT_SKIP_PYTHON="1")
    for_test = {line.split()[-1] for line in copy.called()}
    assert {"g++", "cmake", "libssl-dev"} <= for_run
    assert not for_run & {"libgtest-dev", "clang-14", "gcovr", "python3-dev"}
    assert for_run | {"libgtest-dev", "clang-14", "gcovr", "python3-dev"} <= for_test


def test_setup_installs_what_is_missing_and_only_that(copy: Copy) -> None:
    installed = copy.elsewhere / "installed"
    absent = f'[[ ($3 == cmake || $3 == g++) && ! -e "{installed}" ]]'
    copy.stand_in("dpkg-query", f"{absent} || echo installed")
    copy.stand_in("apt-get", f'[[ "$*" == *install* ]] && : >"{installed}"')
    done = copy.call("scripts/setup.sh", "run", VARNHOLT_SKIP_PYTHON="1")
    assert done.returncode == 0, done.stderr
    assert "installing 2 Debian packages: g++ cmake" in done.stderr
    updated, install = [line for line in copy.called() if line.startswith("apt-get")]
    assert updated.endswith("update")
    assert install.endswith("--no-install-recommends g++ cmake")


def test_setup_names_what_it_cannot_get(copy: Copy) -> None:
    copy.stand_in("dpkg-query", "[[ $3 != libcsv-dev ]] && echo installed")
    copy.stand_in("apt-get", "echo 'no such package' >&2; exit 100")
    done = copy.call("scripts/setup.sh", "run", VARNHOLT_SKIP_PYTHON="1")
    assert done.returncode == 1
    assert "could not get these Debian packages: libcsv-dev" in done.stderr
    assert "no such package" in done.stderr


def test_setup_needs_root_and_says_so() -> None:
    # Root gives itself up, so that the script sees an ordinary user; such a user cannot look into
    # the folders that pytest makes for root.
    become = ["setpriv", "--reuid=12345", "--clear-groups"] if os.geteuid() == 0 else []
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        copy = Copy(Path(folder))
        copy.stand_in("dpkg-query", "[[ $3 != libcsv-dev ]] && echo installed")
        copy.stand_in("apt-get", "")
        copy.stand_in("sudo", "echo 'a password is required' >&2; exit 1")
        (copy.root / "build").mkdir()
        (copy.root / "build").chmod(0o777)
        copy.calls.touch()
        copy.calls.chmod(0o666)
        done = subprocess.run(
            [*become, str(copy.root / "scripts/setup.sh"), "run"],
            env={"PATH": f"{copy.stand_ins}:/usr/bin:/bin", "CI": "true"},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            check=False,
        )
        called = copy.called()
    assert done.returncode == 1
    assert "a password is required" in done.stderr
    assert "sudo does not let this user become it" in done.stderr
    assert "Have an administrator install: libcsv-dev" in done.stderr
    assert "sudo -n true" in called
    assert not [line for line in called if line.startswith("apt-get")]


def test_setup_without_a_package_manager_says_so(copy: Copy) -> None:
    for name in ("bash", "dirname", "mkdir", "awk", "env"):
        (copy.stand_ins / name).symlink_to(shutil.which(name) or name)
    (copy.stand_ins / "dpkg-query").unlink()
    done = copy.call("scripts/setup.sh", "run", PATH=str(copy.stand_ins))
    assert done.returncode == 1
    assert "this is no Debian system" in done.stderr and "libssl-dev" in done.stderr


def test_setup_wants_to_know_what_for(copy: Copy) -> None:
    done = copy.call("scripts/setup.sh", "everything")
    assert done.returncode == 1
    assert "run, universes, test or tools" in done.stderr


def test_requirements_are_pinned_by_contents() -> None:
    text = (ROOT / "requirements.txt").read_text()
    lines = [line for line in text.replace("\\\n", " ").splitlines() if "==" in line]
    assert len(lines) >= 10
    for line in lines:
        name, _, rest = line.partition("==")
        assert name == name.strip() and rest.count("--hash=sha256:") >= 1, line
    assert "\n--require-hashes\n" in text
