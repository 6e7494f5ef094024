"""Carries out plans of random draws with CPython's random.Random, for mersenne_twister_test.cpp.

Reads a file of plans, one a line: where the generator starts, then its draws, between blanks; and
writes a line for each with one word for each draw. A generator starts from "seed=N" or from
"state=W,...,W,POSITION;GAUSS", where GAUSS is "none" or the 16 hexadecimal digits of a double.

    r         random()              its bits in hexadecimal
    b:BITS    getrandbits(BITS)
    n         gauss(0, 1)           "-", since only its effect on the state is looked at
    t         getstate()            the state as above, without "state="
"""

import random
import struct
import sys


def bits_of(value):
    return struct.pack(">d", value).hex()


def text_of_state(state):
    version, integers, gauss = state
    if version != 3:
        raise SystemExit(f"this Python's random.Random has states of version {version}, not 3")
    return ",".join(map(str, integers)) + ";" + ("none" if gauss is None else bits_of(gauss))


def generator_from(start):
    kind, _, text = start.partition("=")
    if kind == "seed":
        return random.Random(int(text))
    integers, _, gauss = text.partition(";")
    pending = None if gauss == "none" else struct.unpack(">d", bytes.fromhex(gauss))[0]
    generator = random.Random(0)
    generator.setstate((3, tuple(map(int, integers.split(","))), pending))
    return generator


def drawn(generator, draw):
    kind, *arguments = draw.split(":")
    numbers = [int(argument) for argument in arguments]
    if kind == "r":
        return bits_of(generator.random())
    if kind == "b":
        return str(generator.getrandbits(*numbers))
    if kind == "n":
        generator.gauss(0, 1)
        return "-"
    if kind == "t":
        return text_of_state(generator.getstate())
    raise SystemExit(f"unknown draw: {draw}")


def main():
    with open(sys.argv[1], encoding="ascii") as plans:
        for plan in plans:
            start, *draws = plan.split()
            generator = generator_from(start)
            print(*(drawn(generator, draw) for draw in draws))


if __name__ == "__main__":
    main()
