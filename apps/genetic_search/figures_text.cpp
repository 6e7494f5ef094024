#include "apps/genetic_search/figures_text.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "hosts/embedded/host/figure_table.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::app {
namespace {

using genetic::Value;

constexpr std::size_t kNameWidth = 32;
constexpr std::size_t kFigureWidth = 12;
constexpr std::size_t kYearWidth = 11;
constexpr const char* kUnknown = "-";

Value entry(const Value& mapping, std::string_view name) {
  return mapping.is_mapping() ? mapping.mapping().get(Value(name)) : Value();
}

std::string number_text(const Value& value) {
  if (value.is_absent()) return kUnknown;
  if (value.is_real()) return fmt::format("{:.6g}", value.real());
  return on_one_line(genetic::str(value));
}

std::string right(const std::string& text, std::size_t width) {
  return padded(text, width, Align::Right);
}

std::string group_text(const embedded::FigureGroup& group, const StoredFigures& in_sample,
                       const StoredFigures& holdout, Width width) {
  std::string text;
  for (const auto& [name, unit] : group.figures) {
    const Value first = in_sample.figure(name);
    const Value second = holdout.figure(name);
    if (first.is_absent() && second.is_absent()) continue;
    const std::string line = "  " + padded(name, kNameWidth, Align::Left) +
                             right(number_text(first), kFigureWidth) +
                             right(number_text(second), kFigureWidth);
    const std::string with_unit = fmt::format("{}  {}", line, unit);
    const bool fits = !unit.empty() && (!width || column_count(with_unit) <= *width);
    text += (fits ? with_unit : line) + "\n";
  }
  if (text.empty()) return text;
  return padded(group.heading, kNameWidth + 2, Align::Left) + right("in sample", kFigureWidth) +
         right("hold-out", kFigureWidth) + "\n" + text;
}

std::vector<Value> items(const Value& list) {
  std::vector<Value> found;
  if (!list.is_list()) return found;
  genetic::ListCursor cursor(list.list());
  while (const auto item = cursor.next())
    found.push_back(*item);
  return found;
}

std::string lags_text(const StoredFigures& in_sample, const StoredFigures& holdout) {
  const std::vector<Value> first = items(in_sample.figure(embedded::kByLag));
  const std::vector<Value> second = items(holdout.figure(embedded::kByLag));
  std::string text;
  for (std::size_t lag = 0; lag < std::max(first.size(), second.size()); ++lag) {
    const auto at = [lag](const std::vector<Value>& of) {
      return lag < of.size() ? number_text(of[lag]) : std::string(kUnknown);
    };
    text += "  " + padded(fmt::format("{}", lag + 1), kNameWidth, Align::Left) +
            right(at(first), kFigureWidth) + right(at(second), kFigureWidth) + "\n";
  }
  if (text.empty()) return text;
  return padded("Information coefficient by lag", kNameWidth + 2, Align::Left) +
         right("in sample", kFigureWidth) + right("hold-out", kFigureWidth) + "\n" + text;
}

std::string percent(const Value& value) {
  const auto number = genetic::tolerant_float(value);
  return number ? fmt::format("{:.1f}", 100.0 * *number) : kUnknown;
}

std::string years_text(const StoredFigures& figures, std::string_view sample) {
  std::string text;
  for (const Value& year : items(figures.figure(embedded::kByYear))) {
    const auto digits = [&](std::string_view name, int count) {
      const auto number = genetic::tolerant_float(entry(year, name));
      return number ? fmt::format("{:.{}f}", *number, count) : std::string(kUnknown);
    };
    text += "  " + padded(number_text(entry(year, "year")), 6, Align::Left) +
            padded(sample, 10, Align::Left) + right(number_text(entry(year, "days")), 5) +
            right(percent(entry(year, "net_return")), kYearWidth) +
            right(digits("sharpe", 2), kYearWidth) +
            right(percent(entry(year, "volatility")), kYearWidth + 2) +
            right(percent(entry(year, "drawdown")), kYearWidth + 1) +
            right(digits("turnover", 3), kYearWidth) + "\n";
  }
  return text;
}

}  // namespace

Value StoredFigures::figure(std::string_view name) const {
  const Value found = entry(figures, name);
  return found.is_absent() ? entry(statistics, name) : found;
}

std::string signal_figures_text(const StoredFigures& in_sample, const StoredFigures& holdout,
                                Width width) {
  if (!in_sample.statistics.is_mapping()) return "  none: there was no whole backtest\n";
  std::string text;
  for (const embedded::FigureGroup& group : embedded::figure_groups())
    text += group_text(group, in_sample, holdout, width);
  text += lags_text(in_sample, holdout);
  const std::string years = years_text(in_sample, "in sample") + years_text(holdout, "hold-out");
  if (years.empty()) return text;
  return text +
         "By year                  days   return %     sharpe volatility %  drawdown %   "
         "turnover\n" +
         years;
}

}  // namespace varnholt::app
