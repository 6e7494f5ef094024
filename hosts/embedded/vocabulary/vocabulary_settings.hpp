// What the user changes about the words that fresh graphs are made of.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::embedded {

// On at the weight of the table, off, or on at a weight of its own.
using Choice = std::variant<bool, double>;
using Choices = std::map<std::string, Choice, std::less<>>;

struct VocabularySettings {
  std::optional<std::vector<int>> windows;       // In days, ascending.
  std::optional<std::vector<double>> constants;  // Positive, ascending.
  // How often a panel beside the first of an arithmetic function or a comparison is a constant.
  double constant_share = 0.0;
  // Whether the graphs that a search makes are brought to the form of canonical_form.hpp.
  bool simplify = true;
  // Whether fresh graphs and children add and compare what is of one unit (units.hpp) only.
  bool units = true;
  // Of a family a number multiplies the weights of its functions; what is said of a function or a
  // feature itself is its weight, and counts more.
  Choices families;
  Choices functions;
  Choices features;
  // How many nodes a function counts as where the size of a graph costs it something.
  std::map<std::string, double, std::less<>> complexity;
  // Names and formulas; one may use those before it.
  std::vector<std::pair<std::string, std::string>> formulas;
};

// A formula of the settings that cannot be read, or settings that leave nothing to draw from. The
// text has the remedy.
class VocabularyError : public genetic::ValueError {
 public:
  using ValueError::ValueError;
};

// Whether a column of the owner's own may have this name: it means nothing else in a formula.
[[nodiscard]] bool is_free_for_columns(std::string_view name);

// The vocabulary of make_vocabulary as the settings want it. A feature that may have no column in
// these prices is left alone, one of the owner's own has to have it. Across one instrument nothing
// is drawn whatever the settings say. Throws VocabularyError, also for columns of the owner's own
// that have the name of something else.
[[nodiscard]] Vocabulary make_vocabulary(const MarketData& data,
                                         const VocabularySettings& settings);

// The nodes of a graph, each counted as often as the complexity of its function says. Throws
// GraphError as measure_graph.
[[nodiscard]] double graph_complexity(const genetic::Value& graph, const Vocabulary& vocabulary);

// The settings that are not the usual ones, as open data.
[[nodiscard]] genetic::Mapping settings_mapping(const VocabularySettings& settings);

}  // namespace varnholt::embedded
