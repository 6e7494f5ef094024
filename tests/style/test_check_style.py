"""The style check finds each kind of offence, at its place, and is silent about a clean tree.

Each test writes a small tree with one offence and looks at the findings. The forbidden words are
put together from halves, as in the check itself.
"""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))
import check_style  # noqa: E402

CLEAN_HEADER = "// A header.\n#pragma once\n"
LIBRARY = "search_templates/genetic"


def findings(root: Path, files: dict[str, str]) -> list[tuple[str, int, str]]:
    for name, text in files.items():
        (root / name).parent.mkdir(parents=True, exist_ok=True)
        (root / name).write_text(text, encoding="utf-8")
    return [(found.file, found.line, found.rule) for found in check_style.check_tree(root)]


def test_a_clean_tree_has_no_findings(tmp_path: Path) -> None:
    assert not findings(
        tmp_path,
        {
            f"{LIBRARY}/value/a.hpp": CLEAN_HEADER + "#include <string>\n",
            f"{LIBRARY}/value/a.cpp": "#include <openssl/evp.h>\n",
            f"{LIBRARY}/host/b.hpp": CLEAN_HEADER + f'#include "{LIBRARY}/value/a.hpp"\n',
            f"{LIBRARY}/genetic.hpp": CLEAN_HEADER + f'#include "{LIBRARY}/driver/c.hpp"\n',
            f"{LIBRARY}/driver/c.hpp": CLEAN_HEADER,
            "hosts/embedded/d.cpp": f'#include <fstream>\n#include "{LIBRARY}/genetic.hpp"\n',
            "tests/value/a_test.cpp": f'// Goal.\n#include "{LIBRARY}/value/a.hpp"\n',
        },
    )


def test_layout(tmp_path: Path) -> None:
    found = findings(
        tmp_path,
        {
            "apps/wide.cpp": "int a;\n" + "x" * 101 + "\n",
            "apps/fits.cpp": "x" * 100 + "\n",
            "apps/long.cpp": "\n" * 601,
            "apps/full.cpp": "\n" * 600,
            "apps/blank.cpp": "int a; \n",
            "apps/endless.cpp": "int a;",
            "tests/data/wide.txt": "x" * 500 + "\n",
            "README.md": "```\n" + "x" * 200 + "\n```\n" + "y" * 101 + "\n",
        },
    )
    assert sorted(found) == [
        ("README.md", 4, "long line"),
        ("apps/blank.cpp", 1, "trailing blank"),
        ("apps/endless.cpp", 1, "no end of line"),
        ("apps/long.cpp", 601, "long file"),
        ("apps/wide.cpp", 2, "long line"),
    ]


def test_a_file_that_is_not_utf8_is_named(tmp_path: Path) -> None:
    (tmp_path / "a.cpp").write_bytes(b"// caf\xe9\n")
    assert findings(tmp_path, {}) == [("a.cpp", 1, "encoding")]


@pytest.mark.parametrize(
    "words",
    [
        "as the sp" "ec says",
        "the Sp" "ecification",
        "see Pa" "rt 3.2",
        "in /wo" "rk/main",
        "the .lib" "rary folder",
        "fa" "rm-build",
        "from py" "pi.org",
    ],
)
def test_forbidden_words(tmp_path: Path, words: str) -> None:
    ((file, line, rule),) = findings(tmp_path, {"docs/a.md": f"fine\n{words}\n"})
    assert (file, line) == ("docs/a.md", 2)
    assert rule.startswith("forbidden words")


@pytest.mark.parametrize(
    "words",
    ["a rotation sp" "ecification", "special", "find_sp" "ec", "Part 3", "network/a", "library"],
)
def test_words_that_only_look_forbidden(tmp_path: Path, words: str) -> None:
    assert not findings(tmp_path, {"docs/a.md": f"{words}\n"})


@pytest.mark.parametrize(
    "line",
    [
        "#include <thread>",
        "#include <mutex>",
        "#include <iostream>",
        "#include <fstream>",
        "#include <csignal>",
        "#include <unistd.h>",
        "#include <fmt/format.h>",
        'auto* home = std::getenv("HOME");',
        'std::printf("text");',
        "thread_local int count = 0;",
    ],
)
def test_the_library_is_pure(tmp_path: Path, line: str) -> None:
    ((file, number, rule),) = findings(tmp_path, {f"{LIBRARY}/value/a.cpp": f"\n{line}\n"})
    assert (file, number) == (f"{LIBRARY}/value/a.cpp", 2)
    assert rule.startswith("library ")


def test_comments_and_texts_of_the_library_are_free(tmp_path: Path) -> None:
    text = '// printf() prints.\n/* getenv("A")\n printf() */\nauto a = "printf()";\n'
    assert not findings(tmp_path, {f"{LIBRARY}/value/a.cpp": text})


def test_a_folder_includes_only_folders_above_it(tmp_path: Path) -> None:
    found = findings(
        tmp_path,
        {
            f"{LIBRARY}/value/a.hpp": CLEAN_HEADER + f'#include "{LIBRARY}/graph/b.hpp"\n',
            f"{LIBRARY}/graph/b.hpp": CLEAN_HEADER,
            f"{LIBRARY}/driver/d.hpp": CLEAN_HEADER + f'#include "{LIBRARY}/genetic.hpp"\n',
            f"{LIBRARY}/genetic.hpp": CLEAN_HEADER,
            f"{LIBRARY}/attic/e.hpp": CLEAN_HEADER,
            "hosts/embedded/market/m.hpp": CLEAN_HEADER
            + '#include "hosts/embedded/search/s.hpp"\n'
            + f'#include "{LIBRARY}/driver/d.hpp"\n',
            "hosts/embedded/search/s.hpp": CLEAN_HEADER,
        },
    )
    assert found == [
        ("hosts/embedded/market/m.hpp", 3, 'include "hosts/embedded/search/s.hpp" goes upwards'),
        (f"{LIBRARY}/attic/e.hpp", 1, f"unknown folder of {LIBRARY}"),
        (f"{LIBRARY}/driver/d.hpp", 3, f'include "{LIBRARY}/genetic.hpp" goes upwards'),
        (f"{LIBRARY}/value/a.hpp", 3, f'include "{LIBRARY}/graph/b.hpp" goes upwards'),
    ]


def test_the_library_does_not_reach_its_hosts(tmp_path: Path) -> None:
    found = findings(
        tmp_path,
        {
            f"{LIBRARY}/value/a.hpp": CLEAN_HEADER + '#include "hosts/embedded/b.hpp"\n',
            "hosts/embedded/b.hpp": CLEAN_HEADER + '#include "b2.hpp"\n',
        },
    )
    assert found == [
        ("hosts/embedded/b.hpp", 3, 'include "b2.hpp"'),
        (f"{LIBRARY}/value/a.hpp", 3, 'include "hosts/embedded/b.hpp" reaches too far'),
    ]


def test_one_room_knows_the_database(tmp_path: Path) -> None:
    store = "hosts/embedded/store"
    use = f'#include <sqlite3.h>\n#include "{store}/sqlite_a.hpp"\n#include "{store}/b.hpp"\n'
    found = findings(
        tmp_path,
        {
            f"{store}/sqlite_a.hpp": CLEAN_HEADER + "#include <sqlite3.h>\n",
            f"{store}/b.hpp": CLEAN_HEADER,
            "tests/hosts/a_test.cpp": "// Goal.\n" + use,
            "apps/a.cpp": use,
        },
    )
    assert found == [
        ("apps/a.cpp", 1, 'include "sqlite3.h" knows the database'),
        ("apps/a.cpp", 2, f'include "{store}/sqlite_a.hpp" knows the database'),
    ]


def test_circles_of_files_of_units_and_of_folders(tmp_path: Path) -> None:
    files = findings(
        tmp_path / "files",
        {
            "apps/a.hpp": CLEAN_HEADER + '#include "apps/b.hpp"\n',
            "apps/b.hpp": CLEAN_HEADER + '#include "apps/c.hpp"\n',
            "apps/c.hpp": CLEAN_HEADER + '#include "apps/a.hpp"\n',
        },
    )
    assert files == [("apps/c.hpp", 3, "circle of files")]
    units = findings(
        tmp_path / "units",
        {
            "apps/a.hpp": CLEAN_HEADER,
            "apps/a.cpp": '#include "apps/a.hpp"\n#include "apps/b.hpp"\n',
            "apps/b.hpp": CLEAN_HEADER,
            "apps/b.cpp": '#include "apps/b.hpp"\n#include "apps/a.hpp"\n',
        },
    )
    assert units == [("apps/b.cpp", 2, "circle of units")]
    folders = findings(
        tmp_path / "folders",
        {
            "apps/one/a.hpp": CLEAN_HEADER + '#include "apps/two/a.hpp"\n',
            "apps/two/a.hpp": CLEAN_HEADER,
            "apps/two/b.hpp": CLEAN_HEADER + '#include "apps/one/b.hpp"\n',
            "apps/one/b.hpp": CLEAN_HEADER,
        },
    )
    assert folders == [("apps/two/b.hpp", 3, "circle of folders")]


def test_guards_and_first_lines(tmp_path: Path) -> None:
    found = findings(
        tmp_path,
        {
            "apps/a.hpp": "int a;\n",
            "tests/a_test.cpp": "#include <string>\n",
            "tests/test_a.py": "import os\n",
            "tests/test_b.py": '"""Goal."""\n',
        },
    )
    assert found == [
        ("apps/a.hpp", 1, "unguarded header"),
        ("tests/a_test.cpp", 1, "silent test file"),
        ("tests/test_a.py", 1, "silent test file"),
    ]


def test_versions_written_twice_agree(tmp_path: Path) -> None:
    agreeing = {
        "pyproject.toml": 'requires = ["nanobind==3.1.0"]\nversion = "0.1.0"\n',
        "CMakeLists.txt": "project(a VERSION 0.1.0 LANGUAGES CXX)\n",
        "requirements.txt": "nanobind==3.1.0 \\\n",
    }
    assert not findings(tmp_path, agreeing | {"requirements.txt": "nanobind==3.1.0\n"})
    found = findings(
        tmp_path,
        {
            "CMakeLists.txt": "project(a VERSION 0.2.0 LANGUAGES CXX)\n",
            "requirements.txt": "nanobind==3.0.0\n",
        },
    )
    assert [rule for _, _, rule in found] == ["two versions", "unpinned requirement"]


def test_the_program_prints_each_finding_and_fails(tmp_path: Path) -> None:
    (tmp_path / "a.cpp").write_text("int a; \n", encoding="utf-8")
    command = [sys.executable, check_style.__file__, "--root", str(tmp_path)]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 1
    assert done.stdout == "a.cpp:1: trailing blank: remove it\nstyle: 1 findings\n"
    (tmp_path / "a.cpp").write_text("int a;\n", encoding="utf-8")
    assert subprocess.run(command, capture_output=True, check=False).returncode == 0
