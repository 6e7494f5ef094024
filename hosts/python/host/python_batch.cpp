#include "hosts/python/host/python_batch.hpp"

#include "hosts/python/host/python_callable.hpp"
#include "hosts/python/host/python_context.hpp"
#include "hosts/python/host/python_ledger.hpp"
#include "hosts/python/values/conversion.hpp"
#include "hosts/python/values/python_api.hpp"

namespace varnholt::python {

using genetic::Callable;
using genetic::Value;

std::shared_ptr<genetic::AttemptLedger> PythonBatchParts::attempt_ledger(
    const genetic::List& indexed_batch) {
  ledger_ = call(globals_.get("_ProcessAttemptLedger"), {context_, to_python(indexed_batch)});
  return std::make_shared<PythonAttemptLedger>(ledger_);
}

Callable PythonBatchParts::simulate(const Value& found_pnl_paths) {
  return any_callable(
      call(callback_factory("simulation"), {context_, to_python(found_pnl_paths), ledger_}));
}

Callable PythonBatchParts::completed_result_callback(bool stream_submissions,
                                                     const genetic::StreamedResults& streamed) {
  return any_callable(
      call(callback_factory("completed_result_callback"),
           {context_, ledger_, to_python(stream_submissions), to_python(streamed.holder())}));
}

Callable PythonBatchParts::pre_dispatch() {
  return any_callable(attribute(ledger_, "pre_dispatch"));
}

Callable PythonBatchParts::lifecycle() {
  return any_callable(attribute(ledger_, "lifecycle"));
}

Callable PythonBatchParts::progress() {
  return any_callable(attribute(ledger_, "progress"));
}

Callable PythonBatchParts::poll_backtest_boundaries() {
  return any_callable(attribute(ledger_, "poll_backtest_boundaries"));
}

Value PythonBatchEvaluator::evaluate_candidate_batch(genetic::SearchContext& context,
                                                     const Value& batch,
                                                     const Value& process_timeout_seconds) {
  return to_value(call(globals_.get("_evaluate_candidate_batch"),
                       {object_of(context), to_python(batch)},
                       {{"process_timeout_seconds", to_python(process_timeout_seconds)}}));
}

}  // namespace varnholt::python
