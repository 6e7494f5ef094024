// What is wrong with a name in a formula, and which one may have been meant.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "hosts/embedded/vocabulary/vocabulary.hpp"

namespace varnholt::embedded {

struct NameProblem {
  std::string problem;
  std::string remedy;
};

// Of a name that is no feature, no formula of the user's own, and no abbreviation.
[[nodiscard]] NameProblem problem_of_name(std::string_view name, const Vocabulary& vocabulary);
// Of one that is called, and is no function.
[[nodiscard]] NameProblem problem_of_function(std::string_view name, const Vocabulary& vocabulary);
// Of one, or of no name at all, where a group is expected.
[[nodiscard]] NameProblem problem_of_group(std::string_view name, const Vocabulary& vocabulary);
// Of an abbreviation that is given so many arguments.
[[nodiscard]] NameProblem problem_of_count(std::string_view name, std::size_t arguments);

}  // namespace varnholt::embedded
