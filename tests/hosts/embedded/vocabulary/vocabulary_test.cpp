// The vocabulary as data, and the panels of its features.
// Method: the tables against what their header promises; features computed by hand.
#include "hosts/embedded/vocabulary/vocabulary.hpp"

#include <algorithm>
#include <cmath>
#include <set>

#include <gmock/gmock.h>

#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/vocabulary/feature_panels.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"
#include "tests/hosts/embedded/price_text.hpp"
#include "tests/hosts/embedded/rich_vocabulary.hpp"

namespace varnholt::embedded::test {
namespace {

using testing::ElementsAre;

MarketData long_data() {
  return read_price_text(
      "date,symbol,open,high,low,close,volume\n"
      "2011-01-03,A,9,12,8,10,100\n"
      "2011-01-04,A,10,13,9,11,\n"
      "2011-01-05,A,,,,,300\n"
      "2011-01-06,A,12,14,10,12.5,400\n"
      "2011-01-07,A,12,15,10,10,500\n",
      "p.csv");
}

std::vector<std::string_view> feature_names(const Vocabulary& vocabulary) {
  std::vector<std::string_view> names;
  for (const FeatureEntry& feature : vocabulary.features)
    names.push_back(feature.name);
  return names;
}

TEST(Vocabulary, OffersTheFeaturesThatTheDataHave) {
  EXPECT_THAT(feature_names(make_vocabulary(long_data())),
              ElementsAre("close", "returns", "log_returns", "open", "high", "low", "volume",
                          "range", "dollar_volume"));
  MarketData data = long_data();
  data.open.reset();
  data.low.reset();
  EXPECT_THAT(feature_names(make_vocabulary(data)),
              ElementsAre("close", "returns", "log_returns", "high", "volume", "dollar_volume"));
  data.volume.reset();
  EXPECT_THAT(feature_names(make_vocabulary(data)),
              ElementsAre("close", "returns", "log_returns", "high"));
}

TEST(Vocabulary, NamesEachFunctionAfterItsFamily) {
  const Vocabulary vocabulary = make_vocabulary(read_price_text(
      "date,symbol,high,low,close\n2011-01-03,A,1,1,1\n2011-01-03,B,1,1,1\n", "p.csv"));
  std::set<std::string_view> names;
  std::set<std::string_view> families;
  for (const FunctionEntry& entry : vocabulary.functions) {
    const std::string prefix = std::string(entry.family) + "_";
    EXPECT_EQ(entry.name.substr(0, prefix.size()), prefix);
    EXPECT_EQ(entry.weight > 0.0, entry.drawn == Drawn::Always) << entry.name;
    EXPECT_EQ(vocabulary.find_function(entry.name), &entry);
    names.insert(entry.name);
    families.insert(entry.family);
  }
  EXPECT_EQ(names.size(), vocabulary.functions.size());
  EXPECT_EQ(std::count_if(vocabulary.functions.begin(), vocabulary.functions.end(),
                          [](const FunctionEntry& entry) { return entry.weight > 0.0; }),
            28);
  EXPECT_THAT(families, ElementsAre("arith", "comparison", "cross", "group", "logic", "ts"));
  EXPECT_EQ(vocabulary.find_function("mean"), nullptr);
  EXPECT_EQ(vocabulary.find_function("close"), nullptr);
  EXPECT_EQ(vocabulary.find_feature("ts_mean"), nullptr);
  ASSERT_NE(vocabulary.find_feature("range"), nullptr);
  EXPECT_EQ(vocabulary.find_feature("range")->name, "range");
}

TEST(Vocabulary, TellsTheArgumentsOfAFunction) {
  const Vocabulary vocabulary = make_vocabulary(long_data());
  const auto arguments = [&vocabulary](std::string_view name) {
    const FunctionEntry& entry = *vocabulary.find_function(name);
    return std::vector<std::size_t>{entry.data_children(), entry.needs_window() ? 1u : 0u,
                                    entry.child_count()};
  };
  EXPECT_THAT(arguments("cross_rank"), ElementsAre(1u, 0u, 1u));
  EXPECT_THAT(arguments("ts_mean"), ElementsAre(1u, 1u, 2u));
  EXPECT_THAT(arguments("arith_add"), ElementsAre(2u, 0u, 2u));
  EXPECT_THAT(arguments("ts_correlation"), ElementsAre(2u, 1u, 3u));
}

TEST(Vocabulary, KnowsAWindowByTheTextOfItsDays) {
  EXPECT_THAT(make_vocabulary(long_data()).windows, ElementsAre(2, 3, 5, 10, 15, 20, 40, 60, 120));
  EXPECT_EQ(window_of("20"), 20);
  EXPECT_EQ(window_of("21"), 21);
  EXPECT_EQ(window_of("100000"), kLongestWindow);
  for (const char* text :
       {"", "020", "+20", "20.0", " 20", "0", "-2", "100001", "twenty", "20 ", "4294967316"}) {
    EXPECT_EQ(window_of(text), std::nullopt) << text;
  }
}

TEST(Vocabulary, WritesANumberWithTheFewestDigits) {
  for (const double number : {0.0, 1.0, -2.0, 0.1, 1.0 / 3.0, 1e-300, 1e300, 100000.0, 0.0078125})
    EXPECT_EQ(constant_value(number_text(number)), number) << number;
  EXPECT_EQ(number_text(0.5), "0.5");
  EXPECT_EQ(number_text(100000.0), "100000");
  EXPECT_EQ(number_text(-0.0), "0");
  for (const char* text : {"", "1.0", "+1", "01", "-0", "1e5", "nan", "inf", "1e999", "0x1", "1 "})
    EXPECT_EQ(constant_value(text), std::nullopt) << text;
}

TEST(Vocabulary, OffersTheOwnColumnsAndTheGroups) {
  const Vocabulary vocabulary = rich_vocabulary();
  ASSERT_NE(vocabulary.find_feature("vwap"), nullptr);
  ASSERT_NE(vocabulary.find_feature("cap"), nullptr);
  EXPECT_THAT(vocabulary.groups, ElementsAre("industry", "sector"));
  ASSERT_NE(vocabulary.find_group("sector"), nullptr);
  EXPECT_EQ(vocabulary.find_group("Sector"), nullptr);
  EXPECT_EQ(make_vocabulary(long_data()).find_feature("vwap"), nullptr);
  EXPECT_TRUE(make_vocabulary(long_data()).groups.empty());
  const MarketData data =
      with_own_columns(make_synthetic_universe({.instruments = 3, .days = 4, .factors = 1}));
  const FeaturePanels panels(data);
  EXPECT_TRUE(panels_are_near(*panels.find("vwap"), data.vwap.value(), 0.0));
  EXPECT_TRUE((panels.group("sector") == data.groups.at("sector")).all());
}

TEST(Vocabulary, TellsHowAFunctionIsCalled) {
  const Vocabulary vocabulary = make_vocabulary(long_data());
  const auto call = [&vocabulary](std::string_view name) {
    return call_text(*vocabulary.find_function(name));
  };
  EXPECT_EQ(call("cross_rank"), "cross_rank(x)");
  EXPECT_EQ(call("arith_if"), "arith_if(x, y, z)");
  EXPECT_EQ(call("ts_quantile"), "ts_quantile(x, number, n)");
  EXPECT_EQ(call("group_rank"), "group_rank(x, group)");
  EXPECT_EQ(call("ts_slope"), "ts_slope(x, y, n)");
}

TEST(FeaturePanels, FollowTheirFormulas) {
  const FeaturePanels panels(long_data());
  const auto is = [&panels](std::string_view name, const Panel& expected) {
    return panels_are_near(*panels.find(name), expected, 1e-14);
  };
  EXPECT_TRUE(is("close", series({10, 11, kNan, 12.5, 10})));
  EXPECT_TRUE(is("open", series({9, 10, kNan, 12, 12})));
  EXPECT_TRUE(is("high", series({12, 13, kNan, 14, 15})));
  EXPECT_TRUE(is("low", series({8, 9, kNan, 10, 10})));
  EXPECT_TRUE(is("volume", series({100, kNan, 300, 400, 500})));
  EXPECT_TRUE(is("returns", series({kNan, 0.1, kNan, kNan, -0.2})));
  EXPECT_TRUE(is("log_returns", series({kNan, std::log(1.1), kNan, kNan, std::log(0.8)})));
  EXPECT_TRUE(is("range", series({0.4, 4.0 / 11.0, kNan, 0.32, 0.5})));
  EXPECT_TRUE(is("dollar_volume", series({1000, kNan, kNan, 5000, 5000})));
  EXPECT_EQ(panels.find("volatility"), nullptr);
  EXPECT_EQ(panels.vocabulary().features.size(), 9u);
}

TEST(FeaturePanels, LeaveOutWhatTheDataLack) {
  MarketData data = long_data();
  data.high.reset();
  const FeaturePanels panels(data);
  EXPECT_EQ(panels.find("high"), nullptr);
  EXPECT_EQ(panels.find("range"), nullptr);
  EXPECT_NE(panels.find("low"), nullptr);
}

}  // namespace
}  // namespace varnholt::embedded::test
