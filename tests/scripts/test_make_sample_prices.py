"""The sample price files: what they hold, and that a source that is not as it should be is refused.

The first tests make the real file from the installed package and check it row by row against the
package's own rows. The others change one thing in a copy of the source and expect the error that
names it. The last ones do the same for the universe of twenty companies.
"""

from __future__ import annotations

import csv
import gzip
import hashlib
import importlib.util
import sys
from collections.abc import Callable
from pathlib import Path

import pytest

SCRIPT = Path(__file__).parents[2] / "scripts" / "make_sample_prices.py"
Row = dict[str, str]


def load_script():
    loader = importlib.util.spec_from_file_location("make_sample_prices", SCRIPT)
    assert loader is not None and loader.loader is not None
    module = importlib.util.module_from_spec(loader)
    sys.modules[loader.name] = module
    loader.loader.exec_module(module)
    return module


script = load_script()


def source_rows() -> list[Row]:
    with gzip.open(script.installed_source(), "rt", encoding="utf-8", newline="") as lines:
        return [row for row in csv.DictReader(lines) if row["Ticker"] in script.EXPECTED]


@pytest.fixture(scope="module")
def prices(tmp_path_factory: pytest.TempPathFactory) -> list[Row]:
    target = tmp_path_factory.mktemp("sample") / "deeper" / "prices.csv"
    assert script.main([str(target)]) == 0
    assert [path.name for path in target.parent.iterdir()] == ["prices.csv"]
    with target.open(encoding="utf-8", newline="") as lines:
        return list(csv.DictReader(lines))


def test_columns_order_and_extent(prices: list[Row]) -> None:
    assert list(prices[0]) == ["date", "symbol", "open", "high", "low", "close", "volume"]
    keys = [(row["date"], row["symbol"]) for row in prices]
    assert keys == sorted(set(keys))
    assert len(keys) == 3 * 3270 + 2148
    assert {symbol for _, symbol in keys} == {"AAPL", "GOOG", "IBM", "MSFT"}
    assert (keys[0], keys[-1]) == (("2000-03-01", "AAPL"), ("2013-03-01", "MSFT"))
    assert min(date for date, symbol in keys if symbol == "GOOG") == "2004-08-19"


def test_every_bar_is_a_bar(prices: list[Row]) -> None:
    for row in prices:
        open_, high, low, close = (float(row[name]) for name in ("open", "high", "low", "close"))
        assert 0.0 < low <= min(open_, close) <= max(open_, close) <= high, row
        assert int(row["volume"]) > 0, row


def test_adjustment_keeps_ratios_within_a_day_and_the_money_traded(prices: list[Row]) -> None:
    source = {(row["Date"], row["Ticker"]): row for row in source_rows()}
    assert len(source) == len(prices)
    for row in prices:
        raw = source[row["date"], row["symbol"]]
        factor = float(raw["Adj Close"]) / float(raw["Close"])
        assert float(row["close"]) == pytest.approx(float(raw["Adj Close"]), abs=5.1e-7)
        for name in ("open", "high", "low"):
            expected = float(raw[name.capitalize()]) * factor
            assert float(row[name]) == pytest.approx(expected, abs=5.1e-7), row
        money = float(raw["Close"]) * int(raw["Volume"])
        assert float(row["close"]) * int(row["volume"]) == pytest.approx(money, rel=1e-5), row


def test_splits_leave_no_jump(prices: list[Row]) -> None:
    """Two-for-one splits that the raw prices show as losses of one half."""
    closes = {(row["date"], row["symbol"]): float(row["close"]) for row in prices}
    raw = {(row["Date"], row["Ticker"]): float(row["Close"]) for row in source_rows()}
    for symbol, before, after in (
        ("AAPL", "2000-06-20", "2000-06-21"),
        ("AAPL", "2005-02-25", "2005-02-28"),
        ("MSFT", "2003-02-14", "2003-02-18"),
    ):
        assert raw[after, symbol] / raw[before, symbol] < 0.6
        assert 0.9 < closes[after, symbol] / closes[before, symbol] < 1.15


def write_source(path: Path, rows: list[Row], columns: list[str] | None = None) -> None:
    with gzip.open(path, "wt", encoding="utf-8", newline="") as lines:
        writer = csv.writer(lines)
        writer.writerow(columns or script.SOURCE_COLUMNS)
        writer.writerows(row.values() for row in rows)


def set_cell(rows: list[Row], index: int, name: str, value: str) -> None:
    rows[index][name] = value


@pytest.mark.parametrize(
    ("change", "message"),
    [
        (lambda rows: rows.pop(), "MSFT has 3269 rows on 3269 days, not 3270"),
        (lambda rows: rows.append(dict(rows[-1])), "MSFT has 3271 rows on 3270 days, not 3270"),
        (lambda rows: set_cell(rows, 0, "Date", "2000-02-29"), "AAPL runs from 2000-02-29"),
        (lambda rows: set_cell(rows, 4, "Low", "0"), "line 6: a price is not positive"),
        (lambda rows: set_cell(rows, 4, "Open", "nan"), "line 6: a price is not positive"),
        (lambda rows: set_cell(rows, 4, "High", "0.01"), "line 6: the high is below"),
        (lambda rows: set_cell(rows, 4, "Low", "9999"), "line 6: the low is above"),
        (lambda rows: set_cell(rows, 4, "Volume", "0"), "line 6: the volume is not positive"),
        (lambda rows: set_cell(rows, 4, "Close", "much"), "line 6: could not convert"),
        (lambda rows: set_cell(rows, 4, "Adj Close", "-1"), "line 6: the adjusted close is not"),
    ],
)
def test_a_wrong_source_is_refused(
    tmp_path: Path,
    capsys: pytest.CaptureFixture[str],
    change: Callable[[list[Row]], object],
    message: str,
) -> None:
    rows = source_rows()
    change(rows)
    write_source(tmp_path / "source.gz", rows)
    target = tmp_path / "prices.csv"
    assert script.main([str(target), "--source", str(tmp_path / "source.gz")]) == 1
    assert message in capsys.readouterr().err
    assert not target.exists()


def test_other_columns_are_refused(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    write_source(tmp_path / "source.gz", [], ["Date", "Open"])
    target = tmp_path / "prices.csv"
    assert script.main([str(target), "--source", str(tmp_path / "source.gz")]) == 1
    assert "line 1: the columns are ['Date', 'Open']" in capsys.readouterr().err


def test_a_missing_or_damaged_source_is_an_error_not_a_traceback(
    tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    target = tmp_path / "prices.csv"
    assert script.main([str(target), "--source", str(tmp_path / "none.gz")]) == 1
    assert "none.gz" in capsys.readouterr().err
    whole = script.installed_source().read_bytes()
    (tmp_path / "half.gz").write_bytes(whole[: len(whole) // 2])
    assert script.main([str(target), "--source", str(tmp_path / "half.gz")]) == 1
    assert "end-of-stream" in capsys.readouterr().err
    assert not target.exists()


def test_a_missing_package_is_named(
    monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str], tmp_path: Path
) -> None:
    monkeypatch.setattr(script, "PACKAGE", "no_such_package_here")
    assert script.main([str(tmp_path / "prices.csv")]) == 1
    assert "no_such_package_here is not installed" in capsys.readouterr().err


@pytest.fixture(scope="module")
def closes(tmp_path_factory: pytest.TempPathFactory) -> list[Row]:
    target = tmp_path_factory.mktemp("sp20") / "deeper" / "sp20.csv"
    assert script.main([str(target), "--universe", "sp20"]) == 0
    assert [path.name for path in target.parent.iterdir()] == ["sp20.csv"]
    with target.open(encoding="utf-8", newline="") as lines:
        return list(csv.DictReader(lines))


def test_twenty_companies_have_a_close_on_every_day(closes: list[Row]) -> None:
    assert " ".join(closes[0]) == (
        "date AAPL AMD BAC BBY CVX GE HD JNJ JPM KO LLY MRK MSFT PEP PFE PG RRC UNH WMT XOM"
    )
    dates = [row["date"] for row in closes]
    assert dates == sorted(set(dates)) and len(dates) == 8313
    assert (dates[0], dates[-1]) == ("1990-01-02", "2022-12-28")
    assert set(list(closes[0].values())[1:]) == {"100.000000"}


def test_closes_keep_their_returns(closes: list[Row]) -> None:
    with gzip.open(script.installed_closes(), "rt", encoding="utf-8", newline="") as lines:
        source = list(csv.DictReader(lines))
    assert [row["Date"] for row in source] == [row["date"] for row in closes]
    for row, raw in zip(closes, source):
        for symbol in list(row)[1:]:
            expected = 100.0 * float(raw[symbol]) / float(source[0][symbol])
            assert float(row[symbol]) == pytest.approx(expected, abs=5.1e-7), (row["date"], symbol)


def test_closes_of_other_contents_are_refused(
    tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    whole = script.installed_closes().read_bytes()
    source, target = tmp_path / "source.gz", tmp_path / "sp20.csv"
    options = [str(target), "--universe", "sp20", "--source", str(source)]
    source.write_bytes(whole)
    assert script.main(options) == 0
    made = target.read_bytes()
    # One cent more on one day, packed as well as before.
    changed = gzip.decompress(whole).replace(b"1990-01-02,0.264", b"1990-01-02,0.274")
    source.write_bytes(gzip.compress(changed))
    assert script.main(options) == 1
    error = capsys.readouterr().err
    assert f"source.gz: the SHA-256 is {hashlib.sha256(source.read_bytes()).hexdigest()}" in error
    assert "requirements.txt pins the version of skfolio" in error
    assert target.read_bytes() == made and len(list(tmp_path.iterdir())) == 2


def test_missing_closes_are_named(
    monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str], tmp_path: Path
) -> None:
    monkeypatch.setattr(script, "CLOSES_PACKAGE", "no_such_package_here")
    assert script.main([str(tmp_path / "sp20.csv"), "--universe", "sp20"]) == 1
    error = capsys.readouterr().err
    assert "no_such_package_here is not installed" in error
    assert "scripts/setup.sh universes installs it" in error
    monkeypatch.undo()
    monkeypatch.setattr(script, "CLOSES_FILE", "skfolio/datasets/data/none.csv.gz")
    assert script.main([str(tmp_path / "sp20.csv"), "--universe", "sp20"]) == 1
    assert "has no file skfolio/datasets/data/none.csv.gz" in capsys.readouterr().err


def test_other_universes_are_refused(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    with pytest.raises(SystemExit):
        script.main([str(tmp_path / "prices.csv"), "--universe", "sp21"])
    assert "invalid choice: 'sp21'" in capsys.readouterr().err
