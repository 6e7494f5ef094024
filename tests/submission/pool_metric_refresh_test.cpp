// Goal: a measurement against the pool leaves a candidate pending, blocked or clear, as the host's
// answers say, and no stale metric survives it.
// Method: a scripted engine; the table of states row by row, and the ordered log of calls.
#include "search_templates/genetic/submission/pool_metric_refresh.hpp"

#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/copy.hpp"
#include "tests/submission/pool_metric_fixture.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

// A kind of its own below ValueError, as a decoding error is.
class NarrowValueError : public ValueError {
 public:
  using ValueError::ValueError;
};

// The table of states ---------------------------------------------------------------------------

TEST_F(PoolMetricRefresh, StateFollowsTheTwoGates) {
  struct Row {
    Value mi_passed;
    Value correlation_passed;
    Value blocked_reason;
    bool passes;
    const char* mi_verdict;
    const char* correlation_verdict;
    const char* failures;
  };
  const char* const kMiPassed = "{'passed': True, 'reason': None, 'value': 0.25, 'threshold': 0.5}";
  const char* const kCorrelationPassed =
      "{'passed': True, 'reason': None, 'value': 0.75, 'threshold': None}";
  const char* const kMiFailed = "{'passed': False, 'reason': 'pnl_mi_below_threshold'}";
  const char* const kCorrelationFailed = "{'passed': False, 'reason': 'correlation_exceeded'}";
  const char* const kMiFailure =
      "{'pnl_mi_below_threshold': {'reason': 'pnl_mi_below_threshold', 'detail': 'mi detail'}}";
  const char* const kCorrelationFailure =
      "{'correlation_exceeded': {'reason': 'correlation_exceeded', 'detail': 'recorded detail'}}";
  const char* const kNone = "{'verdict': 'not_evaluated'}";
  const std::vector<Row> table = {
      {true, true, Value(), true, kMiPassed, kCorrelationPassed, "None"},
      {1, "yes", Value(), true, kMiPassed, kCorrelationPassed, "None"},
      {true, false, "correlation_exceeded", false, kMiPassed, kCorrelationFailed,
       kCorrelationFailure},
      {true, Value(), "correlation_exceeded", false, kMiPassed, kCorrelationFailed,
       kCorrelationFailure},
      {false, true, "pnl_mi_below_threshold", false, kMiFailed, kCorrelationPassed, kMiFailure},
      {false, false, "pnl_mi_below_threshold", false, kMiFailed, kNone, kMiFailure},
      {0, "", "pnl_mi_below_threshold", false, kMiFailed, kNone, kMiFailure},
  };
  const Mapping start = deep_copy(candidate).mapping();
  const Mapping start_payload = deep_copy(payload).mapping();
  for (const Row& row : table) {
    SCOPED_TRACE(repr(row.mi_passed) + " " + repr(row.correlation_passed));
    candidate = deep_copy(start).mapping();
    payload = deep_copy(start_payload).mapping();
    answers(Tuple{0.25, row.mi_passed}, Tuple{0.75, row.correlation_passed});
    refresh();
    EXPECT_EQ(candidate.get("_submission_blocked_reason"), row.blocked_reason);
    EXPECT_FALSE(candidate.contains("_submission_pending_reason"));
    EXPECT_EQ(candidate.at("passes"), row.passes);
    EXPECT_EQ(repr(tracking().at("mi_verdict")), row.mi_verdict);
    EXPECT_EQ(repr(tracking().at("correlation_verdict")), row.correlation_verdict);
    EXPECT_EQ(repr(candidate.get("failures")), row.failures);
    // Both metrics are stored whatever the gates say, behind what was there.
    EXPECT_EQ(repr(is_stats()), "{'sharpe': 1.0, 'is_pnl_mi': 0.25, 'correlation': 0.75}");
    EXPECT_EQ(tracking().at("pnl_mi"), 0.25);
    EXPECT_EQ(tracking().at("correlation"), 0.75);
    EXPECT_EQ(tracking().at("other"), "kept");
  }
}

TEST_F(PoolMetricRefresh, KeysOfTheTrackingValuesKeepTheirOrder) {
  refresh();
  EXPECT_EQ(repr(tracking()),
            "{'mi_verdict': {'passed': True, 'reason': None, 'value': 0.9, 'threshold': 0.5}, "
            "'correlation_verdict': {'passed': True, 'reason': None, 'value': 0.25, 'threshold': "
            "None}, 'other': 'kept', 'pnl_mi': 0.9, 'correlation': 0.25}");
}

TEST_F(PoolMetricRefresh, PendingWhereSomethingIsMissing) {
  struct Row {
    const char* what;
    std::function<void()> arrange;
    std::string detail;
    Names engine_calls;
  };
  const std::string kUnavailable = "pool metric computation context is unavailable";
  const Names kAfterMembership = {"refresh_submission_manifest_membership"};
  const Names kUpToMi = {"refresh_submission_manifest_membership",
                         "selected_pool_has_synced_found_signal_ids", "stats_gate_threshold_set",
                         "submission_pnl_mi_from_backtest_or_compute", "as_pool_data_not_ready"};
  const Names kUpToCorrelation = {"refresh_submission_manifest_membership",
                                  "selected_pool_has_synced_found_signal_ids",
                                  "stats_gate_threshold_set",
                                  "submission_pnl_mi_from_backtest_or_compute",
                                  "submission_correlation_from_backtest_or_compute",
                                  "as_pool_data_not_ready"};
  const Mapping all = shallow_copy(attributes);
  const auto with = [&](const char* name, const Value& value) {
    return [this, name, value] { attributes.set(name, value); };
  };
  const auto without = [&](const char* name) {
    return [this, name] { static_cast<void>(attributes.erase(name)); };
  };
  const std::vector<Row> table = {
      {"no backtester", without("_backtester"), kUnavailable, {}},
      {"absent backtester", with("_backtester", Value()), kUnavailable, {}},
      {"no era configuration", without("_era_config"), kUnavailable, {}},
      {"no pool", without("_signal_pool_name"), kUnavailable, {}},
      {"absent pool", with("_signal_pool_name", Value()), kUnavailable, {}},
      {"empty pool name", with("_signal_pool_name", ""), kUnavailable, {}},
      {"membership", [this] { host.engine.on_refresh_submission_manifest_membership = always(0); },
       "found signal membership is not confirmed", kAfterMembership},
      {"mutual information not ready",
       [this] {
         host.engine.on_refresh_submission_manifest_membership = always("yes");
         host.engine.on_submission_pnl_mi_from_backtest_or_compute =
             failing(PoolDataNotReady("sync is missing"));
       },
       "sync is missing", kUpToMi},
      {"thresholds not ready",
       [this] {
         answers(Tuple{0.5, true}, Tuple{0.5, true});
         host.engine.on_stats_gate_threshold_set = failing(PoolDataNotReady("thresholds"));
       },
       "thresholds",
       {"refresh_submission_manifest_membership", "selected_pool_has_synced_found_signal_ids",
        "stats_gate_threshold_set", "as_pool_data_not_ready"}},
      {"correlation not ready",
       [this] {
         host.engine.on_stats_gate_threshold_set = always(Value(Mapping()));
         host.engine.on_submission_correlation_from_backtest_or_compute =
             failing(PoolDataNotReady(""));
       },
       "", kUpToCorrelation},
  };
  const Mapping start = deep_copy(candidate).mapping();
  const Mapping start_payload = deep_copy(payload).mapping();
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    attributes = shallow_copy(all);
    candidate = deep_copy(start).mapping();
    payload = deep_copy(start_payload).mapping();
    row.arrange();
    host.log.clear();
    refresh();
    EXPECT_THAT(engine_calls(), ElementsAreArray(row.engine_calls));
    EXPECT_EQ(candidate.at("_submission_pending_reason"), kPending);
    EXPECT_EQ(payload.at("_submission_pending_reason"), kPending);
    EXPECT_EQ(candidate.at("passes"), true);
    // Nothing of the metrics is left, old or new.
    EXPECT_EQ(repr(is_stats()), "{'sharpe': 1.0}");
    EXPECT_EQ(repr(tracking()),
              "{'mi_verdict': {'verdict': 'not_evaluated'}, 'correlation_verdict': {'verdict': "
              "'not_evaluated'}, 'other': 'kept', 'pool_metrics_pending': True, "
              "'pool_metrics_pending_detail': '" +
                  row.detail + "'}");
  }
}

TEST_F(PoolMetricRefresh, EraConfigurationMayStandUnderEitherName) {
  attributes.erase("_era_config");
  attributes.set("era_config", 0);  // False, but not absent.
  refresh();
  EXPECT_FALSE(candidate.contains("_submission_pending_reason"));
}

// What the host is asked, in order -------------------------------------------------------------

TEST_F(PoolMetricRefresh, CallsOfAClearMeasurement) {
  refresh();
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre(
          "context.attribute('_backtester')", "context.attribute('_era_config')",
          "context.attribute('_signal_pool_name')", "evaluation_verdicts.not_evaluated_verdict()",
          "evaluation_verdicts.not_evaluated_verdict()", "context.attribute('_sync_mgr')",
          "engine.refresh_submission_manifest_membership({'id': 7}, 'pool', 'manager')",
          "engine.selected_pool_has_synced_found_signal_ids({'id': 7}, 'pool')",
          // The thresholds of mutual information.
          "context.attribute('thresholds')", "context.attribute('_thresholds')",
          "context.search_context_thresholds", "context.attribute('era_config')",
          "context.attribute('_era_config')", "engine.stats_gate_threshold_set({}, {'id': 7})",
          HasSubstr("engine.submission_pnl_mi_from_backtest_or_compute(<"),
          HasSubstr("engine.submission_correlation_from_backtest_or_compute(<"),
          // The tracking of mutual information.
          "engine.find_submission_mi_threshold_and_pool", "context.attribute('_era_config')",
          "context.attribute('_signal_pool_name')", "context.attribute('thresholds')",
          "context.attribute('_thresholds')", "context.search_context_thresholds",
          "context.attribute('era_config')", "context.attribute('_era_config')",
          "engine.stats_gate_threshold_set({}, {'id': 7})", "mi_threshold({'id': 7}, 'pool', {})",
          "engine.find_gate_verdict",
          // The tracking of the correlation.
          "engine.find_submission_correlation_threshold_and_pool",
          "context.attribute('_era_config')", "context.attribute('_signal_pool_name')",
          "engine.find_gate_verdict"));
  const auto lines = host.log.lines();
  EXPECT_THAT(lines, Contains(HasSubstr("compute(")).Times(2));
  EXPECT_THAT(lines, Contains(HasSubstr(", 'stats', {'id': 7}, 'pool', {})")).Times(1));
  EXPECT_THAT(lines, Contains(HasSubstr(", 'stats', {'id': 7}, 'pool')")).Times(1));
}

TEST_F(PoolMetricRefresh, CallsOfABlockOnCorrelation) {
  answers(Tuple{0.9, true}, Tuple{0.75, false});
  host.engine.on_submission_correlation_threshold_and_pool = always(Value(List{0.7, "other"}));
  refresh();
  const auto& lines = host.log.lines();
  const auto threshold =
      std::find(lines.begin(), lines.end(),
                "engine.submission_correlation_threshold_and_pool({'id': 7}, 'pool')");
  ASSERT_NE(threshold, lines.end());
  EXPECT_THAT(
      std::vector(threshold + 1, lines.end()),
      ElementsAre("engine.recorded_failure_detail('correlation_exceeded', 'correlation', 0.75, "
                  "0.7, gate='is_correlation_threshold', operator='>', category='quality')",
                  "engine.find_failed_gate_verdict", "engine.find_gate_verdict"));
  // The plain operations are asked, not those that may be missing.
  EXPECT_EQ(host.log.count("engine.find_submission_correlation_threshold_and_pool"), 0U);
  EXPECT_EQ(host.log.count("engine.find_recorded_failure_detail"), 0U);
}

TEST_F(PoolMetricRefresh, CallsOfABlockOnMutualInformation) {
  answers(Tuple{0.25, false}, Tuple{0.75, false});
  refresh();
  EXPECT_THAT(host.log.lines(),
              Contains("mi_failure_detail('pnl_mi_below_threshold', 'is_pnl_mi', 0.25, 0.5, "
                       "gate='is_pnl_mi_threshold', operator='<', category='quality')"));
  EXPECT_EQ(host.log.count("engine.submission_correlation_threshold_and_pool"), 0U);
  EXPECT_EQ(host.log.count("engine.recorded_failure_detail"), 0U);
  EXPECT_EQ(tracking().at("failure_reason"), "pnl_mi");
}

TEST_F(PoolMetricRefresh, EveryFailureAfterTheMeasurementPasses) {
  answers(Tuple{0.25, false}, Tuple{0.75, true});
  host.engine.on_find_submission_mi_threshold_and_pool = always(Callable());
  EXPECT_EQ(error_of_refresh(),
            "RuntimeError: genetic search requires canonical PnL-MI thresholds");
  // The metrics are stored and the correlation's verdict told, but nothing is blocked.
  EXPECT_EQ(tracking().at("pnl_mi"), 0.25);
  EXPECT_EQ(tracking().at("correlation_verdict").mapping().at("passed"), true);
  EXPECT_EQ(tracking().at("mi_verdict"), kNotEvaluated);
  EXPECT_EQ(candidate.at("passes"), true);
  EXPECT_FALSE(candidate.contains("_submission_blocked_reason"));

  answers(Tuple{0.9, true}, Tuple{0.75, false});
  host.engine.on_submission_correlation_threshold_and_pool = always(Value(0.7));
  EXPECT_EQ(error_of_refresh(), "TypeError: cannot unpack non-iterable float object");
  host.engine.on_submission_correlation_threshold_and_pool =
      failing(PoolDataNotReady("too late to be pending"));
  EXPECT_EQ(error_of_refresh(), "RuntimeError: too late to be pending");
  EXPECT_FALSE(candidate.contains("_submission_pending_reason"));
}

// The wipe ---------------------------------------------------------------------------------------

TEST_F(PoolMetricRefresh, FailuresOfTheHostPassAfterTheWipe) {
  struct Row {
    const char* what;
    std::function<void()> arrange;
  };
  const std::vector<Row> table = {
      {"membership",
       [this] {
         host.engine.on_refresh_submission_manifest_membership = failing(KeyError("odd"));
       }},
      {"selected pool",
       [this] {
         host.engine.on_refresh_submission_manifest_membership = always(true);
         host.engine.on_selected_pool_has_synced_found_signal_ids = failing(KeyError("odd"));
       }},
      {"normalisation",
       [this] {
         host.engine.on_selected_pool_has_synced_found_signal_ids = always(true);
         host.engine.on_normalize_required_pool_pnl_matrix = failing(KeyError("odd"));
       }},
      {"second backtest",
       [this] {
         host.engine.on_normalize_required_pool_pnl_matrix = failing(ValueError("no matrix"));
         host.engine.on_call_backtester_with_transform_context = failing(KeyError("odd"));
       }},
      {"mutual information",
       [this] {
         host.engine.on_selected_pool_has_synced_found_signal_ids = always(false);
         host.engine.on_submission_pnl_mi_from_backtest_or_compute = failing(KeyError("odd"));
       }},
      {"correlation",
       [this] {
         host.engine.on_submission_pnl_mi_from_backtest_or_compute = always(Value(Tuple{1, 1}));
         host.engine.on_submission_correlation_from_backtest_or_compute = failing(KeyError("odd"));
       }},
  };
  const Mapping start = deep_copy(candidate).mapping();
  const Mapping start_payload = deep_copy(payload).mapping();
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    candidate = deep_copy(start).mapping();
    payload = deep_copy(start_payload).mapping();
    row.arrange();
    EXPECT_EQ(error_of_refresh(), "KeyError: odd");
    EXPECT_EQ(repr(is_stats()), "{'sharpe': 1.0}");
    EXPECT_EQ(repr(tracking()),
              "{'mi_verdict': {'verdict': 'not_evaluated'}, 'correlation_verdict': {'verdict': "
              "'not_evaluated'}, 'other': 'kept'}");
    EXPECT_FALSE(candidate.contains("_submission_pending_reason"));
  }
}

TEST_F(PoolMetricRefresh, PairsThatAreNonePass) {
  answers(0.9, Tuple{0.25, true});
  EXPECT_EQ(error_of_refresh(), "TypeError: cannot unpack non-iterable float object");
  answers(Tuple{0.9, true, 1}, Tuple{0.25, true});
  EXPECT_THAT(error_of_refresh(), HasSubstr("ValueError: "));
  answers(Tuple{0.9, true}, Tuple{0.25});
  EXPECT_THAT(error_of_refresh(), HasSubstr("ValueError: "));
  EXPECT_FALSE(tracking().contains("pnl_mi"));
}

TEST_F(PoolMetricRefresh, TrackingValuesAreMadeWhereThereAreNoneAndNothingIsWipedElsewhere) {
  candidate = {{"stats", "stats"}, {"passes", true}, {"correlation", 0.5}};
  attributes.erase("_backtester");
  refresh();
  EXPECT_EQ(repr(candidate),
            "{'stats': 'stats', 'passes': True, 'correlation': 0.5, 'tracking_metric_kwargs': "
            "{'mi_verdict': {'verdict': 'not_evaluated'}, 'correlation_verdict': {'verdict': "
            "'not_evaluated'}, 'pool_metrics_pending': True, 'pool_metrics_pending_detail': "
            "'pool metric computation context is unavailable'}, '_submission_pending_reason': "
            "'pool_metrics_refresh_required'}");
}

TEST_F(PoolMetricRefresh, VerdictsAreTwoObjects) {
  attributes.erase("_backtester");
  refresh();
  EXPECT_EQ(host.log.count("evaluation_verdicts.not_evaluated_verdict"), 2U);
  EXPECT_FALSE(same_object(tracking().at("mi_verdict"), tracking().at("correlation_verdict")));
}

TEST_F(PoolMetricRefresh, StatisticsAreBuiltForAPayloadWithoutThemEvenWhenItEndsPending) {
  attributes.erase("_backtester");
  for (const Value& none : {Value(), Value("text"), Value(List())}) {
    payload = {{"is_stats", none}};
    candidate.set("stats", scripted_object({{"sharpe", 2}, {"correlation", 0.5}}));
    refresh();
    // The wipe takes the correlation that was built a moment before.
    EXPECT_EQ(repr(payload),
              "{'is_stats': {'sharpe': 2.0, 'annualized_returns': 0.0, 'turnover': 0.0, "
              "'drawdown': 0.0, 'quality_score': 2.0}, '_submission_pending_reason': "
              "'pool_metrics_refresh_required'}");
  }
  payload = Mapping();
  refresh();
  EXPECT_TRUE(payload.at("is_stats").is_mapping());
}

TEST_F(PoolMetricRefresh, StatisticsOfThePayloadAreChangedInPlace) {
  const Mapping before = is_stats();
  const Mapping tracking_before = tracking();
  refresh();
  EXPECT_TRUE(same_object(payload.at("is_stats"), before));
  EXPECT_EQ(before.at("is_pnl_mi"), 0.9);
  EXPECT_TRUE(same_object(candidate.at("tracking_metric_kwargs"), tracking_before));
  // Also the mapping that the host makes.
  const Mapping made{{"correlation", "stale"}};
  host.engine.on_find_submitted_stats_payload_from_backtest = [&] {
    return scripted_callable(host.log, "build", always(Value(Tuple{made, Value()})));
  };
  payload = Mapping();
  refresh();
  EXPECT_TRUE(same_object(payload.at("is_stats"), made));
  EXPECT_EQ(repr(made), "{'is_pnl_mi': 0.9, 'correlation': 0.25}");
}

TEST_F(PoolMetricRefresh, MetricsGoToTheMappingsThatWereWiped) {
  const Mapping wiped = is_stats();
  const Mapping tracking_wiped = tracking();
  host.engine.on_selected_pool_has_synced_found_signal_ids = [&] {
    payload.set("is_stats", Mapping());
    candidate.set("tracking_metric_kwargs", Mapping());
    return Value(false);
  };
  refresh();
  EXPECT_EQ(wiped.at("is_pnl_mi"), 0.9);
  EXPECT_EQ(tracking_wiped.at("correlation"), 0.25);
  EXPECT_EQ(repr(payload.at("is_stats")), "{}");
}

// The second backtest --------------------------------------------------------------------------

TEST_F(PoolMetricRefresh, StatisticsThatAreMeasured) {
  struct Row {
    const char* what;
    Value matrix_required;
    bool has_matrix;
    Value run_backtest;
    bool backtested_again;
  };
  const Value callable = make_object<RunBacktest>();
  const std::vector<Row> table = {
      {"no matrix is required", false, false, callable, false},
      {"falsely", 0, false, callable, false},
      {"the matrix is there", true, true, callable, false},
      {"it is not", true, false, callable, true},
      {"it is not, truly", "yes", false, callable, true},
      {"no backtest to run", true, false, Value(), false},
      {"nothing that can be called", true, false, "run_backtest", false},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    attributes.set("_backtester", backtester_with(row.run_backtest));
    host.engine.on_selected_pool_has_synced_found_signal_ids = always(row.matrix_required);
    host.engine.on_normalize_required_pool_pnl_matrix = [&] {
      if (!row.has_matrix) throw NarrowValueError("no usable matrix");
    };
    host.log.clear();
    refresh();
    EXPECT_EQ(host.log.count("engine.normalize_required_pool_pnl_matrix"),
              truth(row.matrix_required) ? 1U : 0U);
    EXPECT_EQ(host.log.count("engine.call_backtester_with_transform_context"),
              row.backtested_again ? 1U : 0U);
    const std::string measured = row.backtested_again ? ", 'backtested stats', " : ", 'stats', ";
    EXPECT_THAT(host.log.lines(), Contains(HasSubstr("compute(")).Times(2));
    EXPECT_THAT(host.log.lines(), Contains(HasSubstr(measured)).Times(testing::Ge(2U)));
    // The candidate keeps its own.
    EXPECT_EQ(candidate.at("stats"), "stats");
    EXPECT_FALSE(candidate.contains("_submission_pending_reason"));
  }
}

TEST_F(PoolMetricRefresh, SecondBacktestIsToldTheMetaparameters) {
  host.engine.on_selected_pool_has_synced_found_signal_ids = always(true);
  host.engine.on_normalize_required_pool_pnl_matrix = failing(ValueError("no matrix"));
  struct Row {
    const char* what;
    Mapping extra;
    std::string asked;  // What the pool's metaparameters are made of; empty where nobody asks.
    std::string given;
  };
  const std::vector<Row> table = {
      {"nothing", Mapping(), "('pool', {})", "'g', 'pool metaparameters', None"},
      {"own",
       {{"_metaparameters", Mapping{{"a", 1}}}},
       "('pool', {'a': 1})",
       "'g', 'pool metaparameters', None"},
      {"own that are false",
       {{"_metaparameters", 0}},
       "('pool', {})",
       "'g', 'pool metaparameters', None"},
      {"of the evaluation", {{"_evaluation_metaparameters", "m"}}, "", "'g', 'm', None"},
      {"false ones of the evaluation",
       {{"_evaluation_metaparameters", Mapping()}},
       "",
       "'g', {}, None"},
      {"absent ones of the evaluation",
       {{"_evaluation_metaparameters", Value()}},
       "('pool', {})",
       "'g', 'pool metaparameters', None"},
      {"a universe", {{"_named_universe", "u"}}, "('pool', {})", "'g', 'pool metaparameters', 'u'"},
  };
  const Mapping all = shallow_copy(attributes);
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    attributes = shallow_copy(all);
    attributes.update(row.extra);
    host.log.clear();
    refresh();
    const std::string asked = "engine.evaluation_metaparameters_for_pool";
    if (row.asked.empty()) {
      EXPECT_EQ(host.log.count(asked), 0U);
    } else {
      EXPECT_THAT(host.log.lines(), Contains(asked + row.asked));
    }
    EXPECT_THAT(host.log.lines(),
                Contains(testing::AllOf(
                    HasSubstr("engine.call_backtester_with_transform_context(<"),
                    HasSubstr(", 'run_backtest', " + row.given + ", return_series=True)"))));
  }
}

TEST_F(PoolMetricRefresh, SecondBacktestRunsWhileTheMatrixsErrorIsHandled) {
  host.context.on_handling = logged_handling(host.log);
  host.engine.on_selected_pool_has_synced_found_signal_ids = always(true);
  host.engine.on_normalize_required_pool_pnl_matrix = failing(ValueError("no matrix"));
  refresh();
  const auto names = host.log.names();
  const auto place = [&](const char* name) {
    return std::find(names.begin(), names.end(), name) - names.begin();
  };
  EXPECT_THAT(host.log.lines(), Contains("context.handling('ValueError: no matrix')"));
  EXPECT_LT(place("engine.normalize_required_pool_pnl_matrix"), place("context.handling"));
  EXPECT_LT(place("context.handling"), place("engine.evaluation_metaparameters_for_pool"));
  EXPECT_LT(place("engine.call_backtester_with_transform_context"), place("handled"));
  EXPECT_LT(place("handled"), place("engine.submission_pnl_mi_from_backtest_or_compute"));
}

TEST_F(PoolMetricRefresh, OnlyTheTwoMeasurementsCanBePending) {
  host.engine.on_refresh_submission_manifest_membership = failing(PoolDataNotReady("membership"));
  EXPECT_EQ(error_of_refresh(), "RuntimeError: membership");
  EXPECT_EQ(host.log.count("engine.as_pool_data_not_ready"), 0U);
}

}  // namespace
}  // namespace varnholt::genetic::test
