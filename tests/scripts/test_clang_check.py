"""The check with clang on a small tree: what is linted together, and that nothing gets lost by it.

Where clang-tidy is not installed nothing is linted, here as elsewhere.
"""

from __future__ import annotations

import json
import shutil
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "scripts"))

import clang_check  # noqa: E402

NEEDS_CLANG_TIDY = pytest.mark.skipif(
    shutil.which("clang-tidy-14") is None, reason="clang-tidy-14 is not installed"
)
SOUND = "int {name}() {{\n  return 1;\n}}\n"
TYPEDEF = "typedef int Whole;\nWhole {name}() {{\n  return 1;\n}}\n"  # modernize-use-using


@pytest.fixture
def tree(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    monkeypatch.setattr(clang_check, "ROOT", tmp_path)
    shutil.copy(ROOT / ".clang-tidy", tmp_path)
    (tmp_path / "build").mkdir()
    return tmp_path


def write(tree: Path, sources: dict[str, str], flags: dict[str, str] | None = None) -> None:
    """The sources, and how a build compiles them; `{name}` in a text is the file's own."""
    entries = []
    for path, text in sources.items():
        file = tree / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text.format(name=file.stem))
        own = (flags or {}).get(path, "")
        entries.append(
            {
                "directory": str(tree / "build"),
                "file": str(file),
                "command": f"cache c++ -I{tree} {own} -std=c++20 -MD -MT {file.stem}.o "
                f"-MF {file.stem}.d -o {file.stem}.o -c {file}",
            }
        )
    (tree / "build" / "compile_commands.json").write_text(json.dumps(entries))


def groups_of(tree: Path) -> list[list[str]]:
    groups = clang_check.in_groups(clang_check.read_units(tree / "build", ""))
    return [[Path(unit.path).stem for unit in group] for group in groups]


def checked(tree: Path, monkeypatch: pytest.MonkeyPatch) -> int:
    monkeypatch.setattr(sys, "argv", ["clang_check.py", str(tree / "build")])
    return clang_check.main()


def test_files_that_are_compiled_alike_are_linted_together(tree: Path):
    names = [f"f{place:02}" for place in range(18)]
    sources = {f"hosts/{name}.cpp": SOUND for name in names}
    write(tree, {**sources, "tests/t1.cpp": SOUND, "tests/t2.cpp": SOUND},
          {"hosts/f03.cpp": "-DOTHER"})
    others = [name for name in names if name != "f03"]
    groups = groups_of(tree)
    together = [others[:5], others[5:11], others[11:]]
    assert sorted(groups) == sorted([["t1"], ["t2"], ["f03"], *together])


@NEEDS_CLANG_TIDY
def test_a_finding_is_told_of_its_file_alone(
    tree: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
):
    sources = {f"hosts/f{place}.cpp": SOUND for place in range(7)}
    write(tree, {**sources, "hosts/f3.cpp": TYPEDEF})
    assert checked(tree, monkeypatch) == 1
    told = capsys.readouterr().out
    assert [line for line in told.splitlines() if line.startswith("---")] == ["--- hosts/f3.cpp"]
    assert "[modernize-use-using" in told
    assert "clang: 7 files, 1 with findings" in told


@NEEDS_CLANG_TIDY
def test_a_finding_in_a_header_is_shown_once(
    tree: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
):
    including = '#include "hosts/header.hpp"\n' + SOUND
    write(tree, {f"hosts/f{place}.cpp": including for place in range(3)})
    (tree / "hosts" / "header.hpp").write_text("typedef int Whole;\n")
    assert checked(tree, monkeypatch) == 1
    told = capsys.readouterr().out
    assert told.count("[modernize-use-using") == 1
    assert "clang: 3 files, 3 with findings" in told


@NEEDS_CLANG_TIDY
def test_names_that_two_files_use_are_no_finding(
    tree: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
):
    helped = "namespace {{\nint helped() {{\n  return 1;\n}}\n}}\n"
    helped += "int {name}() {{\n  return helped();\n}}\n"
    write(tree, {f"hosts/f{place}.cpp": helped for place in range(4)})
    assert checked(tree, monkeypatch) == 0
    assert capsys.readouterr().out == "clang: 4 files, 0 with findings\n"


@NEEDS_CLANG_TIDY
def test_tests_are_compiled(
    tree: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
):
    write(tree, {"tests/sound.cpp": TYPEDEF, "tests/bad.cpp": "int {name}() {{\n  nothing;\n}}\n"})
    assert checked(tree, monkeypatch) == 1
    told = capsys.readouterr().out
    assert "--- tests/bad.cpp" in told and "--- tests/sound.cpp" not in told
