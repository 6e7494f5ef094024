#include "search_templates/genetic/host/in_process_pool.hpp"

#include <chrono>
#include <utility>

#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// No worker is ever lost, so each candidate has one attempt.
constexpr std::int64_t kOnlyAttempt = 0;

class OneWorker : public WorkerResolution {
 public:
  [[nodiscard]] Value resolved() const override { return 1; }
};

class Configured : public ConfiguredPool {
 public:
  explicit Configured(ProcessEvaluationConfig config) : config_(std::move(config)) {}

  [[nodiscard]] Value evaluate_candidate_batch(const List& candidates,
                                               const Callable& simulate) override {
    List results;
    ListCursor cursor(candidates);
    while (const std::optional<Value> candidate = cursor.next()) {
      if (config_.stop_requested && truth(config_.stop_requested({}))) break;
      tell(config_.pre_dispatch_callback, "pre_dispatch", *candidate);
      tell(config_.lifecycle_callback, "started", *candidate);
      tell(config_.progress_callback, "started", *candidate);
      const Value result = evaluated(*candidate, simulate);
      tell(config_.lifecycle_callback, "ok", *candidate);
      tell(config_.progress_callback, "ok", *candidate);
      if (config_.completed_result_callback) config_.completed_result_callback({result});
      results.append(result);
    }
    return results;
  }

 private:
  static const Value& index_of(const Value& candidate) {
    return dynamic_cast<const CandidateEvaluation&>(candidate.object()).candidate_index();
  }

  static void tell(const Callable& callback, const char* event, const Value& candidate) {
    if (!callback) return;
    callback({Mapping{{keys::kEvent, event},
                      {keys::kCandidateIndex, index_of(candidate)},
                      {keys::kAttempt, kOnlyAttempt},
                      {keys::kCandidate, candidate}}});
  }

  static Value evaluated(const Value& candidate, const Callable& simulate) {
    const auto start = std::chrono::steady_clock::now();
    Value record = simulate({candidate});
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return make_object<ProcessResult>(index_of(candidate), std::move(record), Value(),
                                      elapsed.count(), kOnlyAttempt);
  }

  ProcessEvaluationConfig config_;
};

}  // namespace

std::unique_ptr<WorkerResolution> InProcessPool::resolve_process_worker_count_details(
    const std::function<Value()>& /*requested*/, const Value& /*candidate_count*/) {
  return std::make_unique<OneWorker>();
}

Value InProcessPool::candidate_evaluation(const Value& candidate_index, const Value& graph) {
  return make_object<CandidateEvaluation>(candidate_index, graph);
}

std::unique_ptr<ConfiguredPool> InProcessPool::configure(
    const std::function<ProcessEvaluationConfig()>& config) {
  return std::make_unique<Configured>(config());
}

}  // namespace varnholt::genetic
