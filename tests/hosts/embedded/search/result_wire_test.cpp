// A record crosses the process boundary unchanged: the order of its keys and of its graph's, every
// bit of its reals, keys that are no texts, and the statistics as an object with attributes.
#include "hosts/embedded/search/result_wire.hpp"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "hosts/embedded/search/statistics_object.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

Mapping through_the_wire(const Mapping& record) {
  return decode_result(encode_result(record));
}

TEST(ResultWire, KeepsTheOrderOfKeysAtEveryLevel) {
  const Mapping record{
      {"z", 1},
      {"graph", Mapping{{"node", "close"}, {"children", List()}, {"a", 1}}},
      {"failures", Mapping{{"turnover_max", Mapping{{"reason", "turnover_max"}}}}}};
  const Mapping received = through_the_wire(record);
  EXPECT_EQ(genetic::repr(received), genetic::repr(record));
  EXPECT_TRUE(genetic::structural_key(received.at("graph")) ==
              genetic::structural_key(record.at("graph")));
}

TEST(ResultWire, KeepsEveryBitOfAReal) {
  for (const double real : {0.1, -0.0, 5e-324, std::numeric_limits<double>::max(), 1e16}) {
    const Value received = through_the_wire({{"value", real}}).at("value");
    ASSERT_TRUE(received.is_real());
    EXPECT_EQ(std::signbit(received.real()), std::signbit(real));
    EXPECT_EQ(received.real(), real);
  }
}

TEST(ResultWire, KeepsKeysThatAreNoTexts) {
  const Mapping received = through_the_wire({{"failures", Mapping{{7, "seven"}, {Value(), 1}}}});
  EXPECT_EQ(genetic::repr(received.at("failures")), "{7: 'seven', None: 1}");
}

TEST(ResultWire, ATupleArrivesAsAList) {
  EXPECT_TRUE(through_the_wire({{"pair", Tuple{1, 2}}}).at("pair") == Value(List{1, 2}));
}

TEST(ResultWire, CarriesTheStatisticsAsAnObject) {
  BacktestStatistics statistics;
  statistics.sharpe = 1.25;
  statistics.quality_score = 0.1;
  statistics.missing_return_count = 17;
  const Mapping record{{genetic::keys::kStats, genetic::make_object<StatisticsObject>(statistics)}};
  const Value stats = through_the_wire(record).at(genetic::keys::kStats);
  ASSERT_TRUE(statistics_of(stats).has_value());
  EXPECT_EQ(statistics_of(stats)->sharpe, 1.25);
  EXPECT_EQ(statistics_of(stats)->missing_return_count, 17);
  EXPECT_EQ(genetic::attribute(stats, "quality_score")->real(), 0.1);
  EXPECT_FALSE(genetic::attribute(stats, "correlation").has_value());
  // What was sent is unchanged.
  EXPECT_TRUE(record.at(genetic::keys::kStats).is_object());
}

TEST(ResultWire, RefusesWhatIsNoRecord) {
  EXPECT_THROW(static_cast<void>(decode_result("[")), genetic::ValueError);
  EXPECT_THROW(static_cast<void>(decode_result("7")), genetic::ValueError);
}

}  // namespace
}  // namespace varnholt::embedded
