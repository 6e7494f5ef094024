#include "search_templates/genetic/settings/operator_rates.hpp"

#include <algorithm>
#include <string>
#include <vector>

#include "search_templates/genetic/settings/validators.hpp"
#include "search_templates/genetic/value/arithmetic.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

// The key itself is looked up, and its text form only shown: two keys may show the same text.
void refuse_unknown_keys(const Value& given, const Mapping& defaults) {
  std::vector<std::string> unknown;
  const auto keys = iterate(given);
  while (const std::optional<Value> key = keys->next()) {
    if (!defaults.contains(*key)) unknown.push_back(str(*key));
  }
  if (unknown.empty()) return;

  std::sort(unknown.begin(), unknown.end());
  std::string message = "genetic operator_rates has unknown keys: ";
  for (std::size_t i = 0; i < unknown.size(); ++i) {
    if (i > 0) message += ", ";
    message += unknown[i];
  }
  throw ValueError(message);
}

}  // namespace

Mapping complete_operator_rates(const Value& operator_rates, const Mapping& defaults) {
  if (operator_rates.is_absent()) return shallow_copy(defaults);
  const std::optional<Mapping> given = as_mapping(operator_rates);
  if (!given) throw TypeError("genetic operator_rates must be a dictionary");

  Mapping rates = shallow_copy(defaults);
  refuse_unknown_keys(operator_rates, defaults);
  MappingCursor cursor(*given);
  while (const std::optional<MappingEntry> entry = cursor.next()) {
    const std::string key = str(entry->key);
    rates.set(key, nonnegative_float(entry->value, "operator_rates." + key));
  }
  if (at_most(sum_of_rates(rates), 0.0)) throw ValueError(kNoPositiveRate);
  return rates;
}

Value sum_of_rates(const Mapping& rates) {
  // Added up from left to right without compensation: the last bit of an operator draw's target
  // depends on it.
  Value sum = 0;
  MappingCursor cursor(rates);
  while (const std::optional<MappingEntry> entry = cursor.next())
    sum = plus(sum, entry->value);
  return sum;
}

}  // namespace varnholt::genetic
