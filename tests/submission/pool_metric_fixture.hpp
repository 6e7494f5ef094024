// A candidate and a payload with stale metrics, a context in which everything can be measured, and
// an engine that passes everything until a test says otherwise.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/submission/pool_metric_refresh.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {

inline constexpr const char* kPending = "pool_metrics_refresh_required";
inline const Value kNotEvaluated = Mapping{{"verdict", "not_evaluated"}};

// The host's words for "not yet".
class PoolDataNotReady : public RuntimeError {
 public:
  using RuntimeError::RuntimeError;
};

// A backtester with an operation that can be called, or with whatever `run_backtest` is.
class RunBacktest : public HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "method"; }
  [[nodiscard]] bool is_callable() const override { return true; }
};
inline Value backtester_with(const Value& run_backtest) {
  return scripted_object({{"run_backtest", run_backtest}}, nullptr, "Backtester");
}

using Names = std::vector<std::string>;

class PoolMetricRefresh : public testing::Test {
 protected:
  PoolMetricRefresh() {
    host.context.on_attribute = [this](std::string_view name) { return attributes.find(name); };
    host.engine.on_as_pool_data_not_ready = error_object_of<PoolDataNotReady>;
    host.engine.on_find_submission_mi_threshold_and_pool = [this] {
      return scripted_callable(host.log, "mi_threshold", always(Value(Tuple{0.5, "pool"})));
    };
    host.engine.on_find_recorded_failure_detail = [this] {
      return scripted_callable(host.log, "mi_failure_detail", always(Value("mi detail")));
    };
  }

  void answers(const Value& mutual_information, const Value& correlation) {
    host.engine.on_submission_pnl_mi_from_backtest_or_compute = always(mutual_information);
    host.engine.on_submission_correlation_from_backtest_or_compute = always(correlation);
  }
  void refresh() {
    refresh_candidate_submission_pool_metrics(host.bundle(), host.context, candidate, payload);
  }
  std::string error_of_refresh() {
    return error_of([&] { return refresh(), 0; });
  }
  Mapping tracking() { return candidate.at("tracking_metric_kwargs").mapping(); }
  Mapping is_stats() { return payload.at("is_stats").mapping(); }
  // The names of the engine's operations that were called.
  Names engine_calls() {
    Names calls;
    for (const std::string& name : host.log.names())
      if (name.rfind("engine.", 0) == 0) calls.push_back(name.substr(7));
    return calls;
  }
  ScriptedHost host;
  Mapping attributes{{"_backtester", backtester_with(make_object<RunBacktest>())},
                     {"_era_config", Mapping{{"id", 7}}},
                     {"_signal_pool_name", "pool"},
                     {"_sync_mgr", "manager"}};
  Mapping candidate{{"graph", "g"},
                    {"stats", "stats"},
                    {"passes", true},
                    {"tracking_metric_kwargs", Mapping{{"pnl_mi", "stale"},
                                                       {"correlation", "stale"},
                                                       {"mi_verdict", "stale"},
                                                       {"correlation_verdict", "stale"},
                                                       {"other", "kept"}}}};
  Mapping payload{
      {"is_stats", Mapping{{"is_pnl_mi", "stale"}, {"correlation", "stale"}, {"sharpe", 1.0}}}};
};

}  // namespace varnholt::genetic::test
