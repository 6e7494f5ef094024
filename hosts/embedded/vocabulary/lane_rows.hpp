// Panels lie instrument after instrument, lanes day after day: from one to the other and back.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "hosts/embedded/vocabulary/lane_vector.hpp"

namespace varnholt::embedded {

// Objects made of lanes, one after the other. They begin where a line of the cache does, as the
// vectors ask for and an allocator that was not compiled for them may not give.
template <typename Object>
class LaneBuffer {
 public:
  explicit LaneBuffer(std::size_t count)
      : memory_(count * sizeof(Object) + kLine), shift_(shift_of(memory_.data())) {
    for (std::size_t i = 0; i < count; ++i)
      new (memory_.data() + shift_ + i * sizeof(Object)) Object();
  }

  [[gnu::always_inline]] Object& operator[](std::size_t i) { return objects()[i]; }
  [[gnu::always_inline]] const Object& operator[](std::size_t i) const { return objects()[i]; }

 private:
  static constexpr std::size_t kLine = 64;

  static std::size_t shift_of(const std::byte* memory) {
    return (kLine - reinterpret_cast<std::uintptr_t>(memory) % kLine) % kLine;
  }
  Object* objects() { return std::launder(reinterpret_cast<Object*>(memory_.data() + shift_)); }
  const Object* objects() const {
    return std::launder(reinterpret_cast<const Object*>(memory_.data() + shift_));
  }

  std::vector<std::byte> memory_;
  std::size_t shift_;
};

// For each lane where its first day lies in a panel, and how many days are there from it on.
struct LaneRows {
  std::array<std::ptrdiff_t, kLanes> offsets{};
  std::array<std::size_t, kLanes> counts{};

  [[nodiscard, gnu::always_inline]] std::size_t least_count() const {
    return *std::min_element(counts.begin(), counts.end());
  }
};

// The numbers of days that lie together in a panel, turned so that those of one day do.
template <typename Vector>
struct Square {
  static constexpr std::size_t kSize = kVectorSize<Vector>;
  using Rows = std::array<Vector, kSize>;

  // One row a lane, from `part` on.
  [[gnu::always_inline]] static Rows read(const double* panel, const LaneRows& rows,
                                          std::size_t part, std::size_t day) {
    Rows square;
    for (std::size_t i = 0; i < kSize; ++i) {
      load(panel + rows.offsets[part * kSize + i] + day, square[i]);
    }
    return square;
  }
  [[gnu::always_inline]] static void write(const Rows& square, const LaneRows& rows,
                                           std::size_t part, std::size_t day, double* panel) {
    for (std::size_t i = 0; i < kSize; ++i) {
      store(square[i], panel + rows.offsets[part * kSize + i] + day);
    }
  }
};

// Reads so many days into lanes that lie `stride` apart; what is not there is `otherwise`. Tells
// whether all of them are known.
template <typename Vector>
bool take_rows(const double* panel, const LaneRows& rows, double otherwise, Lanes<Vector>* lanes,
               std::size_t stride, std::size_t days) {
  const std::size_t together =
      std::min(rows.least_count(), days) / Square<Vector>::kSize * Square<Vector>::kSize;
  LaneMask<Vector> known = Lanes<Vector>(0.0) == Lanes<Vector>(0.0);
  for (std::size_t day = 0; day < together; day += Square<Vector>::kSize) {
    for (std::size_t part = 0; part < kParts<Vector>; ++part) {
      typename Square<Vector>::Rows square = Square<Vector>::read(panel, rows, part, day);
      for (std::size_t i = 0; i < Square<Vector>::kSize; ++i)
        known.parts[part] = known.parts[part] & (square[i] == square[i]);
      transpose(square);
      for (std::size_t i = 0; i < Square<Vector>::kSize; ++i)
        lanes[(day + i) * stride].parts[part] = square[i];
    }
  }
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    const double* const from = panel + rows.offsets[lane];
    for (std::size_t day = together; day < days; ++day)
      lanes[day * stride].set(lane, day < rows.counts[lane] ? from[day] : otherwise);
  }
  for (std::size_t day = together; day < days; ++day)
    known = known & are_known(lanes[day * stride]);
  return known.all();
}

// Asks for the days that follow so many of a panel, as many again: a processor that sees a few days
// read of each of many histories does not guess them by itself.
[[gnu::always_inline]] inline void fetch_rows(const double* panel, const LaneRows& rows,
                                              std::size_t days) {
  constexpr std::size_t kInLine = 8;
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    if (rows.counts[lane] < days) continue;  // Nothing follows.
    const double* const next = panel + rows.offsets[lane] + days;
    for (std::size_t day = 0; day < days; day += kInLine)
      __builtin_prefetch(next + day);
  }
}

// Writes lanes into the days of a panel that are there.
template <typename Vector>
void give_rows(const Lanes<Vector>* lanes, const LaneRows& rows, double* panel, std::size_t days) {
  const std::size_t together =
      std::min(rows.least_count(), days) / Square<Vector>::kSize * Square<Vector>::kSize;
  for (std::size_t day = 0; day < together; day += Square<Vector>::kSize) {
    for (std::size_t part = 0; part < kParts<Vector>; ++part) {
      typename Square<Vector>::Rows square;
      for (std::size_t i = 0; i < Square<Vector>::kSize; ++i)
        square[i] = lanes[day + i].parts[part];
      transpose(square);
      Square<Vector>::write(square, rows, part, day, panel);
    }
  }
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    double* const to = panel + rows.offsets[lane];
    for (std::size_t day = together; day < std::min(rows.counts[lane], days); ++day)
      to[day] = lanes[day].get(lane);
  }
}

}  // namespace varnholt::embedded
