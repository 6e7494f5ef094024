// Daily prices from a CSV file.
//
// The first row names the columns, without regard to case and by the names that are usual for them
// (price_format.hpp).
//
//   long   date,symbol,open,high,low,close,volume    one row a day and instrument
//   one    date,open,high,low,close,volume           the same of one instrument, named by the file
//   wide   date,AAPL,IBM,...                         one row a day, one close a column
//   two    Close,Close,Open,... over AAPL,IBM,AAPL,...  the same with a row of fields and one of
//                                                    symbols
//
// Cells are separated by commas, semicolons or tabs; numbers have a decimal point or comma; the
// text is UTF-8 or, with its mark, UTF-16, and may be packed by gzip (plain_text.hpp). What can be
// read in two ways is refused with what settles it.
//
// - A file with a column `symbol` is long. It needs `date`, `symbol` and `close`; `open`, `high`,
//   `low` and `volume` may be left out, and `vwap` (the volume-weighted price of the day) and `cap`
//   (the market capitalisation) may be added, as may the names that instruments are grouped by:
//   `sector`, `industry`, `subindustry`, `country`. The columns may stand in any order, the rows
//   too.
// - So does a file with a close or with two of the others, which is of one instrument.
// - Every other file is wide: it needs `date`, which may have no name, and every other column is an
//   instrument.
// - An adjusted close that is said to be the close scales open, high and low of its day by adjusted
//   over raw close, and the volume by the opposite.
// - A column of another name in a long file is refused, not skipped: a misspelt "volum", or an
//   adjusted close beside the raw one, is a question that only its owner can answer. Dividends,
//   splits and open interest are left out.
// - An empty cell is a gap and becomes NaN, as do NaN, NA, null and None, and a day on which a long
//   file has no row for an instrument. A day of which nothing is known, but which has a row, stays
//   a day of the history.
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
#include "hosts/embedded/market/plain_text.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/market/price_format.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// The prices in the file at `path`. `check` is called several times a second, here and below; what
// it throws ends the reading.
[[nodiscard]] MarketData read_price_file(const std::filesystem::path& path,
                                         const PriceFormat& format = {},
                                         const InterruptCheck& check = {});

// The bytes of that file, for callers that need more than the prices. PriceFileError when they
// cannot be read.
[[nodiscard]] std::string read_price_bytes(const std::filesystem::path& path,
                                           const InterruptCheck& check = {});

// The prices in the bytes of a file, with `name` as its name: in messages, and of an instrument
// that has no other.
[[nodiscard]] MarketData read_price_text(std::string_view bytes, const std::string& name,
                                         const PriceFormat& format = {},
                                         const InterruptCheck& check = {});

}  // namespace varnholt::embedded
