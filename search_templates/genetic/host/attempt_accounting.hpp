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
  // Nothing where the host keeps no such accounts.
  [[nodiscard]] virtual Value build_column_inventory(const Value& /*expected_columns*/,
                                                     const Value& /*per_column_stats*/) {
    return {};
  }
  // The value in a form that JSON text can be made of; as it is where every value can.
  [[nodiscard]] virtual Value json_ready(const Value& value) { return value; }
};

}  // namespace varnholt::genetic
