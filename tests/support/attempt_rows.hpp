// Attempts to put into a store.
#pragma once

#include <cstdint>
#include <string>

#include "hosts/embedded/store/attempt_table.hpp"

namespace varnholt::embedded::test {

inline NewAttemptRow new_attempt(std::int64_t run, const std::string& graph_key = "k",
                                 int candidate = 0) {
  NewAttemptRow attempt;
  attempt.run = run;
  attempt.source_path = "search_signal";
  attempt.graph_key = graph_key;
  attempt.graph_json = R"({"node":"close"})";
  attempt.algorithm = "genetic";
  attempt.rotation_identifier = "candidate-" + std::to_string(candidate);
  attempt.era_number = 3;
  attempt.market_id = 1;
  attempt.data_shape_json = R"({"columns":2,"rows":1})";
  attempt.expected_columns_json = R"(["sharpe","turnover"])";
  attempt.eval_type = "signal";
  return attempt;
}

inline AttemptEndRow worker_lost() {
  AttemptEndRow end;
  end.terminal_disposition = "backtest_failed";
  end.stats_construction_blocker_json = R"({"type":"process_backtest_execution_failed"})";
  end.failure_category = "execution";
  end.failure_reason = "worker_failed";
  end.failure_detail = "killed by signal 9";
  end.classification_source = "process_evaluation";
  return end;
}

// Creates an attempt and takes it up to its backtest.
inline std::int64_t running_attempt(AttemptTable& attempts, const NewAttemptRow& attempt) {
  const std::int64_t id = attempts.create(attempt, 1.0);
  attempts.mark(id, AttemptStep::Dispatched, 2.0);
  attempts.mark(id, AttemptStep::BacktestStarted, 3.0);
  return id;
}

}  // namespace varnholt::embedded::test
