"""The style check finds what only tests use, packages that nothing uses, and names used twice.

Each test writes a small tree and looks at what is found in it. What is used in any of the ways that
the code knows must not be found.
"""

from __future__ import annotations

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))
import check_style  # noqa: E402
import unused_code  # noqa: E402

LIBRARY = "search_templates/genetic"
HEADER = f"{LIBRARY}/value/thing.hpp"
SOURCE = f"{LIBRARY}/value/thing.cpp"


def findings(root: Path, files: dict[str, str]) -> list[tuple[str, int, str]]:
    for name, text in files.items():
        if name.endswith(".hpp"):
            text = "#pragma once\n" + text
        if name.startswith("tests/"):
            text = "// Goal.\n" + text
        (root / name).parent.mkdir(parents=True, exist_ok=True)
        (root / name).write_text(text, encoding="utf-8")
    return [(found.file, found.line, found.rule) for found in check_style.check_tree(root)]


@pytest.mark.parametrize(
    ("declaration", "found"),
    [
        ("int idle(int a);", "function idle"),
        ("[[nodiscard]] std::vector<int> idle();", "function idle"),
        ("inline bool idle() { return true; }", "function idle"),
        ("  [[nodiscard]] const Thing& idle() const;", "function idle"),
        ("class Idle {", "type Idle"),
        ("struct Idle : Base {", "type Idle"),
        ("using Idle = int;", "type Idle"),
        ("inline constexpr int kIdle = 1;", "constant kIdle"),
        ("  static constexpr int kIdle = 1;", "constant kIdle"),
        ("inline constexpr Key IDLE_KEY{1};", "constant IDLE_KEY"),
    ],
)
def test_what_only_a_test_uses(tmp_path: Path, declaration: str, found: str) -> None:
    name = found.split()[1]
    files = {HEADER: declaration + "\n", "tests/value/thing_test.cpp": f"int a = {name}(1);\n"}
    assert findings(tmp_path, files) == [(HEADER, 2, f"unused {found}")]


@pytest.mark.parametrize(
    "other",
    [
        "int Thing::idle(int a) {\n",
        "int idle(int a) { return a; }\n",
        "// idle(1) is named in a comment.\n",
        'const char* text = "idle(1)";\n',
        "#pragma idle\n",
    ],
)
def test_a_definition_or_a_text_is_no_use(tmp_path: Path, other: str) -> None:
    found = findings(tmp_path, {HEADER: "int idle(int a);\n", SOURCE: other})
    assert found == [(HEADER, 2, "unused function idle")]


@pytest.mark.parametrize(
    "use",
    [
        "int a = busy(1);\n",
        "  return busy(1);\n",
        "  call(&Thing::busy);\n",
        "  for (int a : things.busy())\n",
        "  if (!busy(1)) throw busy(2);\n",
    ],
)
@pytest.mark.parametrize("place", [SOURCE, "apps/a.cpp", "benchmarks/b.cpp", "examples/c.cpp"])
def test_a_use_anywhere_in_the_program(tmp_path: Path, use: str, place: str) -> None:
    assert not findings(tmp_path, {HEADER: "int busy(int a);\n", place: use})


@pytest.mark.parametrize(
    ("declaration", "use"),
    [
        ("class Busy {", "void work(const Busy& busy) {\n"),
        ("class Busy {", "  throw Busy(1);\n"),
        ("enum class Busy { kYes };", "auto a = other(Busy::kYes);\n"),
        ("using Busy = int;", "Busy a = 1;\n"),
        ("inline constexpr int kBusy = 1;", "int a = kBusy;\n"),
    ],
)
def test_types_and_constants_in_use(tmp_path: Path, declaration: str, use: str) -> None:
    other = f"{LIBRARY}/value/other.cpp"
    assert not findings(tmp_path, {HEADER: declaration + "\n", other: use})


def test_the_members_of_a_type_do_not_use_it(tmp_path: Path) -> None:
    header = (
        "class Idle {\n  explicit Idle(int a);\n  Idle(const Idle&) = delete;\n"
        "  Idle& operator=(const Idle&) = delete;\n  ~Idle();\n};\n"
    )
    found = findings(tmp_path, {HEADER: header, SOURCE: "Idle::Idle(int a) {}\nIdle::~Idle() {}\n"})
    assert found == [(HEADER, 2, "unused type Idle")]
    used = {HEADER: header + "int work(const Idle& idle);\n", SOURCE: "int a = work(b);\n"}
    assert not findings(tmp_path, used)


def test_an_exception_ends_with_its_reason(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(unused_code, "KEPT", {"idle": "for others"})
    assert not findings(tmp_path, {HEADER: "int idle(int a);\n"})
    found = findings(tmp_path, {SOURCE: "int a = idle(1);\n"})
    assert found == [("tests/style/unused_code.py", 1, "used after all: idle")]


def test_packages(tmp_path: Path) -> None:
    found = findings(
        tmp_path,
        {
            "scripts/packages.txt": (
                "# A comment.\n[run]\nlibfmt-dev  # texts\nlibcsv-dev\n\nlibother-dev\n"
            ),
            "apps/a.cpp": "#include <fmt/format.h>\n",
            "requirements.txt": (
                "# Reads.\nused-one==1 \\\n    --hash=sha256:0\n# Needed by used-one.\nother==2\n"
                "# Idle.\nidle==3\n# Needed by what is not listed.\nidler==4\n"
            ),
            "scripts/a.py": "import used_one\n",
        },
    )
    assert found == [
        ("requirements.txt", 7, "unused package idle"),
        ("requirements.txt", 9, "unused package idler"),
        ("scripts/packages.txt", 4, "unused package libcsv-dev"),
        ("scripts/packages.txt", 6, "package libother-dev without a sign"),
    ]


def namespaced(body: str, private: bool = False) -> str:
    inner = f"namespace {{\n{body}}}  // namespace\n" if private else body
    return f"namespace varnholt::genetic {{\n{inner}}}  // namespace varnholt::genetic\n"


def test_one_name_for_two_functions(tmp_path: Path) -> None:
    public = namespaced("bool contains(int a);\n")
    private = namespaced("bool contains(long a) {\n  return a > 0;\n}\n", private=True)
    use = "bool a = contains(1);\n"
    other = f"{LIBRARY}/value/other.cpp"
    found = findings(tmp_path, {HEADER: public, other: private + use})
    assert found == [(other, 3, "second function contains")]
    (tmp_path / other).unlink()
    assert not findings(tmp_path, {SOURCE: private + use}), "another form of its own function"
    header = namespaced('[[gnu::target("x")]] bool contains(int a);\n')
    attributed = namespaced('[[gnu::target("x")]] bool holds(int a) {\n}\n', private=True)
    assert not findings(tmp_path, {HEADER: header, other: attributed + use}), "an attribute"
    (tmp_path / other).write_text(private + use)
    assert findings(tmp_path, {}) == [(other, 3, "second function contains")]


def test_helpers_of_tests_stand_apart(tmp_path: Path) -> None:
    found = findings(
        tmp_path,
        {
            HEADER: namespaced(""),
            "tests/value/helper.hpp": namespaced(""),
            "tests/value/apart.hpp": "namespace varnholt::genetic::test {\n}\n",
            "tests/value/a_test.cpp": namespaced(""),
        },
    )
    rule = "test helper among the program's names"
    assert found == [("tests/value/helper.hpp", 3, rule)]
