"""The functions of docs/vocabulary.md that fresh graphs draw from, as numpy kernels over panels.

A panel has a row for each day and a column for each instrument; NaN means "not known". What a
function gives on a day depends on that day and on days before it. Sums over a window are put
together from sums over shorter windows, each half of the next, and spreads are merged from the
spreads of the halves: so a window that is constant has a spread of exactly zero, whatever stands
before it, which a difference of running sums would lose.
"""

from __future__ import annotations

from collections.abc import Callable

import numpy as np

Panel = np.ndarray
WINDOWS = (2, 3, 5, 10, 15, 20, 40, 60, 120)
LEAST_KNOWN_SHARE = 0.8
NEAR_ZERO = 1e-12
# Squared deviations this small beside the squares are rounding, not a spread.
CONSTANT = 1e-24


def finite_or_nan(panel: Panel) -> Panel:
    return np.where(np.isfinite(panel), panel, np.nan)


def earlier(panel: Panel, days: int, before: float) -> Panel:
    """The panel as it was so many days ago; `before` stands where there was none."""
    if days == 0:
        return panel
    moved = np.full_like(panel, before)
    moved[days:] = panel[:-days]
    return moved


# --- Across the instruments, day by day.


def by_day(values: Panel) -> Panel:
    """One number a day, to be set beside the instruments."""
    return values[:, np.newaxis]


def known_mean(x: Panel) -> Panel:
    return by_day(np.nansum(x, axis=1) / np.maximum((~np.isnan(x)).sum(axis=1), 1))


def cross_rank(x: Panel) -> Panel:
    days, instruments = x.shape
    order = np.argsort(x, axis=1, kind="stable")  # What is not known comes last.
    ordered = np.take_along_axis(x, order, axis=1)
    places = np.arange(instruments)
    begins = np.ones((days, instruments), dtype=bool)
    begins[:, 1:] = ordered[:, 1:] != ordered[:, :-1]
    ends = np.ones_like(begins)
    ends[:, :-1] = begins[:, 1:]
    first = np.maximum.accumulate(np.where(begins, places, 0), axis=1)
    last = np.where(ends, places, instruments)[:, ::-1]
    last = np.minimum.accumulate(last, axis=1)[:, ::-1]
    known = by_day((~np.isnan(x)).sum(axis=1))
    ranks = np.where(known == 1, 0.5, (first + last) / 2.0 / np.maximum(known - 1, 1))
    result = np.empty_like(x)
    np.put_along_axis(result, order, ranks, axis=1)
    return np.where(np.isnan(x), np.nan, result)


def cross_demean(x: Panel) -> Panel:
    return finite_or_nan(x - known_mean(x))


def cross_zscore(x: Panel) -> Panel:
    known = by_day((~np.isnan(x)).sum(axis=1))
    squares = by_day(np.nansum(x * x, axis=1))
    centred = x - known_mean(x)
    deviations = by_day(np.nansum(centred * centred, axis=1))
    constant = (known < 2) | (deviations <= CONSTANT * squares)
    spread = np.sqrt(deviations / np.maximum(known - 1, 1))
    return finite_or_nan(np.where(constant, np.nan, centred / spread))


def cross_scale(x: Panel) -> Panel:
    gross = by_day(np.nansum(np.abs(x), axis=1))
    divisor = np.where(gross == 0.0, 1.0, np.where(np.isfinite(gross), gross, np.nan))
    return finite_or_nan(x / divisor)


# --- Over time, instrument by instrument.

# What a window holds, as panels of equal shape; two of them, one behind the other, make one.
Sums = tuple[Panel, ...]


def fold(
    one: Sums,
    none: tuple[float, ...],
    merge: Callable[[Sums, Sums, int, int], Sums],
    window: int,
) -> Sums:
    """What the last `window` days hold. `one` is what each day holds by itself, `none` what a day
    before the first one holds, and merge(older, newer, days of older, days of newer) joins."""
    days, power, width = 0, one, 1
    held: Sums | None = None
    rest = window
    while rest:
        if rest % 2:
            if held is None:
                held = power
            else:
                older = tuple(earlier(p, days, n) for p, n in zip(power, none))
                held = merge(older, held, width, days)
            days += width
        rest //= 2
        if rest:
            older = tuple(earlier(p, width, n) for p, n in zip(power, none))
            power = merge(older, power, width, width)
            width *= 2
    assert held is not None
    return held


def add(older: Sums, newer: Sums, _older_days: int, _newer_days: int) -> Sums:
    return tuple(a + b for a, b in zip(older, newer))


def window_sums(window: int, *panels: Panel) -> Sums:
    return fold(panels, (0.0,) * len(panels), add, window)


def known_days(known: Panel, window: int) -> Panel:
    """The known days of the window, 0 where the day has no result: where today is not known, too
    few days are, or the window does not lie behind the first known day."""
    (counts,) = window_sums(window, known.astype(float))
    least = max(1, int(np.ceil(LEAST_KNOWN_SHARE * window - 1e-9)))
    begun = np.maximum.accumulate(known, axis=0)
    old_enough = earlier(begun.astype(float), window - 1, 0.0) > 0.0
    return np.where(known & old_enough & (counts >= least), counts, 0.0)


def where_known(counts: Panel, result: Panel) -> Panel:
    return finite_or_nan(np.where(counts > 0.0, result, np.nan))


def ts_sum(x: Panel, window: int) -> Panel:
    known = ~np.isnan(x)
    (total,) = window_sums(window, np.where(known, x, 0.0))
    return where_known(known_days(known, window), total)


def ts_mean(x: Panel, window: int) -> Panel:
    known = ~np.isnan(x)
    counts = known_days(known, window)
    (total,) = window_sums(window, np.where(known, x, 0.0))
    return where_known(counts, total / np.maximum(counts, 1.0))


def extreme(x: Panel, window: int, choose: np.ufunc, none: float) -> Panel:
    known = ~np.isnan(x)
    (found,) = fold(
        (np.where(known, x, none),), (none,), lambda a, b, _i, _j: (choose(a[0], b[0]),), window
    )
    return where_known(known_days(known, window), found)


def ts_min(x: Panel, window: int) -> Panel:
    return extreme(x, window, np.minimum, np.inf)


def ts_max(x: Panel, window: int) -> Panel:
    return extreme(x, window, np.maximum, -np.inf)


def merge_moments(older: Sums, newer: Sums, _older_days: int, _newer_days: int) -> Sums:
    """Count, mean and squared deviations; with two panels also the mean of the other, its squared
    deviations, and the products of both (T. F. Chan, G. H. Golub and R. J. LeVeque, 1979)."""
    count = older[0] + newer[0]
    share = newer[0] / np.maximum(count, 1.0)
    weight = older[0] * share
    merged = [count]
    distances = []
    for mean in range(1, len(older) - 1, 2):
        distance = newer[mean] - older[mean]
        distances.append(distance)
        merged.append(older[mean] + distance * share)
        merged.append(older[mean + 1] + newer[mean + 1] + distance * distance * weight)
    if len(distances) == 2:
        merged.append(older[5] + newer[5] + distances[0] * distances[1] * weight)
    return tuple(merged)


def moments(window: int, known: Panel, *panels: Panel) -> Sums:
    count = known.astype(float)
    zero = np.zeros_like(count)
    one = [count]
    for panel in panels:
        one += [np.where(known, panel, 0.0), zero]
    if len(panels) == 2:
        one.append(zero)
    return fold(tuple(one), (0.0,) * len(one), merge_moments, window)


def is_constant(count: Panel, mean: Panel, deviations: Panel) -> Panel:
    return deviations <= CONSTANT * (deviations + count * mean * mean)


def spread_of(count: Panel, mean: Panel, deviations: Panel) -> Panel:
    spread = np.sqrt(deviations / np.maximum(count - 1.0, 1.0))
    spread = np.where(is_constant(count, mean, deviations), 0.0, spread)
    return np.where(count < 2.0, np.nan, spread)


def ts_std(x: Panel, window: int) -> Panel:
    known = ~np.isnan(x)
    return where_known(known_days(known, window), spread_of(*moments(window, known, x)))


def ts_zscore(x: Panel, window: int) -> Panel:
    known = ~np.isnan(x)
    count, mean, deviations = moments(window, known, x)
    spread = spread_of(count, mean, deviations)
    spread = np.where(spread == 0.0, np.nan, spread)
    return where_known(known_days(known, window), (x - mean) / spread)


def ts_rank(x: Panel, window: int) -> Panel:
    counts = known_days(~np.isnan(x), window)
    place = np.zeros_like(x)
    for age in range(1, min(window, len(x))):
        place[age:] += x[:-age] < x[age:]
        place[age:] += 0.5 * (x[:-age] == x[age:])
    ranks = np.where(counts == 1.0, 0.5, place / np.maximum(counts - 1.0, 1.0))
    return where_known(counts, ranks)


def ts_delta(x: Panel, window: int) -> Panel:
    return finite_or_nan(x - earlier(x, window, np.nan))


def merge_decay(older: Sums, newer: Sums, older_days: int, _newer_days: int) -> Sums:
    """Sums of values and of knowns, and both weighted by their places, the oldest counting once."""
    return (
        older[0] + newer[0],
        older[1] + newer[1] + older_days * newer[0],
        older[2] + newer[2],
        older[3] + newer[3] + older_days * newer[2],
    )


def ts_decay(x: Panel, window: int) -> Panel:
    known = ~np.isnan(x)
    value, there = np.where(known, x, 0.0), known.astype(float)
    _, weighted, _, weights = fold(
        (value, value, there, there), (0.0,) * 4, merge_decay, window
    )
    return where_known(known_days(known, window), weighted / np.maximum(weights, 1.0))


def ts_covariance(x: Panel, y: Panel, window: int) -> Panel:
    known = ~(np.isnan(x) | np.isnan(y))
    count, _, _, _, _, products = moments(window, known, x, y)
    covariance = products / np.where(count < 2.0, np.nan, count - 1.0)
    return where_known(known_days(known, window), covariance)


def ts_correlation(x: Panel, y: Panel, window: int) -> Panel:
    known = ~(np.isnan(x) | np.isnan(y))
    count, x_mean, x_squares, y_mean, y_squares, products = moments(window, known, x, y)
    constant = is_constant(count, x_mean, x_squares) | is_constant(count, y_mean, y_squares)
    correlation = np.clip(products / np.sqrt(x_squares) / np.sqrt(y_squares), -1.0, 1.0)
    return where_known(known_days(known, window), np.where(constant, np.nan, correlation))


# --- Value by value.


def arith_div(x: Panel, y: Panel) -> Panel:
    return finite_or_nan(x / np.where(np.abs(y) < NEAR_ZERO, np.nan, y))


def arith_log(x: Panel) -> Panel:
    return np.copysign(np.log1p(np.abs(x)), x)


def comparison_gt(x: Panel, y: Panel) -> Panel:
    return np.where(np.isnan(x) | np.isnan(y), np.nan, (x > y).astype(float))


def comparison_lt(x: Panel, y: Panel) -> Panel:
    return comparison_gt(y, x)


def quiet(kernel: Callable[..., Panel]) -> Callable[..., Panel]:
    """What overflows or is divided by zero is not known; no warning is needed to say so."""

    def called(*arguments) -> Panel:
        with np.errstate(all="ignore"):
            return kernel(*arguments)

    return called


# By name: how many panels the function takes, and the kernel. Those over time take a window too.
PLAIN = {
    name: (panels, quiet(kernel))
    for name, panels, kernel in (
        ("cross_rank", 1, cross_rank),
        ("cross_zscore", 1, cross_zscore),
        ("cross_demean", 1, cross_demean),
        ("cross_scale", 1, cross_scale),
        ("arith_add", 2, lambda x, y: finite_or_nan(x + y)),
        ("arith_sub", 2, lambda x, y: finite_or_nan(x - y)),
        ("arith_mul", 2, lambda x, y: finite_or_nan(x * y)),
        ("arith_div", 2, arith_div),
        ("arith_neg", 1, np.negative),
        ("arith_abs", 1, np.abs),
        ("arith_sign", 1, np.sign),
        ("arith_log", 1, arith_log),
        ("arith_tanh", 1, np.tanh),
        ("arith_min", 2, np.minimum),
        ("arith_max", 2, np.maximum),
        ("comparison_gt", 2, comparison_gt),
        ("comparison_lt", 2, comparison_lt),
    )
}
WINDOWED = {
    kernel.__name__: (panels, quiet(kernel))
    for panels, kernel in (
        (1, ts_mean),
        (1, ts_std),
        (1, ts_zscore),
        (1, ts_rank),
        (1, ts_min),
        (1, ts_max),
        (1, ts_delta),
        (1, ts_sum),
        (1, ts_decay),
        (2, ts_correlation),
        (2, ts_covariance),
    )
}


def features_of(columns: dict[str, Panel]) -> dict[str, Panel]:
    """The features that fresh graphs draw from, of the panels of the price columns."""
    close = columns["close"]
    with np.errstate(all="ignore"):
        change = close / earlier(close, 1, np.nan)
        made = {
            "returns": change - 1.0,
            "log_returns": np.log(change),
            "range": arith_div(columns["high"] - columns["low"], close),
            "dollar_volume": close * columns["volume"],
        }
    return {**columns, **{name: finite_or_nan(panel) for name, panel in made.items()}}
