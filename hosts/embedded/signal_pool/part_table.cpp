#include "hosts/embedded/signal_pool/part_table.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace varnholt::embedded {
namespace {

using Eigen::Index;

constexpr double kDaysInCell = 10.0;
constexpr std::size_t kCells =
    static_cast<std::size_t>(PartTable::kMostParts * PartTable::kMostParts);
static_assert(kCells == 256, "a cell is numbered by one byte");

// Days that follow each other often fall into the same cell, and an increment waits for the one
// before it: so there are several tables, and each day counts in the next.
constexpr std::size_t kTables = 4;
using Counts = std::array<std::array<std::uint32_t, kCells>, kTables>;

constexpr int kPartBits = 4;

Counts counted(std::span<const std::uint8_t> left, std::span<const std::uint8_t> right) {
  Counts counts{};
  const std::size_t days = left.size();
  std::size_t day = 0;
  for (; day + sizeof(std::uint64_t) <= days; day += sizeof(std::uint64_t)) {
    // Eight days at once: a part has four bits, so no shift leaves its byte.
    std::uint64_t rows = 0;
    std::uint64_t columns = 0;
    std::memcpy(&rows, left.data() + day, sizeof(rows));
    std::memcpy(&columns, right.data() + day, sizeof(columns));
    std::uint64_t cells = (rows << kPartBits) | columns;
    for (std::size_t i = 0; i < sizeof(cells); ++i) {
      ++counts[i % kTables][cells & 0xFFU];
      cells >>= 8;
    }
  }
  for (; day < days; ++day)
    ++counts[0][static_cast<std::size_t>(left[day] << kPartBits) | right[day]];
  return counts;
}

}  // namespace

PartTable::PartTable(Index days)
    : days_(days),
      parts_(std::clamp<Index>(
          std::lround(std::floor(std::sqrt(static_cast<double>(days) / kDaysInCell))), 2,
          kMostParts)),
      n_log_n_(static_cast<std::size_t>(days) + 1),
      rows_and_columns_(0.0) {
  for (std::size_t n = 2; n < n_log_n_.size(); ++n)
    n_log_n_[n] = static_cast<double>(n) * std::log(static_cast<double>(n));
  for (Index part = 0; part < parts_; ++part) {
    // The places p with p * parts / days == part.
    const Index first = (part * days + parts_ - 1) / parts_;
    const Index end = ((part + 1) * days + parts_ - 1) / parts_;
    rows_and_columns_ += 2.0 * n_log_n_[static_cast<std::size_t>(end - first)];
  }
}

void PartTable::write_parts(const NormalScores& scores,
                            std::span<std::uint8_t> parts_of_day) const {
  std::transform(scores.place_of_day().begin(), scores.place_of_day().end(), parts_of_day.begin(),
                 [this](Index place) { return static_cast<std::uint8_t>(place * parts_ / days_); });
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

}  // namespace varnholt::embedded
