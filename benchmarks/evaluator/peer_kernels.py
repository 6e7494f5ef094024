"""Functions of the vocabulary as bottleneck, pandas, polars and numba have them.

A peer keeps its own habits: it also answers where today is not known or a history has only begun,
and running sums drift. Where it has no such function, it has no entry here.
"""

from __future__ import annotations

import math
from collections.abc import Callable

import bottleneck
import numba
import numpy as np
import pandas
import polars

Panel = np.ndarray
Kernel = Callable[..., Panel]
LEAST_KNOWN_SHARE = 0.8


def least_known(window: int) -> int:
    return max(1, math.ceil(LEAST_KNOWN_SHARE * window - 1e-9))


def moved(function: Callable[..., Panel], **options: int) -> Kernel:
    return lambda x, n: function(x, window=n, min_count=least_known(n), axis=0, **options)


def bottleneck_rank(x: Panel) -> Panel:
    known = (~np.isnan(x)).sum(axis=1, keepdims=True)
    with np.errstate(all="ignore"):
        return (bottleneck.nanrankdata(x, axis=1) - 1) / (known - 1)


BOTTLENECK: dict[str, Kernel] = {
    "cross_rank": bottleneck_rank,
    "ts_sum": moved(bottleneck.move_sum),
    "ts_mean": moved(bottleneck.move_mean),
    "ts_std": moved(bottleneck.move_std, ddof=1),
    "ts_min": moved(bottleneck.move_min),
    "ts_max": moved(bottleneck.move_max),
    "ts_rank": lambda x, n: (moved(bottleneck.move_rank)(x, n) + 1) / 2,
}


def rolled(name: str) -> Kernel:
    def kernel(x: Panel, n: int) -> Panel:
        rolling = pandas.DataFrame(x, copy=False).rolling(n, min_periods=least_known(n))
        return getattr(rolling, name)().to_numpy()

    return kernel


def pandas_zscore(x: Panel) -> Panel:
    frame = pandas.DataFrame(x, copy=False)
    return frame.sub(frame.mean(axis=1), axis=0).div(frame.std(axis=1), axis=0).to_numpy()


PANDAS: dict[str, Kernel] = {
    "cross_rank": lambda x: pandas.DataFrame(x, copy=False).rank(axis=1).to_numpy(),
    "cross_zscore": pandas_zscore,
    **{f"ts_{name}": rolled(name) for name in ("sum", "mean", "std", "min", "max")},
    "ts_delta": lambda x, n: pandas.DataFrame(x, copy=False).diff(n).to_numpy(),
}
# The rank of pandas counts from 1; that costs no more, so it is not divided here.


def rolled_by_column(name: str) -> Kernel:
    def kernel(x: Panel, n: int) -> Panel:
        frame = polars.DataFrame(x, schema=[str(i) for i in range(x.shape[1])])
        column = polars.all().fill_nan(None)
        rolling = getattr(column, f"rolling_{name}")(n, min_samples=least_known(n))
        return frame.select(rolling.fill_null(float("nan"))).to_numpy()

    return kernel


POLARS: dict[str, Kernel] = {
    f"ts_{name}": rolled_by_column(name) for name in ("sum", "mean", "std", "min", "max")
}

compiled = numba.njit(cache=False)


@compiled
def numba_moments(x, n, least, kind):
    """Running sums: 0 gives the mean, 1 the sum, 2 the deviation, 3 the z-score."""
    days, columns = x.shape
    result = np.full((columns, days), np.nan).T
    for column in range(columns):
        count, mean, squares, total = 0, 0.0, 0.0, 0.0
        for day in range(days):
            value = x[day, column]
            if value == value:
                count += 1
                total += value
                step = value - mean
                mean += step / count
                squares += step * (value - mean)
            gone = x[day - n, column] if day >= n else np.nan
            if gone == gone:
                count -= 1
                total -= gone
                if count > 0:
                    step = gone - mean
                    mean -= step / count
                    squares -= step * (gone - mean)
                else:
                    mean, squares = 0.0, 0.0
            if count < least or value != value or day < n - 1:
                continue
            if kind == 0:
                result[day, column] = total / count
            elif kind == 1:
                result[day, column] = total
            else:
                spread = np.sqrt(max(squares, 0.0) / (count - 1)) if count > 1 else np.nan
                if kind == 2:
                    result[day, column] = spread
                elif spread > 0.0:
                    result[day, column] = (value - mean) / spread
    return result


@compiled
def numba_pair(x, y, n, least, scaled):
    """Running sums of products: the covariance, or the correlation."""
    days, columns = x.shape
    result = np.full((columns, days), np.nan).T
    for column in range(columns):
        count, sx, sy, sxx, syy, sxy = 0, 0.0, 0.0, 0.0, 0.0, 0.0
        for day in range(days):
            a, b = x[day, column], y[day, column]
            known = a == a and b == b
            if known:
                count += 1
                sx, sy = sx + a, sy + b
                sxx, syy, sxy = sxx + a * a, syy + b * b, sxy + a * b
            if day >= n:
                c, d = x[day - n, column], y[day - n, column]
                if c == c and d == d:
                    count -= 1
                    sx, sy = sx - c, sy - d
                    sxx, syy, sxy = sxx - c * c, syy - d * d, sxy - c * d
            if not known or count < least or count < 2 or day < n - 1:
                continue
            products = sxy - sx * sy / count
            if scaled:
                spreads = (sxx - sx * sx / count) * (syy - sy * sy / count)
                if spreads > 0.0:
                    result[day, column] = products / np.sqrt(spreads)
            else:
                result[day, column] = products / (count - 1)
    return result


@compiled
def numba_extreme(x, n, least, sign):
    """The least or the greatest, by a queue of what may still become it."""
    days, columns = x.shape
    result = np.full((columns, days), np.nan).T
    queue = np.empty(days, np.int64)
    for column in range(columns):
        first, end, count = 0, 0, 0
        for day in range(days):
            value = sign * x[day, column]
            if value == value:
                count += 1
                while end > first and sign * x[queue[end - 1], column] <= value:
                    end -= 1
                queue[end] = day
                end += 1
            if day >= n and x[day - n, column] == x[day - n, column]:
                count -= 1
            if first < end and queue[first] <= day - n:
                first += 1
            if count >= least and value == value and day >= n - 1:
                result[day, column] = x[queue[first], column]
    return result


@compiled
def numba_rank(x, n, least):
    days, columns = x.shape
    result = np.full((columns, days), np.nan).T
    for column in range(columns):
        for day in range(n - 1, days):
            today = x[day, column]
            place, count = 0.0, 0
            for earlier in range(day - n + 1, day):
                other = x[earlier, column]
                place += 1.0 if other < today else (0.5 if other == today else 0.0)
                count += other == other
            if today == today and count + 1 >= least:
                result[day, column] = place / count if count > 0 else 0.5
    return result


@compiled
def numba_cross_rank(x):
    days, columns = x.shape
    result = np.full((columns, days), np.nan).T
    row = np.empty(columns)
    for day in range(days):
        for column in range(columns):
            row[column] = x[day, column]
        order = np.argsort(row)
        count = (row == row).sum()
        first = 0
        while first < count:
            last = first
            while last + 1 < count and row[order[last + 1]] == row[order[first]]:
                last += 1
            for i in range(first, last + 1):
                rank = (first + last) / 2 / (count - 1) if count > 1 else 0.5
                result[day, order[i]] = rank
            first = last + 1
    return result


NUMBA: dict[str, Kernel] = {
    "cross_rank": numba_cross_rank,
    "ts_mean": lambda x, n: numba_moments(x, n, least_known(n), 0),
    "ts_sum": lambda x, n: numba_moments(x, n, least_known(n), 1),
    "ts_std": lambda x, n: numba_moments(x, n, least_known(n), 2),
    "ts_zscore": lambda x, n: numba_moments(x, n, least_known(n), 3),
    "ts_min": lambda x, n: numba_extreme(x, n, least_known(n), -1.0),
    "ts_max": lambda x, n: numba_extreme(x, n, least_known(n), 1.0),
    "ts_rank": lambda x, n: numba_rank(x, n, least_known(n)),
    "ts_covariance": lambda x, y, n: numba_pair(x, y, n, least_known(n), False),
    "ts_correlation": lambda x, y, n: numba_pair(x, y, n, least_known(n), True),
}

PEERS = {"bottleneck": BOTTLENECK, "numba": NUMBA, "pandas": PANDAS, "polars": POLARS}
