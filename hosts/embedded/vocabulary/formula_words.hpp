// The other names that formulas may use: what functions are usually called, and abbreviations.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace varnholt::embedded {

// Another name of a function or feature.
struct WordAlias {
  std::string_view alias;  // In lower case.
  std::string_view name;
};
[[nodiscard]] std::span<const WordAlias> word_aliases();

// A name that stands for a formula.
struct Abbreviation {
  std::string_view name;        // In lower case.
  std::string_view parameters;  // Their names, each one letter; they stand in the formula.
  std::string_view formula;
};
[[nodiscard]] std::span<const Abbreviation> abbreviations();

// The name in lower case.
[[nodiscard]] std::string in_lower_case(std::string_view name);

// The name that an alias stands for, or the name itself.
[[nodiscard]] std::string_view name_of_word(std::string_view lower_case_word);

// The abbreviation of that name with so many parameters, or nullptr.
[[nodiscard]] const Abbreviation* find_abbreviation(std::string_view lower_case_word,
                                                    std::size_t parameters);

}  // namespace varnholt::embedded
