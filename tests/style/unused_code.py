"""Finds what a header offers and nothing but a test uses.

A function, type or constant counts as used when its name stands anywhere in the library, the hosts,
the programs, the benchmarks or the examples besides its own declarations and definitions. The
search is by name alone: a name that two functions share can hide one of them, but what is used is
never reported.
"""

from __future__ import annotations

import re
from collections.abc import Iterator, Sequence
from pathlib import Path

from sources import Finding, SourceFile

# What stays although nothing here uses it, each with its reason.
KEPT = {
    "default_process_timeout_seconds": "a constant of the module, for a C++ host to read",
    "replace_fresh_candidates": "the module's replaceable source, for a C++ host",
    "runs": "by it and the next three every database behind the store is held to the same tests",
    "evaluation_count": "see runs",
    "failure_counts": "see runs",
    "open_markers": "see runs",
    "repair_plans": "the table of the plans, which is tested row by row",
}

NAME = re.compile(r"\b[A-Za-z_]\w*\b")
TYPE = re.compile(r"^\s*(?:class|struct|enum class|enum|using)\s+(\w+)\b(?!\s*;|::)")
CONSTANT = re.compile(
    r"\bconstexpr\b[^=({]*?\b(k[A-Z]\w*|[A-Z][A-Z_0-9]{2,})\s*(?:\[[^\]]*\])?\s*[={]"
)
# In front of a function's name that is declared or defined stands its type; in front of the same
# name in a call stands something else, or nothing.
TYPE_BEFORE = re.compile(r"(?:\w[&*]*|(?<=\S)>[&*]*)\s+$")
QUALIFIERS = re.compile(r"(?:\w+::)+$")
NO_TYPES = re.compile(r"\b(?:return|throw|co_return|case|else|do|new|delete|goto|not|and|or)\s*$")
KEYWORDS = {
    "if", "while", "for", "switch", "catch", "return", "sizeof", "alignof", "decltype", "requires",
    "noexcept", "static_assert", "defined", "alignas", "operator", "explicit", "throw", "main",
}  # fmt: skip


def declares_function(line: str, found: re.Match[str]) -> bool:
    """Whether the name is that of a function whose declaration or definition the line begins."""
    if not line[found.end() :].lstrip().startswith("(") or not found.group()[0].islower():
        return False
    before = QUALIFIERS.sub("", line[: found.start()])
    return bool(TYPE_BEFORE.search(before)) and not NO_TYPES.search(before)


def defines_constant(line: str, found: re.Match[str]) -> bool:
    """Whether the name is that of a constant which the line defines."""
    constant = CONSTANT.search(line)
    return constant is not None and constant.start(1) == found.start()


def belongs_to_type(line: str, name: str) -> bool:
    """Whether a line of a type's own files declares the type or one of its members."""
    return bool(
        re.search(rf"\b(?:class|struct|enum|using)\s+{name}\b", line)
        or re.search(rf"^\s*(?:explicit\s+)?~?{name}\(|\b{name}(?:::|& operator=)", line)
    )


def overrides(file: SourceFile, number: int) -> bool:
    """Whether the declaration that begins on the line overrides a function of a base class.

    Such a function is called by the name that the base offers.
    """
    declaration = re.split(r"[;{]", " ".join(file.code[number - 1 : number + 4]), maxsplit=1)[0]
    return re.search(r"\boverride\b", declaration) is not None


def offered(file: SourceFile) -> Iterator[tuple[str, int, str]]:
    """Name, line and kind of what a header declares."""
    for number, line in enumerate(file.code, 1):
        if line.lstrip().startswith("#"):
            continue
        for kind, pattern in (("type", TYPE), ("constant", CONSTANT)):
            if found := pattern.search(line):
                yield found.group(1), number, kind
        for found in NAME.finditer(line):
            if found.group() in KEYWORDS or not declares_function(line, found):
                continue
            if not overrides(file, number):
                yield found.group(), number, "function"


def used_names(file: SourceFile, types: dict[str, str]) -> Iterator[str]:
    """What the file uses. `types` has the stem of the files of each type."""
    own_stem = Path(file.path).with_suffix("").as_posix()
    for line in file.code:
        if line.lstrip().startswith("#"):
            continue
        for found in NAME.finditer(line):
            name = found.group()
            if name in types:
                if types[name] != own_stem or not belongs_to_type(line, name):
                    yield name
            elif not defines_constant(line, found) and not declares_function(line, found):
                yield name


def check_unused_code(files: Sequence[SourceFile]) -> Iterator[Finding]:
    """Nothing is offered that only tests use."""
    program = [file for file in files if not file.is_test]
    offers: dict[str, tuple[str, int, str]] = {}
    for file in program:
        if file.suffix == ".hpp":
            for name, number, kind in offered(file):
                offers.setdefault(name, (file.path, number, kind))
    types = {
        name: Path(path).with_suffix("").as_posix()
        for name, (path, _, kind) in offers.items()
        if kind == "type"
    }
    used = {name for file in program for name in used_names(file, types)}
    for name, (path, number, kind) in offers.items():
        if name not in used and name not in KEPT:
            advice = "remove it, or move it to the tests, which alone use it"
            yield Finding(path, number, f"unused {kind} {name}", advice)
    for name, reason in KEPT.items():
        if name in used:
            advice = f"take it out of the table in unused_code.py: {reason}"
            yield Finding("tests/style/unused_code.py", 1, f"used after all: {name}", advice)
