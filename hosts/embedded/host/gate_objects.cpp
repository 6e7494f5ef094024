#include "hosts/embedded/host/gate_objects.hpp"

#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {

namespace keys = genetic::keys;
using genetic::Value;

std::optional<Value> GateFailureObject::attribute(std::string_view name) const {
  if (name == keys::kReason.view()) return failure_.reason;
  if (name == "metric") return failure_.metric;
  if (name == keys::kActual.view()) return failure_.actual;
  if (name == keys::kThreshold.view()) return failure_.threshold;
  if (name == keys::kGate.view()) return failure_.gate;
  if (name == keys::kOperator.view()) return failure_.comparison;
  if (name == keys::kCategory.view()) return failure_.category;
  return std::nullopt;
}

GateResultObject::GateResultObject(std::vector<GateFailure> failures) : failures_(failures.size()) {
  for (GateFailure& failure : failures)
    failures_.append(genetic::make_object<GateFailureObject>(std::move(failure)));
}

std::optional<Value> GateResultObject::attribute(std::string_view name) const {
  if (name == keys::kFailures.view()) return failures_;
  return std::nullopt;
}

}  // namespace varnholt::embedded
