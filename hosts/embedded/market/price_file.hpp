// Daily prices from a CSV file.
//
// The first row names the columns; names of the long form are read without regard to case.
//
//   long   date,symbol,open,high,low,close,volume    one row a day and instrument
//   wide   date,AAPL,IBM,...                         one row a day, one close a column
//
// - A file with a column `symbol` is long. It needs `date`, `symbol` and `close`; `open`, `high`,
//   `low` and `volume` may be left out, and `vwap` (the volume-weighted price of the day) and `cap`
//   (the market capitalisation) may be added, as may the names that instruments are grouped by:
//   `sector`, `industry`, `subindustry`, `country`. The columns may stand in any order, the rows
//   too.
// - Every other file is wide: it needs `date`, and every other column is an instrument.
// - A column of another name in a long file is refused, not skipped: a misspelt "volum", or an
//   adjusted close beside the raw one, is a question that only its owner can answer.
// - An empty cell is a gap and becomes NaN, as does a day on which a long file has no row for an
//   instrument. A day of which nothing is known, but which has a row, stays a day of the history.
// - Prices are above zero, volumes are not negative, and no high is below the low of its day.
// - Blank lines are skipped. Blanks around a cell do not count.
//
// A mistake in the header ends the reading with a PriceFileError; those in the rows are told all at
// once, twenty at most. Nothing from the file is used then.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// The prices in the file at `path`. `check` is called several times a second, here and below; what
// it throws ends the reading.
[[nodiscard]] MarketData read_price_file(const std::filesystem::path& path,
                                         const InterruptCheck& check = {});

// The largest price file that is read: 4 GiB, more than the cells that a search can hold.
inline constexpr std::size_t kLargestPriceBytes = std::size_t{4} << 30U;

// The bytes of that file, for callers that need more than the prices. PriceFileError when they
// cannot be read.
[[nodiscard]] std::string read_price_bytes(const std::filesystem::path& path,
                                           const InterruptCheck& check = {});

// The prices in `text`, with `name` as the name of the file in messages.
[[nodiscard]] MarketData read_price_text(std::string_view text, const std::string& name,
                                         const InterruptCheck& check = {});

}  // namespace varnholt::embedded
