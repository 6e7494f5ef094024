#include "hosts/embedded/signal_pool/near_days.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {
namespace {

std::size_t keep_plain(const PlaneDay& day, const PlaneDays& days, double limit, double* kept) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < days.count; ++i) {
    const double distance = std::max(std::abs(day.x - days.xs[i]), std::abs(day.y - days.ys[i]));
    // Written in any case and kept or not: whether is as good as random.
    kept[count] = distance;
    count += distance <= limit ? 1 : 0;
  }
  return count;
}

// Of so many a sort that branches is the faster one.
constexpr std::size_t kMostPassed = 48;

// Compiled for vectors of four as well, as a part of a function that is.
[[gnu::always_inline]] inline double last_neighbour(double* distances, std::size_t count) {
  if (count > kMostPassed) {
    double* const last = distances + kNeighbours;
    std::nth_element(distances, last, distances + count);
    return *last;
  }
  // The least ones in order. Each distance is passed along them and leaves the greatest behind,
  // without a branch that depends on it.
  std::array<double, kNeighbours + 1> least;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  least.fill(std::numeric_limits<double>::infinity());
  for (std::size_t i = 0; i < count; ++i) {
    double passed = distances[i];
    for (double& kept : least) {
      const double less = passed < kept ? passed : kept;
      passed = kept > passed ? kept : passed;
      kept = less;
    }
  }
  return least.back();
}

double last_plain(double* distances, std::size_t count) {
  return last_neighbour(distances, count);
}

#if defined(__x86_64__)

// Of each pattern of four lanes, which halves of lanes come to the front: those that are set.
using LaneOrder = std::array<std::int32_t, 8>;

constexpr std::array<LaneOrder, 16> lane_orders() {
  std::array<LaneOrder, 16> orders{};
  for (std::size_t pattern = 0; pattern < orders.size(); ++pattern) {
    std::size_t place = 0;
    for (std::int32_t lane = 0; lane < 4; ++lane) {
      if ((pattern >> lane & 1) == 0) continue;
      orders[pattern][place++] = 2 * lane;
      orders[pattern][place++] = 2 * lane + 1;
    }
  }
  return orders;
}

alignas(32) constexpr std::array<LaneOrder, 16> kLaneOrders = lane_orders();

[[gnu::target("avx2")]] std::size_t keep_in_quads(const PlaneDay& day, const PlaneDays& days,
                                                  double limit, double* kept) {
  const __m256d x = _mm256_set1_pd(day.x);
  const __m256d y = _mm256_set1_pd(day.y);
  const __m256d most = _mm256_set1_pd(limit);
  const __m256d sign = _mm256_set1_pd(-0.0);
  std::size_t count = 0;
  for (std::size_t i = 0; i < days.count; i += 4) {
    const __m256d across = _mm256_andnot_pd(sign, _mm256_sub_pd(x, _mm256_loadu_pd(days.xs + i)));
    const __m256d along = _mm256_andnot_pd(sign, _mm256_sub_pd(y, _mm256_loadu_pd(days.ys + i)));
    const __m256d distance = _mm256_max_pd(across, along);
    auto pattern =
        static_cast<unsigned int>(_mm256_movemask_pd(_mm256_cmp_pd(distance, most, _CMP_LE_OQ)));
    // Behind the last day are those of another row of cells.
    if (days.count - i < 4) pattern &= (1U << (days.count - i)) - 1U;
    const auto* const order = reinterpret_cast<const __m256i*>(kLaneOrders[pattern].data());
    const __m256 in_front =
        _mm256_permutevar8x32_ps(_mm256_castpd_ps(distance), _mm256_load_si256(order));
    _mm256_storeu_pd(kept + count, _mm256_castps_pd(in_front));
    count += static_cast<std::size_t>(__builtin_popcount(pattern));
  }
  return count;
}

[[gnu::target("avx2")]] double last_in_quads(double* distances, std::size_t count) {
  return last_neighbour(distances, count);
}

#endif

}  // namespace

const NearDays& plain_near_days() {
  static constexpr NearDays kLoops{keep_plain, last_plain};
  return kLoops;
}

const NearDays* near_days_of_quads() {
#if defined(__x86_64__)
  static constexpr NearDays kLoops{keep_in_quads, last_in_quads};
  if (kernels_of_quads() != nullptr) return &kLoops;
#endif
  return nullptr;
}

const NearDays& near_days() {
  static const NearDays& loops =
      near_days_of_quads() != nullptr ? *near_days_of_quads() : plain_near_days();
  return loops;
}

}  // namespace varnholt::embedded
