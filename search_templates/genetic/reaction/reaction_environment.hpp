// What the improvement of results needs besides the results themselves.
#pragma once

#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/reaction/failure_metrics.hpp"
#include "search_templates/genetic/settings/module_constants.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

struct ReactionEnvironment {
  Host& host;
  const ModuleConstants& constants;
  SearchContext& context;
  // Results are judged by all gates only where there is a context to take the thresholds from: a
  // caller may have none, and then the attributes of `context` are all missing.
  bool has_context = true;

  // with_expanded_reaction_failures, so far as there is a context.
  [[nodiscard]] Value expanded(const Value& result) const {
    return with_expanded_reaction_failures(has_context ? &context : nullptr, host.gates(),
                                           host.json_reader(), result);
  }
};

}  // namespace varnholt::genetic
