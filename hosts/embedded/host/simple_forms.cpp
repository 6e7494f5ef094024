#include "hosts/embedded/host/simple_forms.hpp"

#include <string>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/host/drawn_formula.hpp"
#include "hosts/embedded/vocabulary/unit_check.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"

namespace varnholt::embedded {

using genetic::Value;

namespace {

constexpr std::string_view kRank = "cross_rank";

std::vector<std::string> drawn_features(const Vocabulary& vocabulary) {
  std::vector<std::string> names;
  for (const FeatureEntry& feature : vocabulary.features) {
    if (feature.weight > 0.0) names.push_back(feature.name);
  }
  return names;
}

// The names of the functions that take so many panels and a window, and nothing else.
std::vector<std::string> drawn_functions(const Vocabulary& vocabulary, std::size_t panels) {
  std::vector<std::string> names;
  for (const FunctionEntry& function : vocabulary.functions) {
    const bool takes_these = function.data_children() == panels &&
                             function.child_count() == panels + 1 && function.needs_window();
    if (takes_these && function.weight > 0.0) names.emplace_back(function.name);
  }
  return names;
}

// In the order of the features, windows and functions.
std::vector<std::string> form_texts(const Vocabulary& vocabulary) {
  const std::vector<std::string> features = drawn_features(vocabulary);
  const std::vector<std::string> of_one = drawn_functions(vocabulary, 1);
  const std::vector<std::string> of_two = drawn_functions(vocabulary, 2);
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < features.size(); ++i) {
    const std::string& x = features[i];
    for (const int n : kSimpleWindows) {
      for (const std::string& f : of_one) {
        texts.push_back(fmt::format("{}({}, {})", f, x, n));
        texts.push_back(fmt::format("{} / {}({}, {})", x, f, x, n));
      }
      for (std::size_t j = i + 1; j < features.size(); ++j) {
        const std::string& y = features[j];
        for (const std::string& g : of_two)
          texts.push_back(fmt::format("{}({}, {}, {})", g, x, y, n));
        texts.push_back(fmt::format("ts_mean({} / {}, {})", x, y, n));
      }
    }
  }
  return texts;
}

// Whether a split of its shares leaves the signal of an instrument as it is.
bool tells_no_size(const Value& graph, const Vocabulary& vocabulary) {
  const UnitsOfGraph units = units_of_graph(graph, vocabulary);
  return units.mixed_calls == 0 && units.unit.currency == 0 && units.unit.shares == 0;
}

std::string ranked(const std::string& text, const Vocabulary& vocabulary) {
  const FunctionEntry* rank = vocabulary.find_function(kRank);
  if (rank == nullptr || !(rank->weight > 0.0)) return text;
  return fmt::format("{}({})", kRank, text);
}

}  // namespace

std::vector<Value> simple_forms(const Vocabulary& vocabulary, const GraphLimits& limits,
                                const GraphMaking& making) {
  std::vector<Value> forms;
  genetic::StructuralKeySet structures;
  for (const std::string& text : form_texts(vocabulary)) {
    const std::optional<Value> thought = drawn_formula(text, vocabulary, limits, making);
    if (!thought || !tells_no_size(*thought, vocabulary)) continue;
    std::optional<Value> graph =
        drawn_formula(ranked(text, vocabulary), vocabulary, limits, making);
    if (!graph || !structures.insert(genetic::structural_key(*graph)).second) continue;
    forms.push_back(*std::move(graph));
  }
  return forms;
}

}  // namespace varnholt::embedded
