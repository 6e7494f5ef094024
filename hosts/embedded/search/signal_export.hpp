// The weights of one stored signal on every day of its prices, as a file.
//
//   const MarketData data = read_run_prices(path, run);
//   const Panel weights = history_weights(data, evaluation.graph_json, book_rules_of(run));
//   write_weights(out, data, weights, Existing::IsKept);
//
// The row of a day is what the signal of its close wants to hold, which is traded as the rules of
// the run say (statistics.hpp). Because a signal knows nothing of later days, those of the days
// that the search saw are what it was judged by: a backtest of these rows gives back the recorded
// statistics.
#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "hosts/embedded/backtest/book_rules.hpp"
#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "hosts/embedded/store/store_records.hpp"
#include "hosts/embedded/system/interrupt.hpp"

namespace varnholt::embedded {

// An export that cannot be done as requested. The text names the file and the remedy; nothing was
// written.
class ExportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The prices in the files, which must be, byte for byte, those of the run: any other prices give
// other weights. ExportError for files that cannot be read or that are others; PriceFileError for
// those that hold no prices.
[[nodiscard]] MarketData read_run_prices(const PriceSource& source, const RunStart& run,
                                         const InterruptCheck& check = {});

// A row a day, a column an instrument, as those of `data`, by the rules of the run. Throws
// GraphError for a graph that is not valid on these prices, and genetic::ValueError for a text that
// is not JSON.
[[nodiscard]] Panel history_weights(const MarketData& data, std::string_view graph_json,
                                    const BookRules& rules);

enum class Existing { IsKept, IsReplaced };

// ExportError when write_weights would refuse to write there: to be called before the weights are
// computed.
void check_weights_path(const std::filesystem::path& path, Existing existing);

// The lines of such a file, each ended: the head "date,SYMBOL,...", and the row of a day with the
// fewest digits that give back the same doubles.
[[nodiscard]] std::string weights_head(const MarketData& data);
[[nodiscard]] std::string weights_row(const MarketData& data, const Panel& weights,
                                      Eigen::Index day);

// Writes what `fill` appends. The file is written beside its place and moved there when it is
// complete, so that nobody ever sees a part of it, and a file that is replaced stays until then.
// Throws ExportError as check_weights_path does, std::system_error when the file cannot be written,
// and what `fill` throws; then an earlier file is unchanged.
using Append = std::function<void(std::string_view)>;
void write_whole_file(const std::filesystem::path& path, Existing existing,
                      const std::function<void(const Append&)>& fill);

// Writes the weights of all days as such a file. Throws std::invalid_argument for weights of
// another shape than the prices, and as write_whole_file does.
void write_weights(const std::filesystem::path& path, const MarketData& data, const Panel& weights,
                   Existing existing);

}  // namespace varnholt::embedded
