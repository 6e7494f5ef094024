// The daily PnL of a pool's members, side by side: what a new signal is compared with at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/signal_pool/normal_scores.hpp"
#include "hosts/embedded/signal_pool/part_table.hpp"
#include "hosts/embedded/system/large_block.hpp"

namespace varnholt::embedded {

// A signal made ready to be compared with members of as many days.
struct ComparedSignal {
  Eigen::ArrayXd pnl;
  // The PnL less its mean, of length 1, with zeros up to a whole row of the matrix; all zeros
  // where it is constant or needs the definition.
  Eigen::ArrayXd unit;
  NormalScores scores;
  std::vector<std::uint8_t> parts;
  // The product would lose digits: the PnL is nearly constant, or its squares are beyond numbers.
  bool needs_definition = false;
};

// All series have equally many days. Each row lies in large blocks that children read without a
// copy: 8 bytes a day for the PnL and one for its parts (part_table.hpp), so that a member costs
// little more than its PnL. What a row holds is never moved.
class MemberSeries {
 public:
  explicit MemberSeries(Eigen::Index days);

  [[nodiscard]] Eigen::Index days() const noexcept { return days_; }
  [[nodiscard]] std::size_t size() const noexcept { return rows_.size(); }
  // Of the memory of its rows, as far as it is touched.
  [[nodiscard]] std::size_t bytes() const noexcept { return rows_.size() * row_bytes_; }

  // The PnL must be finite and of days() entries.
  void append(const Eigen::ArrayXd& pnl);
  // Those behind it have a lower number then. Its memory serves the next that is appended.
  void remove(std::size_t row);
  [[nodiscard]] Eigen::Map<const Eigen::ArrayXd> pnl(std::size_t row) const;

  [[nodiscard]] ComparedSignal compared(const Eigen::ArrayXd& pnl) const;

  // The absolute correlations with these rows, by one product of the matrix: those of
  // pearson_correlation() up to kProductError.
  [[nodiscard]] std::vector<double> correlations(const ComparedSignal& signal,
                                                 std::span<const std::size_t> rows) const;
  static constexpr double kProductError = 1e-9;

  // As the definition has it: the absolute value of pearson_correlation(), to the last bit.
  [[nodiscard]] double correlation(const ComparedSignal& signal, std::size_t row) const;

  // The mean of a day over the standard deviation; 0 of a constant PnL.
  [[nodiscard]] double daily_sharpe(std::size_t row) const { return rows_[row].daily_sharpe; }
  // The same of a signal, and whether it is so much more than a row's that it takes its place.
  [[nodiscard]] static double daily_sharpe(const Eigen::ArrayXd& pnl);
  [[nodiscard]] bool outdoes(double daily_sharpe, std::size_t row) const;
  // So many standard errors of a daily Sharpe ratio, 1 / sqrt(days), must lie between the two: that
  // of the difference of two signals that correlate about 0.9. By less the one is not known to be
  // the better, and members would come and go.
  static constexpr double kClearLead = 0.5;

  // The mutual information with a row: from the table of equal parts or the finer one, or by
  // neighbours.
  [[nodiscard]] double table_information(const ComparedSignal& signal, std::size_t row) const;
  [[nodiscard]] double finer_information(const ComparedSignal& signal, std::size_t row) const;
  [[nodiscard]] double neighbour_information(const ComparedSignal& signal, std::size_t row) const;
  // Nothing where it is sure to be below `least`.
  [[nodiscard]] std::optional<double> neighbour_information_from(const ComparedSignal& signal,
                                                                 std::size_t row,
                                                                 double least) const;

 private:
  struct Row {
    std::byte* room = nullptr;
    const double* pnl = nullptr;
    const std::uint8_t* parts = nullptr;
    // Over the length of the PnL less its mean; 0 for a constant one.
    double over_length = 0.0;
    double daily_sharpe = 0.0;
    bool is_constant = false;
    bool needs_definition = false;  // As of a signal.
  };

  [[nodiscard]] std::byte* room_for_row();
  [[nodiscard]] std::span<const std::uint8_t> parts_of(std::size_t row) const {
    return {rows_[row].parts, static_cast<std::size_t>(days_)};
  }

  Eigen::Index days_;
  std::size_t row_doubles_;  // The days, up to a whole line of the cache.
  std::size_t row_bytes_;
  std::shared_ptr<const DayTables> day_tables_;
  PartTable table_;
  std::vector<LargeBlock> blocks_;
  std::size_t used_of_last_block_ = 0;
  std::vector<std::byte*> freed_rooms_;
  std::vector<Row> rows_;
};

}  // namespace varnholt::embedded
