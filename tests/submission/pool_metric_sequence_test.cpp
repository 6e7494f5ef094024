// Goal: after any sequence of measurements against the pool a candidate is in the state that the
// last of them left, together with what a measurement does not undo.
// Method: a scripted engine; chosen pairs, and random sequences against a plain model of states.
#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/submission/pool_metric_fixture.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"

namespace varnholt::genetic::test {
namespace {

class PoolMetricSequence : public PoolMetricRefresh {};

TEST_F(PoolMetricSequence, ClearAfterPendingTakesTheMarkAway) {
  host.engine.on_refresh_submission_manifest_membership = always(false);
  refresh();
  tracking().set("failure_reason", "pnl_mi");
  tracking().set("failure_detail", "of the pool");
  host.engine.on_refresh_submission_manifest_membership = always(true);
  refresh();
  EXPECT_FALSE(candidate.contains("_submission_pending_reason"));
  EXPECT_FALSE(payload.contains("_submission_pending_reason"));
  for (const char* key : {"pool_metrics_pending", "pool_metrics_pending_detail", "failure_reason",
                          "failure_detail"}) {
    EXPECT_FALSE(tracking().contains(key)) << key;
  }
  // A reason that is not the pool's stays.
  tracking().set("failure_reason", "sharpe_min");
  tracking().set("failure_detail", "of the gates");
  refresh();
  EXPECT_EQ(tracking().at("failure_reason"), "sharpe_min");
  EXPECT_EQ(tracking().at("failure_detail"), "of the gates");
}

TEST_F(PoolMetricSequence, ClearAfterBlockedUndoesNothing) {
  answers(Tuple{0.25, false}, Tuple{0.25, true});
  refresh();
  answers(Tuple{0.9, true}, Tuple{0.25, true});
  refresh();
  EXPECT_EQ(candidate.at("passes"), false);
  EXPECT_EQ(candidate.at("_submission_blocked_reason"), "pnl_mi_below_threshold");
  EXPECT_TRUE(candidate.at("failures").mapping().contains("pnl_mi_below_threshold"));
  EXPECT_EQ(tracking().at("mi_verdict").mapping().at("passed"), true);
}

TEST_F(PoolMetricSequence, PendingAfterBlockedLiftsTheReasonAlone) {
  answers(Tuple{0.25, false}, Tuple{0.25, true});
  refresh();
  host.engine.on_refresh_submission_manifest_membership = always(false);
  refresh();
  EXPECT_FALSE(candidate.contains("_submission_blocked_reason"));
  EXPECT_EQ(candidate.at("passes"), false);
  EXPECT_TRUE(candidate.at("failures").mapping().contains("pnl_mi_below_threshold"));
  EXPECT_EQ(tracking().at("mi_verdict"), kNotEvaluated);
  EXPECT_FALSE(tracking().contains("failure_reason"));
}

// What the measurements so far should have left, told by hand from what the host answered.
struct ModelState {
  bool pending = false;
  Value blocked_reason;
  bool passes = true;
  std::vector<std::string> failures;  // In the order in which they came first.

  void fail(const char* reason) {
    blocked_reason = reason;
    passes = false;
    if (std::find(failures.begin(), failures.end(), reason) == failures.end()) {
      failures.emplace_back(reason);
    }
  }
};

TEST_F(PoolMetricSequence, StatesHoldAfterAnySequenceOfMeasurements) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  RandomValues random(seed);
  for (int sequence = 0; sequence < 60; ++sequence) {
    candidate = {{"stats", "stats"}, {"passes", true}};
    payload = {{"is_stats", Mapping()}};
    ModelState model;
    for (std::size_t step = 0, count = 1 + random.below(8); step < count; ++step) {
      const bool confirmed = random.below(4) > 0;
      const std::size_t mi = random.below(4);           // 0 not ready, 1 failed, else passed.
      const std::size_t correlation = random.below(4);  // The same.
      const bool breaks = random.below(10) == 0;
      host.engine.on_refresh_submission_manifest_membership = always(Value(confirmed));
      answers(Tuple{0.5, mi > 1}, Tuple{0.25, correlation > 1});
      if (mi == 0) {
        host.engine.on_submission_pnl_mi_from_backtest_or_compute =
            failing(PoolDataNotReady("not yet"));
      }
      if (correlation == 0) {
        host.engine.on_submission_correlation_from_backtest_or_compute =
            failing(PoolDataNotReady("not yet"));
      }
      if (breaks) host.engine.on_refresh_submission_manifest_membership = failing(KeyError("odd"));
      EXPECT_EQ(error_of_refresh(), breaks ? "KeyError: odd" : "no error");

      const bool pending = !breaks && (!confirmed || mi == 0 || correlation == 0);
      if (pending) {
        model.pending = true;
        model.blocked_reason = Value();
      } else if (!breaks) {
        model.pending = false;
        if (mi == 1) {
          model.fail("pnl_mi_below_threshold");
        } else if (correlation == 1) {
          model.fail("correlation_exceeded");
        }
      }

      SCOPED_TRACE(repr(candidate) + "\n" + repr(payload));
      EXPECT_EQ(candidate.contains("_submission_pending_reason"), model.pending);
      EXPECT_EQ(payload.contains("_submission_pending_reason"), model.pending);
      EXPECT_EQ(tracking().contains("pool_metrics_pending"), model.pending);
      EXPECT_EQ(tracking().contains("pool_metrics_pending_detail"), model.pending);
      EXPECT_EQ(candidate.get("_submission_blocked_reason"), model.blocked_reason);
      EXPECT_EQ(candidate.at("passes"), model.passes);
      Names failures;
      if (candidate.contains("failures")) {
        for (const MappingEntry& entry : candidate.at("failures").mapping().native_entries())
          failures.push_back(str(entry.key));
      }
      EXPECT_EQ(failures, model.failures);
      const bool measured = !breaks && !pending;
      EXPECT_EQ(is_stats().contains("is_pnl_mi"), measured);
      EXPECT_EQ(is_stats().contains("correlation"), measured);
      EXPECT_EQ(tracking().contains("pnl_mi"), measured);
      EXPECT_EQ(tracking().contains("correlation"), measured);
      if (!measured) {
        EXPECT_EQ(tracking().at("mi_verdict"), kNotEvaluated);
        EXPECT_EQ(tracking().at("correlation_verdict"), kNotEvaluated);
        continue;
      }
      EXPECT_EQ(tracking().at("mi_verdict").mapping().at("passed"), mi > 1);
      if (correlation > 1) {
        EXPECT_EQ(tracking().at("correlation_verdict").mapping().at("passed"), true);
      } else if (mi == 1) {
        EXPECT_EQ(tracking().at("correlation_verdict"), kNotEvaluated);
      } else {
        EXPECT_EQ(tracking().at("correlation_verdict").mapping().at("passed"), false);
      }
    }
  }
}

}  // namespace
}  // namespace varnholt::genetic::test
