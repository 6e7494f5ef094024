// The innermost loops of the search for a day's neighbours, compiled for what every machine has and
// for vectors of four. Both give the same bits.
#pragma once

#include <cstddef>

namespace varnholt::embedded {

// The neighbours that the estimator of mutual information looks for around each day. More of them
// lower the variance of the estimate and blur fine structure; PnL series have little of that, and a
// gate needs a steady figure.
inline constexpr int kNeighbours = 8;

// A day in the plane of two series.
struct PlaneDay {
  double x = 0.0;
  double y = 0.0;
};

// The days of one row of cells, side by side. kReadBeyond entries behind the last can be read.
struct PlaneDays {
  const double* xs = nullptr;
  const double* ys = nullptr;
  std::size_t count = 0;
};

struct NearDays {
  // So many entries more may be read of days, and written of what is kept.
  static constexpr std::size_t kReadBeyond = 4;

  // Writes the distances to the day that are no greater than `limit`, in the order of the days, and
  // returns how many they are. A distance is the greater of those in x and in y.
  std::size_t (*keep)(const PlaneDay& day, const PlaneDays& days, double limit, double* kept);
  // The distance at place kNeighbours, from 0, in ascending order. There must be more than that;
  // their order is lost.
  double (*of_last_neighbour)(double* distances, std::size_t count);
};

[[nodiscard]] const NearDays& plain_near_days();
// Null where the machine has no such vectors.
[[nodiscard]] const NearDays* near_days_of_quads();
// The faster one that the machine has.
[[nodiscard]] const NearDays& near_days();

}  // namespace varnholt::embedded
