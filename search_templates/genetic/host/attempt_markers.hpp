// The host's markers of attempts under way, and the shape of the data that an attempt declares.
//
// A marker is a note that a candidate is being evaluated, for observers. The parent opens it when
// the worker pool reports that a candidate was started, and closes it at the next report on that
// candidate, at the latest at the end of the attempt. It decides nothing: a host that overrides
// nothing keeps none.
#pragma once

#include <string_view>

#include "search_templates/genetic/host/callable.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// Each method looks one operation up, at the moment it is called; a host that has none throws
// there. What it gives is called once, when its arguments have been read. `tracker` is the
// context's own, absent where it has none.
class AttemptMarkers {
 public:
  // (tracker, graph, named_universe, metaparameters, phase): the identity of the marker, or absent
  // when none was made. In the parent the phase is "evaluate_expression". In a child the host calls
  // this operation itself, with the phases that it goes through, and a guard stands in its place.
  using Write =
      Operation<Value(const Value& tracker, const Value& graph, const Value& named_universe,
                      const Value& metaparameters, std::string_view phase)>;
  // Closes the marker. One whose closing failed counts as open and is closed again later.
  using Clear = Operation<void(const Value& tracker, const Value& marker_attempt_id)>;
  // The shape of the data for the context's expected columns: opaque, handed on to the tracker.
  using DataShape = Operation<Value(const Value& expected_columns)>;

  virtual ~AttemptMarkers() = default;

  [[nodiscard]] virtual Write write_evaluation_attempt_marker() {
    return [](const Value& /*tracker*/, const Value& /*graph*/, const Value& /*named_universe*/,
              const Value& /*metaparameters*/, std::string_view /*phase*/) { return Value(); };
  }
  [[nodiscard]] virtual Clear clear_evaluation_attempt_marker() {
    return [](const Value& /*tracker*/, const Value& /*marker_attempt_id*/) {};
  }
  [[nodiscard]] virtual DataShape attempt_declared_data_shape() {
    return [](const Value& /*expected_columns*/) { return Value(); };
  }
};

}  // namespace varnholt::genetic
