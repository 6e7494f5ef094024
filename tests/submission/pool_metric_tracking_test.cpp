// Goal: a measurement against the pool leaves on the candidate's record exactly what its rule says:
// a block, a passed verdict, the mark that it waits, or that mark's end.
//
// Method: each record before and after in its text form, tables over the reasons, and the scripted
// host's log for what is asked and in which order.
#include "search_templates/genetic/submission/pool_metric_tracking.hpp"

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

// An interrupt of the host: no ordinary error.
struct Interrupt {};

class PoolMetricTracking : public testing::Test {
 protected:
  void attributes(Mapping entries) {
    host.context.on_attribute = [entries = std::move(entries)](std::string_view name) {
      return entries.find(name);
    };
  }
  [[nodiscard]] Callable operation(const char* name, ScriptedCallable::Function answer) {
    return scripted_callable(host.log, name, std::move(answer));
  }
  void failed_gate_verdict(const Value& verdict) {
    host.engine.on_find_failed_gate_verdict =
        always(operation("failed_gate_verdict", always(verdict)));
  }
  void gate_verdict(const Value& verdict) {
    host.engine.on_find_gate_verdict = always(operation("gate_verdict", always(verdict)));
  }
  void mi_threshold(ScriptedCallable::Function answer) {
    host.engine.on_find_submission_mi_threshold_and_pool =
        always(operation("mi_threshold", std::move(answer)));
  }
  void correlation_threshold(ScriptedCallable::Function answer) {
    host.engine.on_find_submission_correlation_threshold_and_pool =
        always(operation("correlation_threshold", std::move(answer)));
  }
  static ScriptedCallable::Function throwing(const std::function<void()>& action) {
    return [action](auto, const auto&) -> Value {
      action();
      return {};
    };
  }

  ScriptedHost host;
};

using MiFailureDetail = PoolMetricTracking;

TEST_F(MiFailureDetail, IsWhatTheHostRecordsForTheGate) {
  attributes({{"_era_config", "era"}, {"_signal_pool_name", "pool"}});
  host.engine.on_stats_gate_threshold_set = always("thresholds");
  mi_threshold(always(Value(Tuple{0.2, "pool ids"})));
  const Value detail = Mapping{{"value", 1}};
  host.engine.on_find_recorded_failure_detail =
      always(operation("recorded_failure_detail", always(detail)));
  EXPECT_TRUE(same_object(submission_mi_failure_detail(host.engine, host.engine, host.context, 0.1),
                          detail));
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("engine.find_submission_mi_threshold_and_pool",
                  "context.attribute('_era_config')", "context.attribute('_signal_pool_name')",
                  "context.attribute('thresholds')", "context.attribute('_thresholds')",
                  "context.search_context_thresholds", "context.attribute('era_config')",
                  "context.attribute('_era_config')", "engine.stats_gate_threshold_set({}, 'era')",
                  "mi_threshold('era', 'pool', 'thresholds')",
                  "engine.find_recorded_failure_detail",
                  "recorded_failure_detail('pnl_mi_below_threshold', 'is_pnl_mi', 0.1, 0.2, "
                  "gate='is_pnl_mi_threshold', operator='<', category='quality')"));
}

TEST_F(MiFailureDetail, HandsAbsentOnesOn) {
  mi_threshold(always(Value(List{Value(), 1})));
  host.engine.on_find_recorded_failure_detail =
      always(operation("recorded_failure_detail", always(Value())));
  EXPECT_TRUE(
      submission_mi_failure_detail(host.engine, host.engine, host.context, Value()).is_absent());
  EXPECT_THAT(host.log.lines(), Contains("mi_threshold(None, None, {})"));
  EXPECT_TRUE(host.log.lines().back().starts_with(
      "recorded_failure_detail('pnl_mi_below_threshold', 'is_pnl_mi', None, None, "));
}

TEST_F(MiFailureDetail, FailsWithoutTheHostsOperations) {
  const auto failure = [this] {
    host.log.clear();
    return error_of(
        [this] { return submission_mi_failure_detail(host.engine, host.engine, host.context, 1); });
  };
  EXPECT_EQ(failure(), "RuntimeError: genetic search requires canonical PnL-MI thresholds");
  EXPECT_THAT(host.log.lines(), ElementsAre("engine.find_submission_mi_threshold_and_pool"));
  mi_threshold(always(Value(Tuple{1, 2})));
  EXPECT_EQ(failure(), "RuntimeError: genetic search requires canonical failure evidence");
  // The thresholds are asked for before the other operation is missed.
  EXPECT_EQ(host.log.count("mi_threshold"), 1U);
  EXPECT_EQ(host.log.lines().back(), "engine.find_recorded_failure_detail");
}

TEST_F(MiFailureDetail, LetsEveryFailurePass) {
  const auto failure = [this] {
    return error_of(
        [this] { return submission_mi_failure_detail(host.engine, host.engine, host.context, 1); });
  };
  host.engine.on_find_recorded_failure_detail =
      always(operation("recorded_failure_detail", throwing([] { throw KeyError("no detail"); })));
  mi_threshold(always(Value(Tuple{1, 2})));
  EXPECT_EQ(failure(), "KeyError: no detail");
  mi_threshold(always(Value(Tuple{1})));
  EXPECT_EQ(failure(), "ValueError: not enough values to unpack (expected 2, got 1)");
  mi_threshold(always(Value(Tuple{1, 2, 3})));
  EXPECT_EQ(failure(), "ValueError: too many values to unpack (expected 2)");
  mi_threshold(always(Value()));
  EXPECT_EQ(failure(), "TypeError: cannot unpack non-iterable NoneType object");
  mi_threshold(throwing([] { throw RuntimeError("no pool"); }));
  EXPECT_EQ(failure(), "RuntimeError: no pool");
  host.engine.on_stats_gate_threshold_set = failing(RuntimeError("no thresholds"));
  EXPECT_EQ(failure(), "RuntimeError: no thresholds");
}

using BlockCandidate = PoolMetricTracking;

TEST_F(BlockCandidate, WritesFailureTrackingVerdictAndReason) {
  struct Case {
    Value reason;
    Value detail;
    std::string expected;
  };
  const Case cases[] = {
      {"pnl_mi_below_threshold", Value(),
       "{'passes': False, 'failures': {'pnl_mi_below_threshold': {'reason': "
       "'pnl_mi_below_threshold'}}, 'tracking_metric_kwargs': {'failure_reason': 'pnl_mi', "
       "'mi_verdict': {'passed': False, 'reason': 'pnl_mi_below_threshold'}}, "
       "'_submission_blocked_reason': 'pnl_mi_below_threshold'}"},
      {"correlation_exceeded", "too close",
       "{'passes': False, 'failures': {'correlation_exceeded': {'reason': 'correlation_exceeded', "
       "'detail': 'too close'}}, 'tracking_metric_kwargs': {'failure_reason': "
       "'correlation_exceeded', 'failure_detail': 'too close', 'correlation_verdict': {'passed': "
       "False, 'reason': 'correlation_exceeded'}}, '_submission_blocked_reason': "
       "'correlation_exceeded'}"},
      // Every other reason is a verdict on mutual information; a false detail is not absent.
      {"missing_is_correlation", 0,
       "{'passes': False, 'failures': {'missing_is_correlation': {'reason': "
       "'missing_is_correlation', 'detail': 0}}, 'tracking_metric_kwargs': {'failure_reason': "
       "'missing_is_correlation', 'failure_detail': 0, 'mi_verdict': {'passed': False, 'reason': "
       "'missing_is_correlation'}}, '_submission_blocked_reason': 'missing_is_correlation'}"},
      {"pnl_mi", Value(),
       "{'passes': False, 'failures': {'pnl_mi': {'reason': 'pnl_mi'}}, "
       "'tracking_metric_kwargs': {'failure_reason': 'pnl_mi', 'mi_verdict': {'passed': False, "
       "'reason': 'pnl_mi'}}, '_submission_blocked_reason': 'pnl_mi'}"},
      {7, Value(),
       "{'passes': False, 'failures': {7: {'reason': 7}}, 'tracking_metric_kwargs': "
       "{'failure_reason': 7, 'mi_verdict': {'passed': False, 'reason': 7}}, "
       "'_submission_blocked_reason': 7}"},
  };
  for (const Case& test_case : cases) {
    Mapping candidate;
    block_candidate_submission(host.engine, candidate, test_case.reason, test_case.detail);
    EXPECT_EQ(repr(candidate), test_case.expected);
    Mapping foreign = as_host_containers(Mapping{{"passes", true}}).mapping();
    block_candidate_submission(host.engine, foreign, test_case.reason, test_case.detail);
    EXPECT_EQ(repr(foreign), test_case.expected);
  }
}

TEST_F(BlockCandidate, WritesIntoWhatIsThere) {
  const Mapping failures{{"z", 1}, {"correlation_exceeded", 2}, {"a", 3}};
  const Mapping tracking{{"mi_verdict", "kept"}, {"failure_reason", "old"}};
  Mapping candidate{{"failures", make_object<Ledger>(failures)},
                    {"tracking_metric_kwargs", tracking},
                    {"passes", true}};
  const Value detail = List{1};
  block_candidate_submission(host.engine, candidate, "correlation_exceeded", detail);
  EXPECT_EQ(repr(failures),
            "{'z': 1, 'correlation_exceeded': {'reason': 'correlation_exceeded', 'detail': [1]}, "
            "'a': 3}");
  EXPECT_EQ(repr(tracking),
            "{'mi_verdict': 'kept', 'failure_reason': 'correlation_exceeded', 'failure_detail': "
            "[1], 'correlation_verdict': {'passed': False, 'reason': 'correlation_exceeded'}}");
  EXPECT_TRUE(same_object(candidate.at("tracking_metric_kwargs"), tracking));
  EXPECT_TRUE(same_object(tracking.at("failure_detail"), detail));
  EXPECT_EQ(candidate.at("passes"), false);
}

TEST_F(BlockCandidate, TwiceKeepsBothFailuresAndTheLaterReason) {
  Mapping candidate;
  block_candidate_submission(host.engine, candidate, "correlation_exceeded", "first");
  block_candidate_submission(host.engine, candidate, "pnl_mi_below_threshold");
  EXPECT_EQ(repr(candidate.at("failures")),
            "{'correlation_exceeded': {'reason': 'correlation_exceeded', 'detail': 'first'}, "
            "'pnl_mi_below_threshold': {'reason': 'pnl_mi_below_threshold'}}");
  EXPECT_EQ(candidate.at("_submission_blocked_reason"), "pnl_mi_below_threshold");
  // The second has no detail, so that of the first is gone; the first verdict stays.
  EXPECT_EQ(repr(candidate.at("tracking_metric_kwargs")),
            "{'failure_reason': 'pnl_mi', 'correlation_verdict': {'passed': False, 'reason': "
            "'correlation_exceeded'}, 'mi_verdict': {'passed': False, 'reason': "
            "'pnl_mi_below_threshold'}}");
}

TEST_F(BlockCandidate, TakesTheVerdictFromTheFirstOperationThatIsThere) {
  failed_gate_verdict("failed verdict");
  gate_verdict("verdict");
  const auto verdict_with = [this](const Value& detail) {
    host.log.clear();
    Mapping candidate;
    block_candidate_submission(host.engine, candidate, "pnl_mi", detail);
    return candidate.at("tracking_metric_kwargs").mapping().at("mi_verdict");
  };
  EXPECT_EQ(verdict_with(Value()), "failed verdict");
  EXPECT_EQ(host.log.lines().back(), "failed_gate_verdict('pnl_mi', detail=None)");
  verdict_with("text");
  EXPECT_EQ(host.log.lines().back(), "failed_gate_verdict('pnl_mi', detail='text')");
  // A mapping tells value and threshold, absent where they are missing.
  verdict_with(Mapping{{"value", 1}, {"threshold", 2}, {"x", 3}});
  EXPECT_EQ(host.log.lines().back(),
            "failed_gate_verdict('pnl_mi', detail={'value': 1, 'threshold': 2, 'x': 3}, value=1, "
            "threshold=2)");
  verdict_with(Mapping{{"threshold", 0}});
  EXPECT_EQ(host.log.lines().back(),
            "failed_gate_verdict('pnl_mi', detail={'threshold': 0}, value=None, threshold=0)");
  verdict_with(make_object<Ledger>(Mapping{{"value", 5}}));
  EXPECT_EQ(host.log.lines().back(),
            "failed_gate_verdict('pnl_mi', detail=<Ledger object>, value=5, threshold=None)");
  EXPECT_EQ(host.log.count("gate_verdict"), 0U);

  host.engine.on_find_failed_gate_verdict = always(Callable());
  EXPECT_EQ(verdict_with(Mapping{{"value", 1}}), "verdict");
  EXPECT_THAT(host.log.lines(),
              ElementsAre("engine.find_failed_gate_verdict", "engine.find_gate_verdict",
                          "gate_verdict(False, 'pnl_mi', detail={'value': 1})"));
}

TEST_F(BlockCandidate, MarksTheReasonOnlyAfterTheVerdict) {
  host.engine.on_find_failed_gate_verdict =
      always(operation("failed_gate_verdict", throwing([] { throw KeyError("no verdict"); })));
  Mapping candidate{{"passes", true}};
  EXPECT_THROW(block_candidate_submission(host.engine, candidate, "pnl_mi"), KeyError);
  EXPECT_EQ(repr(candidate),
            "{'passes': False, 'failures': {'pnl_mi': {'reason': 'pnl_mi'}}, "
            "'tracking_metric_kwargs': {'failure_reason': 'pnl_mi'}}");
}

TEST_F(BlockCandidate, FailsWhereTheRecordHoldsNoMapping) {
  Mapping absent{{"failures", Value()}};
  EXPECT_EQ(error_of([&] {
              block_candidate_submission(host.engine, absent, "pnl_mi");
              return 0;
            }),
            "TypeError: 'NoneType' object does not support item assignment");
  Mapping number{{"tracking_metric_kwargs", 5}};
  EXPECT_EQ(error_of([&] {
              block_candidate_submission(host.engine, number, "pnl_mi");
              return 0;
            }),
            "TypeError: 'int' object does not support item assignment");
  Mapping candidate;
  EXPECT_THROW(block_candidate_submission(host.engine, candidate, List{"pnl_mi"}), TypeError);
}

using MiTracking = PoolMetricTracking;

TEST_F(MiTracking, AsksForTheThresholdAndThenForTheVerdict) {
  attributes({{"_era_config", "era"}, {"_signal_pool_name", "pool"}});
  mi_threshold(always(Value(Tuple{0.2, "pool ids", "more"})));
  gate_verdict("verdict");
  Mapping candidate;
  set_candidate_mi_tracking(host.engine, host.engine, host.context, candidate, 0.5);
  EXPECT_EQ(repr(candidate),
            "{'tracking_metric_kwargs': {'pnl_mi': 0.5, 'mi_verdict': 'verdict'}}");
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("engine.find_submission_mi_threshold_and_pool",
                  "context.attribute('_era_config')", "context.attribute('_signal_pool_name')",
                  "context.attribute('thresholds')", "context.attribute('_thresholds')",
                  "context.search_context_thresholds", "context.attribute('era_config')",
                  "context.attribute('_era_config')", "engine.stats_gate_threshold_set({}, 'era')",
                  "mi_threshold('era', 'pool', {})", "engine.find_gate_verdict",
                  "gate_verdict(True, value=0.5, threshold=0.2)"));
}

TEST_F(MiTracking, WithoutVerdictsOfTheHostIsAPlainOne) {
  const Mapping tracking{{"mi_verdict", "old"}, {"failure_reason", "pnl_mi"}};
  Mapping candidate{{"tracking_metric_kwargs", tracking}, {"passes", false}};
  set_candidate_mi_tracking(host.engine, host.engine, host.context, candidate, Value());
  // A block of an earlier time is not undone.
  EXPECT_EQ(repr(candidate),
            "{'tracking_metric_kwargs': {'mi_verdict': {'passed': True, 'reason': None, 'value': "
            "None, 'threshold': None}, 'failure_reason': 'pnl_mi', 'pnl_mi': None}, 'passes': "
            "False}");
}

TEST_F(MiTracking, AsksOnlyWithAConfigurationAndAPoolName) {
  mi_threshold(always(Value(Tuple{0.2, 1})));
  const auto threshold_with = [this](const Mapping& context) {
    attributes(context);
    host.log.clear();
    Mapping candidate;
    set_candidate_mi_tracking(host.engine, host.engine, host.context, candidate, 1);
    const Value threshold =
        item(item(candidate.at("tracking_metric_kwargs"), "mi_verdict"), "threshold");
    EXPECT_EQ(host.log.count("mi_threshold"), threshold.is_absent() ? 0U : 1U);
    EXPECT_EQ(host.log.count("engine.stats_gate_threshold_set"), threshold.is_absent() ? 0U : 1U);
    return repr(threshold);
  };
  EXPECT_EQ(threshold_with({{"era_config", "era"}, {"_signal_pool_name", "pool"}}), "0.2");
  // Of the configuration only absence counts, of the name truth.
  EXPECT_EQ(threshold_with({{"_era_config", Mapping()}, {"_signal_pool_name", 1}}), "0.2");
  EXPECT_EQ(threshold_with({{"_signal_pool_name", "pool"}}), "None");
  EXPECT_EQ(threshold_with({{"_era_config", "era"}}), "None");
  EXPECT_EQ(threshold_with({{"_era_config", "era"}, {"_signal_pool_name", ""}}), "None");
  EXPECT_EQ(threshold_with(Mapping()), "None");

  host.engine.on_find_submission_mi_threshold_and_pool = always(Callable());
  EXPECT_EQ(threshold_with({{"_era_config", "era"}, {"_signal_pool_name", "pool"}}), "None");
  // The reads are made all the same.
  EXPECT_THAT(host.log.lines(),
              ElementsAre("engine.find_submission_mi_threshold_and_pool",
                          "context.attribute('_era_config')",
                          "context.attribute('_signal_pool_name')", "engine.find_gate_verdict"));
}

TEST_F(MiTracking, AnOrdinaryFailureOfTheThresholdLeavesItAbsent) {
  attributes({{"_era_config", "era"}, {"_signal_pool_name", "pool"}});
  const auto threshold = [this] {
    Mapping candidate;
    set_candidate_mi_tracking(host.engine, host.engine, host.context, candidate, 1);
    return repr(item(item(candidate.at("tracking_metric_kwargs"), "mi_verdict"), "threshold"));
  };
  mi_threshold(throwing([] { throw RuntimeError("no pool"); }));
  EXPECT_EQ(threshold(), "None");
  mi_threshold(throwing([] { throw std::out_of_range("no pool"); }));
  EXPECT_EQ(threshold(), "None");
  mi_threshold(throwing([] { throw Interrupt(); }));
  EXPECT_THROW(static_cast<void>(threshold()), Interrupt);
  // The first element by its index, not by unpacking.
  mi_threshold(always(Value(Tuple{0.3})));
  EXPECT_EQ(threshold(), "0.3");
  mi_threshold(always(Value(Mapping{{0, 0.4}})));
  EXPECT_EQ(threshold(), "0.4");
  for (const Value& nothing : {Value(), Value(5), Value(Tuple()), Value(Mapping{{"a", 1}})}) {
    mi_threshold(always(nothing));
    EXPECT_EQ(threshold(), "None");
  }
  // The context's thresholds are asked for within the guard.
  host.engine.on_stats_gate_threshold_set = failing(KeyError("no thresholds"));
  EXPECT_EQ(threshold(), "None");
  host.context.on_search_context_thresholds = failing(ValueError("broken property"));
  EXPECT_EQ(threshold(), "None");
}

TEST_F(MiTracking, OtherFailuresPassAfterTheScoreIsWritten) {
  const auto failure = [&] {
    Mapping candidate;
    const std::string error = error_of([&] {
      set_candidate_mi_tracking(host.engine, host.engine, host.context, candidate, 1);
      return 0;
    });
    EXPECT_EQ(repr(candidate), "{'tracking_metric_kwargs': {'pnl_mi': 1}}");
    return error;
  };
  host.engine.on_find_gate_verdict =
      always(operation("gate_verdict", throwing([] { throw KeyError("no verdict"); })));
  EXPECT_EQ(failure(), "KeyError: no verdict");
  host.context.on_attribute = [](std::string_view name) -> std::optional<Value> {
    if (name == "_signal_pool_name") throw ValueError("broken name");
    return std::nullopt;
  };
  EXPECT_EQ(failure(), "ValueError: broken name");
  host.context.on_attribute = failing(ValueError("broken configuration"));
  EXPECT_EQ(failure(), "ValueError: broken configuration");
}

using CorrelationTracking = PoolMetricTracking;

TEST_F(CorrelationTracking, AsksWhateverConfigurationAndPoolNameAre) {
  correlation_threshold(always(Value(List{0.7, "pool ids"})));
  gate_verdict("verdict");
  Mapping candidate;
  set_candidate_correlation_tracking(host.engine, host.engine, host.context, candidate, 0.25);
  EXPECT_EQ(repr(candidate),
            "{'tracking_metric_kwargs': {'correlation': 0.25, 'correlation_verdict': 'verdict'}}");
  // With two arguments, and without the context's thresholds.
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre("engine.find_submission_correlation_threshold_and_pool",
                  "context.attribute('_era_config')", "context.attribute('era_config')",
                  "context.attribute('_signal_pool_name')", "correlation_threshold(None, None)",
                  "engine.find_gate_verdict", "gate_verdict(True, value=0.25, threshold=0.7)"));
  host.log.clear();
  attributes({{"_era_config", "era"}, {"_signal_pool_name", ""}});
  set_candidate_correlation_tracking(host.engine, host.engine, host.context, candidate, 0.25);
  EXPECT_THAT(host.log.lines(), Contains("correlation_threshold('era', '')"));
}

TEST_F(CorrelationTracking, WithoutOperationsOfTheHostIsAPlainVerdict) {
  Mapping candidate{{"tracking_metric_kwargs", Mapping{{"correlation", 1}}}};
  set_candidate_correlation_tracking(host.engine, host.engine, host.context, candidate, 0);
  EXPECT_EQ(repr(candidate),
            "{'tracking_metric_kwargs': {'correlation': 0, 'correlation_verdict': {'passed': True, "
            "'reason': None, 'value': 0, 'threshold': None}}}");
}

TEST_F(CorrelationTracking, LetsEveryFailurePass) {
  Mapping candidate;
  const auto failure = [&] {
    candidate = Mapping();
    return error_of([&] {
      set_candidate_correlation_tracking(host.engine, host.engine, host.context, candidate, 1);
      return 0;
    });
  };
  correlation_threshold(throwing([] { throw RuntimeError("no pool"); }));
  EXPECT_EQ(failure(), "RuntimeError: no pool");
  // The metric is written before.
  EXPECT_EQ(repr(candidate), "{'tracking_metric_kwargs': {'correlation': 1}}");
  correlation_threshold(always(Value()));
  EXPECT_EQ(failure(), "TypeError: 'NoneType' object is not subscriptable");
  correlation_threshold(always(Value(Tuple())));
  EXPECT_EQ(failure(), "IndexError: tuple index out of range");
  // By index here as well.
  correlation_threshold(always(Value(Tuple{0.7})));
  EXPECT_EQ(failure(), "no error");
  host.context.on_attribute = failing(ValueError("broken configuration"));
  EXPECT_EQ(failure(), "ValueError: broken configuration");
}

using PendingMark = PoolMetricTracking;

// The reasons that end when the pool is to be measured again, and some that do not.
struct PoolReason {
  Value reason;
  bool ends;
};
const PoolReason kPoolReasons[] = {{"pnl_mi", true},
                                   {"pnl_mi_below_threshold", true},
                                   {"correlation_exceeded", true},
                                   {"missing_is_pnl_mi", true},
                                   {"missing_is_correlation", true},
                                   {"agent_pool_pnl_sync_missing", true},
                                   {"sharpe_min", false},
                                   {"correlation", false},
                                   {"", false},
                                   {Value(), false},
                                   {0, false},
                                   // What cannot be a key is none of them either.
                                   {List{"pnl_mi"}, false},
                                   {Mapping{{"pnl_mi", 1}}, false}};

TEST_F(PendingMark, StandsOnCandidateAndPayload) {
  for (const bool foreign : {false, true}) {
    Mapping candidate{{"passes", false},
                      {"_submission_blocked_reason", "pnl_mi"},
                      {"failures", Mapping{{"pnl_mi", 1}}}};
    Mapping payload{{"eval_id", 1}, {"_submission_blocked_reason", "stays"}};
    if (foreign) {
      candidate = as_host_containers(candidate).mapping();
      payload = as_host_containers(payload).mapping();
    }
    mark_candidate_pool_metrics_pending(candidate, payload, "not yet");
    // Neither the failure nor the failing is undone.
    EXPECT_EQ(repr(candidate),
              "{'passes': False, 'failures': {'pnl_mi': 1}, '_submission_pending_reason': "
              "'pool_metrics_refresh_required', 'tracking_metric_kwargs': {'pool_metrics_pending': "
              "True, 'pool_metrics_pending_detail': 'not yet'}}");
    EXPECT_EQ(repr(payload),
              "{'eval_id': 1, '_submission_blocked_reason': 'stays', "
              "'_submission_pending_reason': 'pool_metrics_refresh_required'}");

    clear_candidate_pool_metrics_pending(candidate, payload);
    EXPECT_EQ(repr(candidate),
              "{'passes': False, 'failures': {'pnl_mi': 1}, 'tracking_metric_kwargs': {}}");
    EXPECT_EQ(repr(payload), "{'eval_id': 1, '_submission_blocked_reason': 'stays'}");
  }
}

TEST_F(PendingMark, ItsComingAndItsGoingRemoveTheReasonsOfThePoolAlone) {
  for (const auto& [reason, ends] : kPoolReasons) {
    SCOPED_TRACE(repr(reason));
    for (const bool comes : {true, false}) {
      const Mapping tracking{
          {"failure_reason", reason}, {"mi_verdict", "v"}, {"failure_detail", "d"}, {"pnl_mi", 1}};
      Mapping candidate{{"tracking_metric_kwargs", tracking}};
      Mapping payload;
      if (comes) {
        mark_candidate_pool_metrics_pending(candidate, payload, 1);
      } else {
        clear_candidate_pool_metrics_pending(candidate, payload);
      }
      EXPECT_EQ(tracking.contains("failure_reason"), !ends);
      EXPECT_EQ(tracking.contains("failure_detail"), !ends);
      EXPECT_EQ(repr(List{tracking.at("mi_verdict"), tracking.at("pnl_mi")}), "['v', 1]");
      EXPECT_EQ(tracking.contains("pool_metrics_pending"), comes);
    }
  }
}

TEST_F(PendingMark, LeavesADetailWithoutAReason) {
  const Mapping tracking{{"failure_detail", "d"}};
  Mapping candidate{{"tracking_metric_kwargs", tracking}};
  Mapping payload;
  mark_candidate_pool_metrics_pending(candidate, payload, 1);
  clear_candidate_pool_metrics_pending(candidate, payload);
  EXPECT_EQ(repr(tracking), "{'failure_detail': 'd'}");
}

TEST_F(PendingMark, ShowsItsDetailAsText) {
  const std::pair<Value, std::string> cases[] = {
      {"text", "'text'"}, {Value(), "'None'"}, {1.0, "'1.0'"}, {List{"a"}, "\"['a']\""}};
  for (const auto& [detail, shown] : cases) {
    Mapping candidate;
    Mapping payload;
    mark_candidate_pool_metrics_pending(candidate, payload, detail);
    EXPECT_EQ(repr(item(candidate.at("tracking_metric_kwargs"), "pool_metrics_pending_detail")),
              shown);
  }
}

TEST_F(PendingMark, ItsEndKeepsABlock) {
  Mapping candidate{{"_submission_blocked_reason", "pnl_mi"}};
  Mapping payload;
  clear_candidate_pool_metrics_pending(candidate, payload);
  EXPECT_EQ(repr(candidate),
            "{'_submission_blocked_reason': 'pnl_mi', 'tracking_metric_kwargs': {}}");
  EXPECT_TRUE(payload.empty());
}

TEST_F(PendingMark, FailsWhereTheTrackingValuesAreNoMapping) {
  Mapping candidate{{"tracking_metric_kwargs", Value()}, {"_submission_blocked_reason", 1}};
  Mapping payload;
  EXPECT_THROW(mark_candidate_pool_metrics_pending(candidate, payload, "d"), std::exception);
  // The marks are set before.
  EXPECT_EQ(repr(candidate),
            "{'tracking_metric_kwargs': None, '_submission_pending_reason': "
            "'pool_metrics_refresh_required'}");
  EXPECT_EQ(payload.size(), 1U);
  EXPECT_THROW(clear_candidate_pool_metrics_pending(candidate, payload), std::exception);
  EXPECT_FALSE(candidate.contains("_submission_pending_reason"));
  EXPECT_TRUE(payload.empty());
}

TEST_F(PoolMetricTracking, MakesAMappingOnlyWhereThereIsNone) {
  Mapping record{{"absent", Value()}};
  Mapping made = mapping_made_when_missing(record, keys::kFailures);
  made.set("k", 1);
  EXPECT_EQ(repr(record), "{'absent': None, 'failures': {'k': 1}}");
  EXPECT_TRUE(same_object(mapping_made_when_missing(record, keys::kFailures), made));
}

}  // namespace
}  // namespace varnholt::genetic::test
