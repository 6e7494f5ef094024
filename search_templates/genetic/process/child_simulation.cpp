#include "search_templates/genetic/process/child_simulation.hpp"

#include <exception>
#include <memory>
#include <optional>

#include "search_templates/genetic/evaluation/candidate_simulation.hpp"
#include "search_templates/genetic/process/child_guards.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

namespace names = operation_names;

// The guards of one evaluation. The marker is the engine's, the others are the context's.
struct ChildGuards {
  std::optional<ReplacedOperation> attempt_marker;
  std::optional<ReplacedOperation> sync_manager;
  std::optional<ReplacedOperation> safe_record;
  std::optional<ReplacedOperation> enqueue;
  std::optional<ReplacedOperation> run_metrics;
};

class GuardedEvaluation {
 public:
  GuardedEvaluation(Host& host, SearchContext& context, const Value& candidate,
                    ChildStandIns& stand_ins)
      : host_(host),
        context_(context),
        candidate_(candidate),
        state_(context.child().template_evaluation_state()),
        previous_attempt_id_(state_->attempt_id().value_or(Value())),
        previous_parent_owned_(state_->parent_owned_attempt().value_or(false)) {
    state_->set_attempt_id({});
    state_->set_parent_owned_attempt(true);
    const Value process_attempt =
        item(required_attribute(candidate, keys::kMetadata.view()), keys::kProcessAttempt);
    install(process_attempt, stand_ins);
  }

  // The guards come off on every way out. Where taking them off fails, that failure leaves.
  [[nodiscard]] Mapping run() {
    try {
      Mapping result =
          simulate_candidate(host_, context_, required_attribute(candidate_, keys::kGraph.view()));
      take_off();
      return result;
    } catch (...) {
      if (is_off_) throw;
      const std::exception_ptr error = context_.as_host_error(std::current_exception());
      const auto handled = context_.handling(error);
      take_off();
      std::rethrow_exception(error);
    }
  }

 private:
  // One that fails leaves those before it in place, on purpose.
  void install(const Value& process_attempt, ChildStandIns& stand_ins) {
    guards_.attempt_marker = replace_child_parent_operation(
        *host_.engine_operations(), names::kWriteEvaluationAttemptMarker.view(),
        stand_ins.attempt_marker(process_attempt, state_));
    const auto context = context_.child().operations();
    const auto replace = [&context](Key name, const Value& stand_in) {
      return replace_child_parent_operation(*context, name.view(), stand_in);
    };
    const Value sync_manager = context->attribute(names::kSyncManager.view()).value_or(Value());
    guards_.sync_manager = replace(names::kSyncManager, stand_ins.sync_snapshot(sync_manager));
    guards_.safe_record = replace(names::kSafeRecord, stand_ins.recorder());
    guards_.enqueue = replace(names::kEnqueueDeferredSubmissionPayload,
                              stand_ins.forbidden(names::kEnqueueDeferredSubmissionPayload.view()));
    guards_.run_metrics = replace(names::kRecordSearchRunMetrics,
                                  stand_ins.forbidden(names::kRecordSearchRunMetrics.view()));
  }

  // In the reverse order, one after the other: one that fails leaves the later ones on.
  void take_off() {
    is_off_ = true;
    const auto context = context_.child().operations();
    restore_child_parent_operation(*context, guards_.run_metrics);
    restore_child_parent_operation(*context, guards_.enqueue);
    restore_child_parent_operation(*context, guards_.safe_record);
    restore_child_parent_operation(*context, guards_.sync_manager);
    restore_child_parent_operation(*host_.engine_operations(), guards_.attempt_marker);
    state_->set_attempt_id(previous_attempt_id_);
    state_->set_parent_owned_attempt(previous_parent_owned_);
  }

  Host& host_;
  SearchContext& context_;
  const Value& candidate_;
  std::shared_ptr<TemplateEvaluationState> state_;
  Value previous_attempt_id_;
  Value previous_parent_owned_;
  ChildGuards guards_;
  bool is_off_ = false;
};

}  // namespace

Mapping process_simulate_candidate(Host& host, SearchContext& context, const Value& candidate,
                                   ChildStandIns& stand_ins) {
  return GuardedEvaluation(host, context, candidate, stand_ins).run();
}

}  // namespace varnholt::genetic
