#include "search_templates/genetic/process/backtest_boundary.hpp"

#include <string>
#include <vector>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr Key kRunBacktest = key<"run_backtest">();
constexpr std::size_t kAcknowledgementFields = 5;

constexpr const char* kNoChannel =
    "genetic child backtest boundary requires a parent acknowledgement channel";
constexpr const char* kNoQueue =
    "genetic child backtest boundary is missing its candidate acknowledgement queue";
constexpr const char* kMismatched =
    "genetic child received a mismatched parent backtest acknowledgement";
constexpr const char* kNotPersisted = "genetic parent failed to persist the backtest attempt";
constexpr const char* kNoIdentity =
    "genetic parent acknowledgement is missing the backtest attempt identity";

// The last positional argument, not the first: the phase ends the host's argument list.
Value phase_of(std::span<const Value> positional, const Mapping& keywords) {
  Value phase = keywords.get(keys::kPhase);
  return phase.is_absent() && !positional.empty() ? positional.back() : phase;
}

[[noreturn]] void fail_rejected(const Value& detail) {
  if (!truth(detail)) throw RuntimeError(kNotPersisted);
  throw RuntimeError(std::string(kNotPersisted) + ": " + str(detail));
}

}  // namespace

void signal_child_backtest_boundary(const BoundaryChannel& channel, const Value& candidate_index,
                                    const Value& process_attempt,
                                    TemplateEvaluationState& evaluation_state,
                                    std::span<const Value> positional, const Mapping& keywords) {
  if (differ(phase_of(positional, keywords), kRunBacktest)) return;
  const Value index = to_integer(candidate_index);
  const Value attempt = to_integer(process_attempt);
  const auto& queues = channel.backtest_acknowledgement_queues;
  if (channel.backtest_boundary_queue == nullptr || queues == nullptr) {
    throw RuntimeError(kNoChannel);
  }
  const auto acknowledgement_queue = queues->find(index);
  if (acknowledgement_queue == nullptr) throw RuntimeError(kNoQueue);

  channel.backtest_boundary_queue->put(Tuple{index, attempt});
  const std::vector<Value> fields = unpack(acknowledgement_queue->get(), kAcknowledgementFields);
  const Value& accepted = fields[2];
  const Value& detail = fields[3];
  const Value& acknowledged_attempt_id = fields[4];
  const Value acknowledged = Tuple{to_integer(fields[0]), to_integer(fields[1])};
  if (differ(acknowledged, Tuple{index, attempt})) throw RuntimeError(kMismatched);
  if (!truth(accepted)) fail_rejected(detail);
  if (acknowledged_attempt_id.is_absent()) throw RuntimeError(kNoIdentity);
  evaluation_state.set_attempt_id(acknowledged_attempt_id);
}

}  // namespace varnholt::genetic
