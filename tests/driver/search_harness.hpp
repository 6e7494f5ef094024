// A whole search over the hand-made host: scripted batches in, scripted outcomes of the pool, and
// the ordered log of every call that the search makes of its host.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "search_templates/genetic/driver/genetic.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {

using Names = std::vector<std::string>;

// The parts one after the other.
[[nodiscard]] inline Names operator+(Names left, const Names& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

[[nodiscard]] inline Names times(int count, const Names& part) {
  Names all;
  for (int i = 0; i < count; ++i)
    all = all + part;
  return all;
}

// A graph of one node, told from others by its name.
[[nodiscard]] inline Value graph_named(const std::string& name) {
  return Mapping{{"node", name}};
}
[[nodiscard]] inline List graphs_named(const std::vector<std::string>& names) {
  List graphs;
  for (const std::string& name : names)
    graphs.append(graph_named(name));
  return graphs;
}
[[nodiscard]] inline std::string name_of(const Value& graph) {
  return str(graph.mapping().at("node"));
}

// What a child process hands back for a graph: a record that passes, with the timing that it must
// have, and one that fails for `reason`.
[[nodiscard]] inline Mapping passing(const Value& graph) {
  return {{"graph", graph},
          {"passes", true},
          {"failures", Mapping()},
          {"correlation", 0.25},
          {"backtest_timing", Mapping{{"seconds", 0.5}}}};
}
[[nodiscard]] inline Mapping failing_for(const Value& graph, const char* reason) {
  return {{"graph", graph},
          {"passes", false},
          {"failures", Mapping{{reason, Mapping{{"reason", reason}}}}}};
}

// Gives what the test says and writes each request into the log.
class ScriptedFreshCandidates : public FreshCandidates {
 public:
  using Draw = std::function<Value(std::int64_t)>;

  ScriptedFreshCandidates(CallLog& log, std::shared_ptr<Draw> draw)
      : log_(log), draw_(std::move(draw)) {}

  [[nodiscard]] Value draw(SearchContext& /*context*/, std::int64_t count,
                           const std::shared_ptr<RandomGenerator>& rng) override {
    log_.add("fresh.draw", {count});
    if (rng != nullptr) static_cast<void>(rng->random());
    return (*draw_)(count);
  }

 private:
  CallLog& log_;
  std::shared_ptr<Draw> draw_;
};

// By default every batch is as many new graphs as asked for ("g1", "g2", ...), every candidate
// passes with the score 0.0 and is recorded and enqueued, and the run ends at the third pause. The
// context has nothing to measure a candidate against the pool with.
class SearchHarness {
 public:
  using Outcome = std::function<Mapping(const Value&)>;

  explicit SearchHarness(std::int64_t batch_size = 1, std::int64_t restart_threshold = 100) {
    host.context.on_n_jobs = always(Value(2));
    host.process_contexts.is_quiet = true;
    host.process_evaluation.on_resolve_process_worker_count_details = always(2);
    on_record([this](const auto& /*positional*/, const Mapping& /*keywords*/) {
      return Value("eval-" + std::to_string(++recorded_));
    });
    on_enqueue([](const auto& /*positional*/, const Mapping& /*keywords*/) { return Value(); });
    host.context.on_record_search_run_metrics = always(scripted_callable(
        host.log, "record_metrics", [this](const auto& /*positional*/, const Mapping& keywords) {
          metrics.push_back(keywords);
          return Value();
        }));
    host.context.on_stop_event = always(std::shared_ptr<StopEvent>(stop_event));
    stop_at_pause(3);
    host.process_evaluation.on_evaluate_candidate_batch =
        [this](const std::vector<ScriptedCandidate>& candidates, const auto& /*simulate*/,
               const auto& /*config*/) { return evaluate(candidates); };
    *on_draw = [this](std::int64_t count) {
      List graphs;
      for (std::int64_t i = 0; i < count; ++i)
        graphs.append(graph_named("g" + std::to_string(++drawn_)));
      return Value(graphs);
    };

    TemplateArguments arguments = module.default_arguments();
    arguments.batch_size = batch_size;
    arguments.restart_threshold = restart_threshold;
    configure(arguments);
  }
  SearchHarness(const SearchHarness&) = delete;
  SearchHarness& operator=(const SearchHarness&) = delete;

  void configure(const TemplateArguments& arguments) {
    config = std::make_unique<GeneticTemplate>(module.with_config(arguments));
  }

  // The host's recorder and its queue of submissions.
  void on_record(ScriptedCallable::Function function) {
    host.context.on_required_safe_record =
        always(scripted_callable(host.log, "safe_record", std::move(function)));
  }
  void on_enqueue(ScriptedCallable::Function function) {
    host.context.on_enqueue_deferred_submission_payload =
        always(scripted_callable(host.log, "enqueue", std::move(function)));
  }

  // The number of the pause that the stop event ends.
  void stop_at_pause(int number) {
    stop_event->on_wait = [number, pause = 0](double) mutable { return ++pause >= number; };
  }

  // The batches, in order, and an error of the test when one too many is asked for.
  void draw_in_turn(std::initializer_list<Value> batches) { *on_draw = in_turn(batches); }

  // Runs the search. The log then holds this run alone.
  void run() {
    host.log.clear();
    module.run(host.context, *config);
  }

  // How many graphs were asked for, request by request.
  [[nodiscard]] std::vector<std::string> draws() const {
    std::vector<std::string> requests;
    for (const std::string& line : host.log.lines())
      if (line.rfind("fresh.draw", 0) == 0) requests.push_back(line.substr(10));
    return requests;
  }

  ScriptedHost host;
  std::shared_ptr<ScriptedStopEvent> stop_event = std::make_shared<ScriptedStopEvent>(host.log);
  std::shared_ptr<ScriptedFreshCandidates::Draw> on_draw =
      std::make_shared<ScriptedFreshCandidates::Draw>();
  // What the pool makes of a graph.
  Outcome on_outcome = passing;
  // The metrics records that were written.
  std::vector<Mapping> metrics;
  Module module{host.bundle(),
                std::make_unique<LoadedConstants>(host.search_settings, host.process_evaluation),
                std::make_unique<ScriptedFreshCandidates>(host.log, on_draw)};
  std::unique_ptr<GeneticTemplate> config;

 private:
  std::vector<ScriptedResult> evaluate(const std::vector<ScriptedCandidate>& candidates) {
    std::vector<ScriptedResult> results;
    for (const ScriptedCandidate& candidate : candidates) {
      results.push_back({candidate.candidate_index, on_outcome(candidate.graph), 4321, 0.5, 1});
    }
    return results;
  }

  int drawn_ = 0;
  int recorded_ = 0;
};

// The calls of a run's parts, by their names. ---------------------------------------------------

// Before the first turn: the number of workers, and the first test of the stop event.
inline const Names kSetUp = {"context.n_jobs",
                             "process_evaluation.resolve_process_worker_count_details",
                             "process_evaluation.log_worker_count_reduction", "context.stop_event"};
inline const Names kTest = {"stop_event.is_set"};
// A batch of fresh graphs; the scripted source draws one random number.
inline const Names kBatch = {"random_generators.from_state", "fresh.draw", "rng.random",
                             "rng.getstate"};
// A batch of one that is bred: the parent is scored for the order of the pool and again within it,
// and with a diversity weight above 0.0 the one place goes to a fresh graph.
inline const Names kBredBatch = {"random_generators.from_state",
                                 "context.max_depth",
                                 "context.own_graph_validator",
                                 "context.backtester_validate_graph",
                                 "eliteness.score_candidate",
                                 "eliteness.score_candidate",
                                 "fresh.draw",
                                 "rng.random",
                                 "rng.getstate"};
// A batch that the pool answers in one pass: it is not cancelled, no PnL files are listed, the
// workers are logged, the features are warmed, and the pool is configured.
[[nodiscard]] inline Names pool_calls(bool is_batch_of_one) {
  const Names begun = {"context.submission_cancelled", "context.attribute"};
  // Whether to submit what completes depends on the jobs, unless there is one candidate.
  const Names jobs = is_batch_of_one ? Names() : Names{"context.n_jobs"};
  return begun + jobs +
         Names{"context.n_jobs",
               "process_evaluation.resolve_process_worker_count_details",
               "process_evaluation.log_worker_count_reduction",
               "context.n_jobs",
               "process_contexts.fork_context",
               "context.submission_cancelled",
               "process_evaluation.prefetch_candidate_features",
               "context.n_jobs",
               "search_settings.default_process_priority",
               "context.attribute",
               "context.worker_memory_limit_bytes",
               "process_evaluation.default_worker_memory_limit_bytes",
               "context.attribute",
               "process_evaluation.evaluate_candidate_batch"};
}
inline const Names kPool = pool_calls(true);
inline const Names kPoolOfMany = pool_calls(false);
// As many reads of the context's plain attributes.
[[nodiscard]] inline Names attribute_reads(std::size_t count) {
  return Names(count, "context.attribute");
}
// For each result that fails.
inline const Names kRecordFailing = {"context.required_safe_record", "safe_record",
                                     "context.last_evaluation_record"};
// A market and an era that the context does not know.
inline const Names kMarketAndEra = attribute_reads(10);
// For each result that passes: its timing is checked, the payload is built round the manifest, the
// pool cannot be measured, and only then is the result recorded.
inline const Names kCheckTiming = {"timings.validate_backtest_timing_payload",
                                   "timings.validate_graph_backtest_timing_payload"};
inline const Names kRecordPassing =
    Names{"timings.validate_backtest_timing_payload",
          "timings.validate_process_backtest_timing_payload", "context.required_safe_record"} +
    kCheckTiming + attribute_reads(2) + Names{"engine.find_submitted_stats_payload_from_backtest"} +
    attribute_reads(1) + kMarketAndEra + attribute_reads(1) +
    Names{"engine.annotate_submission_client_manifest"} + kMarketAndEra + attribute_reads(1) +
    attribute_reads(4) +
    Names{"evaluation_verdicts.not_evaluated_verdict", "evaluation_verdicts.not_evaluated_verdict",
          "safe_record", "context.last_evaluation_record"};
// For each result that passes and is recorded. Its timing has come to stand in the payload as well.
inline const Names kSubmit = Names{"timings.validate_backtest_timing_payload"} + kCheckTiming +
                             kMarketAndEra +
                             Names{"context.enqueue_deferred_submission_payload", "enqueue"};
inline const Names kStreak = {"engine.infrastructure_failure_threshold"};
inline const Names kScore = {"eliteness.score_candidate"};
inline const Names kPause = {"stop_event.wait"};
inline const Names kReadStopEvent = {"context.stop_event"};
// A result that does not pass is judged by all gates; here there are no thresholds.
inline const Names kJudge = attribute_reads(2) + Names{"context.search_context_thresholds"} +
                            attribute_reads(2) + Names{"engine.stats_gate_threshold_set"};
// What the planner may use, and its answer.
inline const Names kPlan = {"context.vocabulary",
                            "context.vocabulary",
                            "engine.function_entries_for_kind",
                            "context.max_depth",
                            "engine.random_weighted_window_limit",
                            "engine.random_weighted_node_limit",
                            "engine.random_weighted_runtime_registry",
                            "engine.signal_generation_safe_rotations",
                            "context.own_graph_validator",
                            "context.backtester_validate_graph",
                            "reaction_planning.derive_reaction_improvements"};
// The improvement rounds of a generation in which all pass: there is nothing to repair.
inline const Names kNoRounds = kTest + Names{"context.max_depth"} + kTest;
// The same where so many results failed for reasons that nothing addresses: each is judged as a
// near miss, as a member of the pool, and as a source.
[[nodiscard]] inline Names no_rounds_for(int failures) {
  return kTest + times(3 * failures, kJudge) + Names{"context.max_depth"} + kTest;
}
// The near misses that a result failed on sharpe is not among, and the rounds of a generation of
// one such result, for which there is no plan.
inline const Names kNoNearMiss = kJudge + Names{"engine.stats_gate_metrics"};
inline const Names kFruitlessRound =
    kTest + kNoNearMiss + kJudge + kJudge + Names{"context.max_depth"} + kJudge + kPlan + kTest;
// The one metrics record; the recorder is asked for six of its keywords.
inline const Names kMetrics = {"context.record_search_run_metrics", "record_metrics.signature",
                               "record_metrics.signature",          "record_metrics.signature",
                               "record_metrics.signature",          "record_metrics.signature",
                               "record_metrics.signature",          "record_metrics"};

// A generation of one candidate that passes, and of one that fails.
// Three scores: the ranks of the first and of the second submission, and the generation's best.
inline const Names kAfterPassingBatch = kPool + kRecordPassing + kScore + kSubmit + kStreak +
                                        kTest + kNoRounds + kScore + kScore + kReadStopEvent +
                                        kTest + kPause;
inline const Names kPassing = kTest + kBatch + kAfterPassingBatch;
// The same after a generation that passed.
inline const Names kBredPassing = kTest + kBredBatch + kAfterPassingBatch;
inline const Names kFailing = kTest + kBatch + kPool + kRecordFailing + kStreak + kTest +
                              kFruitlessRound + kNoNearMiss + kReadStopEvent + kTest + kPause;
// After the loop.
inline const Names kStopped = kReadStopEvent + kTest + kMetrics;

}  // namespace varnholt::genetic::test
