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
//   (the market capitalisation) may be added. The columns may stand in any order, the rows too.
// - So does a file with a close or with two of the others, which is of one instrument.
// - Every other file is wide: it needs `date`, which may have no name, and every other column is an
//   instrument.
// - An adjusted close that is said to be the close scales open, high and low of its day by adjusted
//   over raw close, and the volume by the opposite.
// - Other columns of a long file are its owner's own (own_columns.hpp): numbers, or the names that
//   instruments are grouped by. Dividends, splits and open interest are left out. A misspelt
//   "volum", or an adjusted close beside the raw one, is a question that only its owner can answer.
// - An empty cell is a gap and becomes NaN, as do NaN, NA, null and None, and a day on which a long
//   file has no row for an instrument. A day of which nothing is known, but which has a row, stays
//   a day of the history.
// - Prices are above zero, volumes are not negative, and no high is below the low of its day.
// - Blank lines are skipped. Blanks around a cell do not count.
//
// A mistake in the header ends the reading of its file; those in the rows are told all at once.
//
// Prices may stand in several files, each of a shape of its own: an instrument a file, a year a
// file. No day of an instrument may stand in two of them. The mistakes of all files are told
// together, twenty at most, and nothing is used then.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/market/plain_text.hpp"
#include "hosts/embedded/market/price_file_error.hpp"
#include "hosts/embedded/market/price_format.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "hosts/embedded/market/price_table.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// Prices with what tells them from all others: of one file the SHA-256 of its bytes, in
// hexadecimal; of several that of their digests and names, in whatever order they are named and
// wherever they stand.
struct PricesRead {
  MarketData data;
  std::string digest;
};

// Other prices than those that were expected.
class OtherPrices : public std::runtime_error {
 public:
  explicit OtherPrices(std::string digest);

  // Of the prices that are there.
  [[nodiscard]] const std::string& digest() const noexcept { return digest_; }

 private:
  std::string digest_;
};

// The prices of all files of the source. Each file is read once, so that the digest is that of
// exactly the bytes that are used. Where a digest is expected and the files have another,
// OtherPrices is thrown, whatever else is wrong with them. `check` is called several times a
// second, here and below; what it throws ends the reading.
[[nodiscard]] PricesRead read_prices(const PriceSource& source, const PriceFormat& format = {},
                                     const InterruptCheck& check = {},
                                     const std::string& expected_digest = {});

// The same without the digest.
[[nodiscard]] MarketData read_price_file(const PriceSource& source, const PriceFormat& format = {},
                                         const InterruptCheck& check = {});

// What one file of several holds, by its bytes and its name; see merged_tables.
[[nodiscard]] PriceTable read_price_table(std::string bytes, const std::string& name,
                                          const PriceFormat& format = {},
                                          const InterruptCheck& check = {});

}  // namespace varnholt::embedded
