// What the gates found, as the search reads it: objects with attributes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/embedded/gates/gates.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The attributes `reason`, `metric`, `actual`, `threshold`, `gate`, `operator` and `category`.
class GateFailureObject : public genetic::HostObject {
 public:
  explicit GateFailureObject(GateFailure failure) : failure_(std::move(failure)) {}

  [[nodiscard]] const GateFailure& failure() const { return failure_; }

  [[nodiscard]] std::string type_name() const override { return "GateFailure"; }
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) const override;

 private:
  GateFailure failure_;
};

// The attribute `failures`: the failures in the order of the gates.
class GateResultObject : public genetic::HostObject {
 public:
  explicit GateResultObject(std::vector<GateFailure> failures);

  [[nodiscard]] std::string type_name() const override { return "GateResult"; }
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) const override;

 private:
  genetic::List failures_;
};

}  // namespace varnholt::embedded
