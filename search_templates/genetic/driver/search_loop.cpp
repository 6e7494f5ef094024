#include "search_templates/genetic/driver/search_loop.hpp"

#include <exception>
#include <optional>
#include <string>

#include "search_templates/genetic/driver/improvement_rounds.hpp"
#include "search_templates/genetic/driver/process_failure.hpp"
#include "search_templates/genetic/driver/run_counters.hpp"
#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/population/candidate_batch.hpp"
#include "search_templates/genetic/population/deduplication.hpp"
#include "search_templates/genetic/population/parent_scoring.hpp"
#include "search_templates/genetic/population/seen_graph_keys.hpp"
#include "search_templates/genetic/process/batch_evaluation.hpp"
#include "search_templates/genetic/process/worker_capacity.hpp"
#include "search_templates/genetic/reaction/improvement_outcome.hpp"
#include "search_templates/genetic/reaction/lineage.hpp"
#include "search_templates/genetic/reaction/near_misses.hpp"
#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/submission/recording.hpp"
#include "search_templates/genetic/submission/submitting.hpp"
#include "search_templates/genetic/value/arithmetic.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// Whether the loop goes on with its next turn.
enum class Turn : std::uint8_t { kNext, kLeave };

class SearchRun {
 public:
  SearchRun(const SearchEnvironment& environment, SearchContext& context, SearchConfig& config)
      : environment_(environment),
        host_(environment.host),
        context_(context),
        config_(config),
        // Resolved and logged also when the stop event is set before the run.
        counters_(environment.host, environment.constants, context, config,
                  parallel_evaluation_workers(environment.host, context, config.batch_size())) {}

  void run() {
    stop_event_ = context_.stop_event();
    while (!is_stopped() && generation() == Turn::kNext) {
      stop_event_ = context_.stop_event();
      ++batch_index_;  // Empty and all-duplicate batches count too.
    }
    if (counters_.metrics_recorded()) return;
    // The reason is "stopped" however this last test comes out: the loop has no other way to end
    // without a metrics record.
    if (const auto last_event = context_.stop_event()) static_cast<void>(last_event->is_set());
    counters_.record_run_metrics(reasons::kStopped);
  }

 private:
  // What a batch's evaluation gave: the results, and the error of which they were made, if any.
  struct Evaluation {
    Value results;
    std::optional<Value> process_error;
  };

  Turn generation() {
    const Value batch = candidate_batch(environment_, context_, config_, batch_index_,
                                        prior_results_, force_restart_);
    force_restart_ = false;
    if (!truth(batch)) {
      force_restart_ = true;
      return pause();
    }

    const DeduplicatedBatch unique = run_deduplicated_batch(
        context_, config_, environment_.fresh_candidates, batch, seen_graph_keys_);
    counters_.count_duplicates(unique.duplicate_count);
    if (unique.graphs.empty()) return all_duplicates();
    if (GenerationObserver* const observer = host_.generation_observer()) {
      observer->on_batch(unique.graphs);
    }

    Evaluation evaluation = evaluate(unique.graphs);
    const Value results = annotate_candidate_results(evaluation.results, 0, 0);
    record_and_submit(results);
    counters_.count_candidates(results);
    if (evaluation.process_error) {
      static_cast<void>(counters_.count_process_evaluation_failures(*evaluation.process_error));
    } else {
      counters_.count_runtime_not_ready_results(results);
    }
    if (is_stopped()) return Turn::kLeave;

    List generation_results;
    generation_results.extend(results.list());
    ImprovementOutcome improvement = run_improvement_rounds(
        {environment_, context_, config_, counters_, seen_graph_keys_, stop_event_.get()},
        generation_results);
    // Every result goes through recording and submission a second time; the marks on it make that
    // harmless, and what the host did not take the first time is offered again.
    record_and_submit(generation_results);

    choose_parents(generation_results, improvement);
    stop_event_ = context_.stop_event();
    if (is_stopped()) improvement.terminal_reason = reasons::kStopped;
    if (improvement_terminal_ends_search(improvement.terminal_reason)) {
      counters_.record_run_metrics(improvement.terminal_reason);
      return Turn::kLeave;
    }
    return pause();
  }

  Turn all_duplicates() {
    force_restart_ = true;
    if (is_stopped()) return Turn::kLeave;
    if (counters_.candidate_count() > 0) {
      counters_.record_run_metrics(reasons::kDuplicate);
      return Turn::kLeave;
    }
    return pause();
  }

  Evaluation evaluate(const List& graphs) {
    try {
      return {evaluate_candidate_batch(host_, context_, graphs, config_.process_timeout_seconds()),
              std::nullopt};
    } catch (...) {
      const std::exception_ptr caught = std::current_exception();
      const auto handled = context_.handling(caught);
      const std::optional<Value> error = host_.process_evaluation().as_caught_error(caught);
      if (!error || process_failure_ends_search(host_, counters_, *error)) throw;
      force_restart_ = true;
      return {process_evaluation_error_results(host_.process_evaluation(),
                                               host_.evaluation_verdicts(), graphs, *error),
              *error};
    }
  }

  // What passes is submitted only after all is recorded.
  void record_and_submit(const Value& results) {
    record_candidate_results_in_parent(host_, context_, results);
    submit_submittable_candidates(host_, context_, results);
  }

  void choose_parents(const List& generation_results, const ImprovementOutcome& improvement) {
    List passing_results;
    ListCursor cursor(generation_results);
    while (const std::optional<Value> result = cursor.next()) {
      if (truth(record_of(*result).get(keys::kPasses))) passing_results.append(*result);
    }

    if (!passing_results.empty()) {
      note_batch_score(passing_results);
    } else if (const List near_misses = near_misses_of(generation_results);
               !near_misses.empty() && !are_exhausted(improvement)) {
      // Worth breeding from, and no reason to start anew.
      prior_results_ = near_misses;
      force_restart_ = false;
      stagnant_batches_ = 0;
    } else {
      prior_results_ = List();
      ++stagnant_batches_;
      force_restart_ = is_stagnant();
      if (force_restart_) stagnant_batches_ = 0;
    }

    // Only passing results can still have left the count at the threshold.
    if (is_stagnant()) {
      prior_results_ = List();
      force_restart_ = true;
      stagnant_batches_ = 0;
    } else if (!passing_results.empty()) {
      prior_results_ = passing_results;
    }
  }

  [[nodiscard]] List near_misses_of(const List& generation_results) {
    return select_actionable_near_miss_parents({host_, environment_.constants, context_},
                                               generation_results, config_.batch_size());
  }

  [[nodiscard]] static bool are_exhausted(const ImprovementOutcome& improvement) {
    return improvement_terminal_exhausts_near_misses(
        improvement.terminal_reason, improvement.improvement_count, improvement.round_count);
  }

  void note_batch_score(const List& passing_results) {
    std::optional<Value> batch_score;
    ListCursor cursor(passing_results);
    while (const std::optional<Value> candidate = cursor.next()) {
      Value score = candidate_eliteness(host_.eliteness(), *candidate, config_.diversity_weight(),
                                        config_.parsimony_weight());
      // The first of equal scores stays.
      if (!batch_score || greater(score, *batch_score)) batch_score = std::move(score);
    }
    // A score that is itself absent counts as none yet.
    if (best_score_.is_absent() || greater(*batch_score, best_score_)) {
      best_score_ = *batch_score;
      stagnant_batches_ = 0;
    } else {
      ++stagnant_batches_;  // An equal score is no improvement.
    }
  }

  [[nodiscard]] bool is_stagnant() const {
    return !less(stagnant_batches_, config_.restart_threshold());
  }

  [[nodiscard]] bool is_stopped() const { return stop_event_ != nullptr && stop_event_->is_set(); }

  Turn pause() {
    if (GenerationObserver* const observer = host_.generation_observer()) {
      observer->on_generation_end();
    }
    if (stop_event_ != nullptr) {
      return stop_event_->wait(GENERATION_PAUSE_SECONDS) ? Turn::kLeave : Turn::kNext;
    }
    host_.pause().sleep(GENERATION_PAUSE_SECONDS);
    return Turn::kNext;
  }

  SearchEnvironment environment_;
  Host& host_;
  SearchContext& context_;
  SearchConfig& config_;
  RunCounters counters_;
  std::shared_ptr<StopEvent> stop_event_;
  std::int64_t batch_index_ = 0;
  Value prior_results_ = List();
  Value best_score_;
  std::int64_t stagnant_batches_ = 0;
  bool force_restart_ = false;
  SeenGraphKeys seen_graph_keys_{environment_.host.parent_memory()};
};

}  // namespace

void run_genetic_search(const SearchEnvironment& environment, SearchContext& context,
                        SearchConfig& config) {
  SearchRun(environment, context, config).run();
}

}  // namespace varnholt::genetic
