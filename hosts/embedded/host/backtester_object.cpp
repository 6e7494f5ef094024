#include "hosts/embedded/host/backtester_object.hpp"

#include "hosts/embedded/host/statistics_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Value;

// The operation itself, which the search only asks whether it is there.
class RunBacktest : public genetic::HostObject {
 public:
  [[nodiscard]] std::string type_name() const override { return "method"; }
  [[nodiscard]] bool is_callable() const override { return true; }
};

}  // namespace

std::optional<Value> BacktesterObject::attribute(std::string_view name) const {
  if (name == "run_backtest") return genetic::make_object<RunBacktest>();
  return std::nullopt;
}

Value backtest_with_pnl(const Value& backtester, const Value& graph) {
  const auto* const object = backtester.is_object()
                                 ? dynamic_cast<const BacktesterObject*>(&backtester.object())
                                 : nullptr;
  if (object == nullptr) {
    throw genetic::TypeError("a value of type '" + genetic::type_name(backtester) +
                             "' is no backtester");
  }
  const BacktestResult backtest = object->evaluator().judge(graph);
  return genetic::make_object<StatisticsObject>(backtest.statistics, backtest.net_returns);
}

}  // namespace varnholt::embedded
