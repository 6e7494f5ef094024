#include "search_templates/genetic/population/safe_rotations.hpp"

#include <optional>

#include "search_templates/genetic/settings/constants.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::genetic {
namespace {

bool is_name(const Value& name) {
  return is_instance_of(name, Kind::kText) && truth(name);
}

}  // namespace

List safe_reaction_rotations(RandomGraphLimits& limits, SearchContext& context) {
  List safe;
  const Value vocabulary = context.vocabulary().value_or(Value(Mapping()));
  if (!as_mapping(vocabulary)) return safe;

  const Value functions = limits.function_entries_for_kind(vocabulary, "rotation");
  // The read is guarded with the conversion: an attribute may be computed when it is read.
  const Value max_depth =
      tolerate([&context] { return to_integer(context.max_depth().value_or(1)); }).value_or(1);
  const Value window_limit = limits.random_weighted_window_limit(context, max_depth);
  const Value node_limit = limits.random_weighted_node_limit(context);
  const Value registry = limits.random_weighted_runtime_registry(context);
  const Value rotations =
      limits.signal_generation_safe_rotations({.functions = functions,
                                               .window_limit = window_limit,
                                               .node_limit = node_limit,
                                               .registry = registry,
                                               .log_context = genetic_reaction_log_context(),
                                               .template_name = "genetic",
                                               .stage = "reaction_planning",
                                               .generator = "safe_reaction_rotations"});
  const auto walk = iterate(rotations);
  while (const std::optional<Value> rotation = walk->next()) {
    if (is_name(record_of(*rotation).get(keys::kName))) {
      safe.append(deep_copy(*rotation));
    }
  }
  return safe;
}

std::set<std::string> safe_reaction_rotation_names(RandomGraphLimits& limits,
                                                   SearchContext& context) {
  std::set<std::string> names;
  ListCursor cursor(safe_reaction_rotations(limits, context));
  while (const std::optional<Value> rotation = cursor.next()) {
    const Value name = record_of(*rotation).get(keys::kName);
    if (!is_name(name)) continue;
    // The text itself, which a type derived from the text type may show otherwise.
    names.insert(name.is_text() ? std::string(name.text()) : name.object().text());
  }
  return names;
}

}  // namespace varnholt::genetic
