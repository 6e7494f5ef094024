#include "hosts/embedded/vocabulary/vocabulary_page.hpp"

#include <array>
#include <cmath>
#include <string_view>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kIntroduction =
    "# Vocabulary\n"
    "\n"
    "What signals are written in: features, the functions below, and windows of 2, 3, 5, 10, 15,\n"
    "20, 40, 60 or 120 days. `genetic-search vocabulary` prints this page.\n"
    "\n"
    "Every value is finite or NaN, and NaN means \"not known\": where a result would not be "
    "finite\n"
    "(an overflow, a division by next to nothing) it is NaN. The result of a day depends on that\n"
    "day and on days before it, never on later ones.\n";

constexpr std::string_view kFeaturesHeading =
    "\n## Features\n"
    "\n"
    "A feature is there where its columns are; it is NaN where one of its parts is.\n"
    "\n"
    "| feature | formula |\n"
    "|---|---|\n";

constexpr std::string_view kTableHead =
    "\n"
    "| function | formula | NaN where | ties | the last day |\n"
    "|---|---|---|---|---|\n";

// A family of functions: its title, and the rule that all of them follow.
struct Family {
  std::string_view name;
  std::string_view title;
  std::string_view rule;
};
constexpr auto kFamilies = std::to_array({
    Family{"cross", "Across the instruments, day by day",
           "n is the number of instruments whose value is known that day; the others stay NaN."},
    Family{
        "ts", "Over time, instrument by instrument",
        "The window is today and the n - 1 days before it. The result is NaN where today is not\n"
        "known, where fewer of these days are known than `--min-known` asks for (all of them in\n"
        "the examples, and 0.8 of them, rounded up, by default), and until the window lies behind\n"
        "the first known day. A missing day is left out: where the formulas below count the days\n"
        "of a window or divide by their number, only the known ones count, and the weights of\n"
        "`ts_decay` remain those of the places in the window. With two panels a day is known\n"
        "where both are."},
    Family{"arith", "Arithmetic, value by value", "NaN where an argument is NaN."},
    Family{"comparison", "Comparisons, value by value", "NaN where an argument is NaN."},
});

// The window of the examples.
constexpr Eigen::Index kWindow = 3;

// One row a day, one column an instrument: a gap, a tie and both signs.
Panel example_x() {
  Panel x(4, 3);
  x << 1.0, 4.0, -2.0, 2.0, kUnknown, 1.0, 4.0, 6.0, 1.0, 3.0, 3.0, -1.0;
  return x;
}
Panel example_y() {
  Panel y(4, 3);
  y << 2.0, 1.0, 0.5, 1.0, 2.0, 0.0, 0.0, 2.0, 2.0, 2.0, 0.0, -1.0;
  return y;
}

std::string number_text(double value) {
  // Adding zero turns -0 into 0.
  return std::isnan(value) ? "NaN" : fmt::format("{:.4g}", value + 0.0);
}

std::string row_text(const Panel& panel, Eigen::Index day) {
  std::string text;
  for (Eigen::Index column = 0; column < panel.cols(); ++column) {
    if (column > 0) text += ", ";
    text += number_text(panel(day, column));
  }
  return text;
}

std::string panel_text(std::string_view name, const Panel& panel) {
  std::string text;
  for (Eigen::Index day = 0; day < panel.rows(); ++day) {
    text += fmt::format("    {}({})  {}\n", name, day + 1, row_text(panel, day));
  }
  return text;
}

std::string call_text(const FunctionEntry& entry) {
  return fmt::format("{}(x{}{})", entry.name, entry.data_children() == 2 ? ", y" : "",
                     entry.needs_window() ? ", n" : "");
}

struct Example {
  const Panel& x;
  const Panel& y;

  Panel operator()(OnePanelFunction function) const { return function(x); }
  Panel operator()(TwoPanelFunction function) const { return function(x, y); }
  Panel operator()(WindowFunction function) const { return function(x, kWindow); }
  Panel operator()(TwoPanelWindowFunction function) const { return function(x, y, kWindow); }
};

// A bar would end the cell of a table.
std::string cell(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    if (character == '|') escaped += '\\';
    escaped += character;
  }
  return escaped;
}

std::string function_row(const FunctionEntry& entry, const Panel& x, const Panel& y) {
  const Panel result = std::visit(Example{x, y}, entry.function);
  return fmt::format("| `{}` | {} | {} | {} | {} |\n", call_text(entry), cell(entry.text.formula),
                     cell(entry.text.unknown), cell(entry.text.ties),
                     row_text(result, result.rows() - 1));
}

}  // namespace

std::string vocabulary_page() {
  std::string page(kIntroduction);
  page += kFeaturesHeading;
  for (const FeatureEntry& feature : all_features()) {
    page += fmt::format("| `{}` | {} |\n", feature.name, feature.formula);
  }
  const Panel x = example_x();
  const Panel y = example_y();
  page += fmt::format(
      "\n## Functions\n"
      "\n"
      "The last column of each table holds the result for day 4 of these two panels of three\n"
      "instruments, with n = {} where there is a window:\n"
      "\n{}\n{}",
      kWindow, panel_text("x", x), panel_text("y", y));
  for (const Family& family : kFamilies) {
    page += fmt::format("\n### {}\n\n{}\n{}", family.title, family.rule, kTableHead);
    for (const FunctionEntry& entry : all_functions()) {
      if (entry.family == family.name) page += function_row(entry, x, y);
    }
  }
  return page;
}

}  // namespace varnholt::embedded
