#!/usr/bin/env python3
"""Writes what CPython makes of random numbers and texts, one case a line.

The tests of search_templates/genetic/value read these lines and expect the same of the library.
The checked-in table comes from CPython 3.11; run from the top of the repository:

    python3.11 scripts/make_python_text_table.py > tests/data/python_text_forms.tsv

The property test runs the script with a fresh seed and --any-unicode, which draws only characters
that every Unicode version since 3.2 classifies alike, so that CPython 3.11 and any later one agree.

Lines have a kind and tab-separated fields. Doubles stand as 16 hexadecimal digits of their bits
("nan" for every NaN), texts that are read as the hexadecimal digits of their UTF-8 bytes:

    float        bits, repr, JSON text, hash
    truncate     bits, int(value)
    text         text, repr, JSON text
    parse_float  text, "value" and bits, or "error" and the message
    parse_int    text, "value" and decimal digits, or "error" and the message
    integer      decimal digits, hash, "value" and bits of float(value), or "error" and the message
    compare      integer, bits, -1, 0 or 1 for the order of the two
    unicode      property, CRC-32 of its values, one byte for each code point from 0 to 0x10FFFF
"""

import argparse
import json
import math
import random
import struct
import sys
import unicodedata
import zlib

UNICODE_VERSION = "14.0.0"


def bits_of(value):
    return "nan" if math.isnan(value) else struct.pack(">d", value).hex()


def from_bits(bits):
    return struct.unpack(">d", struct.pack(">Q", bits))[0]


def neighbour(value, steps):
    """The double that many places after a positive one."""
    return from_bits(struct.unpack(">Q", struct.pack(">d", value))[0] + steps)


def outcome(convert, show, argument):
    try:
        return "value", show(convert(argument))
    except (ValueError, OverflowError) as error:
        return "error", str(error)


class Cases:
    def __init__(self, seed, any_unicode):
        self.random = random.Random(seed)
        self.characters = self._characters(any_unicode)
        self.printables = [c for c in self.characters if c.isprintable()]

    @staticmethod
    def _characters(any_unicode):
        """What a text may hold: no surrogates, and with `any_unicode` no disputed character."""
        old = unicodedata.ucd_3_2_0
        characters = []
        for code_point in range(sys.maxunicode + 1):
            character = chr(code_point)
            category = unicodedata.category(character)
            if category == "Cs" or (any_unicode and old.category(character) != category):
                continue
            characters.append(character)
        return characters

    # Drawing.

    def double(self):
        draw = self.random
        sign = draw.choice((1.0, -1.0))
        kind = draw.randrange(8)
        if kind == 0:
            value = from_bits(draw.getrandbits(64))
            return value if math.isfinite(value) else sign * 1e308
        if kind == 1:
            return sign * from_bits(draw.getrandbits(draw.randrange(1, 53)))  # Below the normal.
        if kind == 2:
            return sign * neighbour(2.0 ** draw.randrange(-1070, 1023), draw.randrange(-2, 3))
        if kind == 3:
            return sign * neighbour(float(f"1e{draw.randrange(-300, 300)}"), draw.randrange(-2, 3))
        if kind == 4:
            return sign * float(draw.getrandbits(draw.randrange(1, 70)))
        if kind == 5:
            return sign * round(draw.uniform(0, 10 ** draw.randrange(0, 6)), draw.randrange(0, 8))
        if kind == 6:
            return sign * draw.random() * 10.0 ** draw.randrange(-8, 20)
        return sign * draw.randrange(1, 10**4) * float(f"1e{draw.randrange(-30, 30)}")

    def integer(self):
        draw = self.random
        value = draw.getrandbits(draw.choice((8, 32, 53, 62, 63, 64, 65, 96, 128, 200, 1000, 1100)))
        if draw.random() < 0.3:
            value = (1 << draw.randrange(0, 1030)) + draw.randrange(-2, 3)
        if draw.random() < 0.1:
            value = draw.randrange(1, 5) * (2**61 - 1) + draw.randrange(-2, 3)
        return draw.choice((value, -value))

    def text(self):
        draw = self.random
        pools = (
            "abcdefghijklmnopqrstuvwxyz_0123456789 .:-",
            "'\"\\/\n\r\t\b\f ab",
            [chr(c) for c in range(128)],
            [c for c in self.characters[:0x300] if ord(c) >= 0x7E],
            self.characters,
            self.printables,
            "\ud7ff\ue000\uffff\U00010000\U0010ffff\u2028\x00\x7f\x80\u07ff\u0800",
        )
        chosen = draw.sample(pools, draw.choice((1, 1, 2)))
        length = draw.randrange(0, 14)
        return "".join(draw.choice(draw.choice(chosen)) for _ in range(length))

    def digits(self, longest):
        draw = self.random
        length = draw.randrange(1, longest + 1)
        zeros = ("0", "0", "0", "0", "\u0660", "\uff10", "\u0966", "\U0001d7d8")
        zero = ord(draw.choice(zeros))
        text = ""
        for place in range(length):
            if place and draw.random() < 0.08:
                text += "_"
            text += chr(zero + draw.randrange(10))
        return text

    def space(self):
        draw = self.random
        spaces = " \t\n\v\f\r\x85\xa0\u2003\u2028\u3000"
        return "".join(draw.choice(spaces) for _ in range(draw.choice((0, 0, 0, 1, 2))))

    def spoiled(self, text):
        """The text with a place changed, four times out of ten."""
        draw = self.random
        if draw.random() < 0.6:
            return text
        wrong = "+-._eE \t\x00\x1c\x1f\x7finfINFatyx'\"\\\u0661\uff11\u2003\u00b2\u200b\u4e00"
        place = draw.randrange(len(text) + 1)
        kept = text[place + draw.randrange(2) :]
        return text[:place] + draw.choice((draw.choice(wrong), "__", "_", "")) + kept

    def float_text(self):
        draw = self.random
        kind = draw.randrange(12)
        if kind == 0:
            name = draw.choice(("inf", "infinity", "nan"))
            body = "".join(draw.choice((c, c.upper())) for c in name)
        elif kind == 1:
            body = repr(abs(self.double()))
        elif kind == 2:  # Half-way between two doubles, and next to it.
            mantissa = 2**52 + draw.getrandbits(52)
            exact = (2 * mantissa + 1) * 5**53 * 2 ** draw.randrange(0, 60)
            body = str(exact + draw.choice((-1, 0, 1))) + "e-53"
        elif kind == 3:  # Many zeros that the power of ten undoes.
            zeros = draw.randrange(300, 400)
            body = f"0.{'0' * zeros}{draw.randrange(1, 10**6)}e{zeros + draw.randrange(-330, 300)}"
        elif kind == 4:
            power = draw.choice(("-99999", "99999", "+00012", "-" + "9" * 30, "9" * 30))
            body = self.digits(3) + "e" + power
        else:
            body = draw.choice((self.digits(20), self.digits(5), ""))
            body += draw.choice(("", ".", "." + self.digits(17)))
            if draw.random() < 0.5:
                body += draw.choice("eE") + draw.choice(("", "+", "-")) + self.digits(3)
        sign = draw.choice(("", "", "+", "-"))
        return self.spoiled(self.space() + sign + body + self.space())

    def integer_text(self):
        draw = self.random
        body = self.digits(draw.choice((1, 5, 17, 18, 19, 20, 40, 300)))
        if draw.random() < 0.2:
            body = str(2**63 + draw.randrange(-2, 3))
        sign = draw.choice(("", "", "+", "-"))
        return self.spoiled(self.space() + sign + body + self.space())

    # One line of each kind.

    def float_line(self, value=None):
        value = self.double() if value is None else value
        shown_hash = "-" if math.isnan(value) else hash(value)
        return "float", bits_of(value), repr(value), json.dumps(value), shown_hash

    def truncate_line(self):
        value = self.double()
        return "truncate", bits_of(value), int(value)

    def text_line(self):
        text = self.text()
        return "text", text.encode().hex(), repr(text), json.dumps(text)

    def parse_float_line(self):
        text = self.float_text()
        return "parse_float", text.encode().hex(), *outcome(float, bits_of, text)

    def parse_int_line(self):
        text = self.integer_text()
        return "parse_int", text.encode().hex(), *outcome(int, str, text)

    def integer_line(self):
        value = self.integer()
        return "integer", value, hash(value), *outcome(float, bits_of, value)

    def compare_line(self):
        draw = self.random
        value = self.double()
        integer = int(value) + draw.choice((0, 0, 0, -1, 1, draw.getrandbits(40)))
        if draw.random() < 0.2:
            integer = draw.getrandbits(63) - 2**62
        if draw.random() < 0.05:
            value = draw.choice((math.inf, -math.inf))
        return "compare", integer, bits_of(value), (integer > value) - (integer < value)


def fixed_lines(cases):
    for value in (0.0, 1.0, 0.1, 1e-4, 1e-5, 1e15, 1e16, 1e17, 123456789012345680.0, 5e-324,
                  2.2250738585072014e-308, 1.7976931348623157e308, math.inf):
        yield cases.float_line(value)
        yield cases.float_line(-value)
    yield cases.float_line(math.nan)


def unicode_lines():
    every = [chr(c) for c in range(sys.maxunicode + 1)]
    properties = {
        "space": str.isspace,
        "printable": str.isprintable,
        "decimal": lambda c: unicodedata.decimal(c, -1) + 1,
    }
    for name, value_of in properties.items():
        yield "unicode", name, f"{zlib.crc32(bytes(value_of(c) for c in every)):08x}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seed", type=int, default=20240611)
    parser.add_argument("--cases", type=int, default=420, help="of each kind")
    parser.add_argument("--any-unicode", action="store_true")
    arguments = parser.parse_args()
    if sys.version_info < (3, 11):
        raise SystemExit(f"this is Python {sys.version.split()[0]}, whose words differ: take 3.11")
    if not arguments.any_unicode and unicodedata.unidata_version != UNICODE_VERSION:
        raise SystemExit(
            f"this Python carries Unicode {unicodedata.unidata_version}, and the table is of "
            f"{UNICODE_VERSION}: run the script with CPython 3.11, or give --any-unicode"
        )
    sys.stdout.reconfigure(encoding="utf-8", newline="\n")
    cases = Cases(arguments.seed, arguments.any_unicode)
    lines = list(fixed_lines(cases))
    if not arguments.any_unicode:
        lines += unicode_lines()
    for make in (cases.float_line, cases.truncate_line, cases.text_line, cases.parse_float_line,
                 cases.parse_int_line, cases.integer_line, cases.compare_line):
        lines += (make() for _ in range(arguments.cases))
    for fields in lines:
        print("\t".join(map(str, fields)))


if __name__ == "__main__":
    main()
