#include "search_templates/genetic/driver/improvement_rounds.hpp"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "search_templates/genetic/driver/process_failure.hpp"
#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/process/batch_evaluation.hpp"
#include "search_templates/genetic/reaction/failure_progress.hpp"
#include "search_templates/genetic/reaction/improvement_batch.hpp"
#include "search_templates/genetic/reaction/lineage.hpp"
#include "search_templates/genetic/settings/reason_tables.hpp"
#include "search_templates/genetic/submission/recording.hpp"
#include "search_templates/genetic/submission/submitting.hpp"
#include "search_templates/genetic/value/arithmetic.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// Whether there is one more round.
enum class Round : std::uint8_t { kNext, kEnd };

bool any_has_reaction_failure(const Value& results) {
  const auto walk = iterate(results);
  while (const std::optional<Value> result = walk->next()) {
    if (has_reaction_failure(*result)) return true;
  }
  return false;
}

bool is_reached(std::int64_t count, const Value& limit) {
  return !limit.is_absent() && at_least(count, limit);
}

// What a limit leaves; absent for no limit.
Value what_is_left(const Value& limit, std::int64_t count) {
  return limit.is_absent() ? Value() : minus(limit, count);
}

List graphs_of(const List& improvements) {
  List graphs(improvements.size());
  ListCursor cursor(improvements);
  while (const std::optional<Value> improvement = cursor.next())
    graphs.append(item(*improvement, keys::kGraph));
  return graphs;
}

class ImprovementRounds {
 public:
  ImprovementRounds(const ImprovementScope& scope, List& generation_results)
      : scope_(scope),
        host_(scope.environment.host),
        reaction_{scope.environment.host, scope.environment.constants, scope.context},
        generation_results_(generation_results),
        next_candidate_index_(static_cast<std::int64_t>(generation_results.size())) {
    List batch_results;
    batch_results.extend(generation_results);
    current_round_results_ = batch_results;
  }

  ImprovementOutcome run() {
    while (round() == Round::kNext) {
    }
    return std::move(outcome_);
  }

 private:
  Round round() {
    if (is_stopped()) return end(reasons::kStopped);
    const List sources = improvement_source_pool(reaction_, generation_results_,
                                                 current_round_results_, config().batch_size());
    if (is_reached(outcome_.round_count, config().max_improvement_rounds())) {
      return end_with(sources, reasons::kMaxImprovementRounds);
    }
    const Value remaining =
        what_is_left(config().max_improvement_candidates(), outcome_.improvement_count);
    if (!remaining.is_absent() && at_least(0, remaining)) {
      return end_with(sources, reasons::kMaxImprovementCandidates);
    }

    const ImprovementBatch batch = derive_improvement_batch(
        reaction_, sources, scope_.seen_graphs, {config().max_improvement_depth(), remaining});
    scope_.counters.count_duplicates(batch.duplicate_count);
    if (batch.improvements.empty()) return end(reason_without_improvements(batch));
    return evaluate(batch);
  }

  Round evaluate(const ImprovementBatch& batch) {
    const List graphs = graphs_of(batch.improvements);
    std::optional<Value> results;
    try {
      results = evaluate_candidate_batch(host_, scope_.context, graphs,
                                         config().process_timeout_seconds());
    } catch (...) {
      // The error is being handled until the lost round is counted.
      const std::exception_ptr caught = std::current_exception();
      const auto handled = scope_.context.handling(caught);
      const std::optional<Value> error = host_.process_evaluation().as_caught_error(caught);
      if (!error || process_failure_ends_search(host_, scope_.counters, *error)) throw;
      return take_in_lost_round(batch, graphs, *error);
    }
    return take_in(batch, *results);
  }

  Round take_in(const ImprovementBatch& batch, const Value& evaluated) {
    const Value results = annotate_record_and_submit(batch, evaluated);
    scope_.counters.count_candidates(results);
    count_round(results);
    scope_.counters.count_runtime_not_ready_results(results);

    if (is_stopped()) return end(reasons::kStopped);
    if (batch.candidate_limit_reached) return end(reasons::kMaxImprovementCandidates);
    if (!any_is_improved(batch.improvements, results)) return end(reasons::kNoImprovement);
    // With nothing left to repair a limit does not end the rounds here: the next one begins, and
    // asks the whole pool.
    if (is_reached(outcome_.improvement_count, config().max_improvement_candidates()) &&
        any_has_reaction_failure(results)) {
      return end(reasons::kMaxImprovementCandidates);
    }
    if (is_reached(outcome_.round_count, config().max_improvement_rounds()) &&
        any_has_reaction_failure(results)) {
      return end(reasons::kMaxImprovementRounds);
    }
    current_round_results_ = results;
    return Round::kNext;
  }

  // The seconds of a lost round are not known, and its candidates say nothing about the runtime.
  Round take_in_lost_round(const ImprovementBatch& batch, const List& graphs, const Value& error) {
    // Only a missing attribute has the host's reason put in its place, which is read first all the
    // same: one that is absent stays absent.
    const Value unnamed = host_.process_evaluation().terminal_worker_failed();
    const Value reason = attribute(error, keys::kTerminalReason.view()).value_or(unnamed);
    const Value results = annotate_record_and_submit(
        batch, process_evaluation_error_results(host_.process_evaluation(),
                                                host_.evaluation_verdicts(), graphs, error));
    scope_.counters.count_untimed_candidates(results);
    count_round(results);
    static_cast<void>(scope_.counters.count_process_evaluation_failures(error));
    return end(reason);
  }

  // The round is counted first: its number is the depth of its results.
  Value annotate_record_and_submit(const ImprovementBatch& batch, const Value& evaluated) {
    ++outcome_.round_count;
    Value results = annotate_candidate_results(evaluated, next_candidate_index_,
                                               outcome_.round_count, batch.improvements);
    record_candidate_results_in_parent(host_, scope_.context, results);
    submit_submittable_candidates(host_, scope_.context, results);
    return results;
  }

  void count_round(const Value& results) {
    const auto count = static_cast<std::int64_t>(length(results));
    next_candidate_index_ += count;
    outcome_.improvement_count += count;
    scope_.counters.count_improvement_round();
    generation_results_.extend(results.list());
  }

  // A result belongs to the improvement at its place; the pool may have given fewer results.
  bool any_is_improved(const List& improvements, const Value& results) {
    const std::size_t pairs = std::min(improvements.size(), length(results));
    for (std::size_t place = 0; place < pairs; ++place) {
      const Value source = item(improvements.at(place), keys::kSourceResult);
      const Value result = item(results, static_cast<std::int64_t>(place));
      if (is_improved_result(host_.json_reader(), result, source)) return true;
    }
    return false;
  }

  [[nodiscard]] Value reason_without_improvements(const ImprovementBatch& batch) const {
    if (is_stopped()) return reasons::kStopped;
    if (batch.duplicate_count != 0) return reasons::kDuplicate;
    if (batch.depth_limited_count != 0) return reasons::kMaxImprovementDepth;
    if (batch.candidate_limit_reached) return reasons::kMaxImprovementCandidates;
    if (outcome_.round_count > 0 && batch.eligible_count != 0) return reasons::kNoImprovement;
    return {};
  }

  // Ends at a limit, which is the reason only when it has kept something from being repaired.
  Round end_with(const List& sources, Key limit) {
    return any_has_reaction_failure(sources) ? end(limit) : Round::kEnd;
  }
  Round end(Value reason) {
    outcome_.terminal_reason = std::move(reason);
    return Round::kEnd;
  }

  [[nodiscard]] const SearchConfig& config() const { return scope_.config; }
  [[nodiscard]] bool is_stopped() const {
    return scope_.stop_event != nullptr && scope_.stop_event->is_set();
  }

  const ImprovementScope& scope_;
  Host& host_;
  ReactionEnvironment reaction_;
  List& generation_results_;
  Value current_round_results_;
  std::int64_t next_candidate_index_;
  ImprovementOutcome outcome_;
};

}  // namespace

ImprovementOutcome run_improvement_rounds(const ImprovementScope& scope, List& generation_results) {
  return ImprovementRounds(scope, generation_results).run();
}

}  // namespace varnholt::genetic
