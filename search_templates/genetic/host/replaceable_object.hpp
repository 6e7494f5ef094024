// An object of the host whose operations can be replaced by name.
//
// A child process puts guards in the place of what only the parent may do, and takes them off
// again. They go onto the host's own object, so that the host's evaluator meets the guard wherever
// it looks. Where the host's language shows an object's attributes, these are the operations; where
// it does not, the object offers by name those that it lets be replaced.
//
// The values are operations and objects of the host, which are only carried to and fro. A host in
// C++ makes them with callable_value (callable_value.hpp).
#pragma once

#include <optional>
#include <string_view>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

class ReplaceableObject {
 public:
  virtual ~ReplaceableObject() = default;

  // What stands under the name now; nothing when the object has no such attribute.
  [[nodiscard]] virtual std::optional<Value> attribute(std::string_view name) = 0;
  // The same for a caller that cannot do without: AttributeError.
  [[nodiscard]] virtual Value required_attribute(std::string_view name) = 0;
  // What stands there, of what belongs to this very object and not to its class; nothing for what
  // comes from the class, and for an object that keeps no values of its own.
  [[nodiscard]] virtual std::optional<Value> instance_value(std::string_view name) = 0;
  // Puts a value onto this very object. AttributeError or TypeError when the object refuses.
  virtual void set_attribute(std::string_view name, const Value& value) = 0;
  // Takes the object's own value away, so that the class's shows again. AttributeError when there
  // is none.
  virtual void delete_attribute(std::string_view name) = 0;
};

// The names of what is replaced in a child, for hosts that offer them.
namespace operation_names {

// Of the engine. The evaluator calls it with the phase that it enters, as the keyword "phase" or as
// the last argument; "run_backtest" is announced before the backtest begins.
inline constexpr Key kWriteEvaluationAttemptMarker = key<"_write_evaluation_attempt_marker">();

// Of the context.
inline constexpr Key kSyncManager = key<"_sync_mgr">();
inline constexpr Key kSafeRecord = key<"_safe_record">();
inline constexpr Key kEnqueueDeferredSubmissionPayload =
    key<"_enqueue_deferred_submission_payload">();
inline constexpr Key kRecordSearchRunMetrics = key<"record_search_run_metrics">();

}  // namespace operation_names

}  // namespace varnholt::genetic
