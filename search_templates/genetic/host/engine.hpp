// Helpers that the host shares with its search templates.
#pragma once

#include <string>
#include <string_view>

#include "search_templates/genetic/host/logger.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class Engine {
 public:
  virtual ~Engine() = default;

  [[nodiscard]] virtual Logger& logger() = 0;

  // The depth of a graph, as the host counts it.
  [[nodiscard]] virtual Value graph_depth_for_attempt_marker(const Value& graph) = 0;

  // Whether an error object says that the runtime, not the candidate, was not ready, and the text
  // that begins such a candidate's failure detail.
  [[nodiscard]] virtual bool is_sdk_runtime_not_ready_error(const Value& error) = 0;
  [[nodiscard]] virtual Value sdk_runtime_not_ready_rejection_detail() = 0;

  // What the host's generator of random graphs may use: the vocabulary's entries of one kind, the
  // limits on windows and nodes, and the registry of functions at run time. All opaque.
  [[nodiscard]] virtual Value function_entries_for_kind(const Value& vocabulary,
                                                        std::string_view kind) = 0;
  [[nodiscard]] virtual Value random_weighted_window_limit(SearchContext& context,
                                                           const Value& max_depth) = 0;
  [[nodiscard]] virtual Value random_weighted_node_limit(SearchContext& context) = 0;
  [[nodiscard]] virtual Value random_weighted_runtime_registry(SearchContext& context) = 0;
  // The rotations that a signal may use safely: a walk over mappings that describe them.
  // `keywords` tells the log who asks.
  [[nodiscard]] virtual Value signal_generation_safe_rotations(const Value& functions,
                                                               const Value& window_limit,
                                                               const Value& node_limit,
                                                               const Value& registry,
                                                               const Mapping& keywords) = 0;

  // How many candidates in a row may meet a runtime that is not ready.
  [[nodiscard]] virtual Value infrastructure_failure_threshold() = 0;
  // Throws the host's error for a runtime that keeps failing, which ends the run.
  [[noreturn]] virtual void raise_background_infrastructure_error(const std::string& detail) = 0;
};

}  // namespace varnholt::genetic
