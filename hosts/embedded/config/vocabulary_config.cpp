#include "hosts/embedded/config/vocabulary_config.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "hosts/embedded/market/own_columns.hpp"
#include "hosts/embedded/vocabulary/formula.hpp"
#include "hosts/embedded/vocabulary/formula_words.hpp"

namespace varnholt::embedded {
namespace {

constexpr double kLargestWeight = 1e6;
constexpr double kLargestComplexity = 1000.0;
constexpr std::size_t kLongestList = 1000;
constexpr std::string_view kKeys =
    "the keys of [vocabulary] are: windows, constants, constant_share, simplify, units; its "
    "tables are "
    "[vocabulary.families] and likewise functions, features, complexity and formulas";

// Market data with every column and group that there may be, for what is known without prices.
MarketData data_of_everything() {
  MarketData data;
  for (const NamedPanel& named : kOptionalPanels)
    (data.*named.panel).emplace(0, 0);
  for (const char* const group : {"sector", "industry", "subindustry", "country"})
    data.groups.emplace(group, GroupPanel(0, 0));
  return data;
}

const Vocabulary& everything() {
  static const Vocabulary kEverything = make_vocabulary(data_of_everything());
  return kEverything;
}

std::optional<double> number_in(const toml::node& node) {
  if (const auto* const whole = node.as_integer()) return static_cast<double>(whole->get());
  if (const auto* const real = node.as_floating_point()) return real->get();
  return std::nullopt;
}

double number_within(const MetValue& met, double low, double high) {
  const std::string remedy = fmt::format("write a number from {} to {}", low, high);
  const std::optional<double> number = number_in(met.node());
  if (!number) met.refuse("is not a number", remedy);
  if (!(*number >= low && *number <= high)) met.refuse("is out of range", remedy);
  return *number;
}

// Ascending numbers.
std::vector<double> number_list(const MetValue& met, const std::string& remedy, double low,
                                double high, bool are_whole) {
  const toml::array* const array = met.node().as_array();
  if (array == nullptr || array->empty() || array->size() > kLongestList) {
    met.refuse("is no list of numbers", remedy);
  }
  std::vector<double> numbers;
  for (const toml::node& item : *array) {
    const std::optional<double> number = number_in(item);
    const bool is_good = number && *number >= low && *number <= high &&
                         (!are_whole || *number == std::floor(*number)) &&
                         (numbers.empty() || *number > numbers.back());
    if (!is_good) met.refuse("has an item that does not belong there", remedy);
    numbers.push_back(*number);
  }
  return numbers;
}

template <typename Entries>
bool has_name(const Entries& entries, std::string_view name) {
  return std::any_of(entries.begin(), entries.end(),
                     [name](const auto& entry) { return entry.name == name; });
}

bool is_family(std::string_view name) {
  const std::vector<FunctionEntry>& functions = everything().functions;
  return std::any_of(functions.begin(), functions.end(),
                     [name](const FunctionEntry& entry) { return entry.family == name; });
}

bool is_function(std::string_view name) {
  return has_name(everything().functions, name);
}

// One of the owner's own is known only with the prices.
bool is_feature(std::string_view name) {
  return has_name(everything().features, name) || (is_own_name(name) && is_free_for_columns(name));
}

struct NameRule {
  bool (*is_name)(std::string_view name);
  std::string_view remedy;
};
constexpr NameRule kFamilyRule = {&is_family,
                                  "the families are cross, ts, arith, comparison, logic and group"};
constexpr NameRule kFunctionRule = {&is_function, "\"genetic-search vocabulary\" lists all"};
constexpr NameRule kFeatureRule = {
    &is_feature,
    "\"genetic-search vocabulary\" lists all; a column of your own has a name of small letters, "
    "digits and underscores"};

class VocabularyReader {
 public:
  explicit VocabularyReader(const ConfigSource& source) : source_(source) {}

  VocabularySettings read(const toml::table& table) {
    // Formulas may use columns of the owner's own, which are named among the features.
    const auto is_of_features = [](const TomlEntry& entry) {
      return entry.key->str() == "features";
    };
    for (const TomlEntry& entry : entries_in_order(table)) {
      if (is_of_features(entry)) take(entry);
    }
    for (const TomlEntry& entry : entries_in_order(table)) {
      if (!is_of_features(entry)) take(entry);
    }
    return std::move(settings_);
  }

 private:
  void take(const TomlEntry& entry) {
    const std::string_view key = entry.key->str();
    const MetValue met = met_value(kVocabularyTable, entry);
    if (key == "windows") {
      settings_.windows.emplace();
      for (const double days :
           number_list(met, "write whole numbers of days, ascending, such as [2, 5, 20]", 1.0,
                       kLongestWindow, true)) {
        settings_.windows->push_back(static_cast<int>(days));
      }
    } else if (key == "constants") {
      settings_.constants = number_list(
          met, "write positive numbers, ascending, such as [0.5, 1, 2]", 1e-12, 1e12, false);
    } else if (key == "constant_share") {
      settings_.constant_share = number_within(met, 0.0, 1.0);
    } else if (key == "simplify") {
      settings_.simplify = met.as_switch();
    } else if (key == "units") {
      settings_.units = met.as_switch();
    } else if (key == "families") {
      take_choices(settings_.families, kFamilyRule, entry, met);
    } else if (key == "functions") {
      take_choices(settings_.functions, kFunctionRule, entry, met);
    } else if (key == "features") {
      take_choices(settings_.features, kFeatureRule, entry, met);
    } else if (key == "complexity") {
      take_complexity(entry, met);
    } else if (key == "formulas") {
      take_formulas(entry, met);
    } else {
      refuse_key(entry, kVocabularyTable, "[vocabulary] has no such key", std::string(kKeys));
    }
  }

  [[nodiscard]] MetValue met_value(std::string_view table, const TomlEntry& entry) const {
    return {source_, fmt::format("{}.{}", table, key_text(entry.key->str())), *entry.value};
  }

  [[noreturn]] void refuse_key(const TomlEntry& entry, std::string_view table,
                               const std::string& problem, const std::string& remedy) const {
    throw HostConfigError(source_.place(position_of(entry.key->source().begin),
                                        fmt::format("{}.{}", table, key_text(entry.key->str()))),
                          problem, remedy);
  }

  static const toml::table& table_of(const TomlEntry& entry, const MetValue& met) {
    const toml::table* const table = entry.value->as_table();
    if (table == nullptr) {
      met.refuse(
          "is not a table",
          fmt::format("write one table [vocabulary.{}] with names below it", entry.key->str()));
    }
    return *table;
  }

  static std::string table_name(const TomlEntry& entry) {
    return fmt::format("{}.{}", kVocabularyTable, entry.key->str());
  }

  void take_choices(Choices& choices, const NameRule& rule, const TomlEntry& table,
                    const MetValue& met) {
    for (const TomlEntry& entry : entries_in_order(table_of(table, met))) {
      const std::string name(entry.key->str());
      if (!rule.is_name(name)) {
        refuse_key(entry, table_name(table), "is not known", std::string(rule.remedy));
      }
      const MetValue value = met_value(table_name(table), entry);
      if (const auto* const is_on = entry.value->as_boolean()) {
        choices.emplace(name, is_on->get());
        continue;
      }
      if (!number_in(value.node())) {
        value.refuse("is neither true nor false nor a number",
                     "write true, false, or a weight such as 0.5");
      }
      choices.emplace(name, number_within(value, 0.0, kLargestWeight));
    }
  }

  void take_complexity(const TomlEntry& table, const MetValue& met) {
    for (const TomlEntry& entry : entries_in_order(table_of(table, met))) {
      const std::string name(entry.key->str());
      if (!is_function(name)) {
        refuse_key(entry, table_name(table), "is not known", std::string(kFunctionRule.remedy));
      }
      settings_.complexity.emplace(
          name, number_within(met_value(table_name(table), entry), 0.0, kLargestComplexity));
    }
  }

  void take_formulas(const TomlEntry& table, const MetValue& met) {
    Vocabulary known = everything();
    for (const auto& [name, choice] : settings_.features) {
      if (known.find_feature(name) == nullptr) known.features.push_back({name, 0.0, {}});
    }
    for (const TomlEntry& entry : entries_in_order(table_of(table, met))) {
      const std::string name(entry.key->str());
      if (!is_free_name(name, known)) {
        refuse_key(entry, table_name(table), "is no name for a formula",
                   "take letters, digits and underscores, a letter first, and no name that the "
                   "vocabulary has already");
      }
      const MetValue value = met_value(table_name(table), entry);
      const auto* const text = entry.value->as_string();
      if (text == nullptr) {
        value.refuse("is not a text", "write a formula, such as \"-delta(close, 5)\"");
      }
      known.formulas.push_back({name, read_formula(text->get(), known, value), 1.0});
      settings_.formulas.emplace_back(name, text->get());
    }
  }

  // A name that a formula can use, and that means nothing else there.
  static bool is_free_name(const std::string& name, const Vocabulary& known) {
    constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    const bool is_word =
        !name.empty() && name.size() <= 60 && kLetters.find(name[0]) != std::string_view::npos &&
        name.find_first_not_of(std::string(kLetters) + "0123456789_") == std::string::npos;
    if (!is_word) return false;
    const std::string word = in_lower_case(name);
    const bool is_operator = word == "and" || word == "or" || word == "not";
    const auto is_taken = [&known](std::string_view taken) {
      return known.find_feature(taken) != nullptr || known.find_function(taken) != nullptr ||
             known.find_group(taken) != nullptr;
    };
    return !is_operator && name_of_word(word) == word && !is_taken(name) && !is_taken(word) &&
           find_abbreviation(word, 0) == nullptr && !word.starts_with("adv");
  }

  static genetic::Value read_formula(const std::string& text, const Vocabulary& known,
                                     const MetValue& value) {
    try {
      return parse_formula(text, known);
    } catch (const FormulaError& error) {
      // The problem and the remedy, without the lines below them.
      const std::string& told = error.text();
      const std::string line = told.substr(0, told.find('\n'));
      const std::size_t middle = line.find("; ");
      value.refuse("is no formula: " + line.substr(0, middle), middle == std::string::npos
                                                                   ? std::string("correct it")
                                                                   : line.substr(middle + 2));
    }
  }

  const ConfigSource& source_;
  VocabularySettings settings_;
};

}  // namespace

VocabularySettings read_vocabulary_table(const ConfigSource& source, const toml::table& table) {
  return VocabularyReader(source).read(table);
}

}  // namespace varnholt::embedded
