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
// Sums of powers lose their digits where the values are far from zero. A fold may ask for centred
// values: less the first known value of the block in which the window ends. That one is in every
// window that has a result there (its last day is known, so the first known day of the block is
// not after it), and so the sum of the squares of what is left is at most as many times the sum of
// squared deviations as the window has days.
//
// In a fold every day waits for the one before it, so a single history leaves a processor idle.
// Histories do not wait for each other: kLanes of them are folded side by side, day by day. Where
// there are few instruments, a history is cut into strands of some blocks, each of which begins
// with the suffix of the block before it; the blocks lie where they would without strands, and the
// bits are the same. So they are where all values of two blocks are known, and nothing is asked of
// them one by one.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "hosts/embedded/vocabulary/lane_rows.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"
#include "hosts/embedded/vocabulary/panel_functions.hpp"
#include "hosts/embedded/vocabulary/strands.hpp"

namespace varnholt::embedded {

// Which values of a day are known: all of them, or those of a mask.
template <typename Vector>
struct AllKnown {
  using Number = Lanes<Vector>;
  [[nodiscard]] static const Number& or_else(const Number& value, double /*otherwise*/) {
    return value;
  }
  [[nodiscard]] static Number one() { return 1.0; }
};
template <typename Vector>
struct SomeKnown {
  using Number = Lanes<Vector>;
  LaneMask<Vector> mask;
  [[nodiscard]] Number or_else(const Number& value, double otherwise) const {
    return choose(mask, value, otherwise);
  }
  [[nodiscard]] Number one() const { return choose(mask, 1.0, Number(0.0)); }
};

// How many days of a window are known, and the divisions that come of it.
template <typename Vector>
struct DayCount {
  Lanes<Vector> days;
  Lanes<Vector> share;       // 1 / days
  Lanes<Vector> less_share;  // 1 / (days - 1)

  explicit DayCount(const Lanes<Vector>& known)
      : days(known), share(1.0 / known), less_share(1.0 / (known - 1.0)) {}
};

// What a result is made of, beside the state of the window.
template <typename Vector, std::size_t kInputs>
struct WindowEnd {
  using Values = std::array<Lanes<Vector>, kInputs>;
  const DayCount<Vector>& known;
  const Values& today;   // Centred where the fold asks for it.
  const Values& centre;  // What was taken off; 0 where the fold does not ask for it.
  double row = 0.0;      // The place of the day in its block.
};

// A fold over values of kInputs panels, of so many histories side by side:
//
//   kInputs, kIsCentred   of how many panels, and whether it wants centred values
//   State                 of lanes
//   lift(values, known, row)
//                         the state of one day; one that is not known must leave what it is merged
//                         with as it is. The row is the place of the day in its block, counted from
//                         the block in which the window ends: in the one before it is negative
//   merge(a, b)           the state of the days of a followed by those of b; associative
//   result(state, end)    of a window
template <typename Vector, typename Fold>
class RollingLanes {
 public:
  static constexpr std::size_t kInputs = Fold::kInputs;
  using Number = Lanes<Vector>;
  using Values = std::array<Number, kInputs>;
  using Panels = std::array<const Panel*, kInputs>;

  RollingLanes(const Panels& panels, const Window& window, const Fold& fold)
      : panels_(panels),
        fold_(fold),
        days_(panels.front()->rows()),
        block_days_(static_cast<std::size_t>(window.days)),
        least_known_(static_cast<double>(window.least_known)),
        all_days_(static_cast<double>(window.days)),
        full_(all_days_),
        chunk_blocks_((kChunkDays + block_days_ - 1) / block_days_),
        is_fetched_(kInputs > 1 && panels.front()->size() > kFewEntries),
        before_(chunk_blocks_ * block_days_),
        now_(chunk_blocks_ * block_days_),
        results_(chunk_blocks_ * block_days_),
        suffixes_(block_days_),
        suffix_known_(block_days_) {}

  void roll(Panel& result) {
    const auto columns = panels_.front()->cols();
    const std::vector<Strand> strands =
        strands_of(days_, columns, static_cast<Eigen::Index>(block_days_));
    find_first_known_days(columns);
    for (std::size_t first = 0; first < strands.size(); first += kLanes) {
      const std::size_t count = std::min(kLanes, strands.size() - first);
      roll_strands(std::span(strands).subspan(first, count), result);
    }
  }

 private:
  using State = typename Fold::State;

  // Days are read and written so many at a time, or one block where that is longer: a block of two
  // days does not fill a vector.
  static constexpr std::size_t kChunkDays = 16;

  // Two panels that fill the nearer caches are asked for ahead; it is not worth it for one.
  static constexpr Eigen::Index kFewEntries = 1 << 16;

  [[nodiscard]] static LaneMask<Vector> mask_of(const Values& values) {
    LaneMask<Vector> known = are_known(values[0]);
    for (std::size_t input = 1; input < kInputs; ++input)
      known = known & are_known(values[input]);
    return known;
  }

  [[nodiscard]] bool is_known(Eigen::Index day, Eigen::Index column) const {
    bool known = true;
    for (const Panel* const panel : panels_)
      known = known && !std::isnan(panel->data()[column * days_ + day]);
    return known;
  }

  // Of each column the first day on which all panels have a value.
  void find_first_known_days(Eigen::Index columns) {
    first_known_.clear();
    for (Eigen::Index column = 0; column < columns; ++column) {
      Eigen::Index day = 0;
      while (day < days_ && !is_known(day, column))
        ++day;
      first_known_.push_back(day);
    }
  }

  void roll_strands(std::span<const Strand> strands, Panel& result) {
    Eigen::Index blocks = 0;
    for (const Strand& strand : strands)
      blocks = std::max(blocks, strand.end_block - strand.first_block);
    const auto chunk = static_cast<Eigen::Index>(chunk_blocks_);
    bool was_whole = take_blocks(strands, -1, 1, last_block_of(now_));
    for (Eigen::Index first = 0; first < blocks; first += chunk) {
      std::swap(before_, now_);
      const bool is_whole = take_blocks(strands, first, chunk, &now_[0]);
      block_before_ = last_block_of(before_);
      block_now_ = &now_[0];
      block_results_ = &results_[0];
      for (Eigen::Index block = first; block < std::min(first + chunk, blocks); ++block) {
        was_whole = fold_block(strands, block, was_whole, is_whole);
        block_before_ = std::exchange(block_now_, block_now_ + block_days_);
        block_results_ += block_days_;
      }
      give_chunk(strands, first, result);
    }
  }

  // Tells whether all values of the block are known, which is sure where those of its chunk are.
  bool fold_block(std::span<const Strand> strands, Eigen::Index block, bool is_whole_before,
                  bool is_whole_chunk) {
    const bool is_whole = is_whole_chunk || (chunk_blocks_ > 1 && is_block_whole());
    if (is_whole_before && is_whole) {
      find_centre_of_whole();
      fold_whole();
    } else {
      find_centre();
      find_ready_rows(strands, block);
      fold_with_gaps();
    }
    return is_whole;
  }

  [[nodiscard]] bool is_block_whole() const {
    LaneMask<Vector> known = mask_of(block_now_[0]);
    for (std::size_t row = 1; row < block_days_; ++row)
      known = known & mask_of(block_now_[row]);
    return known.all();
  }

  [[nodiscard]] Values* last_block_of(LaneBuffer<Values>& chunk) const {
    return &chunk[(chunk_blocks_ - 1) * block_days_];
  }

  [[nodiscard]] Eigen::Index first_day_of(const Strand& strand, Eigen::Index block) const {
    return (strand.first_block + block) * static_cast<Eigen::Index>(block_days_);
  }

  // Where the lanes have some blocks in the panels, counted from the first of each strand.
  [[nodiscard]] LaneRows rows_of(std::span<const Strand> strands, Eigen::Index block,
                                 Eigen::Index blocks) const {
    LaneRows rows;
    for (std::size_t lane = 0; lane < strands.size(); ++lane) {
      const Eigen::Index first = first_day_of(strands[lane], block);
      const Eigen::Index end =
          std::min(first + blocks * static_cast<Eigen::Index>(block_days_), days_);
      // A strand that is shorter than the others goes on into the next one, to no purpose.
      rows.offsets.at(lane) = strands[lane].column * days_ + first;
      rows.counts.at(lane) =
          first < 0 ? 0 : static_cast<std::size_t>(std::max(end - first, Eigen::Index{0}));
    }
    return rows;
  }

  // Reads blocks of each strand into lanes, and tells whether all of their values are known. Days
  // before the first one are not; those behind the last have no result, so a known value stands
  // there.
  bool take_blocks(std::span<const Strand> strands, Eigen::Index block, Eigen::Index blocks,
                   Values* into) {
    const LaneRows rows = rows_of(strands, block, blocks);
    bool is_whole = true;
    for (std::size_t input = 0; input < kInputs; ++input) {
      const bool is_known = take_rows<Vector>(panels_[input]->data(), rows,
                                              block < 0 ? kUnknown : 0.0, &(*into)[input], kInputs,
                                              static_cast<std::size_t>(blocks) * block_days_);
      is_whole = is_whole && is_known;
      if (is_fetched_)
        fetch_rows(panels_[input]->data(), rows, static_cast<std::size_t>(blocks) * block_days_);
    }
    return is_whole;
  }

  void give_chunk(std::span<const Strand> strands, Eigen::Index block, Panel& result) {
    LaneRows rows = rows_of(strands, block, static_cast<Eigen::Index>(chunk_blocks_));
    for (std::size_t lane = 0; lane < strands.size(); ++lane) {
      const Strand& strand = strands[lane];
      const Eigen::Index left =
          std::max<Eigen::Index>(0, strand.end_block - strand.first_block - block);
      rows.counts.at(lane) =
          std::min(rows.counts.at(lane), static_cast<std::size_t>(left) * block_days_);
    }
    give_rows<Vector>(&results_[0], rows, result.data(), chunk_blocks_ * block_days_);
  }

  void find_centre_of_whole() {
    if constexpr (Fold::kIsCentred) centre_ = block_now_[0];
  }

  void find_centre() {
    if constexpr (Fold::kIsCentred) {
      for (Number& number : centre_)
        number = 0.0;
      for (std::size_t row = block_days_; row-- > 0;) {
        const LaneMask<Vector> known = mask_of(block_now_[row]);
        for (std::size_t input = 0; input < kInputs; ++input)
          centre_[input] = choose(known, block_now_[row][input], centre_[input]);
      }
    }
  }

  // Of each lane the first row of the block that may have a result.
  void find_ready_rows(std::span<const Strand> strands, Eigen::Index block) {
    for (std::size_t lane = 0; lane < strands.size(); ++lane) {
      const auto known = first_known_[static_cast<std::size_t>(strands[lane].column)];
      const auto ready = known + static_cast<Eigen::Index>(block_days_) - 1;
      ready_.set(lane, static_cast<double>(ready - first_day_of(strands[lane], block)));
    }
  }

  [[nodiscard]] Values centred(const Values& values) const {
    if constexpr (!Fold::kIsCentred) {
      return values;
    } else {
      Values result;
      for (std::size_t input = 0; input < kInputs; ++input)
        result[input] = values[input] - centre_[input];
      return result;
    }
  }

  [[nodiscard]] double row_before(std::size_t row) const {
    return static_cast<double>(row) - static_cast<double>(block_days_);
  }

  // The results of a block behind another, all of whose values are known.
  [[gnu::flatten]] void fold_whole() {
    const AllKnown<Vector> known;
    const std::size_t last = block_days_ - 1;
    State suffix = fold_.lift(centred(block_before_[last]), known, row_before(last));
    suffixes_[last] = suffix;
    for (std::size_t row = last; row-- > 1;) {
      suffix = fold_.merge(fold_.lift(centred(block_before_[row]), known, row_before(row)), suffix);
      suffixes_[row] = suffix;
    }
    Values today = centred(block_now_[0]);
    State prefix = fold_.lift(today, known, 0.0);
    for (std::size_t row = 0; row < last; ++row) {
      const auto place = static_cast<double>(row);
      const State window = fold_.merge(suffixes_[row + 1], prefix);
      block_results_[row] = finite_or_nan(fold_.result(window, {full_, today, centre_, place}));
      today = centred(block_now_[row + 1]);
      prefix = fold_.merge(prefix, fold_.lift(today, known, place + 1.0));
    }
    const auto place = static_cast<double>(last);
    block_results_[last] = finite_or_nan(fold_.result(prefix, {full_, today, centre_, place}));
  }

  // Likewise where some are not known.
  [[gnu::flatten]] void fold_with_gaps() {
    const std::size_t last = block_days_ - 1;
    SomeKnown<Vector> known{mask_of(block_before_[last])};
    State suffix = fold_.lift(centred(block_before_[last]), known, row_before(last));
    Number count = known.one();
    suffixes_[last] = suffix;
    suffix_known_[last] = count;
    for (std::size_t row = last; row-- > 1;) {
      known.mask = mask_of(block_before_[row]);
      suffix = fold_.merge(fold_.lift(centred(block_before_[row]), known, row_before(row)), suffix);
      count = count + known.one();
      suffixes_[row] = suffix;
      suffix_known_[row] = count;
    }
    known.mask = mask_of(block_now_[0]);
    Values today = centred(block_now_[0]);
    State prefix = fold_.lift(today, known, 0.0);
    count = known.one();
    for (std::size_t row = 0; row < last; ++row) {
      const auto place = static_cast<double>(row);
      const State window = fold_.merge(suffixes_[row + 1], prefix);
      block_results_[row] =
          result_with_gaps(window, known, suffix_known_[row + 1] + count, today, place);
      known.mask = mask_of(block_now_[row + 1]);
      today = centred(block_now_[row + 1]);
      prefix = fold_.merge(prefix, fold_.lift(today, known, place + 1.0));
      count = count + known.one();
    }
    block_results_[last] = result_with_gaps(prefix, known, count, today, static_cast<double>(last));
  }

  [[nodiscard]] Number result_with_gaps(const State& window, const SomeKnown<Vector>& known,
                                        const Number& count, const Values& today,
                                        double row) const {
    const LaneMask<Vector> has_result =
        known.mask & (least_known_ <= count) & (ready_ <= Number(row));
    if ((count == all_days_).all())
      return choose(has_result, finite_or_nan(fold_.result(window, {full_, today, centre_, row})),
                    kUnknown);
    const DayCount<Vector> days(count);
    return choose(has_result, finite_or_nan(fold_.result(window, {days, today, centre_, row})),
                  kUnknown);
  }

  Panels panels_;
  const Fold& fold_;
  Eigen::Index days_;
  std::size_t block_days_;
  Number least_known_;
  Number all_days_;
  DayCount<Vector> full_;  // Of a window that is known throughout.
  std::vector<Eigen::Index> first_known_;
  std::size_t chunk_blocks_;
  bool is_fetched_;
  // Two chunks of each strand, one after the other: their values and the results of the second.
  LaneBuffer<Values> before_;
  LaneBuffer<Values> now_;
  LaneBuffer<Number> results_;
  // The suffixes of the block before, with what is known of them.
  LaneBuffer<State> suffixes_;
  LaneBuffer<Number> suffix_known_;
  // The block that is being folded, and the one before it.
  const Values* block_before_ = nullptr;
  const Values* block_now_ = nullptr;
  Number* block_results_ = nullptr;
  Values centre_{};
  Number ready_{};
};

}  // namespace varnholt::embedded
