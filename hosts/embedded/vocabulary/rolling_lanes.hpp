// Rolling aggregates in constant time per day, without subtraction, of several histories at once.
//
// The usual running sum adds the value that comes in and subtracts the one that goes out; its
// rounding errors pile up over the whole history, and a value of 1e12 leaves an error for ever.
// Here the days are cut into blocks of one window's length. A window then covers the end of one
// block and the beginning of the next, and its aggregate is the fold of a suffix of the former with
// a prefix of the latter, both built one value at a time (the method of van Herk, 1992, and of Gil
// and Werman, 1993, for running minima; it serves for every associative fold). Nothing outside the
// window enters its aggregate, so neither a NaN nor a rounding error outlives its window, and
// nothing after the last day of the window does either.
//
// In a fold every day waits for the one before it, so a single history leaves a processor idle.
// Histories do not wait for each other: kLanes of them are folded side by side, day by day. Where
// there are few instruments, a history is cut into strands of some blocks, each of which begins
// with the suffix of the block before it; the blocks lie where they would without strands, and the
// bits are the same.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <span>
#include <vector>

#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {

// Some consecutive blocks of one column.
struct Strand {
  Eigen::Index column = 0;
  Eigen::Index first_block = 0;
  Eigen::Index end_block = 0;
};

// All blocks of a panel, in strands of nearly equal lengths, so many that the lanes are filled.
[[nodiscard]] std::vector<Strand> strands_of(Eigen::Index days, Eigen::Index columns,
                                             Eigen::Index window);

// A fold over values of kInputs panels, of so many histories side by side:
//
//   State                 of lanes
//   lift(values, day)     the state of one day; one that is not known must leave what it is merged
//                         with as it is
//   merge(a, b)           the state of the days of a followed by those of b; associative
//   result(state, known, values, day)
//                         of a window with so many known days that ends with the values of that day
template <std::size_t kInputs, typename Fold>
class RollingLanes {
 public:
  using Values = std::array<Lanes, kInputs>;
  using Panels = std::array<const Panel*, kInputs>;

  RollingLanes(const Panels& panels, const Window& window, const Fold& fold)
      : panels_(panels),
        fold_(fold),
        days_(panels.front()->rows()),
        block_days_(static_cast<std::size_t>(window.days)),
        least_known_(static_cast<double>(window.least_known)),
        values_(block_days_),
        suffixes_(block_days_),
        results_(block_days_) {}

  void roll(Panel& result) {
    const auto columns = panels_.front()->cols();
    const std::vector<Strand> strands =
        strands_of(days_, columns, static_cast<Eigen::Index>(block_days_));
    const std::vector<Eigen::Index> first_known = first_known_days(columns);
    for (std::size_t first = 0; first < strands.size(); first += kLanes) {
      const std::size_t count = std::min(kLanes, strands.size() - first);
      roll_strands(std::span(strands).subspan(first, count), first_known, result);
    }
  }

 private:
  using State = typename Fold::State;

  // What a fold has of some days.
  struct Folded {
    State state;
    Lanes known;
  };

  static LaneMask all_known(const Values& values) {
    LaneMask known = are_known(values.front());
    for (const Lanes& value : values)
      known = known & are_known(value);
    return known;
  }

  // Of each column the first day on which all panels have a value.
  [[nodiscard]] std::vector<Eigen::Index> first_known_days(Eigen::Index columns) const {
    std::vector<Eigen::Index> first_known;
    first_known.reserve(static_cast<std::size_t>(columns));
    for (Eigen::Index column = 0; column < columns; ++column) {
      const auto is_known_on = [&](Eigen::Index day) {
        return std::none_of(panels_.begin(), panels_.end(),
                            [&](const Panel* panel) { return std::isnan((*panel)(day, column)); });
      };
      Eigen::Index day = 0;
      while (day < days_ && !is_known_on(day))
        ++day;
      first_known.push_back(day);
    }
    return first_known;
  }

  void roll_strands(std::span<const Strand> strands, const std::vector<Eigen::Index>& first_known,
                    Panel& result) {
    Eigen::Index blocks = 0;
    for (const Strand& strand : strands)
      blocks = std::max(blocks, strand.end_block - strand.first_block);
    take_block(strands, -1);
    fold_suffixes();
    for (Eigen::Index block = 0; block < blocks; ++block) {
      take_block(strands, block);
      for (std::size_t lane = 0; lane < strands.size(); ++lane) {
        const auto known = first_known[static_cast<std::size_t>(strands[lane].column)];
        const auto ready = known + static_cast<Eigen::Index>(block_days_) - 1;
        ready_.set(lane, static_cast<double>(ready) - first_day_.get(lane));
      }
      fold_prefixes();
      give_block(strands, block, result);
      if (block + 1 < blocks) fold_suffixes();
    }
  }

  [[nodiscard]] Eigen::Index first_day_of(const Strand& strand, Eigen::Index block) const {
    return (strand.first_block + block) * static_cast<Eigen::Index>(block_days_);
  }

  // Reads a block of each strand, counted from its first, into the lanes. Days that are not there
  // are not known.
  void take_block(std::span<const Strand> strands, Eigen::Index block) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      const bool has_strand = lane < strands.size();
      const Eigen::Index first = has_strand ? first_day_of(strands[lane], block) : days_;
      const Eigen::Index there = first < 0 ? 0 : std::max<Eigen::Index>(days_ - first, 0);
      const std::size_t days = std::min(block_days_, static_cast<std::size_t>(there));
      first_day_.set(lane, static_cast<double>(first));
      for (std::size_t input = 0; input < kInputs; ++input) {
        const Panel& panel = *panels_[input];
        const Eigen::Index column = has_strand ? strands[lane].column : 0;
        const double* const from = panel.data() + column * days_ + (days > 0 ? first : 0);
        for (std::size_t i = 0; i < days; ++i)
          values_[i][input].set(lane, from[i]);
        for (std::size_t i = days; i < block_days_; ++i)
          values_[i][input].set(lane, kUnknown);
      }
    }
  }

  void give_block(std::span<const Strand> strands, Eigen::Index block, Panel& result) const {
    for (std::size_t lane = 0; lane < strands.size(); ++lane) {
      const Strand& strand = strands[lane];
      if (strand.first_block + block >= strand.end_block) continue;
      const Eigen::Index first = first_day_of(strand, block);
      const std::size_t days = std::min(block_days_, static_cast<std::size_t>(days_ - first));
      double* const to = result.data() + strand.column * days_ + first;
      for (std::size_t i = 0; i < days; ++i)
        to[i] = results_[i].get(lane);
    }
  }

  [[nodiscard]] Folded lifted(std::size_t i) const {
    return {fold_.lift(values_[i], day_of(i)), one_where(all_known(values_[i]))};
  }

  [[nodiscard]] Folded merged(const Folded& a, const Folded& b) const {
    return {fold_.merge(a.state, b.state), a.known + b.known};
  }

  // suffixes_[i]: the fold of the block from its day i to its end.
  void fold_suffixes() {
    const std::size_t last = block_days_ - 1;
    suffixes_[last] = lifted(last);
    for (std::size_t i = last; i-- > 0;)
      suffixes_[i] = merged(lifted(i), suffixes_[i + 1]);
  }

  // The results of the block, of its prefixes and the suffixes of the one before.
  void fold_prefixes() {
    const std::size_t last = block_days_ - 1;
    Folded prefix = lifted(0);
    for (std::size_t i = 0; i < last; ++i) {
      results_[i] = result_of(merged(suffixes_[i + 1], prefix), i);
      prefix = merged(prefix, lifted(i + 1));
    }
    results_[last] = result_of(prefix, last);
  }

  [[nodiscard]] Lanes result_of(const Folded& window, std::size_t i) const {
    const LaneMask has_result =
        all_known(values_[i]) & (least_known_ <= window.known) & (ready_ <= static_cast<double>(i));
    const Lanes result = fold_.result(window.state, window.known, values_[i], day_of(i));
    return choose(has_result, finite_or_nan(result), kUnknown);
  }

  [[nodiscard]] Lanes day_of(std::size_t i) const { return first_day_ + static_cast<double>(i); }

  Panels panels_;
  const Fold& fold_;
  Eigen::Index days_;
  std::size_t block_days_;
  Lanes least_known_;
  // Of the blocks at hand: the values, the suffixes of the blocks before, and the results.
  std::vector<Values> values_;
  std::vector<Folded> suffixes_;
  std::vector<Lanes> results_;
  Lanes first_day_{};
  Lanes ready_{};  // The first day of the block that may have a result, counted from its first.
};

// For divisions by a number of days.
[[nodiscard]] inline Lanes at_least_one(const Lanes& count) {
  return choose(count < 1.0, 1.0, count);
}

// The panel of a fold over windows of these panels, by the rules of panel_functions.hpp.
template <std::size_t kInputs, typename Fold>
Panel rolled(const std::array<const Panel*, kInputs>& panels, const Window& window,
             const Fold& fold) {
  require_window(window.days);
  for (const Panel* panel : panels)
    require_same_shape(*panels.front(), *panel);
  const Panel& x = *panels.front();
  Panel result(x.rows(), x.cols());
  if (window.days > x.rows()) {
    result.setConstant(kUnknown);
  } else {
    RollingLanes<kInputs, Fold>(panels, window, fold).roll(result);
  }
  return result;
}

}  // namespace varnholt::embedded
