// A record crosses the process boundary unchanged: the order of its keys and of its graph's, every
// bit of its reals, keys that are not texts, and the statistics as an object with attributes.
#include "hosts/embedded/host/result_wire.hpp"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/graph/structural_key.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded::test {
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

TEST(ResultWire, CarriesThePnlToTheLastBitAndWhatItWasComparedWith) {
  Eigen::ArrayXd pnl(6);
  pnl << 0.1, -0.0, 5e-324, -std::numeric_limits<double>::max(), 1e-17, 0.0;
  PoolComparison comparison{3, 17, {0.25, 0.5, 0.75, "1-2", std::nullopt, 5, 4}};
  comparison.of_doubtful = MemberInformation{0.5, "1-2"};
  comparison.of_told = MemberInformation{0.25, "1-3"};
  comparison.told = 0.125;
  comparison.alike = {4, 9};
  const Mapping record{{genetic::keys::kStats, genetic::make_object<StatisticsObject>(
                                                   BacktestStatistics(), pnl, comparison)}};
  const Value stats = through_the_wire(record).at(genetic::keys::kStats);
  const StatisticsObject* const received = statistics_object(stats);
  ASSERT_NE(received, nullptr);
  ASSERT_TRUE(received->pnl().has_value());
  ASSERT_EQ(received->pnl()->size(), pnl.size());
  for (Eigen::Index day = 0; day < pnl.size(); ++day) {
    EXPECT_EQ(std::bit_cast<std::uint64_t>((*received->pnl())[day]),
              std::bit_cast<std::uint64_t>(pnl[day]));
  }
  ASSERT_TRUE(received->comparison().has_value());
  EXPECT_EQ(received->comparison()->members, 3);
  EXPECT_EQ(received->comparison()->last_member, 17);
  EXPECT_EQ(received->comparison()->measure.novelty, 0.25);
  EXPECT_EQ(received->comparison()->measure.mutual_information, 0.5);
  EXPECT_EQ(received->comparison()->measure.correlation, 0.75);
  EXPECT_EQ(received->comparison()->measure.nearest_by_information, "1-2");
  EXPECT_FALSE(received->comparison()->measure.nearest_by_correlation.has_value());
  EXPECT_EQ(received->comparison()->measure.members, 5);
  EXPECT_EQ(received->comparison()->measure.informed, 4);
  ASSERT_TRUE(received->comparison()->of_doubtful.has_value());
  EXPECT_EQ(received->comparison()->of_doubtful->information, 0.5);
  EXPECT_EQ(received->comparison()->of_doubtful->eval_id, "1-2");
  EXPECT_FALSE(received->comparison()->of_nearest.has_value());
  ASSERT_TRUE(received->comparison()->of_told.has_value());
  EXPECT_EQ(received->comparison()->of_told->eval_id, "1-3");
  EXPECT_EQ(received->comparison()->told, 0.125);
  EXPECT_EQ(received->comparison()->alike, (std::vector<std::int64_t>{4, 9}));
}

TEST(ResultWire, StatisticsWithoutAPnlStayWithout) {
  const Mapping record{
      {genetic::keys::kStats, genetic::make_object<StatisticsObject>(BacktestStatistics())}};
  const Value stats = through_the_wire(record).at(genetic::keys::kStats);
  EXPECT_FALSE(statistics_object(stats)->pnl().has_value());
  EXPECT_FALSE(statistics_object(stats)->comparison().has_value());
}

TEST(ResultWire, RefusesWhatIsNoRecord) {
  EXPECT_THROW(static_cast<void>(decode_result("[")), genetic::ValueError);
  EXPECT_THROW(static_cast<void>(decode_result("7")), genetic::ValueError);
}

}  // namespace
}  // namespace varnholt::embedded::test
