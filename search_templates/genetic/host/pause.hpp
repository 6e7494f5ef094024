// The search's one deliberate delay, for a host without a stop event.
#pragma once

namespace varnholt::genetic {

// Called in the parent between two generations, so that others may run and end the search. A host
// that has nobody to yield to overrides nothing: the search then goes on at once.
class Pause {
 public:
  virtual ~Pause() = default;

  virtual void sleep(double /*seconds*/) {}
};

}  // namespace varnholt::genetic
