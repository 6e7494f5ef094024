"""Finds packages that are installed for nothing.

A Debian package is used when its sign stands in a file of the project: the header that comes with
it, or the program's name. A Python package is used when its name does, or when the comment above it
says which used package needs it.
"""

from __future__ import annotations

import re
from collections.abc import Iterator, Sequence

from sources import CPP_SUFFIXES, Finding, SourceFile

DEBIAN = "scripts/packages.txt"
PYTHON = "requirements.txt"

# By what the use of a Debian package is seen.
SIGNS = {
    "g++": r"CMAKE_CXX_STANDARD|cxx_std_20",
    "cmake": r"\bcmake --",
    "ninja-build": r'"Ninja"',
    "libssl-dev": r"#include <openssl/",
    "libfmt-dev": r"#include <fmt/",
    "libcli11-dev": r"#include <CLI/",
    "nlohmann-json3-dev": r"#include <nlohmann/",
    "libtomlplusplus-dev": r"#include <toml\+\+/",
    "libsqlite3-dev": r"#include <sqlite3\.h>",
    "libeigen3-dev": r"#include <Eigen/",
    "libcsv-dev": r"#include <csv\.h>",
    "zlib1g-dev": r"#include <zlib\.h>",
    "ca-certificates": r"\bpip install\b",
    "python3-venv": r"-m venv\b",
    "python3-dev": r"Development\.Module",
    "libgtest-dev": r"#include <gtest/",
    "libgmock-dev": r"#include <gmock/",
    "libbenchmark-dev": r"#include <benchmark/",
    "clang-14": r"\bclang\+\+-14\b",
    "libclang-rt-14-dev": r"-fsanitize=",
    "llvm-14": r"-fsanitize=",
    "clang-format-14": r"\bclang-format-14\b",
    "clang-tidy-14": r"\bclang-tidy-14\b",
    "gcovr": r"\bgcovr\b",
    "git": r"\bgit ls-files\b",
    "valgrind": r"\bvalgrind --",
    "debootstrap": r"\bdebootstrap --",
}


def debian_packages(lines: Sequence[str]) -> Iterator[tuple[int, str]]:
    for number, line in enumerate(lines, 1):
        name = line.split("#")[0].strip()
        if name and not name.startswith("["):
            yield number, name


def python_packages(lines: Sequence[str]) -> Iterator[tuple[int, str, str]]:
    """Line, name and the comment above of each requirement."""
    comment = ""
    for number, line in enumerate(lines, 1):
        if line.startswith("#"):
            comment = line
        elif found := re.match(r"([A-Za-z0-9_.-]+)==", line):
            yield number, found.group(1), comment


def check_packages(files: Sequence[SourceFile]) -> Iterator[Finding]:
    """Each package that is installed is used."""
    lists = {file.path: file for file in files if file.path in (DEBIAN, PYTHON)}
    own = "tests/style/unused_packages.py"
    everything = "\n".join(file.text for file in files if file.path not in (*lists, own))
    if DEBIAN in lists:
        for number, name in debian_packages(lists[DEBIAN].lines):
            if name not in SIGNS:
                advice = "say in SIGNS of unused_packages.py by what its use is seen"
                yield Finding(DEBIAN, number, f"package {name} without a sign", advice)
            elif not re.search(SIGNS[name], everything):
                yield Finding(DEBIAN, number, f"unused package {name}", "take it off the list")
    if PYTHON in lists:
        listed = list(python_packages(lists[PYTHON].lines))
        for number, name, comment in listed:
            others = "|".join(re.escape(other) for _, other, _ in listed if other != name)
            needed = bool(others) and re.search(rf"Needed by .*\b(?:{others})\b", comment)
            spelling = "[-_]".join(re.split("[-_]", name))
            if not needed and not re.search(rf"\b{spelling}\b", everything):
                yield Finding(PYTHON, number, f"unused package {name}", "take it off the list")
