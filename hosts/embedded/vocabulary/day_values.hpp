// What is done with the known values of one day, or of one group of its instruments.
#pragma once

#include <cstddef>
#include <vector>

namespace varnholt::embedded {

// In the order of the columns. A function replaces them in place.
using DayValues = std::vector<double>;

void demean_values(DayValues& values);

// All become unknown where there is but one, or where they are constant.
void zscore_values(DayValues& values);

// Keeps each within so many sample standard deviations of the mean.
void winsorize_values(DayValues& values, double spreads);

// Replaces values by their ranks; values that are alike, each to the next in order, share the mean
// of their places. Keeps its memory from one day to the next.
class Ranking {
 public:
  void operator()(DayValues& values);

 private:
  std::vector<std::size_t> order_;
  DayValues ranks_;
};

}  // namespace varnholt::embedded
