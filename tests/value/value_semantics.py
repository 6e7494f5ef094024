"""Answers, for pairs of values, what the library has to answer as well.

Reads a file of lines "literal TAB literal" and writes for each line the answers about the first
value and about the pair, a field each: "=" and a text in hexadecimal UTF-8, or "!" and the
kind of the error with its message.
"""

import hashlib
import json
import math
import sys

NAMES = {"nan": math.nan, "float": float, "__builtins__": {}}


def field(answer):
    try:
        return "=" + answer().encode("utf-8").hex()
    except Exception as error:
        return "!" + f"{type(error).__name__}: {error}".encode("utf-8").hex()


def kind_or(answer):
    """The answer, or the kind of the error alone: its message differs between versions."""
    try:
        return answer()
    except Exception as error:
        return type(error).__name__


def unpacked(value):
    first, second = value
    return repr((first, second))


def digest(value):
    text = json.dumps(value, sort_keys=True, separators=(",", ":"))
    return hashlib.sha256(text.encode("utf-8")).hexdigest()


def is_number(value):
    return isinstance(value, (int, float)) and value == value


def answers(left, right):
    return [
        field(lambda: repr(left)),
        field(lambda: str(left)),
        field(lambda: json.dumps(left, sort_keys=True, separators=(",", ":"))),
        field(lambda: str(bool(left))),
        field(lambda: repr(float(left))),
        field(lambda: repr(int(left))),
        field(lambda: str(len(left))),
        field(lambda: str(hash(left)) if is_number(left) else "-"),
        field(lambda: str(left == right)),
        field(lambda: str(left < right)),
        field(lambda: repr(-left)),
        field(lambda: kind_or(lambda: str(right in left))),
        field(lambda: kind_or(lambda: str(left in (0, right)))),
        field(lambda: kind_or(lambda: str(left in {"a": right}))),
        field(lambda: kind_or(lambda: unpacked(left))),
        field(lambda: kind_or(lambda: digest(left))),
    ]


with open(sys.argv[1], encoding="ascii") as lines:
    for line in lines:
        first, second = line.rstrip("\n").split("\t")
        print("\t".join(answers(eval(first, NAMES), eval(second, NAMES))))
