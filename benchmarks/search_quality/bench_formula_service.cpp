// Judges formulas for searches of other libraries, so that these are backtested by the very
// evaluator, rules and gates of ours.
//
//   bench_formula_service planted EFFECT SEED
//   bench_formula_service prices FILE
//
// The market is that of bench_search_quality or bench_real_prices. The first line that is written
// tells what formulas are made of, and how the market and the oracle do; then each line that is
// read is answered by one of JSON:
//
//   judge FORMULA         the figures in sample, by the days of the search alone; `signal` is a
//                         digest of the signal, `fitness` the Sharpe ratio less one for each gate
//                         that is missed beside those of the Sharpe ratios. The sign is as it is
//                         written: a search that wants the opposite has to write it
//   pnl                   the daily PnL in sample of the formula that was judged last
//   book FORMULA; ...     the Sharpe ratios of the mean of the formulas' weights
//
// A line that cannot be answered is answered by {"error": ...}.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "benchmarks/search_quality/market_judge.hpp"
#include "benchmarks/search_quality/planted_universe.hpp"
#include "benchmarks/search_quality/whole_program.hpp"
#include "hosts/embedded/backtest/out_of_sample.hpp"
#include "hosts/embedded/gates/gates.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "search_templates/genetic/value/json_text.hpp"

namespace varnholt::embedded::search_quality {
namespace {

using Eigen::ArrayXd;
using genetic::List;
using genetic::Mapping;
using genetic::Value;

// No search of another library is stopped by the size of its programs.
constexpr GraphLimits kLimits{.max_depth = 1'000, .max_nodes = 100'000};

struct History {
  MarketData data;
  JudgedDays days;
  BookRules rules;
  GateThresholds gates;
  std::optional<Panel> oracle;
};

History planted_history(const std::string& name, std::uint64_t seed) {
  const UniverseShape shape;
  const SearchOptions options;
  const BookRules rules = planted_rules(options);
  Universe universe = plant(effect_of(name), seed, shape, rules);
  const GateThresholds gates = gates_on_days(
      options.config.gates, static_cast<double>(shape.searched_days), rules.periods_per_year);
  return {std::move(universe.data), JudgedDays::of(shape), rules, gates,
          std::move(universe.oracle)};
}

History history_of_prices(const std::string& path) {
  SearchOptions options;
  options.prices = std::filesystem::path(path);
  RunData data(options);
  const JudgedDays days{data.plan.seen_days(), data.plan.holdout.day_count(), 0};
  return {std::move(data.whole), days, data.book, data.gates, {}};
}

// Every unknown value has the same bits here, as no reader can tell one from another.
std::string digest_of(Panel values) {
  values = values.isNaN().select(std::numeric_limits<double>::quiet_NaN(), values);
  const auto bytes = static_cast<std::size_t>(values.size()) * sizeof(double);
  return sha256_hex({reinterpret_cast<const char*>(values.data()), bytes}).substr(0, 32);
}

// The names of what fresh graphs draw without being told to.
Value drawn_features(const Vocabulary& vocabulary) {
  List names;
  for (const FeatureEntry& feature : vocabulary.features) {
    if (feature.weight > 0.0) names.append(Value(feature.name));
  }
  return Value(names);
}

// Of each function how many panels it takes, and whether a window follows them.
Value drawn_functions(const Vocabulary& vocabulary) {
  Mapping functions;
  for (const FunctionEntry& function : vocabulary.functions) {
    const auto panels = static_cast<std::int64_t>(function.data_children());
    const bool is_plain = function.child_count() == function.data_children();
    const bool is_windowed =
        function.needs_window() && function.child_count() == function.data_children() + 1;
    if (function.weight <= 0.0 || !(is_plain || is_windowed)) continue;
    functions.set(Value(std::string(function.name)),
                  Value(Mapping{{"panels", panels}, {"has_window", is_windowed}}));
  }
  return Value(functions);
}

Value drawn_windows(const Vocabulary& vocabulary) {
  List windows;
  for (const int window : vocabulary.windows)
    windows.append(Value(std::int64_t{window}));
  return Value(windows);
}

double missed_gates(const std::vector<GateFailure>& failures) {
  return static_cast<double>(
      std::count_if(failures.begin(), failures.end(), [](const GateFailure& failure) {
        const std::string_view metric = failure.metric.view();
        return metric != "sharpe" && metric != "gross_returns_sharpe";
      }));
}

class Service {
 public:
  explicit Service(History history)
      : gates_(history.gates),
        searched_(history.data.first_days(history.days.searched),
                  {.book = history.rules, .limits = kLimits}),
        has_later_days_(history.days.later > 0),
        judge_(std::move(history.data), history.days, {.book = history.rules, .limits = kLimits}),
        oracle_(std::move(history.oracle)) {
    if (oracle_) oracle_pnl_ = judge_.searched(*oracle_).net_returns;
  }

  [[nodiscard]] Mapping greeting() const {
    const Vocabulary& vocabulary = searched_.vocabulary();
    const Panel market = equal_weights(judge_.evaluator().close());
    Mapping told{{"features", drawn_features(vocabulary)},
                 {"functions", drawn_functions(vocabulary)},
                 {"windows", drawn_windows(vocabulary)},
                 {"market", Value(sharpes(market))}};
    if (oracle_) told.set(Value("oracle"), Value(sharpes(*oracle_)));
    return told;
  }

  [[nodiscard]] Mapping answer(std::string_view line) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    const std::string_view what = line.substr(0, blank);
    const std::string_view rest = line.substr(std::min(blank + 1, line.size()));
    if (what == "judge") return judged(rest);
    if (what == "pnl") return {{"pnl", pnl()}};
    if (what == "book") return sharpes(mean_weights(rest));
    throw std::invalid_argument(std::string(what) + " is not asked here; write judge, pnl or book");
  }

 private:
  Mapping judged(std::string_view formula) {
    const Panel signal = signal_of(searched_, formula);
    const BacktestResult tested =
        backtest_weights(searched_.weights(signal), searched_.close(), searched_.options().book);
    const std::vector<GateFailure> failures = failed_gates(tested.statistics, gates_);
    const double sharpe = tested.statistics.sharpe;
    pnl_ = tested.net_returns;
    Mapping told{{"signal", digest_of(signal)},
                 {"fitness", sharpe - missed_gates(failures)},
                 {"sharpe", sharpe},
                 {"turnover", tested.statistics.turnover},
                 {"passes", failures.empty()}};
    if (oracle_) told.set(Value("oracle_likeness"), Value(pearson_correlation(pnl_, oracle_pnl_)));
    return told;
  }

  [[nodiscard]] Value pnl() const {
    List days;
    for (const double day : pnl_)
      days.append(Value(day));
    return Value(days);
  }

  [[nodiscard]] static Panel signal_of(const Evaluator& evaluator, std::string_view formula) {
    return evaluator.signal(
        evaluator.compile(parse_formula(formula, evaluator.vocabulary(), kLimits)));
  }

  [[nodiscard]] Panel mean_weights(std::string_view formulas) const {
    Panel sum = Panel::Zero(judge_.data().day_count(), judge_.data().instrument_count());
    double count = 0.0;
    while (!formulas.empty()) {
      const std::size_t end = std::min(formulas.find(';'), formulas.size());
      sum += judge_.evaluator().weights(signal_of(judge_.evaluator(), formulas.substr(0, end)));
      formulas.remove_prefix(std::min(end + 1, formulas.size()));
      count += 1.0;
    }
    if (count == 0.0) throw std::invalid_argument("a book needs a formula");
    return sum / count;
  }

  [[nodiscard]] Mapping sharpes(const Panel& weights) const {
    const double later = has_later_days_ ? judge_.later(weights).statistics.sharpe : 0.0;
    return {{"sharpe", judge_.searched(weights).statistics.sharpe},
            {"holdout_sharpe", judge_.holdout(weights).statistics.sharpe},
            {"later_sharpe", later}};
  }

  GateThresholds gates_;
  Evaluator searched_;  // Knows nothing but the days of the search.
  bool has_later_days_;
  MarketJudge judge_;
  std::optional<Panel> oracle_;
  ArrayXd oracle_pnl_;
  ArrayXd pnl_;
};

void tell(const Mapping& told) {
  std::puts(genetic::json_text(Value(told)).c_str());
  std::fflush(stdout);
}

int main_of(const std::vector<std::string>& arguments) {
  const bool is_planted = arguments.size() == 3 && arguments[0] == "planted";
  if (!is_planted && !(arguments.size() == 2 && arguments[0] == "prices")) {
    std::fputs(
        "usage: bench_formula_service planted EFFECT SEED\n"
        "       bench_formula_service prices FILE\n",
        stderr);
    return 2;
  }
  Service service(is_planted ? planted_history(arguments[1], std::stoull(arguments[2]))
                             : history_of_prices(arguments[1]));
  tell(service.greeting());
  for (std::string line; std::getline(std::cin, line);) {
    try {
      tell(service.answer(line));
    } catch (const std::exception& error) {
      tell({{"error", std::string(error.what())}});
    }
  }
  return 0;
}

}  // namespace
}  // namespace varnholt::embedded::search_quality

int main(int count, char** arguments) {
  namespace quality = varnholt::embedded::search_quality;
  return quality::run_program("bench_formula_service", quality::main_of, count, arguments);
}
