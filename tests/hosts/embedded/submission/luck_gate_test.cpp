// A signal that chance explains stays out of the pool where the user asks for it. Method: returns
// of a known Sharpe ratio, alone and through a queue whose count of trials is given.
#include "hosts/embedded/submission/luck_gate.hpp"

#include <cmath>
#include <cstdint>
#include <stdexcept>

#include <gmock/gmock.h>

#include "hosts/embedded/luck/deflated_sharpe.hpp"
#include "tests/hosts/embedded/submission/queue_fixture.hpp"

namespace varnholt::embedded::test {
namespace {

using Eigen::ArrayXd;
using ::testing::StartsWith;

// Of mean 0.2 and deviation 1 a day, so that the z-value beside 0 is about 3.1 of 250 days.
ArrayXd good_returns() {
  const ArrayXd normal = normal_series(250, 5);
  const ArrayXd centred = normal - normal.mean();
  const double deviation = std::sqrt(centred.square().sum() / 249.0);
  return centred / deviation + 0.2;
}

TEST(LuckGate, OneTrialIsJudgedBesideNothing) {
  const ArrayXd returns = good_returns();
  EXPECT_DOUBLE_EQ(deflated_sharpe(returns, 1),
                   normal_share(sharpe_estimate(returns).z_value(0.0)));
  EXPECT_GT(deflated_sharpe(returns, 1), 0.99);
}

TEST(LuckGate, TheMoreWasTriedTheMoreIsAsked) {
  const ArrayXd returns = good_returns();
  // The best of 1,000 is expected 3.255 errors above 0, of which an error is 1 / sqrt(249).
  const double benchmark = 3.2551 / std::sqrt(249.0);
  EXPECT_NEAR(deflated_sharpe(returns, 1000),
              normal_share(sharpe_estimate(returns).z_value(benchmark)), 1e-3);
  EXPECT_GT(deflated_sharpe(returns, 10), deflated_sharpe(returns, 1000));
}

TEST(LuckGate, RefusesWhatIsBelowAndSaysOfHowMany) {
  const ArrayXd returns = good_returns();
  const double deflated = deflated_sharpe(returns, 100);
  EXPECT_FALSE(luck_refusal(returns, 100, deflated).has_value());
  const auto refused = luck_refusal(returns, 100, deflated + 0.01);
  ASSERT_TRUE(refused.has_value());
  EXPECT_EQ(refused->reason, "deflated_sharpe_below_min");
  EXPECT_THAT(refused->detail, ::testing::HasSubstr("beside the best of 100 trials"));
}

class LuckGateInTheQueue : public QueueTest {
 protected:
  SyncReport settled_with(double least, std::int64_t trials, int* asked = nullptr) {
    SignalPool pool(*store_, pool_);
    SubmissionQueue queue(
        *store_, pool, {0.3, 0.7, least}, [] { return kNow; },
        [trials, asked] {
          if (asked != nullptr) ++*asked;
          return trials;
        });
    EXPECT_TRUE(queue.enqueue(payload(evaluate()), good_returns()));
    return queue.sync();
  }
};

TEST_F(LuckGateInTheQueue, RefusesWithItsReasonAndKeepsIt) {
  const SyncReport report = settled_with(0.95, 1000);
  ASSERT_EQ(report.settled.size(), 1U);
  ASSERT_TRUE(report.settled[0].refusal.has_value());
  EXPECT_EQ(report.settled[0].refusal->reason, "deflated_sharpe_below_min");
  const SubmissionRecord record = record_of(report.settled[0].eval_id);
  EXPECT_EQ(record.state, SubmissionState::Refused);
  EXPECT_EQ(record.settlement->refusal_reason, "deflated_sharpe_below_min");
  EXPECT_THAT(*record.settlement->refusal_detail, StartsWith("deflated Sharpe ratio 0."));
}

TEST_F(LuckGateInTheQueue, AdmitsWhatFewTrialsDoNotExplain) {
  const SyncReport report = settled_with(0.95, 1);
  ASSERT_EQ(report.settled.size(), 1U);
  EXPECT_FALSE(report.settled[0].refusal.has_value());
}

TEST_F(LuckGateInTheQueue, AsksForTheTrialsOnceASyncAndOnlyWhereTheyCount) {
  int asked = 0;
  static_cast<void>(settled_with(0.95, 1, &asked));
  EXPECT_EQ(asked, 1);
  asked = 0;
  static_cast<void>(settled_with(0.0, 1'000'000, &asked));
  EXPECT_EQ(asked, 0);
}

TEST_F(LuckGateInTheQueue, NeedsACountOfTrials) {
  SignalPool pool(*store_, pool_);
  EXPECT_THROW(SubmissionQueue(*store_, pool, {0.3, 0.7, 0.5}, [] { return kNow; }),
               std::invalid_argument);
}

}  // namespace
}  // namespace varnholt::embedded::test
