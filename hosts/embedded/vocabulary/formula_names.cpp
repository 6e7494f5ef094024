#include "hosts/embedded/vocabulary/formula_names.hpp"

#include <algorithm>
#include <numeric>
#include <vector>

#include "hosts/embedded/vocabulary/formula_words.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"

namespace varnholt::embedded {
namespace {

std::string quoted(std::string_view name) {
  return "\"" + shown_name(name) + "\"";
}

// How many letters have to be put in, left out or replaced to make one word of the other.
std::size_t distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < right.size(); ++j) {
      const std::size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, replaced});
    }
  }
  return row.back();
}

// Of the words the one that is nearest to the name, where that is near.
class Nearest {
 public:
  explicit Nearest(std::string_view name)
      : name_(in_lower_case(name.substr(0, kLongestName))), least_(1 + name_.size() / 3) {}

  void offer(std::string_view word) {
    const std::size_t away = distance(name_, word);
    if (away >= least_) return;
    least_ = away;
    word_ = word;
  }

  [[nodiscard]] std::string remedy(const std::string& otherwise) const {
    return word_.empty() ? otherwise : "did you mean \"" + std::string(word_) + "\"?";
  }

 private:
  static constexpr std::size_t kLongestName = 60;

  std::string name_;
  std::size_t least_;
  std::string_view word_;
};

constexpr std::string_view kWhereToLook = R"("genetic-search vocabulary" lists what there is)";

std::string list_of(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names)
    text.append(text.empty() ? "" : ", ").append(name);
  return text;
}

void offer_functions(Nearest& nearest, const Vocabulary& vocabulary) {
  for (const FunctionEntry& function : vocabulary.functions)
    nearest.offer(function.name);
  for (const WordAlias& alias : word_aliases()) {
    if (vocabulary.find_function(alias.name) != nullptr) nearest.offer(alias.alias);
  }
  for (const Abbreviation& short_form : abbreviations()) {
    if (!short_form.parameters.empty()) nearest.offer(short_form.name);
  }
}

}  // namespace

NameProblem problem_of_name(std::string_view name, const Vocabulary& vocabulary) {
  const std::string word = in_lower_case(name);
  if (const FunctionEntry* const function = vocabulary.find_function(name_of_word(word))) {
    return {quoted(name) + " is a function, and has no arguments here",
            "write " + call_text(*function)};
  }
  if (vocabulary.find_group(word) != nullptr) {
    return {quoted(name) + " is a group, and stands where data are expected",
            "use it as the last argument of a function of groups, such as group_demean(x, group)"};
  }
  Nearest nearest(name);
  std::string features;
  for (const FeatureEntry& feature : vocabulary.features) {
    nearest.offer(feature.name);
    features.append(features.empty() ? "" : ", ").append(feature.name);
  }
  for (const NamedFormula& formula : vocabulary.formulas)
    nearest.offer(formula.name);
  for (const Abbreviation& short_form : abbreviations()) {
    if (short_form.parameters.empty()) nearest.offer(short_form.name);
  }
  return {quoted(name) + " is no feature of these market data",
          nearest.remedy("use one of " + features)};
}

NameProblem problem_of_function(std::string_view name, const Vocabulary& vocabulary) {
  if (vocabulary.find_feature(in_lower_case(name)) != nullptr) {
    return {quoted(name) + " is a feature, and takes no arguments",
            "write an operator before the parenthesis"};
  }
  Nearest nearest(name);
  offer_functions(nearest, vocabulary);
  return {quoted(name) + " is no function of this vocabulary",
          nearest.remedy(std::string(kWhereToLook))};
}

NameProblem problem_of_group(std::string_view name, const Vocabulary& vocabulary) {
  const std::string met = name.empty() ? std::string("nothing stands where a group is expected")
                                       : quoted(name) + " is no group of these market data";
  if (vocabulary.groups.empty()) {
    return {met,
            "they have none; a column sector, industry, subindustry or country of a long "
            "price file makes one"};
  }
  return {met, "use one of " + list_of(vocabulary.groups)};
}

NameProblem problem_of_count(std::string_view name, std::size_t arguments) {
  std::string forms;
  for (const Abbreviation& short_form : abbreviations()) {
    if (short_form.name != name || short_form.parameters.empty()) continue;
    forms.append(forms.empty() ? "" : " or ").append(short_form.name).append("(");
    for (std::size_t i = 0; i < short_form.parameters.size(); ++i) {
      forms.append(i == 0 ? "" : ", ") += short_form.parameters[i];
    }
    forms += ')';
  }
  return {quoted(name) + " is given " + std::to_string(arguments) +
              (arguments == 1 ? " argument" : " arguments"),
          "write " + forms};
}

}  // namespace varnholt::embedded
