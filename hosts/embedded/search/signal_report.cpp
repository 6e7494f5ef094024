#include "hosts/embedded/search/signal_report.hpp"

#include <optional>

#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {
namespace {

// With the statistics that the store has.
SubmittedSignal signal_of(const SubmissionRecord& submission, const genetic::Value& graph) {
  SubmittedSignal signal;
  signal.eval_id = submission.eval_id;
  signal.expression = expression_text(graph);
  signal.has_holdout = false;
  if (submission.settlement) {
    signal.novelty = submission.settlement->novelty;
    signal.correlation = submission.settlement->correlation;
  }
  return signal;
}

}  // namespace

std::vector<SubmittedSignal> report_submitted_signals(RunStore& store, std::int64_t run,
                                                      const Evaluator& evaluator,
                                                      const EraPlan& plan,
                                                      const StopQuestion& is_cut) {
  std::vector<SubmittedSignal> signals;
  bool cut = false;
  for (const SubmissionRecord& submission :
       store.submissions().list({run, SubmissionState::Submitted})) {
    const genetic::Mapping payload = read_json(submission.payload_json).mapping();
    const genetic::Value graph = payload.at(genetic::keys::kGraph);
    SubmittedSignal& signal = signals.emplace_back(signal_of(submission, graph));
    cut = cut || (is_cut && is_cut());
    if (cut) {
      if (const auto evaluation = store.find_evaluation(submission.eval_id)) {
        signal.statistics.in_sample =
            statistics_from(read_json(evaluation->evaluation.statistics_json).mapping());
      }
      continue;
    }
    signal.statistics = sample_statistics(evaluator.evaluate(graph).weights, evaluator.close(),
                                          evaluator.options().book, plan);
    signal.has_holdout = true;
    store.record_holdout(submission.eval_id,
                         genetic::json_text(statistics_mapping(signal.statistics.holdout)));
  }
  return signals;
}

SampleStatistics market_statistics(const Evaluator& evaluator, const EraPlan& plan) {
  const Panel& close = evaluator.close();
  return sample_statistics(equal_weights(close), close, evaluator.options().book, plan);
}

}  // namespace varnholt::embedded
