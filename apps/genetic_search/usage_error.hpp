// A command line that cannot be understood.
#pragma once

#include <stdexcept>

namespace varnholt::app {

// The text names the argument and the remedy.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace varnholt::app
