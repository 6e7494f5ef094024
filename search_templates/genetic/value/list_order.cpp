#include "search_templates/genetic/value/list_order.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <numeric>

namespace varnholt::genetic {
namespace {

using Places = std::vector<std::size_t>;
using Iterator = Places::iterator;

// From this length on a run is merged as it is; shorter ones are made longer.
constexpr std::size_t kLongestShortRun = 64;
// So many wins of one side in a row begin the galloping, and galloping of fewer ends it.
constexpr std::ptrdiff_t kGallop = 7;

class ListSorter {
 public:
  ListSorter(Places& places, const PlaceIsLess& is_less) : places_(places), is_less_(is_less) {}

  void sort() {
    const std::size_t count = places_.size();
    const std::size_t shortest = shortest_run(count);
    for (std::size_t start = 0; start < count;) {
      std::size_t length = natural_run(start);
      if (length < shortest) {
        const std::size_t wanted = std::min(shortest, count - start);
        insert_binary(start, start + length, start + wanted);
        length = wanted;
      }
      push_run(start, length);
      start += length;
    }
    merge_all();
  }

 private:
  // A stretch of the list that is sorted.
  struct Run {
    std::size_t start = 0;
    std::size_t length = 0;
    int power = 0;  // The level at which it is merged with the run after it.
  };

  [[nodiscard]] bool less(std::size_t left, std::size_t right) const {
    return is_less_(left, right);
  }
  [[nodiscard]] Iterator at(std::size_t index) {
    return places_.begin() + static_cast<std::ptrdiff_t>(index);
  }

  // The count itself below 64, otherwise a number from 32 to 64 that divides it nearly into a power
  // of two.
  static std::size_t shortest_run(std::size_t count) {
    std::size_t rest = 0;
    for (; count >= kLongestShortRun; count /= 2)
      rest |= count & 1U;
    return count + rest;
  }

  // The length of the run that begins here. One that falls strictly is turned round.
  std::size_t natural_run(std::size_t start) {
    const std::size_t count = places_.size();
    std::size_t end = start + 1;
    if (end == count) return 1;
    const bool falls = less(places_[end], places_[end - 1]);
    for (++end; end < count && less(places_[end], places_[end - 1]) == falls;)
      ++end;
    if (falls) std::reverse(at(start), at(end));
    return end - start;
  }

  // Takes the items from `sorted_end` to `end` into the run that ends before them.
  void insert_binary(std::size_t start, std::size_t sorted_end, std::size_t end) {
    for (std::size_t next = sorted_end; next < end; ++next) {
      std::size_t low = start;
      std::size_t high = next;
      while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (less(places_[next], places_[middle])) {
          high = middle;
        } else {
          low = middle + 1;
        }
      }
      std::rotate(at(low), at(next), at(next + 1));
    }
  }

  // The level of the boundary between two neighbouring runs in the nearly balanced tree of merges:
  // the first binary digit in which the middles of the two, as fractions of the list, differ.
  [[nodiscard]] int boundary_power(const Run& left, std::size_t right_length) const {
    const std::size_t count = places_.size();
    std::size_t left_middle = 2 * left.start + left.length;
    std::size_t right_middle = left_middle + left.length + right_length;
    for (int power = 1;; ++power) {
      if (left_middle >= count) {
        left_middle -= count;
        right_middle -= count;
      } else if (right_middle >= count) {
        return power;
      }
      left_middle *= 2;
      right_middle *= 2;
    }
  }

  void push_run(std::size_t start, std::size_t length) {
    if (!runs_.empty()) {
      const int power = boundary_power(runs_.back(), length);
      while (runs_.size() > 1 && runs_[runs_.size() - 2].power > power)
        merge(runs_.size() - 2);
      runs_.back().power = power;
    }
    runs_.push_back({start, length, 0});
  }

  void merge_all() {
    while (runs_.size() > 1) {
      std::size_t left = runs_.size() - 2;
      if (left > 0 && runs_[left - 1].length < runs_[left + 1].length) --left;
      merge(left);
    }
  }

  // Merges the run with the one after it. What stands in its place at either end is left out.
  void merge(std::size_t left) {
    const Run first = runs_[left];
    const Run second = runs_[left + 1];
    runs_[left].length += second.length;
    runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(left) + 1);

    const Iterator middle = at(second.start);
    const Iterator begin = gallop_right(*middle, at(first.start), middle, 0);
    if (begin == middle) return;
    const auto last = static_cast<std::ptrdiff_t>(second.length) - 1;
    const Iterator end = gallop_left(*std::prev(middle), middle,
                                     middle + static_cast<std::ptrdiff_t>(second.length), last);
    if (end == middle) return;
    if (middle - begin <= end - middle) {
      merge_from_front(begin, middle, end);
    } else {
      merge_from_back(begin, middle, end);
    }
  }

  // Where `key` belongs in the sorted stretch, before its equals: searched from `hint` outwards in
  // steps that double, then in halves.
  Iterator gallop_left(std::size_t key, Iterator begin, Iterator end, std::ptrdiff_t hint) const {
    return gallop(begin, end, hint, [&](std::size_t item) { return less(item, key); });
  }
  // The same behind its equals.
  Iterator gallop_right(std::size_t key, Iterator begin, Iterator end, std::ptrdiff_t hint) const {
    return gallop(begin, end, hint, [&](std::size_t item) { return !less(key, item); });
  }

  // The first item that does not come before.
  template <typename ComesBefore>
  static Iterator gallop(Iterator begin, Iterator end, std::ptrdiff_t hint,
                         const ComesBefore& comes_before) {
    const std::ptrdiff_t size = end - begin;
    // Everything up to and with `low` comes before, nothing from `high` on does.
    std::ptrdiff_t low = hint;
    std::ptrdiff_t high = hint;
    std::ptrdiff_t step = 1;
    if (comes_before(begin[hint])) {
      for (high = hint + 1; high < size && comes_before(begin[high]);) {
        low = high;
        step = 2 * step + 1;
        high = hint + step;
      }
      high = std::min(high, size);
    } else {
      for (low = hint - 1; low >= 0 && !comes_before(begin[low]);) {
        high = low;
        step = 2 * step + 1;
        low = hint - step;
      }
      low = std::max<std::ptrdiff_t>(low, -1);
    }
    for (++low; low < high;) {
      const std::ptrdiff_t middle = low + (high - low) / 2;
      if (comes_before(begin[middle])) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return begin + high;
  }

  // Merges [begin, middle) with [middle, end), of which the first is no longer than the second.
  // The first item of the second is known to be the least of all, the last of the first the
  // greatest.
  void merge_from_front(Iterator begin, Iterator middle, Iterator end) {
    spare_.assign(begin, middle);
    auto first = spare_.cbegin();
    const auto first_end = spare_.cend();
    Iterator second = middle;
    Iterator next = begin;
    const auto rest = [&] {
      if (first == first_end) return;  // Only under an order that contradicts itself.
      // The greatest goes behind all that is left of the second.
      next = std::copy(second, end, next);
      std::copy(first, first_end, next);
    };

    *next++ = *second++;
    if (second == end || first_end - first == 1) return rest();
    for (;;) {
      std::ptrdiff_t first_wins = 0;
      std::ptrdiff_t second_wins = 0;
      while (first_wins < gallop_at_ && second_wins < gallop_at_) {
        if (less(*second, *first)) {
          *next++ = *second++;
          ++second_wins;
          first_wins = 0;
          if (second == end) return rest();
        } else {
          *next++ = *first++;
          ++first_wins;
          second_wins = 0;
          if (first_end - first == 1) return rest();
        }
      }
      ++gallop_at_;
      do {
        if (gallop_at_ > 1) --gallop_at_;
        const auto first_stop = gallop_right_in(*second, first, first_end);
        first_wins = first_stop - first;
        next = std::copy(first, first_stop, next);
        first = first_stop;
        if (first_end - first <= 1) return rest();
        *next++ = *second++;
        if (second == end) return rest();

        const Iterator second_stop = gallop_left(*first, second, end, 0);
        second_wins = second_stop - second;
        next = std::copy(second, second_stop, next);
        second = second_stop;
        if (second == end) return rest();
        *next++ = *first++;
        if (first_end - first == 1) return rest();
      } while (first_wins >= kGallop || second_wins >= kGallop);
      ++gallop_at_;  // Leaving it costs, so that random data gallops less and less.
    }
  }

  Places::const_iterator gallop_right_in(std::size_t key, Places::const_iterator begin,
                                         Places::const_iterator end) {
    const Iterator from = spare_.begin() + (begin - spare_.cbegin());
    return gallop_right(key, from, from + (end - begin), 0);
  }

  // The same from the other end, where the second is the shorter.
  void merge_from_back(Iterator begin, Iterator middle, Iterator end) {
    spare_.assign(middle, end);
    Iterator first = middle;         // Behind what is left of the first.
    Iterator second = spare_.end();  // Behind what is left of the second.
    const Iterator second_begin = spare_.begin();
    Iterator next = end;  // Behind the place that is filled next.
    const auto rest = [&] {
      if (second == second_begin) return;
      // The least goes before all that is left of the first.
      next = std::copy_backward(begin, first, next);
      std::copy_backward(second_begin, second, next);
    };

    *--next = *--first;
    if (first == begin || second - second_begin == 1) return rest();
    for (;;) {
      std::ptrdiff_t first_wins = 0;
      std::ptrdiff_t second_wins = 0;
      while (first_wins < gallop_at_ && second_wins < gallop_at_) {
        if (less(*std::prev(second), *std::prev(first))) {
          *--next = *--first;
          ++first_wins;
          second_wins = 0;
          if (first == begin) return rest();
        } else {
          *--next = *--second;
          ++second_wins;
          first_wins = 0;
          if (second - second_begin == 1) return rest();
        }
      }
      ++gallop_at_;
      do {
        if (gallop_at_ > 1) --gallop_at_;
        const Iterator first_stop =
            gallop_right(*std::prev(second), begin, first, first - begin - 1);
        first_wins = first - first_stop;
        next = std::copy_backward(first_stop, first, next);
        first = first_stop;
        if (first == begin) return rest();
        *--next = *--second;
        if (second - second_begin == 1) return rest();

        const Iterator second_stop =
            gallop_left(*std::prev(first), second_begin, second, second - second_begin - 1);
        second_wins = second - second_stop;
        next = std::copy_backward(second_stop, second, next);
        second = second_stop;
        if (second - second_begin <= 1) return rest();
        *--next = *--first;
        if (first == begin) return rest();
      } while (first_wins >= kGallop || second_wins >= kGallop);
      ++gallop_at_;
    }
  }

  Places& places_;
  const PlaceIsLess& is_less_;
  std::vector<Run> runs_;
  Places spare_;
  std::ptrdiff_t gallop_at_ = kGallop;
};

}  // namespace

std::vector<std::size_t> list_order(std::size_t count, const PlaceIsLess& is_less) {
  Places places(count);
  std::iota(places.begin(), places.end(), std::size_t{0});
  ListSorter(places, is_less).sort();
  return places;
}

}  // namespace varnholt::genetic
