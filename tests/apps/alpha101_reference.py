"""The functions of the 101 alphas a second time, written out naively in plain Python.

Every function here is its definition, one day or one window at a time, and shares nothing with the
program. The rules for ties and for what is not known are those that examples/alpha101.txt lists.
"""

from __future__ import annotations

import math
from collections.abc import Callable

NAN = math.nan
NEAR_ZERO = 1e-12
ALIKE = 1e-9
LEAST_KNOWN = 0.5


def known(value: float) -> float:
    return value if math.isfinite(value) else NAN


def alike(x: float, y: float) -> bool:
    """Whether two values differ by rounding only."""
    return x == y or abs(x - y) <= ALIKE * max(abs(x), abs(y))


class Panel:
    """One list a day, one number an instrument."""

    def __init__(self, rows: list[list[float]]):
        self.rows = rows

    def each(self, other: object, function: Callable[[float, float], float]) -> Panel:
        def entry(left: float, right: float) -> float:
            if math.isnan(left) or math.isnan(right):
                return NAN
            try:
                return known(function(left, right))
            except (OverflowError, ValueError, ZeroDivisionError):
                return NAN

        others = other.rows if isinstance(other, Panel) else [
            [float(other)] * len(row) for row in self.rows
        ]
        return Panel([
            [entry(left, right) for left, right in zip(*pair)] for pair in zip(self.rows, others)
        ])

    def __add__(self, other): return self.each(other, lambda x, y: x + y)
    def __radd__(self, other): return self.each(other, lambda x, y: y + x)
    def __sub__(self, other): return self.each(other, lambda x, y: x - y)
    def __rsub__(self, other): return self.each(other, lambda x, y: y - x)
    def __mul__(self, other): return self.each(other, lambda x, y: x * y)
    def __rmul__(self, other): return self.each(other, lambda x, y: y * x)
    def __neg__(self): return self.each(0.0, lambda x, _: -x)
    def __lt__(self, other): return self.each(other, lambda x, y: float(x < y and not alike(x, y)))
    def __gt__(self, other): return self.each(other, lambda x, y: float(x > y and not alike(x, y)))
    def __eq__(self, other): return self.each(other, lambda x, y: float(alike(x, y)))
    def __or__(self, other): return self.each(other, lambda x, y: float(x != 0 or y != 0))
    __hash__ = None

    def __truediv__(self, other): return self.each(other, quotient)
    def __rtruediv__(self, other): return self.each(other, lambda x, y: quotient(y, x))

    def __pow__(self, other):
        # A negative base with a fraction above it is no real number.
        return self.each(other, lambda x, y: math.pow(x, y))


def quotient(x: float, y: float) -> float:
    return NAN if abs(y) < NEAR_ZERO else x / y


# --- across the instruments ---


def places(values: list[float], value: float) -> float:
    """The share of the others below it, alike ones counting half: alike also by way of others."""
    if len(values) == 1:
        return 0.5
    ordered = sorted(values)
    first = last = ordered.index(value)
    while first > 0 and alike(ordered[first - 1], ordered[first]):
        first -= 1
    while last + 1 < len(ordered) and alike(ordered[last], ordered[last + 1]):
        last += 1
    return (first + last) / 2 / (len(values) - 1)


def place_of_today(values: list[float], today: float) -> float:
    """The share of the others below it, those that are alike to it counting half."""
    if len(values) == 1:
        return 0.5
    same = [value for value in values if alike(value, today)]
    below = sum(value < today and not alike(value, today) for value in values)
    return (below + (len(same) - 1) / 2) / (len(values) - 1)


def by_day(x: Panel, function: Callable[[list[float], float], float]) -> Panel:
    days = []
    for row in x.rows:
        there = [value for value in row if not math.isnan(value)]
        days.append([NAN if math.isnan(value) else known(function(there, value)) for value in row])
    return Panel(days)


def rank(x: Panel) -> Panel:
    return by_day(x, places)


def scale(x: Panel) -> Panel:
    def share(there: list[float], value: float) -> float:
        gross = math.fsum(map(abs, there))
        return value / gross if gross else 0.0

    return by_day(x, share)


def indneutralize(x: Panel, groups: list[list[str]]) -> Panel:
    days = []
    for row, names in zip(x.rows, groups):
        members: dict[str, list[float]] = {}
        for value, name in zip(row, names):
            if name and not math.isnan(value):
                members.setdefault(name, []).append(value)
        days.append([
            value - math.fsum(members[name]) / len(members[name])
            if name and not math.isnan(value) else NAN
            for value, name in zip(row, names)
        ])
    return Panel(days)


# --- over time ---


def windows(
    panels: list[Panel], days: int, function: Callable[..., float], whole: bool = False
) -> Panel:
    """What the function makes of the known days of each window, or of all where `whole`.

    Today must be known, and so must LEAST_KNOWN of the days; the window begins no earlier than the
    first day that is known.
    """
    height, width = len(panels[0].rows), len(panels[0].rows[0])
    result = [[NAN] * width for _ in range(height)]
    for column in range(width):
        series = [[row[column] for row in panel.rows] for panel in panels]
        there = [not any(map(math.isnan, values)) for values in zip(*series)]
        first = there.index(True) if True in there else height
        for day in range(first + days - 1, height):
            cut = range(day - days + 1, day + 1)
            kept = [past for past in cut if there[past]]
            if there[day] and len(kept) >= math.ceil(LEAST_KNOWN * days):
                chosen = cut if whole else kept
                result[day][column] = known(
                    function(*([values[past] for past in chosen] for values in series))
                )
    return Panel(result)


def mean(values: list[float]) -> float:
    return math.fsum(values) / len(values)


def deviations(values: list[float]) -> list[float]:
    centre = mean(values)
    return [value - centre for value in values]


def is_constant(values: list[float]) -> bool:
    squares = math.fsum(value * value for value in values)
    return math.fsum(d * d for d in deviations(values)) <= 1e-24 * squares


def one_covariance(x: list[float], y: list[float]) -> float:
    products = [dx * dy for dx, dy in zip(deviations(x), deviations(y))]
    return math.fsum(products) / (len(x) - 1) if len(x) > 1 else NAN


def one_correlation(x: list[float], y: list[float]) -> float:
    if is_constant(x) or is_constant(y):
        return NAN
    spread = math.sqrt(one_covariance(x, x)) * math.sqrt(one_covariance(y, y))
    return max(-1.0, min(1.0, one_covariance(x, y) / spread))


def one_stddev(x: list[float]) -> float:
    if len(x) < 2:
        return NAN
    return 0.0 if is_constant(x) else math.sqrt(one_covariance(x, x))


def correlation(x: Panel, y: Panel, days: int) -> Panel:
    return windows([x, y], days, one_correlation)


def covariance(x: Panel, y: Panel, days: int) -> Panel:
    return windows([x, y], days, one_covariance)


def stddev(x: Panel, days: int) -> Panel:
    return windows([x], days, one_stddev)


def total(x: Panel, days: int) -> Panel:
    return windows([x], days, math.fsum)


def product(x: Panel, days: int) -> Panel:
    return windows([x], days, math.prod)


def ts_min(x: Panel, days: int) -> Panel:
    return windows([x], days, min)


def ts_max(x: Panel, days: int) -> Panel:
    return windows([x], days, max)


def place_of(values: list[float], wanted: float) -> int:
    """Of alike ones the oldest."""
    return next(i for i, value in enumerate(values, 1) if alike(value, wanted))


def without_nan(values: list[float]) -> list[float]:
    return [value for value in values if not math.isnan(value)]


def ts_argmax(x: Panel, days: int) -> Panel:
    return windows([x], days, lambda v: place_of(v, max(without_nan(v))), whole=True)


def ts_argmin(x: Panel, days: int) -> Panel:
    return windows([x], days, lambda v: place_of(v, min(without_nan(v))), whole=True)


def ts_rank(x: Panel, days: int) -> Panel:
    return windows([x], days, lambda values: place_of_today(values, values[-1]))


def decay_linear(x: Panel, days: int) -> Panel:
    def decayed(values: list[float]) -> float:
        pairs = [(w, v) for w, v in enumerate(values, 1) if not math.isnan(v)]
        return math.fsum(w * v for w, v in pairs) / sum(w for w, _ in pairs)

    return windows([x], days, decayed, whole=True)


def delay(x: Panel, days: int) -> Panel:
    gone = [[NAN] * len(x.rows[0]) for _ in range(days)]
    return Panel((gone + x.rows)[: len(x.rows)])


def delta(x: Panel, days: int) -> Panel:
    return x - delay(x, days)


# --- value by value ---


def size(x: Panel) -> Panel:
    return x.each(0.0, lambda value, _: abs(value))


def sign(x: Panel) -> Panel:
    return x.each(0.0, lambda value, _: float((value > 0) - (value < 0)))


def log(x: Panel) -> Panel:
    return x.each(0.0, lambda value, _: math.log(value))


def signedpower(x: Panel, power: object) -> Panel:
    return x.each(power, lambda value, y: math.copysign(math.pow(abs(value), y), value))


def least(x: Panel, y: Panel) -> Panel:
    return x.each(y, min)


def most(x: Panel, y: Panel) -> Panel:
    return x.each(y, max)


def where(condition: Panel, then: object, otherwise: object) -> Panel:
    """The other of the two need not be known."""
    def rows(choice: object) -> list[list[float]]:
        if isinstance(choice, Panel):
            return choice.rows
        return [[float(choice)] * len(row) for row in condition.rows]

    return Panel([
        [NAN if math.isnan(c) else (x if c else y) for c, x, y in zip(*triple)]
        for triple in zip(condition.rows, rows(then), rows(otherwise))
    ])


class Names(dict):
    """What the formulas are made of: the columns, the groups, and "adv20" and its like."""

    def __missing__(self, name: str) -> object:
        if name.startswith("adv") and name[3:].isdigit():
            volume = self["close"] * self["volume"]
            self[name] = windows([volume], int(name[3:]), mean)
            return self[name]
        return globals()[name]


def value_of(formula: str, names: Names) -> Panel:
    return eval(formula, {"__builtins__": {}}, names)
