// The backtester as the search hands it back to the host: an object that can run a backtest.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The attribute `run_backtest`, which can be called.
class BacktesterObject : public genetic::HostObject {
 public:
  // The evaluator must outlive the object.
  explicit BacktesterObject(const Evaluator& evaluator) : evaluator_(evaluator) {}

  [[nodiscard]] const Evaluator& evaluator() const { return evaluator_; }

  [[nodiscard]] std::string type_name() const override { return "Backtester"; }
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) const override;

 private:
  const Evaluator& evaluator_;
};

// Statistics with the daily PnL of one more backtest. genetic::TypeError for a value that is no
// backtester; what the evaluator throws propagates.
[[nodiscard]] genetic::Value backtest_with_pnl(const genetic::Value& backtester,
                                               const genetic::Value& graph);

}  // namespace varnholt::embedded
