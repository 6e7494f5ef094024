#include "hosts/embedded/signal_pool/normal_scores.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

#include "hosts/embedded/vocabulary/ordered_bits.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

// SplitMix64 (G. Steele, D. Lea, C. Flood, "Fast splittable pseudorandom number generators", 2014):
// one step, and a mixer of bits.
std::uint64_t mixed(std::uint64_t bits) {
  bits += 0x9e3779b97f4a7c15ULL;
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9ULL;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebULL;
  return bits ^ (bits >> 31);
}

struct DayValue {
  std::uint64_t key = 0;  // Orders as the values do.
  Index day = 0;
};

// Days that stand side by side and are alike are put in the order of their keys.
template <typename Alike>
void sort_runs(std::vector<DayValue>& days, const Alike& alike) {
  for (auto first = days.begin(); first != days.end();) {
    const auto end = std::find_if(first + 1, days.end(),
                                  [&](const DayValue& day) { return !alike(day, *first); });
    std::sort(first, end,
              [](const DayValue& one, const DayValue& other) { return one.key < other.key; });
    first = end;
  }
}

// The days in the order of their values: by a radix sort of the leading bits of their keys, which
// tell nearly all days apart, and what has them in common by comparing.
std::vector<DayValue> in_order_of_value(const Eigen::Ref<const ArrayXd>& series) {
  constexpr int kDigitBits = 11;
  constexpr int kPasses = 3;
  constexpr int kTrailingBits = 64 - kPasses * kDigitBits;
  constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
  const auto size = static_cast<std::size_t>(series.size());
  std::vector<DayValue> days(size);
  std::array<std::array<std::uint32_t, kDigits>, kPasses> counts{};
  const auto digit = [](std::uint64_t key, int pass) {
    return static_cast<std::size_t>(key >> (kTrailingBits + pass * kDigitBits)) & (kDigits - 1);
  };
  for (std::size_t i = 0; i < size; ++i) {
    days[i] = {ordered_bits(series[static_cast<Index>(i)]), static_cast<Index>(i)};
    for (int pass = 0; pass < kPasses; ++pass)
      ++counts[static_cast<std::size_t>(pass)][digit(days[i].key, pass)];
  }
  std::vector<DayValue> sorted(size);
  for (int pass = 0; pass < kPasses; ++pass) {
    auto& places = counts[static_cast<std::size_t>(pass)];
    std::uint32_t place = 0;
    for (std::uint32_t& count : places)
      place += std::exchange(count, place);
    for (const DayValue& day : days)
      sorted[places[digit(day.key, pass)]++] = day;
    days.swap(sorted);
  }
  sort_runs(days, [](const DayValue& one, const DayValue& other) {
    return one.key >> kTrailingBits == other.key >> kTrailingBits;
  });
  return days;
}

// The seed that the ties of a series are ordered with: the pattern of its ranks, each day's being
// the number of different values that are smaller.
std::uint64_t seed_of_ties(const std::vector<std::uint64_t>& rank_of_day) {
  std::uint64_t seed = 0;
  for (const std::uint64_t rank : rank_of_day)
    seed = mixed(seed ^ rank);
  return seed;
}

// Puts days with equal values, which stand side by side, into their fixed order.
void order_ties(const Eigen::Ref<const ArrayXd>& series, std::vector<DayValue>& days) {
  std::vector<std::uint64_t> rank_of_day(days.size());
  std::uint64_t rank = 0;
  for (std::size_t place = 1; place < days.size(); ++place) {
    if (series[days[place].day] != series[days[place - 1].day]) ++rank;
    rank_of_day[static_cast<std::size_t>(days[place].day)] = rank;
  }
  if (rank + 1 >= days.size()) return;
  const std::uint64_t seed = seed_of_ties(rank_of_day);
  for (DayValue& day : days)
    day.key = mixed(seed ^ mixed(static_cast<std::uint64_t>(day.day)));
  sort_runs(days, [&](const DayValue& one, const DayValue& other) {
    return series[one.day] == series[other.day];
  });
}

}  // namespace

void require_finite(const Eigen::Ref<const ArrayXd>& series) {
  if (series.isFinite().all()) return;
  throw std::invalid_argument("a PnL series has an entry that is no finite number");
}

DayTables::DayTables(Index days) : digamma(digamma_of_integers(days)) {
  scores.reserve(static_cast<std::size_t>(days));
  for (Index place = 0; place < days; ++place) {
    scores.push_back(
        normal_quantile((static_cast<double>(place) + 0.5) / static_cast<double>(days)));
  }
  if (days < 2) {
    place_of_part.push_back(0);
    return;
  }
  constexpr Index kPartsOfADay = 2;
  const Index parts = kPartsOfADay * days;
  parts_of_one = static_cast<double>(parts) / (scores.back() - scores.front());
  for (Index part = 0; part < parts; ++part) {
    const double first = scores.front() + (static_cast<double>(part) / parts_of_one);
    place_of_part.push_back(static_cast<std::int32_t>(
        std::lower_bound(scores.begin(), scores.end(), first) - scores.begin()));
  }
}

NormalScores::NormalScores(const ArrayXd& series)
    : NormalScores(series, std::make_shared<const DayTables>(series.size())) {}

NormalScores::NormalScores(const Eigen::Ref<const ArrayXd>& series,
                           std::shared_ptr<const DayTables> tables)
    : tables_(std::move(tables)),
      by_day_(series.size()),
      place_of_day_(static_cast<std::size_t>(series.size())) {
  require_finite(series);
  if (std::cmp_not_equal(tables_->scores.size(), series.size())) {
    throw std::invalid_argument(fmt::format("tables for {} days do not fit a series of {}",
                                            tables_->scores.size(), series.size()));
  }
  std::vector<DayValue> days = in_order_of_value(series);
  order_ties(series, days);
  is_constant_ = days.empty() || series.minCoeff() == series.maxCoeff();
  for (std::size_t place = 0; place < days.size(); ++place) {
    const Index day = days[place].day;
    place_of_day_[static_cast<std::size_t>(day)] = static_cast<Index>(place);
    by_day_[day] = tables_->scores[place];
  }
}

double normal_quantile(double p) {
  if (p > 0.5) return -normal_quantile(1.0 - p);
  // A rational function that is right to 4.5e-4 (M. Abramowitz, I. Stegun, "Handbook of
  // mathematical functions", 26.2.23), and two steps of Halley's method to the last digits.
  const double t = std::sqrt(-2.0 * std::log(p));
  double x = (2.515517 + t * (0.802853 + t * 0.010328)) /
                 (1.0 + t * (1.432788 + t * (0.189269 + t * 0.001308))) -
             t;
  for (int step = 0; step < 2; ++step) {
    const double error = 0.5 * std::erfc(-x / std::numbers::sqrt2) - p;
    const double newton = error * std::sqrt(2.0 * std::numbers::pi) * std::exp(x * x / 2.0);
    x -= newton / (1.0 + x * newton / 2.0);
  }
  return x;
}

std::vector<double> digamma_of_integers(std::int64_t n) {
  std::vector<double> values;
  values.reserve(static_cast<std::size_t>(n));
  double value = -std::numbers::egamma;
  for (std::int64_t m = 1; m <= n; ++m) {
    values.push_back(value);
    value += 1.0 / static_cast<double>(m);
  }
  return values;
}

}  // namespace varnholt::embedded
