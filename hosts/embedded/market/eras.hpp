// Eras: which days of a history the search may see, and which it never sees.
//
// The calendar. Of D days the last H are the hold-out: those from a date on, or, where none is
// given, round(holdout * D) of them, halves upwards. The T = D - H days before it are the train
// days. They fall into `train` eras, of which era
// k = 1, 2, ... ends before day floor(k * T / train): their lengths differ by one day at most.
//
//   |--- era 1 ---|--- era 2 ---|--- era 3 ---|------ hold-out ------|
//   0                                         T                      D
//
// The window expands: a search in era k sees the days from the first up to the end of era k, and
// nothing after. So era 2 is searched with the knowledge of era 1, and every search is judged on
// the same hold-out. Features look back as far as the history goes, never across its end.
#pragma once

#include <optional>
#include <stdexcept>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/market/calendar_date.hpp"
#include "hosts/embedded/market/market_data.hpp"

namespace varnholt::embedded {

// The fewest days of an era and of the hold-out: a month of trading. A Sharpe ratio over fewer days
// means nothing.
inline constexpr Eigen::Index kMinimumEraDays = 20;

inline constexpr int kLargestEraCount = 1000;

struct EraSettings {
  int train = 3;                // Eras before the hold-out: 1 to kLargestEraCount.
  double holdout = 0.25;        // The hold-out's share of all days: above 0 and below 1.
  std::optional<int> era = {};  // The era that is searched, 1 to `train`; the last one when absent.
  // The first day that may belong to the hold-out, in place of its share: days that are added to
  // the history then move nothing.
  std::optional<Date> holdout_from = {};
};

// The days first_day .. end_day - 1, counted from 0, and the dates of the first and the last one.
struct DaySpan {
  Eigen::Index first_day = 0;
  Eigen::Index end_day = 0;
  Date first_date;
  Date last_date;

  [[nodiscard]] Eigen::Index day_count() const { return end_day - first_day; }
};

// A history that cannot be split as requested. The text names the figures and the remedy.
class EraError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// How a history is split. Made by split_eras.
struct EraPlan {
  std::vector<DaySpan> train;  // In order, without a gap; the first one begins with day 0.
  DaySpan holdout;             // From the end of the last train era to the end of the history.
  int era = 0;                 // The era that is searched, counted from 1.

  [[nodiscard]] Eigen::Index train_days() const { return holdout.first_day; }
  // The era that is searched.
  [[nodiscard]] const DaySpan& searched() const;
  // The days that a search in `era` sees: 0 .. seen_days() - 1. MarketData::first_days of as many
  // is all that it may be given.
  [[nodiscard]] Eigen::Index seen_days() const;
};

// The split of a history with these dates (ascending, each once). EraError for settings out of
// range, and for a history so short that an era or the hold-out has fewer than kMinimumEraDays.
[[nodiscard]] EraPlan split_eras(const std::vector<Date>& dates, const EraSettings& settings);

}  // namespace varnholt::embedded
