#!/usr/bin/env python3
"""Shows the tree to the second compiler.

The library, the hosts and the programs go through clang-tidy with the checks of .clang-tidy; the
tests and benchmarks, where a lint check pays less, are only compiled, without output and with
warnings as errors. What is compiled, and with which flags, is read from the compile_commands.json
of a configured build folder. What a second build folder compiles, where the compiler is clang
itself, need not be compiled here once more.

  scripts/clang_check.py build/release            everything
  scripts/clang_check.py build/release graph/     only files whose path contains "graph/"
  scripts/clang_check.py build/release --built build/asan
                                                  lints, compiles what build/asan does not
"""

from __future__ import annotations

import argparse
import concurrent.futures
import json
import os
import shlex
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
TIDIED = ("search_templates/", "hosts/", "apps/")
COMPILED = ("tests/", "benchmarks/")
# Flags of GCC that clang 14 does not know start with one of these.
FOREIGN_FLAGS = ("-fprofile-update", "-fno-fat-lto-objects", "-flto")


@dataclass(frozen=True)
class Unit:
    """One source file and how the build compiles it."""

    path: str
    folder: str
    arguments: list[str]

    def command(self) -> list[str]:
        flags = []
        skip = False
        for argument in self.arguments:
            if skip or argument == "-c" or argument.startswith(FOREIGN_FLAGS):
                skip = False
            elif argument == "-o":
                skip = True
            else:
                flags.append(argument)
        flags.append("-Wno-unknown-warning-option")
        if self.path.startswith(TIDIED):
            return ["clang-tidy-14", "--quiet", str(ROOT / self.path), "--", *flags]
        return ["clang++-14", *flags, "-fsyntax-only"]


def split_command(command: str) -> tuple[str, list[str]]:
    """The compiler, which may stand behind a launcher such as a cache, and its arguments."""
    words = shlex.split(command)
    first_flag = next(place for place, word in enumerate(words) if word.startswith("-"))
    return words[first_flag - 1], words[first_flag:]


def read_entries(build: Path) -> dict[str, dict[str, str]]:
    """What the build compiles of the tree: its commands by path below the root."""
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    paths = ((Path(entry["file"]), entry) for entry in entries)
    return {
        path.relative_to(ROOT).as_posix(): entry
        for path, entry in paths
        if path.is_relative_to(ROOT)
    }


def read_units(build: Path, wanted: str) -> list[Unit]:
    units = {}
    for name, entry in read_entries(build).items():
        if name.startswith(TIDIED + COMPILED) and wanted in name:
            units[name] = Unit(name, entry["directory"], split_command(entry["command"])[1])
    # The large files first, so that no worker is left with a long one at the end.
    return sorted(units.values(), key=lambda unit: -(ROOT / unit.path).stat().st_size)


def compiled_by_clang(build: Path) -> set[str]:
    """The files that the build itself shows to clang."""
    return {
        name
        for name, entry in read_entries(build).items()
        if "clang" in Path(split_command(entry["command"])[0]).name
    }


def check(unit: Unit) -> tuple[Unit, float, str | None]:
    """The unit, the seconds it took, and what was found, or None."""
    start = time.monotonic()
    done = subprocess.run(
        unit.command(),
        cwd=unit.folder,
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        check=False,
    )
    seconds = time.monotonic() - start
    return unit, seconds, done.stdout + done.stderr if done.returncode != 0 else None


def main() -> int:
    parser = argparse.ArgumentParser(description="Show the tree to clang.")
    parser.add_argument("build", type=Path, help="a configured build folder")
    parser.add_argument("wanted", nargs="?", default="", help="check only paths that contain this")
    parser.add_argument(
        "--built", type=Path, help="a build folder of clang's: what it compiles is only linted"
    )
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--slowest", type=int, default=0, help="list that many slow files")
    options = parser.parse_args()
    build = options.build.resolve()
    try:
        units = read_units(build, options.wanted)
        if options.built:
            built = compiled_by_clang(options.built.resolve())
            units = [u for u in units if u.path.startswith(TIDIED) or u.path not in built]
    except OSError as error:
        print(f"clang_check: {error}: configure the build folder first", file=sys.stderr)
        return 1
    if not units:
        print("clang_check: no file to check", file=sys.stderr)
        return 1

    failures = 0
    times = []
    seen: set[str] = set()
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for unit, seconds, found in pool.map(check, units):
            times.append((seconds, unit.path))
            if found is not None:
                failures += 1
                # A finding in a header comes back with every file that includes it.
                errors = {line for line in found.splitlines() if ": error: " in line}
                if errors and errors <= seen:
                    found = "nothing but what is shown above"
                seen |= errors
                print(f"--- {unit.path}\n{found.rstrip()}", flush=True)
    for seconds, path in sorted(times, reverse=True)[: options.slowest]:
        print(f"{seconds:6.1f} s  {path}")
    print(f"clang: {len(units)} files, {failures} with findings")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
