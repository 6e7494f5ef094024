// The order of two sort keys, compared as the host's language compares tuples: the first pair that
// is not equal decides, by whether its left is less. A NaN equals nothing, so that it decides, and
// is never less.
#pragma once

#include <concepts>
#include <cstdint>

#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {

//   return TupleOrder().then(left.depth, right.depth).then(left.index, right.index).is_less();
class TupleOrder {
 public:
  template <typename Number>
  requires std::floating_point<Number> || std::integral<Number> TupleOrder& then(
      Number left, Number right) noexcept {
    if (!is_decided_ && left != right) decide(left < right);
    return *this;
  }
  // Integers of 64 bits, which nearly all are, are compared in place.
  TupleOrder& then(const Value& left, const Value& right) {
    if (is_decided_) return *this;
    if (left.is_integer() && right.is_integer()) return then(left.integer(), right.integer());
    // Identity counts as equal here, as it does in the host's containers.
    if (!is_same_or_equal(left, right)) decide(less(left, right));
    return *this;
  }

  // Whether further pairs make no difference.
  [[nodiscard]] bool is_decided() const noexcept { return is_decided_; }
  // Equal keys are not less.
  [[nodiscard]] bool is_less() const noexcept { return is_less_; }

 private:
  void decide(bool is_less) noexcept {
    is_decided_ = true;
    is_less_ = is_less;
  }

  bool is_decided_ = false;
  bool is_less_ = false;
};

}  // namespace varnholt::genetic
