// The two gates of a pool: what passes, what is named when both fail. Method: a table of measures.
#include "hosts/embedded/signal_pool/pool_gates.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>

namespace varnholt::embedded::test {
namespace {

using ::testing::HasSubstr;

TEST(Novelty, OfAGaussianPairIsWhatTheCorrelationLeaves) {
  for (const double rho : {0.0, 0.01, 0.3, 0.6, 0.95, 0.999}) {
    EXPECT_NEAR(novelty_of(-0.5 * std::log(1.0 - rho * rho)), 1.0 - rho, 1e-9) << rho;
  }
  EXPECT_EQ(novelty_of(0.0), 1.0);
  EXPECT_EQ(novelty_of(-0.02), 1.0) << "an estimate below nothing is nothing";
  EXPECT_NEAR(novelty_of(1e-20), 1.0 - std::sqrt(2e-20), 1e-16);
  EXPECT_EQ(novelty_of(std::numeric_limits<double>::infinity()), 0.0);
}

TEST(Novelty, IsLeftByTheInformationThatIsNamedForIt) {
  for (const double novelty : {0.01, 0.2, 0.6, 1.0})
    EXPECT_NEAR(novelty_of(information_of(novelty)), novelty, 1e-12);
  EXPECT_EQ(information_of(0.0), std::numeric_limits<double>::infinity());
}

TEST(PoolGates, DecideAtTheirThresholds) {
  const PoolThresholds thresholds{0.25, 0.75};
  struct Row {
    double novelty;
    double correlation;
    const char* reason;
  };
  for (const Row& row :
       {Row{1.0, 0.0, ""}, Row{0.25, 0.75, ""}, Row{0.2499, 0.75, "pnl_mi_below_threshold"},
        Row{0.25, 0.7501, "correlation_exceeded"}, Row{0.0, 1.0, "pnl_mi_below_threshold"}}) {
    PoolMeasure measure;
    measure.novelty = row.novelty;
    measure.correlation = row.correlation;
    const std::optional<PoolRefusal> found = refusal(measure, thresholds);
    EXPECT_EQ(found ? found->reason : "", row.reason) << row.novelty << ' ' << row.correlation;
    EXPECT_EQ(passes_novelty(measure, thresholds), row.novelty >= 0.25);
    EXPECT_EQ(passes_correlation(measure, thresholds), row.correlation <= 0.75);
  }
}

TEST(PoolGates, TellWhatWasMeasuredAndAgainstWhom) {
  PoolMeasure measure;
  measure.novelty = 0.125;
  measure.correlation = 0.875;
  measure.nearest_by_information = "3-17";
  measure.nearest_by_correlation = "4-2";
  EXPECT_EQ(refusal(measure, {0.25, 0.75})->detail,
            "novelty 0.125 is below 0.25; it depends most on member 3-17");
  measure.members = 195;
  measure.informed = 3;
  EXPECT_EQ(refusal(measure, {0.25, 0.75})->detail,
            "novelty 0.125 is below 0.25; it depends most on member 3-17 of the 3 that were asked; "
            "the other 192 were not");
  EXPECT_EQ(refusal(measure, {0.0, 0.75})->detail,
            "correlation 0.875 is above 0.75, with member 4-2");
}

TEST(PoolGates, RefuseThresholdsThatCannotBe) {
  EXPECT_NO_THROW(check_pool_thresholds({0.0, 1.0}));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double wrong : {-0.01, 1.01, nan}) {
    EXPECT_THROW(check_pool_thresholds({wrong, 0.5}), std::invalid_argument);
    EXPECT_THROW(check_pool_thresholds({0.5, wrong}), std::invalid_argument);
  }
  try {
    check_pool_thresholds({0.5, 7.0});
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(), HasSubstr("correlation to the pool is 7; it must be a number from"));
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
