#include "search_templates/genetic/reaction/lineage.hpp"

#include <optional>

#include "search_templates/genetic/evaluation/candidate_result.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/operations.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

void write_lineage(Mapping& result, const Value& improvement) {
  const Mapping source = record_of(item(improvement, keys::kSourceResult));
  result.set(keys::kReactionPlan, item(improvement, keys::kReactionPlan));
  result.set(keys::kSourceCandidateIndex, source.get(keys::kCandidateIndex));
  result.set(keys::kSourceGraph, source.get(keys::kGraph));
  result.set(keys::kImprovementDepth, item(improvement, keys::kImprovementDepth));
  if (truth(result.get(keys::kPasses))) result.set(keys::kRescued, true);
}

}  // namespace

Value annotate_candidate_results(const Value& results, const Value& start_index,
                                 const Value& improvement_depth, const Value& improvements) {
  const Value paired = truth(improvements) ? improvements : Value(List());
  const auto walk = iterate(results);
  for (std::int64_t offset = 0; const std::optional<Value> value = walk->next(); ++offset) {
    Mapping result = expected_record(*value);
    result.set(keys::kCandidateIndex, integer_sum(to_integer(start_index), offset));
    result.set(keys::kImprovementDepth, to_integer(improvement_depth));
    if (offset < static_cast<std::int64_t>(length(paired))) {
      write_lineage(result, item(paired, offset));
    }
  }
  return results;
}

Value elapsed_candidate_seconds(const Value& results) {
  std::optional<double> seconds;
  const auto walk = iterate(results);
  while (const std::optional<Value> result = walk->next()) {
    const Value elapsed = record_of(*result).get(keys::kElapsedSimulationSeconds, 0.0);
    seconds = seconds.value_or(0.0) + to_float(number(elapsed));
  }
  return seconds ? Value(*seconds) : Value(0);
}

}  // namespace varnholt::genetic
