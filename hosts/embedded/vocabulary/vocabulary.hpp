// The words that signals are written in, as data.
//
// A graph is made of three kinds of node: features (what the market data hold), rotations (the
// functions of panel_functions.hpp) and windows (how many days a rotation looks back). The table
// has, for each function, the arguments that it takes and how often a random graph chooses it.
#pragma once

#include <optional>
#include <string_view>
#include <variant>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {

// What a node is, and the text of it in the `type` of the node.
inline constexpr std::string_view kFeatureType = "feature";
inline constexpr std::string_view kRotationType = "rotation";
inline constexpr std::string_view kWindowType = "window";

// A feature: one panel of the market data. Features that need a column are there where it is. Each
// is NaN where one of its parts is.
struct FeatureEntry {
  std::string_view name;
  double weight;  // Its share of the random choices among features, relative to the others.
  std::string_view formula = {};
};

using OnePanelFunction = Panel (*)(const Panel&);
using TwoPanelFunction = Panel (*)(const Panel&, const Panel&);
using WindowFunction = Panel (*)(const Panel&, const Window&);
using TwoPanelWindowFunction = Panel (*)(const Panel&, const Panel&, const Window&);

// What a function means, for the documentation. x and y are its panels, n is its window in days.
struct FunctionText {
  std::string_view formula;
  std::string_view unknown;  // When the result is NaN, beside the rule of its family.
  std::string_view ties;     // What equal values give; empty where the formula says it.
};

// A function. Its name is that of its family and its own, joined by an underscore: "ts_mean".
struct FunctionEntry {
  std::string_view name;
  std::string_view family;  // "cross", "ts", "arith" or "comparison".
  double weight;            // Its share of the random choices among functions.
  std::variant<OnePanelFunction, TwoPanelFunction, WindowFunction, TwoPanelWindowFunction> function;
  FunctionText text;

  // How many children give it panels. They come first; a window, if it needs one, comes last.
  [[nodiscard]] std::size_t data_children() const {
    return std::holds_alternative<TwoPanelFunction>(function) ||
                   std::holds_alternative<TwoPanelWindowFunction>(function)
               ? 2
               : 1;
  }
  [[nodiscard]] bool needs_window() const {
    return std::holds_alternative<WindowFunction>(function) ||
           std::holds_alternative<TwoPanelWindowFunction>(function);
  }
  [[nodiscard]] std::size_t child_count() const {
    return data_children() + (needs_window() ? 1 : 0);
  }
};

// The vocabulary for one set of market data. The order of the entries is fixed, because random
// choices go through it.
struct Vocabulary {
  std::vector<FeatureEntry> features;
  std::vector<FunctionEntry> functions;
  std::vector<int> windows;  // In days, ascending.

  // The entry of that name, or nullptr. It lives as long as the vocabulary is not changed.
  [[nodiscard]] const FeatureEntry* find_feature(std::string_view name) const;
  [[nodiscard]] const FunctionEntry* find_function(std::string_view name) const;

  // The window that the decimal text of its days names, or nothing: "20", but not "020" or "+20".
  [[nodiscard]] std::optional<int> find_window(std::string_view text) const;
};

// All features, whether or not there are columns for them, and all functions.
[[nodiscard]] std::vector<FeatureEntry> all_features();
[[nodiscard]] std::vector<FunctionEntry> all_functions();

// All functions and windows, and the features that `data` has the columns for.
[[nodiscard]] Vocabulary make_vocabulary(const MarketData& data);

}  // namespace varnholt::embedded
