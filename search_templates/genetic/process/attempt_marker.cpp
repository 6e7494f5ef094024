#include "search_templates/genetic/process/attempt_marker.hpp"

#include <optional>
#include <string_view>

#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

constexpr Key kStarted = key<"started">();
constexpr std::string_view kPhase = "evaluate_expression";

Value or_absent(const std::optional<Value>& value) {
  return value.value_or(Value());
}

// The fallback is read first, also when the context has the better value.
Value marker_metaparameters(SearchContext& context) {
  const std::optional<Value> fallback =
      context.opaque_attribute(context_names::kMetaparameters.view());
  const std::optional<Value> own =
      context.opaque_attribute(context_names::kMetaparametersForDatabase.view());
  if (own) return *own;
  return fallback ? *fallback : Value(Mapping());
}

}  // namespace

Value write_parent_process_evaluation_attempt_marker(Host& host, SearchContext& context,
                                                     const Value& event) {
  const std::optional<Mapping> told = as_mapping(event);
  if (!told || !(told->get(keys::kEvent) == kStarted)) return {};
  const Value graph = or_absent(attribute(told->get(keys::kCandidate), keys::kGraph.view()));
  if (graph.is_absent()) return {};

  const Value tracker = or_absent(context.opaque_attribute(context_names::kTracker.view()));
  const Value named_universe =
      or_absent(context.opaque_attribute(context_names::kNamedUniverse.view()));
  const Value metaparameters = marker_metaparameters(context);
  const auto write = host.attempt_markers().write_evaluation_attempt_marker();
  return write(tracker, graph, named_universe, metaparameters, kPhase);
}

}  // namespace varnholt::genetic
