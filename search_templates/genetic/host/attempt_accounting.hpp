// The host's accounts of an attempt: values that the search only hands on.
#pragma once

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Called in the parent, when an attempt without a result is described or ended. A host that loads
// the operations only when they are needed does so here, at each call.
class AttemptAccounting {
 public:
  virtual ~AttemptAccounting() = default;

  // What became of each expected column, `per_column_stats` being a mapping of what there is.
  [[nodiscard]] virtual Value build_column_inventory(const Value& expected_columns,
                                                     const Value& per_column_stats) = 0;
  // The value in a form that JSON text can be made of.
  [[nodiscard]] virtual Value json_ready(const Value& value) = 0;
};

}  // namespace varnholt::genetic
