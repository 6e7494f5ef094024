#!/usr/bin/env python3
"""An independent reader of a store: tells every violation of what must hold in any store.

The statements stand in store_invariants.sql, which the C++ tests read too. As a program it takes
the names of stores, prints one violation a line, and exits with 1 when there is one.
"""

from __future__ import annotations

import sqlite3
import sys
from collections.abc import Iterator
from pathlib import Path

STATEMENTS = Path(__file__).with_suffix(".sql")


def statements() -> Iterator[str]:
    """Each statement of the file, with the comment above it."""
    text = ""
    for line in STATEMENTS.read_text(encoding="utf-8").splitlines(keepends=True):
        text += line
        if line.rstrip().endswith(";") and sqlite3.complete_statement(text):
            yield text
            text = ""


def violations(store: Path | str) -> list[str]:
    connection = sqlite3.connect(f"file:{Path(store).absolute()}?mode=ro", uri=True)
    try:
        return [str(row[0]) for sql in statements() for row in connection.execute(sql)]
    finally:
        connection.close()


def main(names: list[str]) -> int:
    found = [(name, text) for name in names for text in violations(name)]
    for name, text in found:
        print(f"{name}: {text}")
    print(f"{len(names)} stores, {len(found)} violations")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
