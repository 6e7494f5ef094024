#include "hosts/embedded/vocabulary/vocabulary_page.hpp"

#include <array>
#include <cmath>
#include <map>
#include <string_view>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include "hosts/embedded/vocabulary/formula_words.hpp"
#include "hosts/embedded/vocabulary/mapped.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "hosts/embedded/vocabulary/vocabulary_chapters.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kIntroduction = R"(# Vocabulary

What signals are written in. `genetic-search vocabulary` prints this page.

Every value is finite or NaN, and NaN means "not known": where a result would not be finite
(an overflow, a division by next to nothing) it is NaN. The result of a day depends on that
day and on days before it, never on later ones.

## Formulas

A formula is made of features, numbers, calls of functions, operators and parentheses:

    -1 * rank(delta(close, 5)) / stddev(returns, 20)

It may be written wherever a graph is asked for: to `genetic-search eval`, in a seeds file, and in
the `[vocabulary]` of a configuration. The expressions that the program prints are formulas
too, and stand for the same graph when they are read again. From the loosest to the tightest the
operators are

| operator | function |
|---|---|
| `c ? x : y` | `arith_if(c, x, y)` |
| `x \|\| y`, `x or y` | `logic_or(x, y)` |
| `x && y`, `x and y` | `logic_and(x, y)` |
| `x < y`, `x > y`, `x <= y`, `x >= y` | `comparison_lt(x, y)`, and so on |
| `x == y`, `x != y` | `comparison_eq(x, y)`, `comparison_ne(x, y)` |
| `x + y`, `x - y` | `arith_add(x, y)`, `arith_sub(x, y)` |
| `x * y`, `x / y` | `arith_mul(x, y)`, `arith_div(x, y)` |
| `-x`, `!x`, `not x` | `arith_neg(x)`, `logic_not(x)` |
| `x ^ y`, `x ** y` | `arith_power(x, y)` |

Powers go from the right and before a minus: `-x ^ 2` is `-(x ^ 2)`. Of comparisons in a row one
needs parentheses. Arithmetic on numbers alone is done at once: `(1 - 0.2) * close` is
`arith_mul(0.8, close)`. Of the panels of a function at least one is no number. Windows are whole
numbers of days from 1 to 100,000; a run takes those up to its `--max-window`. What fresh graphs
draw windows and constants from is settable ([configuration.md](configuration.md)); by default it
is 2, 3, 5, 10, 15, 20, 40, 60 or 120 days, and no constants.

In a file a formula begins a line, and lines that begin with a blank continue it. It may have a name
before it, as in `reversal = -delta(close, 5)`; what follows a `#` is a comment.
)";

constexpr std::string_view kFeaturesHeading =
    "\n## Features\n"
    "\n"
    "A feature is there where its columns are; it is NaN where one of its parts is.\n"
    "\n"
    "| feature | formula | unit |\n"
    "|---|---|---|\n";

constexpr std::string_view kGroupsText = R"(
Any other column of numbers in a long price file is a feature of its own name, as it stands in the
file. Fresh graphs draw it once `[vocabulary.features]` of a configuration switches it on.

## Groups

A group is a column of names in a long price file: `sector`, `industry`, `subindustry`, `country`,
and any other name that the file's owner gives one. On each day instruments with the same name are
one group; an empty cell is no group.

)";

constexpr std::string_view kFunctionsHeading = R"(
## Functions

Fresh graphs draw from the functions without a star. Those with one are there for formulas; the
`[vocabulary]` of a configuration lets fresh graphs draw them too.

Two values are alike where they differ by at most a billionth (1e-9) of the greater of their sizes:
beside what they are made of, such a difference is rounding. A two-day z-score, for instance, is
0.7071 or -0.7071 and nothing else, whatever its last digits say, and ranks of it tell just these
two apart. On a day values are alike also by way of others, each alike to the next; in a window each
is compared with today's, or with the greatest or least. 0 is alike only to itself.

)";

constexpr std::string_view kWordsHeading = R"(
## Other names

Names of functions and features may be written in any case. These are read as well; whatever is
read, the expression that is printed has the names above.

)";

constexpr std::string_view kTableHead =
    "\n"
    "| function | formula | NaN where | ties | unit | the last day |\n"
    "|---|---|---|---|---|---|\n";

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
        "`ts_decay` and `ts_ema` and the places of `ts_argmax` and `ts_argmin` remain those in "
        "the\n"
        "window. With two panels a day is known\n"
        "where both are."},
    Family{"arith", "Arithmetic, value by value", "NaN where an argument is NaN."},
    Family{"comparison", "Comparisons, value by value", "NaN where an argument is NaN."},
    Family{"logic", "Logic, value by value",
           "NaN where an argument is NaN. 0 is false, and every other value is true."},
    Family{"group", "Across the instruments of a group, day by day",
           "n is the number of instruments of the group whose value is known that day; the others\n"
           "stay NaN, and so do those without a group."},
});

// The window and the number of the examples.
constexpr Eigen::Index kWindow = 3;
constexpr double kNumber = 0.5;

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

std::string shown_number(double value) {
  // Adding zero turns -0 into 0.
  return std::isnan(value) ? "NaN" : fmt::format("{:.4g}", value + 0.0);
}

std::string row_text(const Panel& panel, Eigen::Index day) {
  std::string text;
  for (Eigen::Index column = 0; column < panel.cols(); ++column) {
    if (column > 0) text += ", ";
    text += shown_number(panel(day, column));
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

// The first and the last instrument are one group.
GroupPanel example_group() {
  GroupPanel group(4, 3);
  for (Eigen::Index day = 0; day < group.rows(); ++day)
    group.row(day) << 0, 1, 0;
  return group;
}

struct Example {
  const Panel& x;
  const Panel& y;
  double number;

  Panel operator()(ElementFunction function) const {
    const Panel z = x + y;
    return mapped(function, std::array{&x, &y, &z});
  }
  Panel operator()(OnePanelFunction function) const { return function(x); }
  Panel operator()(WindowFunction function) const { return function(x, kWindow); }
  Panel operator()(TwoPanelWindowFunction function) const { return function(x, y, kWindow); }
  Panel operator()(NumberFunction function) const { return function(x, number); }
  Panel operator()(NumberWindowFunction function) const { return function(x, number, kWindow); }
  Panel operator()(GroupFunction function) const { return function(x, example_group()); }
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
  const Panel result = std::visit(Example{x, y, kNumber}, entry.function);
  return fmt::format("| `{}`{} | {} | {} | {} | {} | {} |\n", call_text(entry),
                     entry.drawn == Drawn::WhenSwitchedOn ? " *" : "", cell(entry.text.formula),
                     cell(entry.text.unknown), cell(entry.text.ties), unit_rule_text(entry.unit),
                     row_text(result, result.rows() - 1));
}

std::string words_table() {
  std::string text = "| written | meant |\n|---|---|\n";
  std::map<std::string_view, std::string> words;
  for (const WordAlias& alias : word_aliases()) {
    std::string& list = words[alias.name];
    list.append(list.empty() ? "`" : ", `").append(alias.alias).append("`");
  }
  for (const auto& [name, list] : words)
    text += fmt::format("| {} | `{}` |\n", list, name);
  for (const Abbreviation& short_form : abbreviations()) {
    std::string call(short_form.name);
    for (std::size_t i = 0; i < short_form.parameters.size(); ++i)
      call.append(i == 0 ? "(" : ", ") += short_form.parameters[i];
    if (!short_form.parameters.empty()) call += ')';
    text += fmt::format("| `{}` | `{}` |\n", call, short_form.formula);
  }
  return text +
         "| `adv20`, or any other number of days | `adv(20)` |\n"
         "| `IndClass.sector`, likewise for every group | `sector` |\n"
         "\n"
         "`vwap` is the column of that name where the prices have one. `min` and `max` compare two "
         "values of\n"
         "the same day; over a window they are `ts_min` and `ts_max`. `log` is the natural "
         "logarithm, NaN at\n"
         "and below zero; `arith_log` is defined everywhere.\n";
}

}  // namespace

std::string vocabulary_page() {
  std::string page(kIntroduction);
  page += kFeaturesHeading;
  for (const FeatureEntry& feature : all_features()) {
    page +=
        fmt::format("| `{}` | {} | {} |\n", feature.name, feature.formula, unit_name(feature.unit));
  }
  const Panel x = example_x();
  const Panel y = example_y();
  page += kGroupsText.substr(0, kGroupsText.size() - 1);
  page += kFunctionsHeading;
  page += fmt::format(
      "The last column of each table holds the result for day 4 of these two panels of three\n"
      "instruments. Where there is a window n = {}, where there is a number it is {}; a third "
      "panel z is\n"
      "x + y, and the first and the last instrument are one group:\n"
      "\n{}\n{}",
      kWindow, kNumber, panel_text("x", x), panel_text("y", y));
  for (const Family& family : kFamilies) {
    page += fmt::format("\n### {}\n\n{}\n{}", family.title, family.rule, kTableHead);
    for (const FunctionEntry& entry : all_functions()) {
      if (entry.family == family.name) page += function_row(entry, x, y);
    }
  }
  page += kUnitsChapter;
  page += kOneFormChapter;
  page += kWordsHeading;
  page += words_table();
  return page;
}

}  // namespace varnholt::embedded
