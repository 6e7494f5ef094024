#!/usr/bin/env python3
"""Makes a sample price file, of one of two universes.

"sample" is daily bars of AAPL, IBM, MSFT and GOOG, 2000-03-01 to 2013-03-01. They come from the
installed package bokeh_sampledata (BSD-3-Clause), which took them from the public-domain collection
"Quandl WIKI Prices". Open, high, low and close are there as traded, and beside them an adjusted
close. As traded, a two-for-one split looks like a loss of one half and each dividend like a small
loss; a search would learn those. So every price of a day is multiplied by the day's factor,
adjusted close / close, and returns are what a holder earned, dividends included. The volume is
divided by the same factor and rounded to whole shares, so that price times volume stays the money
that changed hands.

GOOG starts on 2004-08-19, so the sample has a real gap.

The result is one long CSV with the columns date, symbol, open, high, low, close, volume, ordered
by date and symbol, prices with six decimals.

"sp20" is the adjusted closes of twenty large US companies, 1990-01-02 to 2022-12-28, without gaps.
They come from one data file of the installed package skfolio (BSD-3-Clause), which gives them for
tests and examples only; nothing else of the package is used. The file is known by its SHA-256. The
level of an adjusted close knows all later splits and dividends: who grew most is the cheapest at
first, and a search that ranks prices would see the future. So each symbol's closes are divided by
its first one, times 100: its returns stay, and the level tells what was earned until then. The
result is a wide CSV with a column of closes for each symbol, with six decimals.
"""

from __future__ import annotations

import argparse
import csv
import gzip
import hashlib
import importlib.metadata
import io
import os
import sys
from dataclasses import dataclass
from pathlib import Path

PACKAGE = "bokeh_sampledata"
DATA_FILE = "bokeh_sampledata/_data/stocks.csv.gz"
SOURCE_COLUMNS = ["Ticker", "Date", "Open", "High", "Low", "Close", "Volume", "Adj Close"]
RESULT_COLUMNS = ["date", "symbol", "open", "high", "low", "close", "volume"]
LAST_DATE = "2013-03-01"

CLOSES_PACKAGE = "skfolio"
CLOSES_FILE = "skfolio/datasets/data/sp500_dataset.csv.gz"
CLOSES_SHA256 = "ee21cac28befb1d0a739a9ceb22184f995394726aa0cfde9a21941d1ac04ac0d"


@dataclass(frozen=True)
class Expected:
    """What the pinned package holds for one symbol."""

    first_date: str
    rows: int


EXPECTED = {
    "AAPL": Expected("2000-03-01", 3270),
    "GOOG": Expected("2004-08-19", 2148),
    "IBM": Expected("2000-03-01", 3270),
    "MSFT": Expected("2000-03-01", 3270),
}


class SampleError(Exception):
    """The source is missing or does not hold what it should."""


@dataclass(frozen=True)
class Bar:
    """One symbol's day; prices in dollars, volume in shares."""

    date: str
    symbol: str
    open: float
    high: float
    low: float
    close: float
    volume: int

    def problem(self) -> str | None:
        """What is wrong with the bar, or None."""
        if not all(0.0 < p < 1e6 for p in (self.open, self.high, self.low, self.close)):
            return "a price is not positive"
        if not self.low <= min(self.open, self.close):
            return "the low is above the open or the close"
        if not self.high >= max(self.open, self.close):
            return "the high is below the open or the close"
        if self.volume <= 0:
            return "the volume is not positive"
        return None


def installed_file(name: str, file: str, section: str) -> Path:
    """The data file inside the installed package. The package itself is not imported: it would
    ask for libraries that nothing here needs."""
    try:
        package = importlib.metadata.distribution(name)
    except importlib.metadata.PackageNotFoundError:
        raise SampleError(
            f"the Python package {name} is not installed for {sys.executable}; "
            f"scripts/setup.sh {section} installs it into build/venv"
        ) from None
    path = Path(str(package.locate_file(file)))
    if not path.is_file():
        raise SampleError(
            f"{name} {package.version} has no file {file}; requirements.txt pins the "
            "version that has"
        )
    return path


def installed_source() -> Path:
    return installed_file(PACKAGE, DATA_FILE, "run")


def installed_closes() -> Path:
    return installed_file(CLOSES_PACKAGE, CLOSES_FILE, "universes")


def adjusted(bar: Bar, adjusted_close: float) -> Bar:
    """The bar with its prices multiplied, and its volume divided, by adjusted close / close."""

    def scale(price: float) -> float:
        return round(price * adjusted_close / bar.close, 6)

    return Bar(
        date=bar.date,
        symbol=bar.symbol,
        open=scale(bar.open),
        high=scale(bar.high),
        low=scale(bar.low),
        close=scale(bar.close),
        volume=round(bar.volume * bar.close / adjusted_close),
    )


def read_bars(source: Path) -> list[Bar]:
    """The adjusted bars of the four symbols, checked, ordered by date and symbol."""
    bars = []
    with gzip.open(source, "rt", encoding="utf-8", newline="") as lines:
        rows = csv.reader(lines)
        header = next(rows, [])
        if header != SOURCE_COLUMNS:
            raise SampleError(f"{source}, line 1: the columns are {header}, not {SOURCE_COLUMNS}")
        for row in rows:
            if not row or row[0] not in EXPECTED:
                continue
            place = f"{source}, line {rows.line_num}"
            try:
                symbol, date, open_, high, low, close, volume, adjusted_close = row
                bar = Bar(
                    date, symbol, float(open_), float(high), float(low), float(close), int(volume)
                )
                factor_price = float(adjusted_close)
            except ValueError as error:
                raise SampleError(f"{place}: {error}: {row}") from None
            if not 0.0 < factor_price < 1e6:
                raise SampleError(f"{place}: the adjusted close is not positive: {row}")
            for checked in (bar, result := adjusted(bar, factor_price)):
                if problem := checked.problem():
                    raise SampleError(f"{place}: {problem}: {row}")
            bars.append(result)
    bars.sort(key=lambda bar: (bar.date, bar.symbol))
    return bars


def check_extent(bars: list[Bar], source: Path) -> None:
    """Every symbol has the days that it should have, each once."""
    for symbol, expected in EXPECTED.items():
        dates = [bar.date for bar in bars if bar.symbol == symbol]
        if len(dates) != expected.rows or len(set(dates)) != expected.rows:
            raise SampleError(
                f"{source}: {symbol} has {len(dates)} rows on {len(set(dates))} days, "
                f"not {expected.rows}"
            )
        if (dates[0], dates[-1]) != (expected.first_date, LAST_DATE):
            raise SampleError(
                f"{source}: {symbol} runs from {dates[0]} to {dates[-1]}, "
                f"not from {expected.first_date} to {LAST_DATE}"
            )


def text_of_bars(bars: list[Bar]) -> str:
    text = io.StringIO()
    rows = csv.writer(text, lineterminator="\n")
    rows.writerow(RESULT_COLUMNS)
    for bar in bars:
        prices = [f"{price:.6f}" for price in (bar.open, bar.high, bar.low, bar.close)]
        rows.writerow([bar.date, bar.symbol, *prices, bar.volume])
    return text.getvalue()


def text_of_closes(header: list[str], days: list[tuple[str, list[float]]]) -> str:
    text = io.StringIO()
    rows = csv.writer(text, lineterminator="\n")
    rows.writerow(["date", *header[1:]])
    _, first = days[0]
    for date, closes in days:
        rows.writerow([date, *(f"{100.0 * c / f:.6f}" for c, f in zip(closes, first))])
    return text.getvalue()


def sample_text(source: Path | None) -> str:
    source = source or installed_source()
    bars = read_bars(source)
    check_extent(bars, source)
    return text_of_bars(bars)


def closes_text(source: Path | None) -> str:
    source = source or installed_closes()
    packed = source.read_bytes()
    found = hashlib.sha256(packed).hexdigest()
    if found != CLOSES_SHA256:
        raise SampleError(
            f"{source}: the SHA-256 is {found}, not {CLOSES_SHA256}; requirements.txt pins the "
            f"version of {CLOSES_PACKAGE} that has the file"
        )
    rows = csv.reader(io.StringIO(gzip.decompress(packed).decode("utf-8")))
    return text_of_closes(next(rows), [(date, list(map(float, row))) for date, *row in rows])


UNIVERSES = {"sample": sample_text, "sp20": closes_text}


def write_prices(text: str, target: Path) -> None:
    """Writes the file beside its place first, so that no half-written one is ever found there."""
    target.parent.mkdir(parents=True, exist_ok=True)
    draft = target.with_name(f"{target.name}.{os.getpid()}.part")
    draft.write_text(text, encoding="utf-8", newline="")
    os.replace(draft, target)


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(description="Make a sample price file.")
    parser.add_argument("target", type=Path, help="the CSV to write")
    parser.add_argument("--universe", choices=UNIVERSES, default="sample", help="default: sample")
    parser.add_argument("--source", type=Path, help="read this file, not the installed package's")
    options = parser.parse_args(arguments)
    try:
        write_prices(UNIVERSES[options.universe](options.source), options.target)
    except (SampleError, OSError, EOFError) as error:
        print(f"make_sample_prices: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
