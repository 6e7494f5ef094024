// What the host's generator of random graphs may use, as far as the planning of repairs asks for
// it: which rotations are safe to put into a signal.
#pragma once

#include <string_view>

#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// What a host is asked for safe rotations with.
struct SafeRotationsRequest {
  Value functions;  // What function_entries_for_kind() gave, and so on; all opaque.
  Value window_limit;
  Value node_limit;
  Value registry;
  // For the host's log: who asks.
  Mapping log_context;
  std::string_view template_name;
  std::string_view stage;
  std::string_view generator;
};

// Called in the parent, each operation once and in the order below, when repairs are planned for a
// context whose vocabulary is a mapping. Whatever they throw propagates to the caller. A host that
// overrides nothing has no rotations.
class RandomGraphLimits {
 public:
  virtual ~RandomGraphLimits() = default;

  // The vocabulary's entries of one kind of function.
  [[nodiscard]] virtual Value function_entries_for_kind(const Value& /*vocabulary*/,
                                                        std::string_view /*kind*/) {
    return List();
  }
  // The longest window, for graphs of at most `max_depth`; the most nodes; the functions that are
  // there at run time.
  [[nodiscard]] virtual Value random_weighted_window_limit(SearchContext& /*context*/,
                                                           const Value& /*max_depth*/) {
    return {};
  }
  [[nodiscard]] virtual Value random_weighted_node_limit(SearchContext& /*context*/) { return {}; }
  [[nodiscard]] virtual Value random_weighted_runtime_registry(SearchContext& /*context*/) {
    return {};
  }
  // The rotations that a signal may use safely: an iterable of mappings that describe them. The
  // search takes deep copies of those with a "name".
  [[nodiscard]] virtual Value signal_generation_safe_rotations(
      const SafeRotationsRequest& /*request*/) {
    return List();
  }
};

}  // namespace varnholt::genetic
