// The loops over vectors, compiled for what every machine has and for what this one has besides.
//
// A library that chooses at run time would bring vector types of its own for what the compiler's
// own types do here: add, compare, choose, exchange. So the choice is all that is left to do, and a
// table of functions does it. What is compiled for vectors of four has no fused multiplication, and
// every machine gives the same bits.
#pragma once

#include <array>
#include <cstddef>

#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {

enum class RollingFunction {
  kSum,
  kMean,
  kLeast,
  kGreatest,
  kProduct,
  kDecay,
  kFade,
  kFirstGreatest,
  kFirstLeast,
  kDeviation,
  kScore,
  kSkew,
  kKurtosis,
  kCovariance,
  kCorrelation,
  kSlope,
  kResidual,
};

// The result of kFirstGreatest and kFirstLeast where the window must be looked at, because a value
// before the first is alike to it.
inline constexpr double kUnsurePlace = -1.0;

struct RollingTask {
  RollingFunction function;
  std::array<const Panel*, 2> panels;  // The second only for functions of two.
  Window window;
};

struct VectorKernels {
  // Fills a panel of the shape of the others; the window is not longer than they are.
  void (*roll)(const RollingTask& task, Panel& result);
  // For kLanes days from `today` on: how many of the `earlier` days before each have a lesser
  // value; one that is alike to that of the day counts half, one that is not known nothing.
  void (*count_lesser)(const double* today, std::size_t earlier, double* places);
};

[[nodiscard]] const VectorKernels& kernels_of_pairs();
// Vectors of four, where the machine has them; otherwise nullptr.
[[nodiscard]] const VectorKernels* kernels_of_quads();

// The widest that the machine has.
[[nodiscard]] const VectorKernels& vector_kernels();

}  // namespace varnholt::embedded
