#include "hosts/embedded/search/signal_report.hpp"

#include <string>
#include <utility>

#include "hosts/embedded/host/figure_table.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/host/value_wire.hpp"
#include "hosts/embedded/vocabulary/expression_text.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Mapping;
using genetic::Value;

constexpr genetic::Key kFigures = genetic::key<"figures">();
constexpr genetic::Key kReturns = genetic::key<"returns">();
constexpr genetic::Key kFirstBooked = genetic::key<"first_booked">();
constexpr genetic::Key kStatistics = genetic::key<"statistics">();
constexpr genetic::Key kSharpe = genetic::key<"sharpe">();
constexpr genetic::Key kError = genetic::key<"error">();

// What a worker tells of one sample: what is stored, in the form in which it is stored, and what
// the report needs besides.
Mapping told_of(const SampleFigures& figures) {
  const Eigen::ArrayXd& net = figures.backtest.net_returns;
  genetic::List returns(static_cast<std::size_t>(net.size()));
  for (const double value : net)
    returns.append(value);
  const SharpeEstimate estimate = sharpe_estimate(net);
  return {{kFigures, genetic::json_text(figures_mapping(figures))},
          {kReturns, genetic::json_text(returns)},
          {kFirstBooked, figures.first_booked},
          {kStatistics, statistics_mapping(figures.backtest.statistics)},
          {kSharpe, estimate.sharpe},
          {kError, estimate.error}};
}

// In a worker.
std::string figures_told(const Evaluator& evaluator, const FigureTaker& taker, const Value& graph) {
  const Panel signal = evaluator.signal(evaluator.compile(graph));
  const SignalFigures figures = taker.figures(signal, evaluator.weights(signal));
  std::string bytes;
  append_value(bytes, Mapping{{kInSample, told_of(figures.in_sample)},
                              {kHoldout, told_of(figures.holdout)}});
  return bytes;
}

// What was told of both samples.
struct ToldFigures {
  Mapping in_sample;
  Mapping holdout;

  explicit ToldFigures(const std::string& bytes) {
    const Mapping both = ValueReader(bytes).next().mapping();
    in_sample = both.at(kInSample).mapping();
    holdout = both.at(kHoldout).mapping();
  }
};

FiguresRecord figures_record(const char* sample, const Mapping& told) {
  return {sample, std::string(told.at(kFigures).text()), told.at(kFirstBooked).integer(),
          std::string(told.at(kReturns).text())};
}

SharpeEstimate estimate_from(const Mapping& told) {
  return {told.at(kSharpe).real(), told.at(kError).real()};
}

// All of it or nothing.
void store_figures(RunStore& store, const std::string& eval_id, const ToldFigures& figures) {
  store.under_lock("recording the figures of a signal", [&] {
    store.record_holdout(eval_id, genetic::json_text(figures.holdout.at(kStatistics).mapping()));
    store.record_figures(eval_id, {figures_record(kInSample, figures.in_sample),
                                   figures_record(kHoldout, figures.holdout)});
    return RunStore::LockedWork::Keep;
  });
}

// Without any figures.
SubmittedSignal signal_of(const SubmissionRecord& submission, const Value& graph) {
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

void set_figures(SubmittedSignal& signal, const ToldFigures& figures) {
  signal.statistics = {statistics_from(figures.in_sample.at(kStatistics).mapping()),
                       statistics_from(figures.holdout.at(kStatistics).mapping())};
  signal.in_sample_estimate = estimate_from(figures.in_sample);
  signal.holdout_estimate = estimate_from(figures.holdout);
  signal.has_holdout = true;
}

void set_stored_statistics(SubmittedSignal& signal, RunStore& store) {
  if (const auto evaluation = store.find_evaluation(signal.eval_id)) {
    signal.statistics.in_sample =
        statistics_from(read_json(evaluation->evaluation.statistics_json).mapping());
  }
}

}  // namespace

std::vector<SubmittedSignal> report_submitted_signals(RunStore& store, std::int64_t run,
                                                      const Evaluator& evaluator,
                                                      const FigureTaker& taker,
                                                      ReportWorkers& workers) {
  std::vector<SubmittedSignal> signals;
  std::vector<Value> graphs;
  for (const SubmissionRecord& submission :
       store.submissions().list({run, SubmissionState::Submitted})) {
    graphs.push_back(read_json(submission.payload_json).mapping().at(genetic::keys::kGraph));
    signals.push_back(signal_of(submission, graphs.back()));
  }
  workers.run(
      graphs.size(),
      [&](const WorkItem& item) { return figures_told(evaluator, taker, graphs[item.index]); },
      [&](std::size_t index, const std::string& bytes) {
        const ToldFigures figures(bytes);
        set_figures(signals[index], figures);
        store_figures(store, signals[index].eval_id, figures);
      });
  for (SubmittedSignal& signal : signals) {
    if (!signal.has_holdout) set_stored_statistics(signal, store);
  }
  return signals;
}

std::vector<std::string> complete_holdouts(RunStore& store, const PoolIdentity& pool,
                                           const Evaluator& evaluator, const FigureTaker& taker,
                                           ReportWorkers& workers) {
  std::vector<std::string> wanted;
  std::vector<Value> graphs;
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
    wanted.push_back(submission.eval_id);
    graphs.push_back(read_json(evaluation->evaluation.graph_json));
  }
  std::vector<std::string> completed;
  workers.run(
      graphs.size(),
      [&](const WorkItem& item) { return figures_told(evaluator, taker, graphs[item.index]); },
      [&](std::size_t index, const std::string& bytes) {
        store_figures(store, wanted[index], ToldFigures(bytes));
        completed.push_back(wanted[index]);
      });
  return completed;
}

}  // namespace varnholt::embedded
