#include "hosts/embedded/vocabulary/vocabulary_settings.hpp"

#include <algorithm>
#include <string_view>

#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/formula_words.hpp"
#include "hosts/embedded/vocabulary/graph_shape.hpp"

namespace varnholt::embedded {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

// The weight that a table has for an entry, whether or not it is drawn without being asked for.
double table_weight(std::string_view function) {
  static const std::vector<FunctionEntry> kFunctions = all_functions();
  const auto found =
      std::find_if(kFunctions.begin(), kFunctions.end(),
                   [function](const FunctionEntry& entry) { return entry.name == function; });
  return found == kFunctions.end() ? 0.0 : found->weight;
}

const Choice* find_choice(const Choices& choices, std::string_view name) {
  const auto found = choices.find(name);
  return found == choices.end() ? nullptr : &found->second;
}

// What is chosen, where `on` is the weight of the table and a number is turned into a weight.
template <typename OfNumber>
double chosen_weight(const Choice& choice, double on, OfNumber of_number) {
  if (const bool* const is_on = std::get_if<bool>(&choice)) return *is_on ? on : 0.0;
  return of_number(std::get<double>(choice));
}

void choose_functions(Vocabulary& vocabulary, const VocabularySettings& settings) {
  for (FunctionEntry& function : vocabulary.functions) {
    const double on = table_weight(function.name);
    if (const Choice* const family = find_choice(settings.families, function.family)) {
      function.weight = chosen_weight(*family, on, [on](double factor) { return factor * on; });
    }
    if (const Choice* const own = find_choice(settings.functions, function.name)) {
      function.weight = chosen_weight(*own, on, [](double weight) { return weight; });
    }
    const auto complexity = settings.complexity.find(function.name);
    if (complexity != settings.complexity.end()) function.complexity = complexity->second;
  }
}

void add_formulas(Vocabulary& vocabulary, const VocabularySettings& settings) {
  for (const auto& [name, formula] : settings.formulas) {
    if (vocabulary.find_feature(name) != nullptr || vocabulary.find_group(name) != nullptr) {
      throw VocabularyError("the formula \"" + name +
                            "\" of [vocabulary.formulas] has the name of a column of these prices; "
                            "give it another one");
    }
    try {
      vocabulary.formulas.push_back({name, parse_formula(formula, vocabulary), 1.0});
    } catch (const FormulaError& error) {
      throw VocabularyError("the formula \"" + name + "\" of [vocabulary.formulas], " +
                            error.text());
    }
  }
}

void refuse_taken_names(const MarketData& data) {
  const auto refuse = [](const std::string& name, const std::string& kind) {
    if (is_free_for_columns(name)) return;
    throw VocabularyError("the prices have a column \"" + name +
                          "\", and in formulas that name means something else; give it another "
                          "with --columns " +
                          kind + ":NAME=" + name + ", or leave it out with skip=" + name);
  };
  for (const auto& [name, panel] : data.features)
    refuse(name, "feature");
  for (const auto& [name, panel] : data.groups)
    refuse(name, "group");
}

void choose_features(Vocabulary& vocabulary, const VocabularySettings& settings) {
  const std::vector<FeatureEntry> known = all_features();
  const auto is_known = [&known](const std::string& name) {
    return std::any_of(known.begin(), known.end(),
                       [&name](const FeatureEntry& entry) { return entry.name == name; });
  };
  for (const auto& [name, choice] : settings.features) {
    if (!is_known(name) && vocabulary.find_feature(name) == nullptr) {
      throw VocabularyError("[vocabulary.features] names \"" + name +
                            "\", which is no feature, and no column of these prices; correct it, "
                            "or give prices with a column of numbers of that name");
    }
  }
  for (FeatureEntry& feature : vocabulary.features) {
    const double on = is_known(feature.name) ? feature.weight : kOwnFeatureWeight;
    if (const Choice* const own = find_choice(settings.features, feature.name)) {
      feature.weight = chosen_weight(*own, on, [](double weight) { return weight; });
    }
  }
}

Mapping choices_mapping(const Choices& choices) {
  Mapping mapping;
  for (const auto& [name, choice] : choices) {
    const bool* const is_on = std::get_if<bool>(&choice);
    mapping.set(Value(name), is_on != nullptr ? Value(*is_on) : Value(std::get<double>(choice)));
  }
  return mapping;
}

double complexity_of(const Value& value, const Vocabulary& vocabulary) {
  const GraphNode node = read_graph_node(value, GraphPlace{});
  const FunctionEntry* const function =
      node.type == kRotationType ? vocabulary.find_function(node.name) : nullptr;
  double sum = function != nullptr ? function->complexity : 1.0;
  for (std::size_t i = 0; i < node.children.size(); ++i)
    sum += complexity_of(node.children.at(i), vocabulary);
  return sum;
}

}  // namespace

bool is_free_for_columns(std::string_view name) {
  static const std::vector<FeatureEntry> kFeatures = all_features();
  static const std::vector<FunctionEntry> kFunctions = all_functions();
  const std::string word = in_lower_case(name);
  const auto is_taken = [&word](const auto& entries) {
    return std::any_of(entries.begin(), entries.end(),
                       [&word](const auto& entry) { return entry.name == word; });
  };
  const bool is_operator = word == "and" || word == "or" || word == "not";
  const bool is_volume = word.starts_with("adv") && word.size() > 3 &&
                         word.find_first_not_of("0123456789", 3) == std::string::npos;
  return !is_operator && !is_volume && name_of_word(word) == word && !is_taken(kFeatures) &&
         !is_taken(kFunctions) && !is_taken(abbreviations());
}

Vocabulary make_vocabulary(const MarketData& data, const VocabularySettings& settings) {
  refuse_taken_names(data);
  Vocabulary vocabulary = make_vocabulary(data);
  choose_functions(vocabulary, settings);
  choose_features(vocabulary, settings);
  if (std::none_of(vocabulary.features.begin(), vocabulary.features.end(),
                   [](const FeatureEntry& feature) { return feature.weight > 0.0; })) {
    throw VocabularyError(
        "[vocabulary.features] leaves these prices no feature; switch one of theirs on");
  }
  if (settings.windows) vocabulary.windows = *settings.windows;
  if (settings.constants) vocabulary.constants = *settings.constants;
  add_formulas(vocabulary, settings);
  if (data.instrument_count() > 1) return vocabulary;
  for (FunctionEntry& function : vocabulary.functions) {
    if (function.family == "cross" || function.family == "group") function.weight = 0.0;
  }
  return vocabulary;
}

double graph_complexity(const Value& graph, const Vocabulary& vocabulary) {
  const std::size_t nodes = measure_graph(graph).node_count;
  const bool is_plain =
      std::all_of(vocabulary.functions.begin(), vocabulary.functions.end(),
                  [](const FunctionEntry& function) { return function.complexity == 1.0; });
  return is_plain ? static_cast<double>(nodes) : complexity_of(graph, vocabulary);
}

Mapping settings_mapping(const VocabularySettings& settings) {
  Mapping mapping;
  const auto add_list = [&mapping](const char* key, const auto& numbers) {
    if (!numbers) return;
    List list;
    for (const auto number : *numbers)
      list.append(number);
    mapping.set(Value(key), list);
  };
  add_list("windows", settings.windows);
  add_list("constants", settings.constants);
  if (settings.constant_share > 0.0) mapping.set(Value("constant_share"), settings.constant_share);
  if (!settings.simplify) mapping.set(Value("simplify"), false);
  if (!settings.units) mapping.set(Value("units"), false);
  const auto add_table = [&mapping](const char* key, const Mapping& table) {
    if (table.size() > 0) mapping.set(Value(key), table);
  };
  add_table("families", choices_mapping(settings.families));
  add_table("functions", choices_mapping(settings.functions));
  add_table("features", choices_mapping(settings.features));
  Mapping complexity;
  for (const auto& [name, nodes] : settings.complexity)
    complexity.set(Value(name), nodes);
  add_table("complexity", complexity);
  Mapping formulas;
  for (const auto& [name, formula] : settings.formulas)
    formulas.set(Value(name), Value(formula));
  add_table("formulas", formulas);
  return mapping;
}

}  // namespace varnholt::embedded
