// The host's one message to a search: end.
#pragma once

namespace varnholt::genetic {

// Set from elsewhere (another thread of the host, a signal), only read by the search. Asked in the
// parent alone; every call is behaviour, so none is added, dropped or merged.
class StopEvent {
 public:
  virtual ~StopEvent() = default;

  [[nodiscard]] virtual bool is_set() = 0;
  // Waits at most `seconds` for the event; returns whether it is set.
  [[nodiscard]] virtual bool wait(double seconds) = 0;
};

}  // namespace varnholt::genetic
