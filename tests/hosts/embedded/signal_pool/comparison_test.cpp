// A comparison decides as the definitions do, pair by pair, whatever it leaves out. Method: pools
// of series of many kinds of likeness, beside every pair by its definition.
#include "hosts/embedded/signal_pool/comparison.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <gtest/gtest.h>

#include "hosts/embedded/signal_pool/pnl_measures.hpp"
#include "tests/hosts/embedded/signal_pool/pool_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

class MadePool {
 public:
  explicit MadePool(Index days) : series_(days) {}

  void join(const ArrayXd& pnl) {
    pnls_.push_back(pnl);
    series_.append(pnl);
    names_.push_back("1-" + std::to_string(names_.size() + 1));
  }
  void add(const ArrayXd& pnl, std::size_t first, double least, PoolComparison& known) const {
    comparison().add(pnl, rows_from(first), least, known);
  }
  [[nodiscard]] std::vector<std::size_t> alike(const ArrayXd& pnl,
                                               const PoolThresholds& thresholds) const {
    return comparison().alike(pnl, rows_from(0), thresholds);
  }
  [[nodiscard]] PoolMeasure measure(const ArrayXd& pnl, double least = kDefaultMinNovelty) const {
    PoolComparison known;
    add(pnl, 0, least, known);
    return known.measure;
  }
  [[nodiscard]] const ArrayXd& pnl_of(const std::string& name) const {
    const auto found = std::find(names_.begin(), names_.end(), name);
    return pnls_.at(static_cast<std::size_t>(found - names_.begin()));
  }
  [[nodiscard]] const std::vector<ArrayXd>& pnls() const { return pnls_; }

 private:
  [[nodiscard]] MemberComparison comparison() const {
    return {series_, [this](std::size_t row) -> const std::string& { return names_[row]; }};
  }
  [[nodiscard]] std::vector<std::size_t> rows_from(std::size_t first) const {
    std::vector<std::size_t> rows(pnls_.size() - first);
    std::iota(rows.begin(), rows.end(), first);
    return rows;
  }

  MemberSeries series_;
  std::vector<ArrayXd> pnls_;
  std::vector<std::string> names_;
};

double greatest_information(const MadePool& pool, const ArrayXd& pnl) {
  double greatest = -1.0;
  const NormalScores scores(pnl);
  for (const ArrayXd& member : pool.pnls())
    greatest = std::max(greatest, mutual_information(scores, NormalScores(member)));
  return greatest;
}

double greatest_correlation(const MadePool& pool, const ArrayXd& pnl) {
  double greatest = 0.0;
  for (const ArrayXd& member : pool.pnls())
    greatest = std::max(greatest, std::abs(pearson_correlation(pnl, member)));
  return greatest;
}

// Like `x` in one of many ways, more or less by `strength` from 0 to 1.
ArrayXd like(const ArrayXd& x, std::uint64_t kind, double strength, std::uint64_t seed) {
  const Index days = x.size();
  const ArrayXd other = normal_series(days, seed);
  const ArrayXd chance = (1.0 + (-1.702 * normal_series(days, seed + 1)).exp()).inverse();
  switch (kind % 6) {
    case 0:
      return correlated(x, -strength, seed);
    case 1:
      return (chance < 0.4 * strength).select(x, other);
    case 2:
      return x.square() + (1.5 - strength) * other;
    case 3:
      return (other > 0.0).select(x, -x) + (1.2 - strength) * normal_series(days, seed + 2);
    case 4:
      return (chance < 0.3).select(correlated(x, strength, seed + 3), 0.0);
    default:
      return (1.0 + 5.0 * strength) * x.sin() + other;
  }
}

TEST(MemberComparisonTest, DecidesAsEveryPairByItsDefinitionDoes) {
  constexpr Index kManyDays = 600;
  int refused = 0;
  int passed = 0;
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(seed);
    const ArrayXd signal = normal_series(kManyDays, 1000 * seed);
    MadePool pool(kManyDays);
    for (std::uint64_t i = 0; i < 12; ++i)
      pool.join(normal_series(kManyDays, 1000 * seed + 10 + i));
    std::mt19937_64 generator(seed);
    const double strength = std::uniform_real_distribution<double>(0.3, 0.95)(generator);
    pool.join(like(signal, seed, strength, 1000 * seed + 100));
    pool.join(like(signal, seed + 1, 0.3 * strength, 1000 * seed + 200));

    const double information = greatest_information(pool, signal);
    const PoolMeasure measure = pool.measure(signal);
    EXPECT_EQ(measure.novelty >= kDefaultMinNovelty, novelty_of(information) >= kDefaultMinNovelty)
        << "kind " << seed % 6 << ", information " << information << ", measured "
        << measure.mutual_information;
    EXPECT_EQ(measure.correlation, greatest_correlation(pool, signal)) << "to the last bit";
    EXPECT_LE(measure.mutual_information, information);
    EXPECT_EQ(measure.mutual_information,
              mutual_information(signal, pool.pnl_of(*measure.nearest_by_information)));
    measure.novelty >= kDefaultMinNovelty ? ++passed : ++refused;
  }
  EXPECT_GT(refused, 10);
  EXPECT_GT(passed, 10);
}

TEST(MemberComparisonTest, OverFewDaysNeighboursTellEveryMember) {
  constexpr Index kFewDays = kFewestTabledDays - 1;
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    const ArrayXd signal = normal_series(kFewDays, 100 * seed);
    MadePool pool(kFewDays);
    for (std::uint64_t i = 1; i <= 5; ++i)
      pool.join(like(signal, seed + i, 0.1 * static_cast<double>(i), 100 * seed + i));
    const PoolMeasure measure = pool.measure(signal);
    if (measure.novelty < kDefaultMinNovelty) continue;
    EXPECT_EQ(measure.mutual_information, greatest_information(pool, signal)) << seed;
  }
}

TEST(MemberComparisonTest, StepByStepItMeasuresAsAtOnce) {
  constexpr Index kManyDays = 400;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    const ArrayXd signal = normal_series(kManyDays, 100 * seed);
    MadePool pool(kManyDays);
    PoolComparison known;
    std::mt19937_64 generator(seed);
    for (std::uint64_t i = 1; i <= 20; ++i) {
      const double strength = std::uniform_real_distribution<double>(0.0, 0.7)(generator);
      pool.join(like(signal, generator() % 6, strength, 100 * seed + i));
      if (generator() % 3 != 0) continue;
      const auto first = static_cast<std::size_t>(known.members);
      pool.add(signal, first, kDefaultMinNovelty, known);
      known.members = static_cast<std::int64_t>(pool.pnls().size());
      const PoolMeasure at_once = pool.measure(signal);
      EXPECT_EQ(known.measure.correlation, at_once.correlation);
      EXPECT_EQ(known.measure.nearest_by_correlation, at_once.nearest_by_correlation);
      EXPECT_EQ(known.measure.members, at_once.members);
      EXPECT_EQ(known.measure.novelty >= kDefaultMinNovelty, at_once.novelty >= kDefaultMinNovelty);
      if (known.measure.novelty < kDefaultMinNovelty) break;
      EXPECT_EQ(known.measure.mutual_information, at_once.mutual_information);
      EXPECT_EQ(known.measure.nearest_by_information, at_once.nearest_by_information);
      EXPECT_EQ(known.measure.informed, at_once.informed);
      EXPECT_EQ(at_once.informed, at_once.members);
    }
  }
}

TEST(MemberComparisonTest, OneMemberIsEnoughAndTheRestAreNotAsked) {
  const ArrayXd signal = normal_series(500, 1);
  MadePool pool(500);
  for (std::uint64_t i = 2; i < 9; ++i)
    pool.join(normal_series(500, i));
  pool.join(correlated(signal, 0.97, 9));
  const PoolMeasure measure = pool.measure(signal);
  EXPECT_LT(measure.novelty, kDefaultMinNovelty);
  EXPECT_EQ(measure.nearest_by_information, "1-8");
  EXPECT_EQ(measure.mutual_information, mutual_information(signal, pool.pnls().back()));
  EXPECT_EQ(measure.members, 8);
  EXPECT_EQ(measure.informed, 1);
}

TEST(MemberComparisonTest, WhereAnyNoveltyWillDoTheCorrelationIsAllThatIsAsked) {
  const ArrayXd signal = normal_series(500, 1);
  MadePool pool(500);
  pool.join(signal.square());
  pool.join(correlated(signal, -0.6, 2));
  const PoolMeasure measure = pool.measure(signal, 0.0);
  EXPECT_EQ(measure.correlation, greatest_correlation(pool, signal));
  EXPECT_NEAR(measure.novelty, 1.0 - measure.correlation, 1e-12);
  EXPECT_EQ(measure.nearest_by_information, "1-2");
  EXPECT_EQ(measure.informed, 0);
  pool.join(2.0 * signal);
  EXPECT_LT(pool.measure(signal, 0.0).mutual_information, 7.0) << "a number, also for itself";
  EXPECT_NEAR(pool.measure(signal, 0.0).novelty, 0.0, 1e-4);
}

TEST(MemberComparisonTest, AlikeIsWhatAloneWouldRefuse) {
  constexpr Index kManyDays = 600;
  int found_alike = 0;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    const ArrayXd signal = normal_series(kManyDays, 1000 * seed);
    MadePool pool(kManyDays);
    for (std::uint64_t kind = 0; kind < 6; ++kind)
      pool.join(like(signal, kind, 0.15 * static_cast<double>(seed % 7), 1000 * seed + kind));
    std::vector<std::size_t> expected;
    for (std::size_t row = 0; row < pool.pnls().size(); ++row) {
      MadePool alone(kManyDays);
      alone.join(pool.pnls()[row]);
      if (refusal(alone.measure(signal), PoolThresholds())) expected.push_back(row);
    }
    EXPECT_EQ(pool.alike(signal, PoolThresholds()), expected);
    found_alike += static_cast<int>(expected.size());
  }
  EXPECT_GT(found_alike, 5);
}

TEST(MemberComparisonTest, OfEqualMembersTheEarlierIsTheNearest) {
  const ArrayXd signal = normal_series(400, 1);
  const ArrayXd member = correlated(signal, 0.5, 2);
  MadePool pool(400);
  pool.join(normal_series(400, 3));
  pool.join(member);
  pool.join(member);
  const PoolMeasure measure = pool.measure(signal);
  EXPECT_EQ(measure.nearest_by_correlation, "1-2");
  EXPECT_EQ(measure.nearest_by_information, "1-2");
}

}  // namespace
}  // namespace varnholt::embedded::test
