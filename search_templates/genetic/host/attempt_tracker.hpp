// The host's record of attempts: one row for each candidate that reached its backtest.
//
// A row goes one way: created, dispatched, backtest started, ended. The parent process alone writes
// it, on the thread of the search; a child holds a guard in the place of whatever would. No call
// may be repeated by the host on its own, and none is made again after it worked. What a call
// throws leaves the library as the same error; the caller then takes the step as not done, and an
// end that failed is asked for again by the next event that ends the attempt.
#pragma once

#include <string>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What a row is created with, in the order in which a host of another language sees the keywords.
// What the context said is handed on as it is, unread.
struct NewAttempt {
  Value product_run_id;
  Key source_path;
  Value graph;
  Key algorithm;
  std::string rotation_identifier;  // "candidate-" and the candidate's index.
  Value era_number;
  Value market_id;
  Value data_shape;
  Value expected_columns;
  Key eval_type;
};

// How an attempt ends whose result cannot reach the recorder, in the same order. Such an attempt
// has no statistics, and its backtest is not completed, whatever the child did unseen.
struct AttemptEnd {
  Key terminal_disposition;
  bool backtest_completed = false;
  Value generated_stats = {};
  Value candidate_stats = {};
  Mapping stats_construction_blocker;  // `type`, `reason`, and `detail` where there is one.
  Value expected_columns;
  Value per_column_inventory;
  // `verdict`, `reason`, `detail`, `threshold_set`, `stats_verdict`, `correlation_verdict`,
  // `mi_verdict`.
  Mapping threshold_gate;
  Key failure_category;
  Value failure_reason;  // A text.
  Value failure_detail;  // A text, or absent.
  Key classification_source;
};

// A tracker is asked of the context anew for each call.
class AttemptTracker {
 public:
  // Returns the identity of the new row: opaque, and kept by the ledger until the attempt ends.
  using Create = Operation<Value(const NewAttempt&)>;
  // Ends the row of this identity.
  using Finalize = Operation<void(const Value& attempt_id, const AttemptEnd&)>;

  virtual ~AttemptTracker() = default;

  // Looks the operation up; a host that has none throws here. What it gives is called once, when
  // the arguments have been read of the context, and outlives neither tracker nor context.
  [[nodiscard]] virtual Create create_simulation_attempt() = 0;
  [[nodiscard]] virtual Finalize finalize_simulation_attempt() = 0;

  // Both are called right after the row is created, in this order, before the child is let into its
  // backtest: when the second has returned, the row shows the backtest as running.
  virtual void mark_simulation_attempt_dispatched(const Value& attempt_id) = 0;
  virtual void mark_simulation_attempt_backtest_started(const Value& attempt_id) = 0;
};

}  // namespace varnholt::genetic
