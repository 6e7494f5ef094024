#!/usr/bin/env python3
"""Shows the tree to the second compiler.

The library, the hosts and the programs go through clang-tidy with the checks of .clang-tidy; the
tests and benchmarks, where a lint check pays less, are only compiled, without output and with
warnings as errors. What is compiled, and with which flags, is read from the compile_commands.json
of a configured build folder. What a second build folder compiles, where the compiler is clang
itself, need not be compiled here once more.

Most of a lint check is reading headers, so files that are compiled alike are linted several at a
time, as one translation unit that includes them. Where there is a finding, be it only that two of
them have a name in common, the files that it stands in are linted by themselves, and the others
together again: what is told is always what a file shows by itself. That a file does not use a
function of its own is left to the compilers.

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
# What is written beside, with the word that follows.
OUTPUT_FLAGS = ("-o", "-MT", "-MF")
LINTED_TOGETHER = 8


@dataclass(frozen=True)
class Unit:
    """One source file and how the build compiles it."""

    path: str
    folder: str
    arguments: list[str]

    def flags(self) -> list[str]:
        flags = []
        skip = False
        for argument in self.arguments:
            if skip or argument in ("-c", "-MD") or argument.startswith(FOREIGN_FLAGS):
                skip = False
            elif argument in OUTPUT_FLAGS:
                skip = True
            elif argument != str(ROOT / self.path):
                flags.append(argument)
        return [*flags, "-Wno-unknown-warning-option"]


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
    return list(units.values())


def compiled_by_clang(build: Path) -> set[str]:
    """The files that the build itself shows to clang."""
    return {
        name
        for name, entry in read_entries(build).items()
        if "clang" in Path(split_command(entry["command"])[0]).name
    }


def in_groups(units: list[Unit]) -> list[list[Unit]]:
    """The units that are linted together, neighbours that are compiled alike; others one by one."""
    alike: dict[tuple[str, ...], list[Unit]] = {}
    groups = []
    for unit in units:
        if unit.path.startswith(TIDIED):
            alike.setdefault((unit.folder, *unit.flags()), []).append(unit)
        else:
            groups.append([unit])
    for same in alike.values():
        ordered = sorted(same, key=lambda unit: unit.path)
        count = -(-len(ordered) // LINTED_TOGETHER)
        ends = [len(ordered) * place // count for place in range(count + 1)]
        groups += [ordered[begin:end] for begin, end in zip(ends, ends[1:])]
    return groups


def finding(command: list[str], folder: str) -> str | None:
    done = subprocess.run(
        command, cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False
    )
    return done.stdout + done.stderr if done.returncode != 0 else None


def parts_of(group: list[Unit], found: str) -> list[list[Unit]]:
    """How a group is linted in which something was found: halves where no file stands out."""
    errors = [line for line in found.splitlines() if ": error: " in line]
    named = [u for u in group if any(line.startswith(f"{ROOT / u.path}:") for line in errors)]
    if named and len(named) < len(group):
        return [[unit for unit in group if unit not in named], *([unit] for unit in named)]
    middle = len(group) // 2
    return [group[:middle], group[middle:]]


def check(group: list[Unit], scratch: Path) -> list[tuple[Unit, str]]:
    """What was found, by unit. Translation units of several files are written to `scratch`."""
    first = group[0]
    source = str(ROOT / first.path)
    if not first.path.startswith(TIDIED):
        found = finding(["clang++-14", *first.flags(), "-fsyntax-only", source], first.folder)
        return [(first, found)] if found else []
    if len(group) > 1:
        together = scratch / f"{first.path.replace('/', '_')}_and_{len(group) - 1}_more.cpp"
        # That a source is included is a finding by itself.
        lines = [f'#include "{ROOT / unit.path}"  // NOLINT\n' for unit in group]
        together.write_text("".join(lines), encoding="utf-8")
        source = str(together)
    command = ["clang-tidy-14", "--quiet", f"--config-file={ROOT / '.clang-tidy'}", source]
    found = finding([*command, "--", *first.flags()], first.folder)
    if found is None:
        return []
    if len(group) == 1:
        return [(first, found)]
    return [one for part in parts_of(group, found) for one in check(part, scratch)]


def timed_check(group: list[Unit], scratch: Path) -> tuple[float, list[tuple[Unit, str]]]:
    start = time.monotonic()
    found = check(group, scratch)
    return time.monotonic() - start, found


def main() -> int:
    parser = argparse.ArgumentParser(description="Show the tree to clang.")
    parser.add_argument("build", type=Path, help="a configured build folder")
    parser.add_argument("wanted", nargs="?", default="", help="check only paths that contain this")
    parser.add_argument(
        "--built", type=Path, help="a build folder of clang's: what it compiles is only linted"
    )
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--slowest", type=int, default=0, help="list that many slow groups")
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
    # The largest first, so that no worker is left with a long one at the end.
    groups = sorted(
        in_groups(units), key=lambda group: -sum((ROOT / u.path).stat().st_size for u in group)
    )
    scratch = build / "lint"
    scratch.mkdir(exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        checked = pool.map(timed_check, groups, [scratch] * len(groups))
        for group, (seconds, findings) in zip(groups, checked):
            times.append((seconds, " ".join(unit.path for unit in group)))
            for unit, found in findings:
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
