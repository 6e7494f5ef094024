// The verdict on a run: which signal is judged, and when it is better than luck.
#include "hosts/embedded/luck/verdict.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

JudgedSignal signal(const char* eval_id, double in_sample, double holdout, double deflated_z = 0.0,
                    double holdout_z = 0.0) {
  return {eval_id, in_sample, holdout, deflated_z, holdout_z};
}

TEST(Verdict, IsOnTheBestInSampleWhateverTheHoldoutSays) {
  const RunLuck luck = judged(
      {}, {signal("1-1", 0.5, 9.0), signal("1-2", 2.0, -1.0, 0.5, -1.5), signal("1-3", 2.0, 3.0)});
  ASSERT_TRUE(luck.best.has_value());
  EXPECT_EQ(luck.best->eval_id, "1-2") << "of equal ones the earlier";
  EXPECT_NEAR(luck.deflated_sharpe, normal_share(0.5), 1e-15);
  EXPECT_NEAR(luck.confidence, normal_share(-1.0 / 1.4142135623730951), 1e-12);
  EXPECT_FALSE(luck.better_than_luck);
}

TEST(Verdict, BothSamplesHaveTheSameSay) {
  EXPECT_FALSE(judged({}, {signal("1-1", 1.0, 1.0, 1.16, 1.16)}).better_than_luck);
  EXPECT_TRUE(judged({}, {signal("1-1", 1.0, 1.0, 1.17, 1.17)}).better_than_luck);
  EXPECT_TRUE(judged({}, {signal("1-1", 1.0, 1.0, -0.5, 3.0)}).better_than_luck);
  EXPECT_FALSE(judged({}, {signal("1-1", 1.0, 1.0, 2.0, 0.0)}).better_than_luck);
}

TEST(Verdict, TheSamplesStandSideBySide) {
  const RunLuck luck =
      judged({}, {signal("1-1", 1.0, 0.5), signal("1-2", 2.0, 1.0), signal("1-3", 3.0, 1.5)});
  EXPECT_EQ(luck.signals, 3);
  EXPECT_NEAR(luck.mean_in_sample_sharpe, 2.0, 1e-12);
  EXPECT_NEAR(luck.mean_holdout_sharpe, 1.0, 1e-12);
  EXPECT_NEAR(luck.sample_correlation.value(), 1.0, 1e-12);
  EXPECT_FALSE(judged({}, {signal("1-1", 1.0, 0.5), signal("1-2", 2.0, 1.0)})
                   .sample_correlation.has_value());
}

TEST(Verdict, WithoutASignalThereIsNothingToJudge) {
  const RunLuck luck = judged({}, {});
  EXPECT_FALSE(luck.best.has_value());
  EXPECT_FALSE(luck.better_than_luck);
}

}  // namespace
}  // namespace varnholt::embedded::test
