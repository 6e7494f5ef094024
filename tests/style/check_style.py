#!/usr/bin/env python3
"""Checks the rules of style that a compiler and a formatter do not see.

Every finding is one line: file, line, rule, and what to do instead. The exit code is 1 when there
is a finding, else 0. Run it with no arguments from anywhere; another tree is checked with --root.
"""

from __future__ import annotations

import argparse
import re
import sys
from collections.abc import Iterator
from pathlib import Path

from shared_names import check_names
from sources import CODE_SUFFIXES, CPP_SUFFIXES, Finding, SourceFile, load
from unused_code import check_unused_code
from unused_packages import check_packages

MAX_COLUMNS = 100
MAX_LINES = 600

# Texts that are not ours to shape: data, and the licence.
UNSHAPED = re.compile(r"(^|/)data/|^LICENSE$|\.(csv|tsv|jsonl)$")

# The rooms of a building, from the ground up: a folder includes only folders that stand before it.
LIBRARY = "search_templates/genetic"
ROOMS = {
    LIBRARY: (
        "value",
        "host",
        "settings",
        "context",
        "graph",
        "population",
        "submission",
        "evaluation",
        "reaction",
        "process",
        "driver",
    ),
    "hosts/embedded": (
        "system",
        "market",
        "vocabulary",
        "operators",
        "planner",
        "backtest",
        "archive",
        "timing",
        "pool",
        "store",
        "attempts",
        "signal_pool",
        "luck",
        "portfolio",
        "submission",
        "gates",
        "config",
        "host",
        "search",
    ),
}
# What each top folder may include besides itself. Tests and benchmarks may include everything.
REACH = {
    "search_templates/": ("search_templates/",),
    "hosts/embedded/": ("search_templates/", "hosts/embedded/"),
    "hosts/python/": ("search_templates/", "hosts/python/"),
    "apps/": ("search_templates/", "hosts/embedded/", "apps/"),
}

# The words are put together from halves, so that this file does not contain them.
FORBIDDEN_WORDS = (
    (re.compile(r"\bsp" r"ecs?\b", re.IGNORECASE), "say the rule itself"),
    (re.compile(r"(?<!rotation )sp" r"ecification", re.IGNORECASE), "say the rule itself"),
    (re.compile(r"\bPa" r"rts? \d+\.\d+"), "name the file or the function that holds the rule"),
    (re.compile(r"/wo" r"rk/"), "name no path of one machine: give it from the repository's top"),
    (re.compile(r"\.lib" r"rary\b(?!\()"), "name the source by its title"),
    (re.compile(r"\bfa" r"rm-"), "leave the tool of the workplace out"),
    (re.compile(r"py" r"pi\.org|python" r"hosted\.|npm" r"js\.|crates\." r"io"),
     "name no registry's host: the user's own configuration chooses it"),
)

FORBIDDEN_HEADERS = {
    "thread": "start no thread: the library is forked",
    "mutex": "share nothing between threads: there are none",
    "shared_mutex": "share nothing between threads: there are none",
    "condition_variable": "wait through the host",
    "future": "start no thread: the library is forked",
    "iostream": "print nothing: log through the host's Logger",
    "fstream": "read no file: the host does",
    "filesystem": "read no file: the host does",
    "csignal": "install no signal handler: the host does",
    "cstdio": "print nothing: log through the host's Logger; std::to_chars makes texts",
}
FORBIDDEN_CALLS = (
    (re.compile(r"\b(?:secure_)?getenv\s*\("), "read no environment variable: the host does"),
    (re.compile(r"\bv?f?printf\s*\("), "print nothing: log through the host's Logger"),
    (re.compile(r"\bstd::c(?:out|err|log)\b"), "print nothing: log through the host's Logger"),
    (re.compile(r"\bstd::j?thread\b"), "start no thread: the library is forked"),
    (re.compile(r"\bthread_local\b"), "keep state in an object"),
)

# Where the one database is known, and the files that say its name.
DATABASE_ROOM = "hosts/embedded/store/"
DATABASE_FILES = re.compile(
    r"sqlite3\.h|hosts/embedded/store/(?:sqlite_|store_schema|store_relations)"
)

def check_layout(file: SourceFile) -> Iterator[Finding]:
    """Columns, lines, trailing blanks."""
    if UNSHAPED.search(file.path):
        return
    if file.text == "":
        if file.lines != [""]:
            yield Finding(file.path, 1, "encoding", "store the file as UTF-8")
        return
    fenced = False
    for number, line in enumerate(file.lines, 1):
        if file.suffix == ".md":
            fenced ^= line.lstrip().startswith("```")
            free = fenced or line.startswith("|") or "](" in line or "://" in line
        else:
            free = "://" in line
        if len(line) > MAX_COLUMNS and not free:
            yield Finding(
                file.path, number, "long line", f"break it: {len(line)} columns, {MAX_COLUMNS} fit"
            )
        if line != line.rstrip():
            yield Finding(file.path, number, "trailing blank", "remove it")
    count = len(file.lines) - 1
    if file.suffix in CODE_SUFFIXES and count > MAX_LINES:
        advice = f"split it by idea: {count} lines, {MAX_LINES} are the end"
        yield Finding(file.path, count, "long file", advice)
    if not file.text.endswith("\n"):
        yield Finding(file.path, len(file.lines), "no end of line", "end the last line")


def check_words(file: SourceFile) -> Iterator[Finding]:
    if file.path == "LICENSE":
        return
    for number, line in enumerate(file.lines, 1):
        for pattern, advice in FORBIDDEN_WORDS:
            if found := pattern.search(line):
                yield Finding(file.path, number, f'forbidden words "{found.group()}"', advice)


def check_headers_and_tests(file: SourceFile) -> Iterator[Finding]:
    """Headers are guarded; a test file opens by telling what it is for."""
    if file.suffix == ".hpp" and "#pragma once" not in file.lines:
        yield Finding(file.path, 1, "unguarded header", "write #pragma once above the includes")
    name = Path(file.path).name
    if file.path.startswith("tests/") and file.lines and file.text:
        if name.endswith("_test.cpp") and not file.lines[0].startswith("//"):
            yield Finding(file.path, 1, "silent test file", "open it with its goal and method")
        if name.startswith("test_") and name.endswith(".py"):
            if not re.match(r'(#![^\n]*\n)?"""', file.text):
                yield Finding(file.path, 1, "silent test file", "open it with its goal and method")


def check_purity(file: SourceFile) -> Iterator[Finding]:
    """The library prints nothing, reads no file or environment, starts no thread."""
    if not file.path.startswith("search_templates/"):
        return
    for number, _, angled in file.includes():
        if angled is None:
            continue
        if angled in FORBIDDEN_HEADERS:
            yield Finding(
                file.path, number, f"library includes <{angled}>", FORBIDDEN_HEADERS[angled]
            )
        elif not re.fullmatch(r"[a-z_0-9]+|openssl/\w+\.h", angled):
            yield Finding(
                file.path,
                number,
                f"library includes <{angled}>",
                "use the standard library and libcrypto only; ask the host for the rest",
            )
    for number, line in enumerate(file.code, 1):
        for pattern, advice in FORBIDDEN_CALLS:
            if found := pattern.search(line):
                yield Finding(file.path, number, f'library says "{found.group().strip()}"', advice)


def building_of(path: str) -> str | None:
    """The building with ordered rooms that a file stands in, if any."""
    return next((building for building in ROOMS if path.startswith(building + "/")), None)


def room_level(building: str, path: str) -> int | None:
    """The place of a file's room in the order; None for one right under its building."""
    rest = path[len(building) + 1 :].split("/")
    if len(rest) == 1:
        return None
    return ROOMS[building].index(rest[0]) if rest[0] in ROOMS[building] else -1


def check_include_places(file: SourceFile, known: set[str]) -> Iterator[Finding]:
    """Includes name files from the top of the repository, and reach only where they may."""
    reach = next((allowed for top, allowed in REACH.items() if file.path.startswith(top)), None)
    for number, quoted, _ in file.includes():
        if quoted is None:
            continue
        if quoted not in known:
            advice = "name a file of the project from the repository's top; others go in <>"
            yield Finding(file.path, number, f'include "{quoted}"', advice)
            continue
        if reach is not None and not quoted.startswith(reach):
            advice = f"files here include only {', '.join(reach)}"
            yield Finding(file.path, number, f'include "{quoted}" reaches too far', advice)
        building = building_of(file.path)
        if building is None or building_of(quoted) != building:
            continue
        own, other = room_level(building, file.path), room_level(building, quoted)
        if own is not None and (other is None or other > own):
            order = ", ".join(ROOMS[building])
            advice = f"include only folders that stand before your own in: {order}"
            yield Finding(file.path, number, f'include "{quoted}" goes upwards', advice)


def check_database(file: SourceFile) -> Iterator[Finding]:
    """One room knows which database is behind the store."""
    if file.path.startswith((DATABASE_ROOM, "tests/", "benchmarks/")):
        return
    for number, quoted, angled in file.includes():
        if DATABASE_FILES.match(name := quoted or angled or ""):
            advice = f"ask {DATABASE_ROOM}run_store.hpp or store_reader.hpp"
            yield Finding(file.path, number, f'include "{name}" knows the database', advice)


def check_rooms(file: SourceFile) -> Iterator[Finding]:
    building = building_of(file.path)
    if building is not None and file.suffix in CPP_SUFFIXES:
        if room_level(building, file.path) == -1:
            advice = "put it into one of: " + ", ".join(ROOMS[building])
            yield Finding(file.path, 1, f"unknown folder of {building}", advice)


def find_circle(edges: dict[str, set[str]]) -> list[str] | None:
    """One circle of the graph, as the nodes on it with the first one repeated; or None."""
    state: dict[str, int] = {}
    for start in sorted(edges):
        if start in state:
            continue
        trail = [start]
        pending = [iter(sorted(edges[start]))]
        state[start] = 1
        while pending:
            following = next(pending[-1], None)
            if following is None:
                state[trail.pop()] = 2
                pending.pop()
            elif state.get(following) == 1:
                return trail[trail.index(following) :] + [following]
            elif following not in state:
                state[following] = 1
                trail.append(following)
                pending.append(iter(sorted(edges.get(following, set()))))
    return None


def unit_of(path: str) -> str:
    """A header and the source beside it are one unit: what the source includes, the unit needs."""
    return Path(path).with_suffix("").as_posix()


def check_circles(files: list[SourceFile]) -> Iterator[Finding]:
    """No circle between files, between headers with their sources, or between folders."""
    known = {file.path for file in files}
    by_file: dict[str, set[str]] = {}
    by_unit: dict[str, set[str]] = {}
    by_folder: dict[str, set[str]] = {}
    place: dict[tuple[str, str], tuple[str, int]] = {}
    for file in files:
        if file.suffix not in CPP_SUFFIXES:
            continue
        for number, quoted, _ in file.includes():
            if quoted is None or quoted not in known:
                continue
            by_file.setdefault(file.path, set()).add(quoted)
            place.setdefault((file.path, quoted), (file.path, number))
            if (one := unit_of(file.path)) != (another := unit_of(quoted)):
                by_unit.setdefault(one, set()).add(another)
                place.setdefault((one, another), (file.path, number))
            own, other = (Path(path).parent.as_posix() for path in (file.path, quoted))
            if own != other:
                by_folder.setdefault(own, set()).add(other)
                place.setdefault((own, other), (file.path, number))
    # A circle of files is one of their units as well, and told once.
    kind_of_files = ("files", by_file) if find_circle(by_file) else ("units", by_unit)
    for kind, edges in (kind_of_files, ("folders", by_folder)):
        if circle := find_circle(edges):
            path, number = place[circle[-2], circle[-1]]
            advice = "move what both sides need below them: " + " -> ".join(circle)
            yield Finding(path, number, f"circle of {kind}", advice)


def pinned_versions(files: dict[str, SourceFile]) -> Iterator[Finding]:
    """What is written in two places agrees."""
    project, cmake, pins = (
        files.get(name) for name in ("pyproject.toml", "CMakeLists.txt", "requirements.txt")
    )
    if project is None or cmake is None or pins is None:
        return
    version = re.search(r'^version = "([^"]+)"', project.text, re.MULTILINE)
    built = re.search(r"project\(\S+ VERSION (\S+)", cmake.text)
    if not version or not built or version.group(1) != built.group(1):
        advice = "give CMakeLists.txt and pyproject.toml one version"
        yield Finding("pyproject.toml", 1, "two versions", advice)
    wanted = re.findall(r'"([a-z-]+==[^"]+)"', project.text)
    for requirement in wanted:
        if requirement not in pins.text:
            advice = f"pin it in requirements.txt too: {requirement}"
            yield Finding("pyproject.toml", 1, "unpinned requirement", advice)


def check_tree(root: Path) -> list[Finding]:
    files = load(root)
    known = {file.path for file in files}
    findings: list[Finding] = []
    for file in files:
        findings += check_layout(file)
        findings += check_words(file)
        findings += check_headers_and_tests(file)
        if file.suffix in CPP_SUFFIXES:
            findings += check_purity(file)
            findings += check_rooms(file)
            findings += check_database(file)
            findings += check_include_places(file, known)
    findings += check_circles(files)
    findings += pinned_versions({file.path: file for file in files})
    findings += check_packages(files)
    program = [file for file in files if file.suffix in CPP_SUFFIXES]
    findings += check_unused_code(program)
    findings += check_names(program)
    return sorted(findings)


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(description="Check the rules of style.")
    parser.add_argument("--root", type=Path, default=Path(__file__).resolve().parents[2])
    options = parser.parse_args(arguments)
    findings = check_tree(options.root)
    for finding in findings:
        print(finding)
    print(f"style: {len(findings)} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
