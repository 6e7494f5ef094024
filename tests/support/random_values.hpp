// Random values for property tests, rich in what is easily got wrong: numbers of different kinds
// that are equal or nearly so, texts with quotes and characters outside the first plane, empty
// containers, and close variations of a value.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic::test {

class RandomValues {
 public:
  explicit RandomValues(std::uint64_t seed);

  // A number from 0 up to `bound`, excluded.
  [[nodiscard]] std::size_t below(std::size_t bound);

  // Absent, a boolean, a number of any kind and size, or a text. NaN is one and the same object
  // throughout, as a name of the host's language would be.
  [[nodiscard]] Value scalar();
  // Lists, tuples, mappings with keys of any hashable kind, and scalars.
  [[nodiscard]] Value any(int depth);
  // Plain graph data: lists, mappings with text keys, and scalars.
  [[nodiscard]] Value plain(int depth);
  // An independent copy in which, about every second time, some small thing differs: a number has
  // become an equal one of another kind or a neighbour, entries have changed their order, an item
  // has gone.
  [[nodiscard]] Value variation(const Value& value);

 private:
  [[nodiscard]] Value scalar_variation(const Value& value);

  std::mt19937_64 draw_;
  Value nan_;
  std::vector<Value> scalars_;
};

// The value as a literal of the host's language, ASCII only. Written without the library's own text
// forms, which it helps to test.
[[nodiscard]] std::string python_literal(const Value& value);

}  // namespace varnholt::genetic::test
