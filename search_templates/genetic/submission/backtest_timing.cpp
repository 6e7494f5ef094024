#include "search_templates/genetic/submission/backtest_timing.hpp"

#include <exception>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "search_templates/genetic/submission/error_texts.hpp"
#include "search_templates/genetic/value/error_object.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr std::string_view kInvalidTiming = "genetic candidate has invalid backtest timing: ";
constexpr std::string_view kEvidenceDisagreesWithPayload =
    "genetic candidate attempt evidence backtest timing disagrees with submission payload backtest "
    "timing";

struct SourcedTiming {
  std::string_view source;
  Value timing;
};

// The host's answer; a refusal becomes the cause of the RuntimeError.
template <typename Call>
Value validated(const Call& call) {
  return catching(kConversionErrors, call, [](const Error& error) -> Value {
    std::throw_with_nested(RuntimeError(std::string(kInvalidTiming) + str(error_object(error))));
  });
}

// The entry "backtest_timing" of a mapping; absent also for anything but a mapping.
Value timing_in(const Value& source) {
  const std::optional<Mapping> mapping = as_mapping(source);
  return mapping ? mapping->get(keys::kBacktestTiming) : Value();
}

bool has_timing_key(const Value& payload) {
  const std::optional<Mapping> mapping = as_mapping(payload);
  return mapping && mapping->contains(keys::kBacktestTiming);
}

std::vector<SourcedTiming> timings_of(BacktestTimings& timings, const Mapping& candidate) {
  std::vector<SourcedTiming> sourced;
  const auto add = [&](std::string_view source, const Value& timing) {
    if (timing.is_absent()) return;
    sourced.push_back({source, validated_process_backtest_timing(timings, timing)});
  };
  add("candidate", candidate.get(keys::kBacktestTiming));
  add("attempt evidence", timing_in(candidate.get(keys::kAttemptEvidence)));
  add("submission payload", timing_in(candidate.get(keys::kSubmissionPayload)));
  return sourced;
}

}  // namespace

Value validated_process_backtest_timing(BacktestTimings& timings, const Value& timing) {
  const Callable validate = timings.validate_backtest_timing_payload();
  return validated([&] { return validate({timing}); });
}

Value validated_graph_process_backtest_timing(BacktestTimings& timings, const Value& graph,
                                              const Value& timing) {
  const Callable validate = timings.validate_process_backtest_timing_payload();
  return validated([&] { return validate({graph, timing}); });
}

Value validated_graph_backtest_timing(BacktestTimings& timings, const Value& graph,
                                      const Value& timing) {
  const Callable validate = timings.validate_graph_backtest_timing_payload();
  return validated([&] { return validate({graph, timing}); });
}

Value graph_bound_process_backtest_timing(BacktestTimings& timings, const Value& graph,
                                          const Value& timing) {
  Value normalized = validated_graph_backtest_timing(timings, graph, timing);
  // The key is no validating call: its failure passes.
  const Value graph_key = timings.graph_timing_key()({graph});
  expected_record(normalized).set(keys::kGraphKey, graph_key);
  return normalized;
}

Value consumed_process_backtest_timing(BacktestTimings& timings, const Value& graph,
                                       const Value& payload) {
  const Callable consume = timings.consume_recorded_backtest_timing_payload();
  const Mapping with_identity{{keys::kIncludeIdentity, true}};
  return validated([&] {
    if (!has_timing_key(payload)) return consume({graph}, with_identity);
    return consume({graph, item(payload, keys::kBacktestTiming)}, with_identity);
  });
}

Value process_backtest_timing(BacktestTimings& timings, const Value& graph,
                              const Value& attempt_evidence, const Value& payload) {
  if (timing_in(attempt_evidence).is_absent()) {
    return consumed_process_backtest_timing(timings, graph, payload);
  }

  // Read again, as it is told here: a host's mapping may give another answer than its `get`.
  Value timing = graph_bound_process_backtest_timing(timings, graph,
                                                     item(attempt_evidence, keys::kBacktestTiming));
  // Unlike everywhere else, an absent value under the payload's key is compared as well.
  if (has_timing_key(payload)) {
    const Value payload_timing =
        graph_bound_process_backtest_timing(timings, graph, item(payload, keys::kBacktestTiming));
    if (differ(payload_timing, timing)) {
      throw RuntimeError(std::string(kEvidenceDisagreesWithPayload));
    }
  }
  return timing;
}

Value candidate_backtest_timing_payload(BacktestTimings& timings, const Mapping& candidate,
                                        const Value& require_process_identity) {
  // All are validated before any two are compared.
  const std::vector<SourcedTiming> sourced = timings_of(timings, candidate);
  if (sourced.empty()) throw RuntimeError(std::string(kMissingSerializedTiming));

  const Value& first = sourced.front().timing;
  for (std::size_t i = 1; i < sourced.size(); ++i) {
    if (!differ(sourced[i].timing, first)) continue;
    throw RuntimeError("genetic candidate backtest timing disagrees with " +
                       std::string(sourced[i].source) + " backtest timing");
  }
  const auto validate = truth(require_process_identity) ? validated_graph_process_backtest_timing
                                                        : validated_graph_backtest_timing;
  return validate(timings, candidate.get(keys::kGraph), first);
}

}  // namespace varnholt::genetic
