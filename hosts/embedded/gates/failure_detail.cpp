#include "hosts/embedded/gates/failure_detail.hpp"

#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Key;
using genetic::key;
using genetic::Mapping;

constexpr Key kMetric = key<"metric">();
constexpr Key kValue = key<"value">();
constexpr Key kThreshold = key<"threshold">();
constexpr Key kGate = key<"gate">();
constexpr Key kOperator = key<"operator">();
constexpr Key kCategory = key<"category">();

}  // namespace

FailureEvidence failure_evidence(const GateFailure& failure) {
  return {failure.reason, failure.metric,     failure.actual,  failure.threshold,
          failure.gate,   failure.comparison, failure.category};
}

Mapping failure_detail(const FailureEvidence& evidence) {
  return {{genetic::keys::kReason, evidence.reason},
          {kMetric, evidence.metric},
          {kValue, evidence.value},
          {kThreshold, evidence.threshold},
          {kGate, evidence.gate},
          {kOperator, evidence.comparison},
          {kCategory, evidence.category}};
}

Mapping failure_detail(const GateFailure& failure) {
  return failure_detail(failure_evidence(failure));
}

std::string failure_detail_text(const GateFailure& failure) {
  return genetic::json_text(failure_detail(failure));
}

}  // namespace varnholt::embedded
