// The loops over vectors, compiled for what every machine has and for what this one has besides.
//
// A library that chooses at run time would bring vector types of its own for what the compiler's
// own types do here: add, compare, choose, exchange. So the choice is all that is left to do, and a
// table of functions does it. What is compiled for vectors of four has no fused multiplication, and
// every machine gives the same bits.
#pragma once

#include <array>
#include <cstddef>

#include "hosts/embedded/vocabulary/element_functions.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {

enum class RollingFunction {
  Sum,
  Mean,
  Least,
  Greatest,
  Product,
  Decay,
  Fade,
  FirstGreatest,
  FirstLeast,
  Deviation,
  Score,
  Skew,
  Kurtosis,
  Covariance,
  Correlation,
  Slope,
  Residual,
};

// The result of FirstGreatest and FirstLeast where the window must be looked at, because a value
// before the first is alike to it.
inline constexpr double kUnsurePlace = -1.0;

struct RollingTask {
  RollingFunction function;
  std::array<const Panel*, 2> panels;  // The second only for functions of two.
  Window window;
};

// So many values at most are ranked by comparing each with each; sorting more of them costs less.
inline constexpr std::size_t kMostOfFew = 32;

// The values of kLanes days of some instruments. Those of one instrument lie together, and those of
// the next `stride` behind them.
struct DaysOfFew {
  const double* values;
  std::size_t stride;
  std::size_t columns;  // At most kMostOfFew.
};

// What a function that works entry by entry reads, and where it writes: that may be where one of
// its inputs lies.
struct Entries {
  std::array<const double*, kMostElementInputs> inputs;  // nullptr where it takes fewer.
  double* results;
  std::size_t count;
};

struct VectorKernels {
  void (*map)(ElementFunction function, const Entries& entries);
  // Fills a panel of the shape of the others; the window is not longer than they are.
  void (*roll)(const RollingTask& task, Panel& result);
  // For kLanes days from `today` on: how many of the `earlier` days before each have a lesser
  // value; one that is alike to that of the day counts half, one that is not known nothing.
  void (*count_lesser)(const double* today, std::size_t earlier, double* places);
  // The ranks of each day as cross_rank has them, in places like those of the values. Gives the
  // days on which they must be found otherwise: of two that are not alike, both are alike to a
  // third.
  std::array<bool, kLanes> (*rank_few)(const DaysOfFew& days, double* ranks);
};

[[nodiscard]] const VectorKernels& kernels_of_pairs();
// Vectors of four, where the machine has them; otherwise nullptr.
[[nodiscard]] const VectorKernels* kernels_of_quads();

// The widest that the machine has.
[[nodiscard]] const VectorKernels& vector_kernels();

}  // namespace varnholt::embedded
