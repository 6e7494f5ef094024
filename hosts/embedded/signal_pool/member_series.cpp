#include "hosts/embedded/signal_pool/member_series.hpp"

#include <algorithm>
#include <cmath>

#include "hosts/embedded/backtest/return_series.hpp"
#include "hosts/embedded/signal_pool/pnl_measures.hpp"

namespace varnholt::embedded {
namespace {

using Eigen::ArrayXd;
using Eigen::Index;

constexpr std::size_t kCacheLine = 64;
constexpr Index kLanes = kCacheLine / sizeof(double);
// So many rows a block leave at most a thirtieth of it unused.
constexpr std::size_t kRowsInBlock = 32;

// A mean so many times the deviations costs the product three digits; more is left to the
// definition. So are numbers whose squares are near the end of all numbers.
constexpr double kMostLopsided = 1e3;
constexpr double kGreatest = 1e140;
constexpr double kLeast = 1e-140;

std::size_t rounded_up(std::size_t number, std::size_t unit) {
  return (number + unit - 1) / unit * unit;
}

struct Shape {
  double length = 0.0;  // Of the series less its mean.
  bool needs_definition = false;
};

// Of a series that is not constant.
Shape shape_of(const ArrayXd& pnl) {
  // Scaled to a greatest value of 1, so that no square is lost or beyond all numbers.
  const double greatest = pnl.abs().maxCoeff();
  const ArrayXd scaled = pnl / greatest;
  const double whole = scaled.matrix().norm();
  const double deviating = (scaled - scaled.mean()).matrix().norm();
  return {deviating * greatest,
          !(deviating * kMostLopsided > whole) || greatest > kGreatest || greatest < kLeast};
}

// The matrix is read once from end to end, and what waits for it is the memory: a page ahead.
constexpr Index kReadAhead = 512;

// Sums lane by lane, so that the same numbers give the same bits wherever they stand.
double product(const double* left, const double* right, Index count) {
  using Lanes = Eigen::Array<double, kLanes, 1>;
  Lanes sum = Lanes::Zero();
  for (Index i = 0; i < count; i += kLanes) {
    __builtin_prefetch(right + i + kReadAhead);
    sum += Eigen::Map<const Lanes>(left + i) * Eigen::Map<const Lanes>(right + i);
  }
  return sum.sum();
}

}  // namespace

MemberSeries::MemberSeries(Index days)
    : days_(days),
      row_doubles_(rounded_up(static_cast<std::size_t>(days), kLanes)),
      row_bytes_(row_doubles_ * sizeof(double) +
                 rounded_up(static_cast<std::size_t>(days), kCacheLine)),
      day_tables_(std::make_shared<const DayTables>(days)),
      table_(days) {}

std::byte* MemberSeries::room_for_row() {
  if (!freed_rooms_.empty()) {
    std::byte* const room = freed_rooms_.back();
    freed_rooms_.pop_back();
    return room;
  }
  if (blocks_.empty() || used_of_last_block_ + row_bytes_ > blocks_.back().bytes()) {
    blocks_.emplace_back(row_bytes_ * kRowsInBlock);
    used_of_last_block_ = 0;
  }
  std::byte* const room = blocks_.back().data() + used_of_last_block_;
  used_of_last_block_ += row_bytes_;
  return room;
}

void MemberSeries::append(const ArrayXd& pnl) {
  const NormalScores scores(pnl, day_tables_);
  Row row;
  row.is_constant = scores.is_constant();
  if (!row.is_constant) {
    const Shape shape = shape_of(pnl);
    row.over_length = 1.0 / shape.length;
    row.needs_definition = shape.needs_definition;
    row.daily_sharpe = daily_sharpe(pnl);
  }
  std::byte* const room = room_for_row();
  auto* const values = reinterpret_cast<double*>(room);
  auto* const parts = reinterpret_cast<std::uint8_t*>(room + row_doubles_ * sizeof(double));
  std::copy(pnl.begin(), pnl.end(), values);
  table_.write_parts(scores, {parts, static_cast<std::size_t>(days_)});
  row.room = room;
  row.pnl = values;
  row.parts = parts;
  rows_.push_back(row);
}

void MemberSeries::remove(std::size_t row) {
  freed_rooms_.push_back(rows_[row].room);
  rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(row));
}

Eigen::Map<const ArrayXd> MemberSeries::pnl(std::size_t row) const {
  return {rows_[row].pnl, days_};
}

ComparedSignal MemberSeries::compared(const ArrayXd& pnl) const {
  ComparedSignal signal{pnl, ArrayXd::Zero(static_cast<Index>(row_doubles_)),
                        NormalScores(pnl, day_tables_),
                        std::vector<std::uint8_t>(static_cast<std::size_t>(days_))};
  table_.write_parts(signal.scores, signal.parts);
  if (signal.scores.is_constant()) return signal;
  signal.needs_definition = shape_of(pnl).needs_definition;
  if (signal.needs_definition) return signal;
  auto deviations = signal.unit.head(days_);
  deviations = pnl - pnl.mean();
  // Once more, so that what rounding has left of the mean does not meet that of a member.
  deviations -= deviations.mean();
  deviations /= deviations.matrix().norm();
  return signal;
}

std::vector<double> MemberSeries::correlations(const ComparedSignal& signal,
                                               std::span<const std::size_t> rows) const {
  std::vector<double> found;
  found.reserve(rows.size());
  for (const std::size_t i : rows) {
    const Row& row = rows_[i];
    if (signal.needs_definition || row.needs_definition) {
      found.push_back(correlation(signal, i));
    } else {
      const double sum = product(signal.unit.data(), row.pnl, static_cast<Index>(row_doubles_));
      found.push_back(std::min(std::abs(sum) * row.over_length, 1.0));
    }
  }
  return found;
}

double MemberSeries::correlation(const ComparedSignal& signal, std::size_t row) const {
  return std::abs(pearson_correlation(signal.pnl, pnl(row)));
}

double MemberSeries::daily_sharpe(const ArrayXd& pnl) {
  const double deviation = sample_deviation(pnl);
  return deviation > 0.0 ? mean_of(pnl) / deviation : 0.0;
}

bool MemberSeries::outdoes(double daily_sharpe, std::size_t row) const {
  const double lead = kClearLead / std::sqrt(static_cast<double>(days_));
  return daily_sharpe >= rows_[row].daily_sharpe + lead;
}

double MemberSeries::table_information(const ComparedSignal& signal, std::size_t row) const {
  // Of a constant series the order of the days is drawn, and says nothing.
  if (rows_[row].is_constant || signal.scores.is_constant()) return 0.0;
  return table_.information(signal.parts, parts_of(row));
}

double MemberSeries::finer_information(const ComparedSignal& signal, std::size_t row) const {
  if (rows_[row].is_constant || signal.scores.is_constant()) return 0.0;
  return table_.finer_information(signal.parts, parts_of(row));
}

double MemberSeries::neighbour_information(const ComparedSignal& signal, std::size_t row) const {
  return mutual_information(signal.scores, NormalScores(pnl(row), day_tables_));
}

std::optional<double> MemberSeries::neighbour_information_from(const ComparedSignal& signal,
                                                               std::size_t row,
                                                               double least) const {
  const ArrayXd guess = table_.information_of_days(signal.parts, parts_of(row));
  return mutual_information_from(signal.scores, NormalScores(pnl(row), day_tables_), least, guess);
}

}  // namespace varnholt::embedded
