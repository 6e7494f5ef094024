#include "hosts/embedded/signal_pool/part_table.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <numbers>

namespace varnholt::embedded {
namespace {

using Eigen::Index;

constexpr double kDaysInCell = 10.0;
constexpr Index kMostCuts = 16;
constexpr std::size_t kCells =
    static_cast<std::size_t>(PartTable::kMostParts * PartTable::kMostParts);
static_assert(kCells == 256, "a cell is numbered by one byte");

// Days that follow each other often fall into the same cell, and an increment waits for the one
// before it: so there are several tables, and each day counts in the next.
constexpr std::size_t kTables = 4;
using Counts = std::array<std::array<std::uint32_t, kCells>, kTables>;

// Of a byte of write_parts(), and of a cell's number.
constexpr int kPartBits = 4;
constexpr std::uint64_t kUpperHalves = 0xF0F0F0F0F0F0F0F0U;

Counts counted(std::span<const std::uint8_t> left, std::span<const std::uint8_t> right) {
  Counts counts{};
  const std::size_t days = left.size();
  std::size_t day = 0;
  for (; day + sizeof(std::uint64_t) <= days; day += sizeof(std::uint64_t)) {
    // Eight days at once: what is shifted has the lower halves cleared, so nothing leaves its byte.
    std::uint64_t rows = 0;
    std::uint64_t columns = 0;
    std::memcpy(&rows, left.data() + day, sizeof(rows));
    std::memcpy(&columns, right.data() + day, sizeof(columns));
    std::uint64_t cells = (rows & kUpperHalves) | ((columns & kUpperHalves) >> kPartBits);
    for (std::size_t i = 0; i < sizeof(cells); ++i) {
      ++counts[i % kTables][cells & 0xFFU];
      cells >>= 8;
    }
  }
  for (; day < days; ++day)
    ++counts[0][(left[day] & 0xF0U) | static_cast<std::size_t>(right[day] >> kPartBits)];
  return counts;
}

}  // namespace

PartTable::PartTable(Index days)
    : days_(days),
      parts_(std::clamp<Index>(
          std::lround(std::floor(std::sqrt(static_cast<double>(days) / kDaysInCell))), 2,
          kMostParts)),
      cuts_(std::clamp<Index>(
          std::lround(std::sqrt(static_cast<double>(days)) / static_cast<double>(parts_)), 1,
          kMostCuts)),
      n_log_n_(static_cast<std::size_t>(days) + 1),
      added_by_day_(static_cast<std::size_t>(days)),
      finer_part_{} {
  for (std::size_t n = 2; n < n_log_n_.size(); ++n)
    n_log_n_[n] = static_cast<double>(n) * std::log(static_cast<double>(n));
  rows_and_columns_ = rows_and_columns(parts_);
  finer_rows_and_columns_ = rows_and_columns(finer_parts());
  double before = 0.0;
  double g = -std::numbers::egamma - std::numbers::ln2;
  for (std::size_t n = 1; n <= added_by_day_.size(); ++n) {
    if (n % 2 == 0) g += 2.0 / static_cast<double>(n - 1);
    const double after = static_cast<double>(n) * g;
    added_by_day_[n - 1] = after - before;
    before = after;
  }
  for (Index part = 0; part < finer_parts(); ++part)
    finer_part_.at(as_byte(part)) = static_cast<std::uint8_t>(part);
}

double PartTable::rows_and_columns(Index parts) const {
  double sum = 0.0;
  for (Index part = 0; part < parts; ++part)
    sum += 2.0 * n_log_n_[static_cast<std::size_t>(days_in(part, parts))];
  return sum;
}

Index PartTable::days_in(Index part, Index parts) const {
  // The places p with p * parts / days == part.
  const Index first = (part * days_ + parts - 1) / parts;
  const Index end = ((part + 1) * days_ + parts - 1) / parts;
  return end - first;
}

std::uint8_t PartTable::as_byte(Index finer_part) const {
  return static_cast<std::uint8_t>(((finer_part / cuts_) << kPartBits) | (finer_part % cuts_));
}

void PartTable::write_parts(const NormalScores& scores,
                            std::span<std::uint8_t> parts_of_day) const {
  std::transform(scores.place_of_day().begin(), scores.place_of_day().end(), parts_of_day.begin(),
                 [this](Index place) { return as_byte(place * finer_parts() / days_); });
}

double PartTable::information(std::span<const std::uint8_t> left,
                              std::span<const std::uint8_t> right) const {
  const Counts counts = counted(left, right);
  double cells = 0.0;
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    cells += n_log_n_[counts[0][cell] + counts[1][cell] + counts[2][cell] + counts[3][cell]];
  }
  const auto days = static_cast<double>(days_);
  const auto freedom = static_cast<double>((parts_ - 1) * (parts_ - 1));
  return (cells - rows_and_columns_ + n_log_n_.back() - freedom / 2.0) / days;
}

Eigen::ArrayXd PartTable::information_of_days(std::span<const std::uint8_t> left,
                                              std::span<const std::uint8_t> right) const {
  const Counts counts = counted(left, right);
  std::array<double, kCells> of_cell{};
  for (Index row = 0; row < parts_; ++row) {
    for (Index column = 0; column < parts_; ++column) {
      const auto cell = static_cast<std::size_t>((row << kPartBits) | column);
      const std::uint32_t days =
          counts[0][cell] + counts[1][cell] + counts[2][cell] + counts[3][cell];
      if (days == 0) continue;
      const double by_chance = static_cast<double>(days_in(row, parts_)) *
                               static_cast<double>(days_in(column, parts_)) /
                               static_cast<double>(days_);
      of_cell[cell] = std::log(static_cast<double>(days) / by_chance);
    }
  }
  Eigen::ArrayXd of_day(days_);
  for (std::size_t day = 0; day < left.size(); ++day) {
    const auto cell = (left[day] & 0xF0U) | static_cast<std::size_t>(right[day] >> kPartBits);
    of_day[static_cast<Index>(day)] = of_cell[cell];
  }
  return of_day;
}

double PartTable::finer_information(std::span<const std::uint8_t> left,
                                    std::span<const std::uint8_t> right) const {
  const auto side = static_cast<std::size_t>(finer_parts());
  // A row has fifty days, or a 256th of all where that is more: a count fits.
  std::vector<std::uint16_t> counts(side * side);
  double cells = 0.0;
  for (std::size_t day = 0; day < left.size(); ++day) {
    std::uint16_t& count = counts[finer_part_[left[day]] * side + finer_part_[right[day]]];
    cells += added_by_day_[count++];
  }
  return (cells - finer_rows_and_columns_ + n_log_n_.back()) / static_cast<double>(days_);
}

}  // namespace varnholt::embedded
