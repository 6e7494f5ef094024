// A stable sort by an order that a host answers.
//
// The standard library's sorts may read beyond their range when the order contradicts itself, and
// nothing keeps a host's `<` from doing so. This one only ever yields a permutation.
#pragma once

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

namespace varnholt::genetic {

// Sorts the items of a vector or span so that `comes_before(item, earlier_item)` holds for no two
// of them; items of which neither comes before the other keep their order. What the order throws
// propagates, and leaves the items unspecified.
template <typename Items, typename ComesBefore>
void stable_sort(Items&& items, const ComesBefore& comes_before) {
  std::vector<std::remove_cvref_t<decltype(items[0])>> merged;
  merged.reserve(items.size());
  for (std::size_t width = 1; width < items.size(); width *= 2) {
    merged.clear();
    for (std::size_t first = 0; first < items.size(); first += 2 * width) {
      std::size_t left = first;
      const std::size_t middle = std::min(first + width, items.size());
      std::size_t right = middle;
      const std::size_t end = std::min(middle + width, items.size());
      while (left < middle || right < end) {
        // Of equal ones the left comes first.
        const bool takes_right =
            left == middle || (right < end && comes_before(items[right], items[left]));
        merged.push_back(std::move(items[takes_right ? right++ : left++]));
      }
    }
    std::move(merged.begin(), merged.end(), items.begin());
  }
}

}  // namespace varnholt::genetic
