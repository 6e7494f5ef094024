#include "hosts/embedded/operators/part_kind.hpp"

#include <string_view>

#include "hosts/embedded/vocabulary/unit_check.hpp"

namespace varnholt::embedded {
namespace {

PartScale scale_of(const GraphPart& part, const Vocabulary& vocabulary) {
  if (part.is_constant()) return PartScale::Constant;
  const FunctionEntry* const function = vocabulary.find_function(part.name);
  const std::string_view family = function == nullptr ? std::string_view() : function->family;
  if (family == "comparison" || family == "logic") return PartScale::Condition;
  return family == "cross" || family == "group" ? PartScale::Across : PartScale::Own;
}

}  // namespace

PartKind kind_of_part(const GraphPart& part, const Vocabulary& vocabulary, bool keeps_units) {
  PartKind kind{scale_of(part, vocabulary), kFitsAll};
  if (keeps_units) kind.unit = units_of_graph(part.node, vocabulary).unit;
  return kind;
}

bool are_alike(const PartKind& left, const PartKind& right) {
  return left.scale == right.scale && are_alike(left.unit, right.unit);
}

}  // namespace varnholt::embedded
