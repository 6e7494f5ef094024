// Operations by name, for a host whose objects are closed to reflection: what a context or an
// engine in C++ offers to be replaced.
//
//   OperationTable operations({{operation_names::kSafeRecord, callable_value(recorder)}});
//   callable_of(operations.required_attribute("_safe_record"))({graph, true});
//
// A table has the operations that it is made with, as a class has its methods. What is put in the
// place of one stands until it is deleted; a name that the table does not know cannot be set.
#pragma once

#include <optional>
#include <string_view>
#include <utility>

#include "search_templates/genetic/host/replaceable_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class OperationTable : public ReplaceableObject {
 public:
  explicit OperationTable(Mapping operations) : operations_(std::move(operations)) {}

  [[nodiscard]] std::optional<Value> attribute(std::string_view name) override;
  [[nodiscard]] Value required_attribute(std::string_view name) override;
  [[nodiscard]] std::optional<Value> instance_value(std::string_view name) override;
  void set_attribute(std::string_view name, const Value& value) override;
  void delete_attribute(std::string_view name) override;

 private:
  Mapping operations_;
  Mapping replacements_;
};

}  // namespace varnholt::genetic
