"""The project's files as the style checks read them, and what a check finds."""

from __future__ import annotations

import re
import subprocess
from collections.abc import Iterator
from dataclasses import dataclass
from functools import cached_property
from pathlib import Path

CODE_SUFFIXES = {".cpp", ".hpp", ".py", ".pyi", ".sh", ".cmake"}
TEXT_SUFFIXES = CODE_SUFFIXES | {".md", ".txt", ".toml", ".json", ".yml", ".in", ""}
CPP_SUFFIXES = {".cpp", ".hpp"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)')


@dataclass(frozen=True, order=True)
class Finding:
    file: str
    line: int
    rule: str
    advice: str

    def __str__(self) -> str:
        return f"{self.file}:{self.line}: {self.rule}: {self.advice}"


@dataclass(frozen=True)
class SourceFile:
    """One file of the project; lines without their ends."""

    path: str
    text: str
    lines: list[str]

    @property
    def suffix(self) -> str:
        if self.path.endswith("CMakeLists.txt"):
            return ".cmake"
        return Path(self.path).suffix

    @property
    def is_test(self) -> bool:
        return self.path.startswith("tests/")

    @cached_property
    def code(self) -> list[str]:
        """The lines of a C++ file with comments and the contents of literals blanked."""
        return without_comments(self.text)

    def includes(self) -> Iterator[tuple[int, str | None, str | None]]:
        """Line number, quoted name, angled name; one of the names is None."""
        for number, line in enumerate(self.lines, 1):
            if found := INCLUDE.match(line):
                yield number, found.group(1), found.group(2)


def project_files(root: Path) -> list[str]:
    """What git tracks or would track; outside a repository, whatever is not a build folder."""
    listed = subprocess.run(
        ["git", "-C", str(root), "-c", f"safe.directory={root}", "ls-files", "-z"]
        + ["--cached", "--others", "--exclude-standard"],
        capture_output=True,
        check=False,
    ) if (root / ".git").exists() else None
    if listed is not None and listed.returncode == 0:
        names = sorted(set(listed.stdout.decode().split("\0")) - {""})
    else:
        names = sorted(
            path.relative_to(root).as_posix()
            for path in root.rglob("*")
            if not {"build", ".git", "__pycache__", ".pytest_cache"}
            & set(path.relative_to(root).parts)
        )
    return [name for name in names if (root / name).is_file()]


def load(root: Path) -> list[SourceFile]:
    files = []
    for name in project_files(root):
        if Path(name).suffix not in TEXT_SUFFIXES:
            continue
        try:
            text = (root / name).read_text(encoding="utf-8")
        except UnicodeDecodeError:
            files.append(SourceFile(name, "", ["\N{REPLACEMENT CHARACTER}"]))
            continue
        files.append(SourceFile(name, text, text.split("\n")))
    return files


def without_comments(text: str) -> list[str]:
    """The lines of a C++ text with comments and the contents of literals blanked."""
    pattern = re.compile(
        r"//[^\n]*|/\*.*?\*/"
        r'|R"([^(\s]*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"'
        r"|(?<!\w)'(?:\\.|[^'\\\n])+'",
        re.DOTALL,
    )
    return pattern.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), text).split("\n")
