// The search's one deliberate delay, for a host without a stop event.
#pragma once

namespace varnholt::genetic {

class Pause {
 public:
  virtual ~Pause() = default;

  virtual void sleep(double seconds) = 0;
};

}  // namespace varnholt::genetic
