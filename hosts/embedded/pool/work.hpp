// What a worker pool works on: numbered items, and the function that a child runs for one of them.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace varnholt::embedded {

struct WorkItem {
  std::size_t index = 0;
  // 0 at first; one more each time the item is tried again after its worker was lost.
  int attempt = 0;
};

// Runs in a forked child, on the child's copy of everything that the parent had in memory. What it
// returns is the result, byte for byte. What it throws comes back as the exception's type name and
// text. Everything else that it does to memory is lost with the child; so is output that it leaves
// in a stdio buffer. It must not use what belongs to the parent alone (the store, other pipes).
using Work = std::function<std::string(const WorkItem&)>;

}  // namespace varnholt::embedded
