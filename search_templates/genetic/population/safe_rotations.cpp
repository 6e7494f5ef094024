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

List safe_reaction_rotations(Engine& engine, SearchContext& context) {
  List safe;
  const Value vocabulary = context.vocabulary().value_or(Value(Mapping()));
  if (!as_mapping(vocabulary)) return safe;

  const Value functions = engine.function_entries_for_kind(vocabulary, "rotation");
  // The read is guarded with the conversion: an attribute may be worked out when it is read.
  const Value max_depth =
      tolerate([&context] { return to_integer(context.max_depth().value_or(1)); }).value_or(1);
  const Value window_limit = engine.random_weighted_window_limit(context, max_depth);
  const Value node_limit = engine.random_weighted_node_limit(context);
  const Value registry = engine.random_weighted_runtime_registry(context);
  const Value rotations =
      engine.signal_generation_safe_rotations(functions, window_limit, node_limit, registry,
                                              {{keys::kLogContext, genetic_reaction_log_context()},
                                               {keys::kTemplateName, "genetic"},
                                               {keys::kStage, "reaction_planning"},
                                               {keys::kGenerator, "safe_reaction_rotations"}});
  const auto walk = iterate(rotations);
  while (const std::optional<Value> rotation = walk->next()) {
    if (is_name(record_of(*rotation).get(keys::kName))) {
      safe.append(deep_copy(*rotation));
    }
  }
  return safe;
}

std::set<std::string> safe_reaction_rotation_names(Engine& engine, SearchContext& context) {
  std::set<std::string> names;
  ListCursor cursor(safe_reaction_rotations(engine, context));
  while (const std::optional<Value> rotation = cursor.next()) {
    const Value name = record_of(*rotation).get(keys::kName);
    if (is_name(name)) names.insert(str(name));
  }
  return names;
}

}  // namespace varnholt::genetic
