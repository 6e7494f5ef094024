#include "hosts/embedded/search/signal_report.hpp"

#include <optional>
#include <string>

#include "hosts/embedded/host/figure_table.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {
namespace {

SignalFigures figures_of(const Evaluator& evaluator, const FigureTaker& taker,
                         const genetic::Value& graph) {
  const Panel signal = evaluator.signal(evaluator.compile(graph));
  return taker.figures(signal, evaluator.weights(signal));
}

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

FiguresRecord figures_record(const char* sample, const SampleFigures& figures) {
  genetic::List returns;
  for (const double value : figures.backtest.net_returns)
    returns.append(value);
  return {sample, genetic::json_text(figures_mapping(figures)), figures.first_booked,
          genetic::json_text(returns)};
}

// All of it or nothing.
void store_figures(RunStore& store, const std::string& eval_id, const SignalFigures& figures) {
  store.under_lock("recording the figures of a signal", [&] {
    store.record_holdout(
        eval_id, genetic::json_text(statistics_mapping(figures.holdout.backtest.statistics)));
    store.record_figures(eval_id, {figures_record(kInSample, figures.in_sample),
                                   figures_record(kHoldout, figures.holdout)});
    return RunStore::LockedWork::Keep;
  });
}

}  // namespace

std::vector<SubmittedSignal> report_submitted_signals(RunStore& store, std::int64_t run,
                                                      const Evaluator& evaluator,
                                                      const FigureTaker& taker,
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
    const SignalFigures figures = figures_of(evaluator, taker, graph);
    signal.statistics = {figures.in_sample.backtest.statistics,
                         figures.holdout.backtest.statistics};
    signal.in_sample_estimate = sharpe_estimate(figures.in_sample.backtest.net_returns);
    signal.holdout_estimate = sharpe_estimate(figures.holdout.backtest.net_returns);
    signal.has_holdout = true;
    store_figures(store, submission.eval_id, figures);
  }
  return signals;
}

std::vector<std::string> complete_holdouts(RunStore& store, const PoolIdentity& pool,
                                           const Evaluator& evaluator, const FigureTaker& taker,
                                           const StopQuestion& is_cut) {
  std::vector<std::string> completed;
  for (const SubmissionRecord& submission :
       store.submissions().list({std::nullopt, SubmissionState::Submitted})) {
    // The data key says that the days in sample are these, whatever the file was then.
    if (submission.pool.signal_pool_name != pool.signal_pool_name ||
        submission.pool.market_id != pool.market_id || submission.pool.data_key != pool.data_key) {
      continue;
    }
    const auto evaluation = store.find_evaluation(submission.eval_id);
    if (!evaluation || evaluation->evaluation.holdout_statistics_json) continue;
    // Of a run that goes on elsewhere they are its own to make.
    if (!evaluation->run.ended_at) continue;
    if (is_cut && is_cut()) break;
    const genetic::Value graph = read_json(evaluation->evaluation.graph_json);
    store_figures(store, submission.eval_id, figures_of(evaluator, taker, graph));
    completed.push_back(submission.eval_id);
  }
  return completed;
}

}  // namespace varnholt::embedded
