// What is told of an attempt besides its figures: which columns there were, and any value in a form
// that a store can keep.
#pragma once

#include <string>

#include "search_templates/genetic/host/attempt_accounting.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class AttemptAccounts : public genetic::AttemptAccounting {
 public:
  // A mapping of each expected column to "present" or "missing", in their order, and of each other
  // column of the statistics to "unexpected". genetic::TypeError for columns that cannot be walked
  // and for statistics that are no mapping.
  [[nodiscard]] genetic::Value build_column_inventory(
      const genetic::Value& expected_columns, const genetic::Value& per_column_stats) override;

  // Absent values, truth values, numbers and texts as they are; lists, tuples and mappings anew,
  // with texts as keys; of anything else its text. genetic::RecursionError for a value that is
  // nested too deep, or in itself.
  [[nodiscard]] genetic::Value json_ready(const genetic::Value& value) override;
};

// The JSON text of json_ready(value).
[[nodiscard]] std::string stored_json(const genetic::Value& value);

}  // namespace varnholt::embedded
