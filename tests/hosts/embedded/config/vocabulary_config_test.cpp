// The table [vocabulary]: what is written is taken, and each mistake is refused with its place and
// remedy.
#include "hosts/embedded/config/vocabulary_config.hpp"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "hosts/embedded/config/host_config.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

std::string refusal(const std::string& text) {
  try {
    static_cast<void>(parse_host_config(text, "c.toml"));
  } catch (const HostConfigError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(VocabularyConfig, TakesWhatIsWritten) {
  const VocabularySettings settings = parse_host_config(R"toml(
[vocabulary]
windows = [5, 21, 252]
constants = [0.5, 1, 2]
constant_share = 0.25
simplify = false
units = false
[vocabulary.families]
group = true
cross = 0
[vocabulary.functions]
ts_product = true
ts_mean = 2.5
comparison_gt = false
[vocabulary.features]
vwap = 3
short_interest = true
[vocabulary.complexity]
ts_correlation = 4
[vocabulary.formulas]
reversal = "-delta(close, 5)"
best = "rank(reversal) * rank(cap)"
squeeze = "rank(short_interest)"
)toml",
                                                        "c.toml")
                                          .vocabulary;
  EXPECT_THAT(settings.windows.value(), ElementsAre(5, 21, 252));
  EXPECT_THAT(settings.constants.value(), ElementsAre(0.5, 1.0, 2.0));
  EXPECT_EQ(settings.constant_share, 0.25);
  EXPECT_FALSE(settings.simplify);
  EXPECT_FALSE(settings.units);
  EXPECT_TRUE(settings_mapping(settings).contains(genetic::Value("units")));
  EXPECT_TRUE(settings_mapping(settings).contains(genetic::Value("simplify")));
  EXPECT_THAT(settings.families,
              ElementsAre(Pair("cross", Choice(0.0)), Pair("group", Choice(true))));
  EXPECT_EQ(settings.functions.at("ts_mean"), Choice(2.5));
  EXPECT_EQ(settings.functions.at("comparison_gt"), Choice(false));
  EXPECT_EQ(settings.features.at("vwap"), Choice(3.0));
  EXPECT_EQ(settings.complexity.at("ts_correlation"), 4.0);
  EXPECT_THAT(settings.formulas, ElementsAre(Pair("reversal", "-delta(close, 5)"),
                                             Pair("best", "rank(reversal) * rank(cap)"),
                                             Pair("squeeze", "rank(short_interest)")));
  EXPECT_EQ(settings.features.at("short_interest"), Choice(true));
  EXPECT_EQ(settings_mapping(parse_host_config("[vocabulary]\n", "c.toml").vocabulary).size(), 0U);
}

TEST(VocabularyConfig, RefusesEachMistakeWithItsPlaceAndRemedy) {
  const std::vector<std::pair<const char*, const char*>> cases = {
      {"[vocabulary]\nx = 1",
       "c.toml: line 2, column 1, vocabulary.x: [vocabulary] has no such key; the keys of "
       "[vocabulary] are: windows, constants, constant_share, simplify, units; its tables are"},
      {"[vocabulary]\nwindows = 5",
       "line 2, column 11, vocabulary.windows: 5 is no list of numbers; "},
      {"[vocabulary]\nwindows = []", "is no list of numbers; write whole numbers of days"},
      {"[vocabulary]\nwindows = [5, 3]", "has an item that does not belong there; write whole"},
      {"[vocabulary]\nwindows = [2.5]", "has an item that does not belong there"},
      {"[vocabulary]\nwindows = [0, 2]", "has an item that does not belong there"},
      {"[vocabulary]\nconstants = [-1, 2]", "write positive numbers, ascending"},
      {"[vocabulary]\nconstant_share = 2", "is out of range; write a number from 0 to 1"},
      {"[vocabulary]\nunits = \"on\"", "vocabulary.units: \"on\" is neither true nor false; write"},
      {"[vocabulary]\nsimplify = 1",
       "vocabulary.simplify: 1 is neither true nor false; write true"},
      {"[vocabulary]\nfunctions = 3", "is not a table; write one table [vocabulary.functions]"},
      {"[vocabulary.functions]\nts_meen = 1",
       "c.toml: line 2, column 1, vocabulary.functions.ts_meen: is not known; \"genetic-search "
       "vocabulary\" lists all"},
      {"[vocabulary.functions]\nts_mean = \"on\"", "is neither true nor false nor a number"},
      {"[vocabulary.functions]\nts_mean = -1", "is out of range; write a number from 0 to"},
      {"[vocabulary.families]\nts_mean = 1", "is not known; the families are cross, ts, arith"},
      {"[vocabulary.features]\nWeight = 1",
       "is not known; \"genetic-search vocabulary\" lists all; a column of your own has a name of "
       "small letters"},
      {"[vocabulary.features]\nrank = 1", "is not known"},
      {"[vocabulary.complexity]\nts_mean = true", "is not a number"},
      {"[vocabulary.formulas]\nclose = \"open\"", "is no name for a formula; take letters"},
      {"[vocabulary.formulas]\nrank = \"open\"", "is no name for a formula"},
      {"[vocabulary.formulas]\nadv20 = \"open\"", "is no name for a formula"},
      {"[vocabulary.formulas]\nsector = \"open\"", "is no name for a formula"},
      {"[vocabulary.formulas]\n\"a b\" = \"open\"", "is no name for a formula"},
      {"[vocabulary.formulas]\nmine = 3", "is not a text; write a formula, such as"},
      {"[vocabulary.formulas]\nmine = \"rank(clos)\"",
       "is no formula: line 1, column 6: \"clos\" is no feature of these market data; did you mean "
       "\"close\"?"},
      {"[vocabulary.formulas]\nmine = \"rank(mine)\"", "\"mine\" is no feature"},
  };
  for (const auto& [text, told] : cases) {
    const std::string what = refusal(text);
    EXPECT_THAT(what, HasSubstr(told));
    EXPECT_EQ(what.find('\n'), std::string::npos) << what;
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
