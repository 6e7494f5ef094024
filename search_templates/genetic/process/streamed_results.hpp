// What completes while the pool of a batch still runs.
#pragma once

#include <utility>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

// The records of what completes while the pool runs, by candidate index as the pool gives it. Each
// pass of a batch begins anew; whoever holds this sees the current pass.
class StreamedResults {
 public:
  StreamedResults() : holder_{Mapping()} {}
  // Over the holder of another.
  explicit StreamedResults(List holder) : holder_(std::move(holder)) {}

  void begin_pass() { holder_.set(0, Mapping()); }
  [[nodiscard]] Mapping current() const { return holder_.at(0).mapping(); }
  // A list of one item, the current mapping.
  [[nodiscard]] const List& holder() const noexcept { return holder_; }

 private:
  List holder_;
};

}  // namespace varnholt::genetic
