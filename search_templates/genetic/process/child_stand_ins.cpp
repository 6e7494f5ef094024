#include "search_templates/genetic/process/child_stand_ins.hpp"

#include <array>
#include <span>
#include <string>
#include <utility>

#include "search_templates/genetic/host/callable_value.hpp"
#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/process/child_guards.hpp"
#include "search_templates/genetic/process/child_record.hpp"
#include "search_templates/genetic/process/found_pnl_files.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"

namespace varnholt::genetic {
namespace {

constexpr Key kPassedThresholds = key<"passed_thresholds">();

// The parameters of the recorder, in order. The first two are required.
constexpr auto kRecorderParameters = std::to_array(
    {keys::kGraph, kPassedThresholds, keys::kRejectionReason, keys::kStats, keys::kPerColumnStats,
     keys::kExpressionElapsedSeconds, keys::kTrackingMetricKwargs});
constexpr std::size_t kRequiredParameters = 2;

Value recorder_argument(std::size_t place, std::span<const Value> positional,
                        const Mapping& keywords) {
  if (place < positional.size()) return positional[place];
  const Key name = kRecorderParameters.at(place);
  if (place < kRequiredParameters && !keywords.contains(name)) {
    throw TypeError("the recorder of a child is missing its argument '" + std::string(name.view()) +
                    "'");
  }
  return keywords.get(name);
}

ChildEvaluation evaluation_of(std::span<const Value> positional, const Mapping& keywords) {
  const auto argument = [&](std::size_t place) {
    return recorder_argument(place, positional, keywords);
  };
  return {argument(0), argument(1), argument(2), argument(3),
          argument(4), argument(5), argument(6)};
}

}  // namespace

OwnChildStandIns::OwnChildStandIns(SearchContext& context, Value candidate, Value found_pnl_paths,
                                   BoundaryChannel channel)
    : context_(context),
      candidate_(std::move(candidate)),
      found_pnl_paths_(std::move(found_pnl_paths)),
      channel_(std::move(channel)) {}

Value OwnChildStandIns::attempt_marker(
    const Value& process_attempt,
    const std::shared_ptr<TemplateEvaluationState>& evaluation_state) {
  return callable_value(
      make_callable([channel = channel_, candidate = candidate_, process_attempt, evaluation_state](
                        std::span<const Value> positional, const Mapping& keywords) {
        const Value candidate_index = required_attribute(candidate, keys::kCandidateIndex.view());
        signal_child_backtest_boundary(channel, candidate_index, process_attempt, *evaluation_state,
                                       positional, keywords);
        return Value();
      }));
}

Value OwnChildStandIns::sync_snapshot(const Value& sync_manager) {
  return child_sync_snapshot(sync_manager, found_pnl_paths_);
}

Value OwnChildStandIns::recorder() {
  return callable_value(make_callable(
      [&context = context_](std::span<const Value> positional, const Mapping& keywords) {
        child_safe_record(context, evaluation_of(positional, keywords));
        return Value();
      }));
}

Value OwnChildStandIns::forbidden(std::string_view operation_name) {
  return callable_value(forbid_child_parent_operation(operation_name));
}

}  // namespace varnholt::genetic
