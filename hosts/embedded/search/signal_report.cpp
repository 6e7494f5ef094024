#include "hosts/embedded/search/signal_report.hpp"

#include <optional>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {
namespace {

SubmittedSignal signal_of(const SubmissionRecord& submission, const Evaluator& evaluator,
                          const EraPlan& plan) {
  const genetic::Value graph =
      read_json(submission.payload_json).mapping().at(genetic::keys::kGraph);
  SubmittedSignal signal;
  signal.eval_id = submission.eval_id;
  signal.expression = expression_text(graph);
  signal.statistics = sample_statistics(evaluator.evaluate(graph).weights, evaluator.close(),
                                        evaluator.options().cost_basis_points, plan);
  if (submission.settlement) {
    signal.novelty = submission.settlement->novelty;
    signal.correlation = submission.settlement->correlation;
  }
  return signal;
}

}  // namespace

std::vector<SubmittedSignal> report_submitted_signals(RunStore& store, std::int64_t run,
                                                      const Evaluator& evaluator,
                                                      const EraPlan& plan) {
  std::vector<SubmittedSignal> signals;
  for (const SubmissionRecord& submission :
       store.submissions().list({run, SubmissionState::Submitted})) {
    signals.push_back(signal_of(submission, evaluator, plan));
    store.record_holdout(submission.eval_id,
                         genetic::json_text(statistics_mapping(signals.back().statistics.holdout)));
  }
  return signals;
}

SampleStatistics market_statistics(const Evaluator& evaluator, const EraPlan& plan) {
  const Panel& close = evaluator.close();
  return sample_statistics(equal_weights(close), close, evaluator.options().cost_basis_points,
                           plan);
}

}  // namespace varnholt::embedded
