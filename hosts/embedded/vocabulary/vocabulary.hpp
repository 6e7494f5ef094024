// The words that signals are written in, as data.
//
// A graph is made of these kinds of node: features (what the market data hold), constants (the same
// number everywhere), rotations (the functions of panel_functions.hpp), and what settles how a
// rotation works: windows (how many days it looks back), numbers, and groups of instruments. The
// table has, for each function, the arguments that it takes and how often a random graph chooses
// it.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/element_functions.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/units.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// What a node is, and the text of it in the `type` of the node.
inline constexpr std::string_view kFeatureType = "feature";
inline constexpr std::string_view kRotationType = "rotation";
inline constexpr std::string_view kWindowType = "window";
inline constexpr std::string_view kConstantType = "constant";
inline constexpr std::string_view kNumberType = "number";
inline constexpr std::string_view kGroupType = "group";

// The longest window of any graph, in days.
inline constexpr int kLongestWindow = 100'000;

// A feature: one panel of the market data. Features that need a column are there where it is. Each
// is NaN where one of its parts is.
struct FeatureEntry {
  std::string name;
  double weight;  // Its share of the random choices among features, relative to the others.
  std::string_view formula = {};
  Unit unit = kPureNumber;
};

using OnePanelFunction = Panel (*)(const Panel&);
using WindowFunction = Panel (*)(const Panel&, const Window&);
using TwoPanelWindowFunction = Panel (*)(const Panel&, const Panel&, const Window&);
using NumberFunction = Panel (*)(const Panel&, double);
using NumberWindowFunction = Panel (*)(const Panel&, double, const Window&);
using GroupFunction = Panel (*)(const Panel&, const GroupPanel&);

using PanelFunction =
    std::variant<ElementFunction, OnePanelFunction, WindowFunction, TwoPanelWindowFunction,
                 NumberFunction, NumberWindowFunction, GroupFunction>;

// What an argument of a function is: a panel, or a node that settles how the function works.
enum class ArgumentKind { Data, Group, Number, Days };

// The arguments of a function in the order of its children.
using ArgumentKinds = std::span<const ArgumentKind>;

// What a function means, for the documentation. x and y are its panels, n is its window in days.
struct FunctionText {
  std::string_view formula;
  std::string_view unknown;  // When the result is NaN, beside the rule of its family.
  std::string_view ties;     // What equal values give; empty where the formula says it.
};

// The numbers that a function takes as such, and those that a random graph draws from.
struct NumberRange {
  double low = 0.0;
  double high = 0.0;
  std::span<const double> drawn = {};
};

// Whether fresh graphs draw a function without being told to. Those that came later wait for it, so
// that a seed goes on giving the graphs that it gave.
enum class Drawn { Always, WhenSwitchedOn };

// A function. Its name is that of its family and its own, joined by an underscore: "ts_mean".
struct FunctionEntry {
  std::string_view name;
  std::string_view family;
  double weight;  // Its share of the random choices among functions.
  PanelFunction function;
  UnitRule unit;
  FunctionText text;
  NumberRange range = {};
  Drawn drawn = Drawn::Always;
  double complexity = 1.0;  // How many nodes its own node counts as, where that is counted.

  // Panels come first, then a group, then a number; a window comes last.
  [[nodiscard]] ArgumentKinds arguments() const;
  // How many children give it panels.
  [[nodiscard]] std::size_t data_children() const;
  [[nodiscard]] bool needs_window() const { return arguments().back() == ArgumentKind::Days; }
  [[nodiscard]] std::size_t child_count() const { return arguments().size(); }
  [[nodiscard]] bool takes(ArgumentKind kind) const;
};

// The function with the names of its arguments: "ts_quantile(x, number, n)".
[[nodiscard]] std::string call_text(const FunctionEntry& function);

// A name that the user gives to a graph of his own. It stands for the graph where a formula is
// written, and fresh graphs may have it in the place of a feature.
struct NamedFormula {
  std::string name;
  genetic::Value graph;
  double weight = 1.0;  // As that of a feature.
};

// The vocabulary for one set of market data. The order of the entries is fixed, because random
// choices go through it.
struct Vocabulary {
  std::vector<FeatureEntry> features;
  std::vector<FunctionEntry> functions;
  std::vector<int> windows;  // In days, ascending: what fresh graphs draw from.
  std::vector<std::string> groups = {};
  // What constants are drawn from, and the steps by which they are changed: positive, ascending.
  std::vector<double> constants = {};
  std::vector<NamedFormula> formulas = {};

  // The entry of that name, or nullptr. It lives as long as the vocabulary is not changed.
  [[nodiscard]] const FeatureEntry* find_feature(std::string_view name) const;
  [[nodiscard]] const FunctionEntry* find_function(std::string_view name) const;
  [[nodiscard]] const NamedFormula* find_formula(std::string_view name) const;
  // The group as the vocabulary names it.
  [[nodiscard]] const std::string* find_group(std::string_view name) const;
};

// The window that the decimal text of its days names, or nothing: "20", but not "020" or "+20".
// Windows go from 1 day to kLongestWindow.
[[nodiscard]] std::optional<int> window_of(std::string_view text);

// A number as a node holds it: the fewest digits that give it back. And the finite number that such
// a text holds, or nothing for any other text.
[[nodiscard]] std::string number_text(double number);
[[nodiscard]] std::optional<double> constant_value(std::string_view text);

// The constants that fresh graphs draw from where nothing else is said: 1, 2 and 5 times the powers
// of ten from 0.01 to 100.
[[nodiscard]] std::vector<double> usual_constants();
// The windows likewise: two days to half a year; each is about half as long again as the one
// before it.
[[nodiscard]] std::vector<int> usual_windows();

// All features that have a meaning of their own, whether or not there are columns for them, and all
// functions. Columns of the owner's own are features of the prices that have them.
[[nodiscard]] std::vector<FeatureEntry> all_features();
[[nodiscard]] std::vector<FunctionEntry> all_functions();

// How often a feature of the owner's own is drawn once it is switched on.
inline constexpr double kOwnFeatureWeight = 0.5;

// All functions, the usual windows and constants, and the features and groups that `data` has the
// columns for. Functions that are drawn only when they are switched on have the weight 0, as have
// features of the owner's own, and functions across the instruments where there is but one.
[[nodiscard]] Vocabulary make_vocabulary(const MarketData& data);

}  // namespace varnholt::embedded
