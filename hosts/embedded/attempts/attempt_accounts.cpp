#include "hosts/embedded/attempts/attempt_accounts.hpp"

#include <optional>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::Key;
using genetic::Kind;
using genetic::List;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr Key kPresent = genetic::key<"present">();
constexpr Key kMissing = genetic::key<"missing">();
constexpr Key kUnexpected = genetic::key<"unexpected">();

Value ready(const Value& value, int depth);

Value ready_items(const Value& value, int depth) {
  List items;
  const auto walk = genetic::iterate(value);
  while (const std::optional<Value> item = walk->next())
    items.append(ready(*item, depth + 1));
  return items;
}

Value ready_entries(const Mapping& mapping, int depth) {
  Mapping entries;
  genetic::MappingCursor cursor(mapping);
  while (const auto entry = cursor.next()) {
    const Value key = entry->key.is_text() ? entry->key : Value(genetic::str(entry->key));
    entries.set(key, ready(entry->value, depth + 1));
  }
  return entries;
}

Value ready(const Value& value, int depth) {
  if (depth > genetic::kMaximumNesting) {
    throw genetic::RecursionError("a value of an attempt is nested too deep, or in itself");
  }
  switch (genetic::exact_kind(value)) {
    case Kind::kList:
    case Kind::kTuple:
      return ready_items(value, depth);
    case Kind::kMapping:
      return ready_entries(value.mapping(), depth);
    case Kind::kObject:
      break;
    default:
      return value;
  }
  if (const std::optional<Mapping> mapping = genetic::as_mapping(value)) {
    return ready_entries(*mapping, depth);
  }
  return genetic::str(value);
}

}  // namespace

Value AttemptAccounts::build_column_inventory(const Value& expected_columns,
                                              const Value& per_column_stats) {
  const std::optional<Mapping> found = genetic::as_mapping(per_column_stats);
  if (!found) {
    throw genetic::TypeError("the statistics of an attempt's columns must be a mapping, not " +
                             genetic::type_name(per_column_stats));
  }
  Mapping inventory;
  const auto walk = genetic::iterate(expected_columns);
  while (const std::optional<Value> column = walk->next())
    inventory.set(*column, found->contains(*column) ? kPresent : kMissing);
  genetic::MappingCursor cursor(*found);
  while (const auto entry = cursor.next())
    inventory.set_default(entry->key, kUnexpected);
  return inventory;
}

Value AttemptAccounts::json_ready(const Value& value) {
  return ready(value, 0);
}

std::string stored_json(const Value& value) {
  return genetic::json_text(ready(value, 0));
}

}  // namespace varnholt::embedded
