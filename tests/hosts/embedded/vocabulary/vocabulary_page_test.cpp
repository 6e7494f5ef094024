// The page about the vocabulary.
// Method: the page that is checked in against the one that the tables give; every entry against
// what a reader needs to know of it.
#include "hosts/embedded/vocabulary/vocabulary_page.hpp"

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>

#include "hosts/embedded/vocabulary/vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::HasSubstr;

std::string checked_in_page() {
  std::ifstream file(VARNHOLT_SOURCE_DIR "/docs/vocabulary.md");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

TEST(VocabularyPage, IsTheOneThatIsCheckedIn) {
  EXPECT_EQ(checked_in_page(), vocabulary_page())
      << "bring it up to date: genetic-search vocabulary > docs/vocabulary.md";
}

TEST(VocabularyPage, HoldsEveryFeatureAndFunctionWithItsFormula) {
  const std::string page = vocabulary_page();
  for (const FeatureEntry& feature : all_features()) {
    EXPECT_THAT(page, HasSubstr("| `" + std::string(feature.name) + "` | "));
    EXPECT_FALSE(feature.formula.empty()) << feature.name;
  }
  for (const FunctionEntry& function : all_functions()) {
    EXPECT_THAT(page, HasSubstr("| `" + std::string(function.name) + "(x"));
    EXPECT_FALSE(function.text.formula.empty()) << function.name;
  }
}

// Worked out by hand: the last day of x is 3, 3, -1, and the three days of the first instrument
// before its end are 2, 4, 3.
TEST(VocabularyPage, ItsExamplesAreTrue) {
  const std::string page = vocabulary_page();
  EXPECT_THAT(page, HasSubstr("| 0.75, 0.75, 0 |"));  // cross_rank
  EXPECT_THAT(page, HasSubstr("| `ts_mean(x, n)` | sum of the window / n |  |  | that of x | "
                              "3, NaN, "));
  EXPECT_THAT(page, HasSubstr("| 1.5, NaN, 1 |"));  // arith_div
}

}  // namespace
}  // namespace varnholt::embedded::test
