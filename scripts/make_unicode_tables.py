#!/usr/bin/env python3
"""Writes search_templates/genetic/value/unicode_ranges.hpp from Python's Unicode data.

The tables follow CPython 3.11, whose `unicodedata` is Unicode 14.0.0; another version is refused,
because the same text would then have another repr. Run from the top of the repository:

    python3.11 scripts/make_unicode_tables.py
"""

import pathlib
import sys
import unicodedata

UNICODE_VERSION = "14.0.0"
TARGET = pathlib.Path("search_templates/genetic/value/unicode_ranges.hpp")
CODE_POINTS = range(sys.maxunicode + 1)

HEADER = f"""\
// Ranges of code points with a property, made by scripts/make_unicode_tables.py: do not edit.
//
// Source: the Unicode Character Database, version {UNICODE_VERSION}, as CPython 3.11 carries it in
// `unicodedata`. Copyright (C) 1991-2021 Unicode, Inc., used under the Unicode licence
// (https://www.unicode.org/license.txt).
//
// Only unicode_tables.cpp reads these arrays; ask the functions of unicode_tables.hpp instead.
#pragma once

// clang-format off
namespace varnholt::genetic::unicode_ranges {{

// Both ends belong to the range.
struct Range {{
  char32_t first;
  char32_t last;
}};
"""


def ranges_of(has_property):
    """The code points with a property as a list of [first, last]."""
    ranges = []
    for code_point in CODE_POINTS:
        if not has_property(chr(code_point)):
            continue
        if ranges and ranges[-1][1] == code_point - 1:
            ranges[-1][1] = code_point
        else:
            ranges.append([code_point, code_point])
    return ranges


def decimal_zeros():
    """The code points of digit zero; the nine digits after each follow it in order."""
    digits = {c: unicodedata.decimal(chr(c), -1) for c in CODE_POINTS}
    digits = {c: value for c, value in digits.items() if value >= 0}
    zeros = [c for c, value in digits.items() if value == 0]
    rebuilt = {zero + value: value for zero in zeros for value in range(10)}
    if rebuilt != digits:
        raise SystemExit("the decimal digits are no longer runs of ten: keep their values as well")
    return zeros


def array(comment, kind, name, items):
    """The text of one array, wrapped at 100 columns."""
    lines, line = [], "   "
    for item in items:
        if len(line) + len(item) + 2 > 100:
            lines.append(line)
            line = "   "
        line += f" {item},"
    lines.append(line)
    body = "\n".join(lines)
    return f"\n// {comment}\ninline constexpr {kind} {name}[] = {{\n{body}\n}};\n"


def range_array(comment, name, ranges):
    return array(comment, "Range", name, [f"{{0x{a:x}, 0x{b:x}}}" for a, b in ranges])


def main():
    if unicodedata.unidata_version != UNICODE_VERSION:
        raise SystemExit(
            f"this Python carries Unicode {unicodedata.unidata_version}; "
            f"run the script with one that carries {UNICODE_VERSION} (CPython 3.11)"
        )
    text = HEADER
    text += range_array("What `str.isspace` answers yes to.", "kSpaces", ranges_of(str.isspace))
    text += array(
        "The zeros of the decimal digits (general category Nd); 1 to 9 follow each of them.",
        "char32_t",
        "kDecimalZeros",
        [f"0x{zero:x}" for zero in decimal_zeros()],
    )
    text += range_array(
        "What `str.isprintable` answers yes to.", "kPrintables", ranges_of(str.isprintable)
    )
    text += "\n}  // namespace varnholt::genetic::unicode_ranges\n// clang-format on\n"
    TARGET.write_text(text, encoding="ascii")


if __name__ == "__main__":
    main()
