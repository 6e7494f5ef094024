// The commands with their options: one structure per command.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "apps/genetic_search/listed_signal.hpp"
#include "apps/genetic_search/names.hpp"  // IWYU pragma: export
#include "apps/genetic_search/run_config.hpp"
#include "hosts/embedded/market/calendar_date.hpp"
#include "hosts/embedded/market/price_format.hpp"
#include "hosts/embedded/market/price_source.hpp"
#include "hosts/embedded/search/search_options.hpp"

namespace varnholt::app {

inline constexpr const char* kDefaultDatabase = "genetic-search.db";
// How many of the best signals a run reports.
inline constexpr int kDefaultBestCount = 5;

// "run": a search, and how it is reported. The configuration of `search` is made when the run
// begins (run_config.hpp), because reading the command line reads no file.
struct RunCommand {
  embedded::SearchOptions search;
  std::optional<std::filesystem::path> config_file;
  ConfigOverrides overrides;
  std::optional<std::int64_t> worker_memory_mebibytes;
  bool json = false;
  bool quiet = false;
};

// "check-prices": what a price file holds.
struct CheckPricesCommand {
  embedded::PriceSource prices;
  embedded::PriceFormat price_format;
  std::size_t list_limit = 20;  // Findings of each kind that are listed.
  bool json = false;
};

// "signals": what was submitted.
struct SignalsCommand {
  std::filesystem::path database;
  std::optional<std::int64_t> run;
  std::optional<std::string> pool;
  bool all = false;  // Refused and waiting submissions too.
  // The figure that they are sorted by, the best first; absent is the order of submission.
  std::optional<std::string> sort;
  // How many are listed: the best, or the latest where they are not sorted.
  std::optional<std::int64_t> limit;
  FigureBounds bounds;
  bool json = false;
};

// "show": one evaluation.
struct ShowCommand {
  std::filesystem::path database;
  std::string eval_id;
  bool json = false;
};

// "export": the daily weights of one evaluation.
struct ExportCommand {
  std::filesystem::path database;
  std::string eval_id;
  std::filesystem::path weights;
  // Absent is what is stored with the run.
  std::optional<embedded::PriceSource> prices;
  bool force = false;  // Whether `weights` is replaced when it is there.
};

// "weights": the weights of stored signals on other prices than those of their run.
struct WeightsCommand {
  std::filesystem::path database;
  // One of the two: an evaluation, or all that were submitted to a signal pool.
  std::string eval_id;
  std::optional<std::string> pool;
  embedded::PriceSource prices;
  embedded::PriceFormat price_format;
  std::optional<embedded::Date> since;  // The first day that is written.
  std::optional<std::int64_t> last;     // How many days are written, the latest.
  std::filesystem::path output = "-";   // "-" is standard output.
  bool force = false;                   // Whether `output` is replaced when it is there.
};

// "portfolio": the signals of a pool as one book.
struct PortfolioCommand {
  std::filesystem::path database;
  std::string pool;
  std::optional<std::string> method;  // A name of book_methods(); absent is the first.
  // Absent is the price file of the latest run.
  std::optional<embedded::PriceSource> prices;
  embedded::PriceFormat price_format;
  std::optional<std::filesystem::path> output;  // For the weights; "-" is standard output.
  bool force = false;                           // Whether `output` is replaced when it is there.
  bool json = false;
};

// "eval": what formulas would have earned.
struct EvalCommand {
  std::vector<std::string> formulas;
  std::optional<std::filesystem::path> file;  // More of them; "-" is standard input.
  // The prices and how signals are traded; the rest of it is not used.
  embedded::SearchOptions search;
  std::optional<std::filesystem::path> config_file;
  ConfigOverrides overrides;
  std::optional<std::filesystem::path> database;  // With the pool that they are compared with.
  std::optional<std::filesystem::path> values;    // Files for what the formulas give.
  std::optional<std::filesystem::path> weights;
  bool force = false;  // Whether these files are replaced when they are there.
  bool json = false;
};

// "doctor": whether this machine can search.
struct DoctorCommand {};

// "attempts": what became of each candidate that reached its backtest.
struct AttemptsCommand {
  std::filesystem::path database;
  std::optional<std::int64_t> run;
  std::optional<std::string> disposition;
  std::optional<std::int64_t> limit;
  bool json = false;
};

// "replay": one attempt again.
struct ReplayCommand {
  std::filesystem::path database;
  std::int64_t attempt = 0;
  // Absent is what is stored with the run.
  std::optional<embedded::PriceSource> prices;
  bool json = false;
};

// A text to print: the help or the version.
struct ShowText {
  std::string text;
};

using Command = std::variant<RunCommand, CheckPricesCommand, SignalsCommand, ShowCommand,
                             ExportCommand, WeightsCommand, PortfolioCommand, EvalCommand,
                             DoctorCommand, AttemptsCommand, ReplayCommand, ShowText>;

}  // namespace varnholt::app
