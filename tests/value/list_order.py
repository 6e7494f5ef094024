"""Sorts lists as the installed CPython does and tells which pairs it compared.

Reads a file of lines "rule TAB number number ..." and writes for each the order of the places and
the compared pairs, "place place ... TAB left,right left,right ...". A rule tells whether an item is
less than another: by their numbers, of which -1 is a NaN, or by a formula that is no order.
"""

import math
import sys


class Item:
    def __init__(self, place, number, rule, compared):
        self.place = place
        self.number = math.nan if number == -1 else number
        self.rule = rule
        self.compared = compared

    def __lt__(self, other):
        self.compared.append(f"{self.place},{other.place}")
        if self.rule == "numbers":
            return self.number < other.number
        return (self.place * 31 + other.place * 17) % 3 == 0


with open(sys.argv[1], encoding="ascii") as lines:
    for line in lines:
        rule, _, numbers = line.rstrip("\n").partition("\t")
        compared = []
        items = [
            Item(place, int(number), rule, compared) for place, number in enumerate(numbers.split())
        ]
        print(" ".join(str(item.place) for item in sorted(items)), " ".join(compared), sep="\t")
