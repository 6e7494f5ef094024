"""Finds names that stand for two things: see check_names."""

from __future__ import annotations

import re
from collections.abc import Iterator, Sequence
from pathlib import Path

from sources import Finding, SourceFile

ATTRIBUTE = re.compile(r"\[\[.*?\]\]\s*")
NAMESPACE = re.compile(r"namespace ([\w:]+) \{")
# A function at the outermost level of a formatted file begins in the first column.
FUNCTION = re.compile(
    r"^(?!namespace|using|return|class|struct|enum|template|friend|typedef|static_assert|extern)"
    r"[\w\[][^=;(]*?\b([a-z_0-9]\w*)\("
)


def functions(file: SourceFile) -> Iterator[tuple[str, str, int, bool]]:
    """Namespace, name and line of each function, and whether it is private to the file."""
    namespace, private = "", False
    for number, (written, line) in enumerate(zip(file.code, file.lines), 1):
        code = ATTRIBUTE.sub("", written)
        if found := NAMESPACE.match(code):
            namespace = found.group(1)
        elif code.startswith("namespace {"):
            private = True
        elif line == "}  // namespace":
            private = False
        elif found := FUNCTION.match(code):
            yield namespace, found.group(1), number, private


def check_private_functions(files: Sequence[SourceFile]) -> Iterator[Finding]:
    """A private function has no name that a header gives to another in the same namespace.

    One beside its own header may: it is another form of the same thing.
    """
    public: dict[tuple[str, str], str] = {}
    for file in files:
        if file.suffix == ".hpp" and not file.is_test:
            for namespace, name, _, _ in functions(file):
                public.setdefault((namespace, name), file.path)
    for file in files:
        if file.suffix != ".cpp" or file.is_test:
            continue
        for namespace, name, number, private in functions(file):
            header = public.get((namespace, name))
            if private and header and Path(header).stem != Path(file.path).stem:
                advice = f"give it a name of its own: {header} has one of this name"
                yield Finding(file.path, number, f"second function {name}", advice)


def check_test_namespaces(files: Sequence[SourceFile]) -> Iterator[Finding]:
    """What the headers of tests define stands in no namespace of the program."""
    of_program = {
        found.group(1)
        for file in files
        if file.suffix == ".hpp" and not file.is_test
        for line in file.code
        if (found := NAMESPACE.match(line))
    }
    for file in files:
        if file.suffix != ".hpp" or not file.is_test:
            continue
        for number, line in enumerate(file.code, 1):
            if (found := NAMESPACE.match(line)) and found.group(1) in of_program:
                advice = f"put test helpers into {found.group(1)}::test"
                yield Finding(file.path, number, "test helper among the program's names", advice)


def check_names(files: Sequence[SourceFile]) -> Iterator[Finding]:
    """One name stands for one thing."""
    yield from check_private_functions(files)
    yield from check_test_namespaces(files)
