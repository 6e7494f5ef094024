// What kind of panel a part of a graph gives, so that like may take the place of like.
#pragma once

#include "hosts/embedded/operators/graph_parts.hpp"
#include "hosts/embedded/vocabulary/units.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"

namespace varnholt::embedded {

// What the numbers of a panel can be compared with, as its outermost function tells.
enum class PartScale {
  Constant,
  Condition,  // 1 or 0: comparisons and logic.
  Across,     // The other instruments of the day: functions across instruments or a group.
  Own,        // The instrument's own past, or nothing that the function tells of.
};

struct PartKind {
  PartScale scale = PartScale::Own;
  Unit unit = kFitsAll;
};

// Of a part that has a panel, in a vocabulary. Where units are mixed all units are alike.
[[nodiscard]] PartKind kind_of_part(const GraphPart& part, const Vocabulary& vocabulary,
                                    bool keeps_units);

[[nodiscard]] bool are_alike(const PartKind& left, const PartKind& right);

}  // namespace varnholt::embedded
