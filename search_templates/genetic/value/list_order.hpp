// The order that the host's language sorts a list into.
//
// Where the keys have an order, any stable sort gives the same. Where they have none, because a NaN
// is among them or a class answers as it likes, the outcome depends on which pairs are compared,
// and so this sort compares the very pairs that CPython 3.11 compares: natural runs, short ones
// made longer by binary insertion, merged as the powersort rule says and with galloping (T. Peters,
// "Timsort", 2002; J. I. Munro and S. Wild, "Nearly-Optimal Mergesorts", 2018). Whatever the
// comparison answers, the result is a permutation, and nothing beyond the items is read.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace varnholt::genetic {

// Whether the item at the place `left` is less than that at the place `right`.
using PlaceIsLess = std::function<bool(std::size_t left, std::size_t right)>;

// The places 0 to count - 1 in ascending order; equal items keep their order. What the comparison
// throws propagates.
[[nodiscard]] std::vector<std::size_t> list_order(std::size_t count, const PlaceIsLess& is_less);

}  // namespace varnholt::genetic
