#include "benchmarks/search_quality/search_arms.hpp"

#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>

#include "hosts/embedded/backtest/book_rules.hpp"

namespace varnholt::embedded::search_quality {
namespace {

// A search that differs from the default one in what is looked at.
struct Arm {
  std::string_view name;
  void (*change)(SearchOptions& options);
};
// The first batch is drawn and never bred.
void only_draw(SearchOptions& options) {
  options.batch_size = *options.candidates;
  options.max_improvement_candidates = 0;
}

constexpr auto kArms = std::to_array<Arm>({
    {"ours", [](SearchOptions& /*options*/) {}},
    {"fresh", only_draw},
    {"random",
     [](SearchOptions& options) {
       only_draw(options);
       options.has_no_known_formulas = true;
       options.has_no_simple_forms = true;
     }},
    {"no-archive", [](SearchOptions& options) { options.has_no_archive = true; }},
    {"no-known", [](SearchOptions& options) { options.has_no_known_formulas = true; }},
    {"no-simple", [](SearchOptions& options) { options.has_no_simple_forms = true; }},
    {"as-written", [](SearchOptions& options) { options.is_as_written = true; }},
    {"mixed-units", [](SearchOptions& options) { options.config.vocabulary.units = false; }},
});

template <typename Rows>
std::string names_of(const Rows& rows) {
  std::string names;
  for (const auto& row : rows)
    names += (names.empty() ? "" : "|") + std::string(row.name);
  return names;
}

genetic::Value whole(double value) {
  return static_cast<std::int64_t>(value);
}

// What can be set beside an arm: "ours+batch_size=256+repairs=0".
struct Setting {
  std::string_view name;
  void (*set)(SearchOptions& options, double value);
};
constexpr auto kSettings = std::to_array<Setting>({
    {"batch_size", [](SearchOptions& options, double value) { options.batch_size = whole(value); }},
    {"deflated_sharpe_min",
     [](SearchOptions& options, double value) { options.config.pool.deflated_sharpe_min = value; }},
    {"elite_fraction",
     [](SearchOptions& options, double value) { options.elite_fraction = value; }},
    {"repairs", [](SearchOptions& options,
                   double value) { options.max_improvement_candidates = whole(value); }},
    {"replaces_weaker", [](SearchOptions& options,
                           double value) { options.config.pool.replaces_weaker = value != 0.0; }},
    {"restart_threshold",
     [](SearchOptions& options, double value) { options.restart_threshold = whole(value); }},
    {"sharpe_min",
     [](SearchOptions& options, double value) { options.config.gates.min_sharpe = value; }},
    {"turnover_max",
     [](SearchOptions& options, double value) { options.config.gates.max_turnover = value; }},
});

// The row of that name, or a complaint that names the others.
template <typename Row, std::size_t Count>
const Row& row_of(const std::array<Row, Count>& rows, std::string_view what,
                  std::string_view name) {
  const auto row =
      std::find_if(rows.begin(), rows.end(), [&](const Row& one) { return one.name == name; });
  if (row != rows.end()) return *row;
  throw std::invalid_argument(
      fmt::format("there is no {} {}, only {}", what, name, names_of(rows)));
}

void change(SearchOptions& options, const std::string& setting) {
  const std::size_t equals = setting.find('=');
  if (equals == std::string::npos) {
    throw std::invalid_argument(setting + " is no setting; write NAME=NUMBER");
  }
  row_of(kSettings, "setting", setting.substr(0, equals))
      .set(options, std::stod(setting.substr(equals + 1)));
}

}  // namespace

SearchOptions options_of(const std::string& arm, std::int64_t backtests, std::uint64_t seed) {
  SearchOptions options;
  options.jobs = 1;
  options.seed = seed;
  options.candidates = backtests;
  options.periods_per_year = BookRules().periods_per_year;
  std::istringstream parts(arm);
  std::string part;
  std::getline(parts, part, '+');
  row_of(kArms, "arm", part).change(options);
  while (std::getline(parts, part, '+'))
    change(options, part);
  return options;
}

std::string arm_names() {
  return names_of(kArms);
}

std::string setting_names() {
  return names_of(kSettings);
}

}  // namespace varnholt::embedded::search_quality
