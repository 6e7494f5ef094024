// Ranks of a few instruments, on kLanes days at once: each is compared with each, without a sort.
#pragma once

#include <array>
#include <cstddef>

#include "hosts/embedded/vocabulary/alike.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

namespace varnholt::embedded {

// One value of a panel on kLanes days, and what its comparisons have come to.
template <typename Vector>
struct RankedLanes {
  Lanes<Vector> value;
  Lanes<Vector> rounding;  // How far away a lesser one is alike to it.
  Lanes<Vector> balance;   // How many are clearly less than it, minus how many are clearly greater.
};

template <typename Vector>
struct Comparison {
  LaneMask<Vector> is_greater;  // Clearly.
  LaneMask<Vector> is_less;     // Likewise.
  LaneMask<Vector> is_near;     // Alike, but not equal.

  Comparison(const RankedLanes<Vector>& a, const RankedLanes<Vector>& b) {
    const Lanes<Vector> distance = a.value - b.value;
    const Lanes<Vector> reach = choose(a.rounding < b.rounding, b.rounding, a.rounding);
    is_greater = reach < distance;
    is_less = distance < 0.0 - reach;
    const LaneMask<Vector> is_different = (distance < 0.0) | (Lanes<Vector>(0.0) < distance);
    is_near = is_different ^ (is_greater | is_less);
  }
};

// Counts what a is to b, and tells where the two are alike and not equal.
template <typename Vector>
[[nodiscard, gnu::always_inline]] inline LaneMask<Vector> balance_two(RankedLanes<Vector>& a,
                                                                      RankedLanes<Vector>& b) {
  using Number = Lanes<Vector>;
  const Comparison<Vector> compared(a, b);
  const Number sign =
      choose(compared.is_greater, 1.0, Number(0.0)) - choose(compared.is_less, 1.0, Number(0.0));
  a.balance = a.balance + sign;
  b.balance = b.balance - sign;
  return compared.is_near;
}

// Where one that is alike to a is not alike to b, although a and b are alike. Then the two differ
// in what is clearly less or greater, and so in their balances: of the greater one more is clearly
// less, and no more is clearly greater.
template <typename Vector>
[[nodiscard, gnu::always_inline]] inline LaneMask<Vector> are_in_a_chain(
    const RankedLanes<Vector>& a, const RankedLanes<Vector>& b) {
  const LaneMask<Vector> is_other = (a.balance < b.balance) | (b.balance < a.balance);
  return Comparison<Vector>(a, b).is_near & is_other;
}

// As vector_kernels.hpp has it.
template <typename Vector>
[[gnu::flatten]] std::array<bool, kLanes> rank_few(const DaysOfFew& days, double* ranks) {
  using Number = Lanes<Vector>;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): to clear all of them costs more.
  std::array<RankedLanes<Vector>, kMostOfFew> entries;
  Number known = 0.0;
  for (std::size_t i = 0; i < days.columns; ++i) {
    const Number value = Number::from(days.values + i * days.stride);
    known = known + choose(are_known(value), 1.0, Number(0.0));
    entries[i] = {value, absolute(value) * kAlikeTolerance, 0.0};
  }
  const LaneMask<Vector> nowhere = Number(0.0) < 0.0;
  LaneMask<Vector> is_near = nowhere;
  for (std::size_t i = 1; i < days.columns; ++i) {
    for (std::size_t j = 0; j < i; ++j)
      is_near = is_near | balance_two(entries[i], entries[j]);
  }
  // Those that are alike share the mean of their places, as equal ones do, but for chains.
  LaneMask<Vector> is_unsure = nowhere;
  for (std::size_t i = 1; is_near.any() && i < days.columns; ++i) {
    for (std::size_t j = 0; j < i; ++j)
      is_unsure = is_unsure | are_in_a_chain(entries[i], entries[j]);
  }
  const Number others = known - 1.0;
  for (std::size_t i = 0; i < days.columns; ++i) {
    const Number place = (others + entries[i].balance) * 0.5;
    const Number rank = choose(others == Number(0.0), 0.5, place / others);
    choose(are_known(entries[i].value), rank, kUnknown).to(ranks + i * days.stride);
  }
  std::array<bool, kLanes> unsure{};
  const Number marks = choose(is_unsure, 1.0, Number(0.0));
  for (std::size_t lane = 0; lane < kLanes; ++lane)
    unsure[lane] = marks.get(lane) != 0.0;
  return unsure;
}

}  // namespace varnholt::embedded
