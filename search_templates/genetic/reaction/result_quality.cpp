#include "search_templates/genetic/reaction/result_quality.hpp"

#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {

Value candidate_quality_value(const Value& result) {
  const Mapping record = record_of(result);
  // The fallback is read first, whether or not it is needed.
  const Value sharpe = record.get(keys::kSharpe, 0.0);
  return number(record.get(keys::kQualityScore, sharpe));
}

double candidate_quality(const Value& result) {
  return to_float(candidate_quality_value(result));
}

}  // namespace varnholt::genetic
