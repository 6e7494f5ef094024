#include "hosts/embedded/search/result_wire.hpp"

#include <optional>

#include "hosts/embedded/search/json_value.hpp"
#include "hosts/embedded/search/statistics_object.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr genetic::Key kPairs = genetic::key<"pairs">();
constexpr genetic::Key kItems = genetic::key<"items">();

// The canonical text sorts keys, while the order of a record's and of a graph's keys counts. So
// mappings travel as {"pairs": [[key, value], ...]} and lists as {"items": [...]}, in which both
// the order of keys and keys that are no texts survive.
Value ordered(const Value& value) {
  if (value.is_mapping()) {
    List pairs;
    genetic::MappingCursor cursor(value.mapping());
    while (const std::optional<genetic::MappingEntry> entry = cursor.next()) {
      pairs.append(List{entry->key, ordered(entry->value)});
    }
    return Mapping{{kPairs, pairs}};
  }
  if (value.is_list() || value.is_tuple()) {
    List items;
    const auto walk = genetic::iterate(value);
    while (const std::optional<Value> item = walk->next())
      items.append(ordered(*item));
    return Mapping{{kItems, items}};
  }
  return value;
}

Value restored(const Value& value) {
  if (!value.is_mapping()) return value;
  if (const std::optional<Value> items = value.mapping().find(kItems)) {
    List list;
    genetic::ListCursor cursor(items->list());
    while (const std::optional<Value> item = cursor.next())
      list.append(restored(*item));
    return list;
  }
  Mapping mapping;
  genetic::ListCursor cursor(value.mapping().at(kPairs).list());
  while (const std::optional<Value> pair = cursor.next()) {
    mapping.set(pair->list().at(0), restored(pair->list().at(1)));
  }
  return mapping;
}

}  // namespace

std::string encode_result(const Mapping& result) {
  Mapping record = genetic::shallow_copy(result);
  if (const auto statistics = statistics_of(record.get(genetic::keys::kStats))) {
    record.set(genetic::keys::kStats, statistics_mapping(*statistics));
  }
  return genetic::json_text(ordered(record));
}

Mapping decode_result(std::string_view bytes) {
  const Value value = restored(read_json(bytes));
  if (!value.is_mapping()) throw genetic::ValueError("a candidate result record is a mapping");
  Mapping record = value.mapping();
  const Value stats = record.get(genetic::keys::kStats);
  if (stats.is_mapping()) {
    record.set(genetic::keys::kStats,
               genetic::make_object<StatisticsObject>(statistics_from(stats.mapping())));
  }
  return record;
}

}  // namespace varnholt::embedded
