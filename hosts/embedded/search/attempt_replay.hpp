// One recorded attempt again, alone: the same graph on the same prices, days and costs, in this
// process and without a search.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/market/market_data.hpp"
#include "hosts/embedded/store/attempt_table.hpp"
#include "hosts/embedded/store/store_records.hpp"

namespace varnholt::embedded {

// Two figures are equal when they differ by at most this fraction of the recorded one, or of 1
// where that is smaller. On the machine of the run they are the same to the last digit; another
// machine's mathematical functions may round otherwise.
inline constexpr double kReplayRounding = 1e-9;

// One statistic. Absent where the recorded attempt, or the one of now, has none.
struct ReplayedFigure {
  std::string name;
  std::optional<double> recorded;
  std::optional<double> replayed;
  bool is_equal = false;
};

struct Replay {
  // In the order of the statistics; empty where neither has any.
  std::vector<ReplayedFigure> figures;
  // What the backtest of now failed with; empty where it did not fail.
  std::string failure;
  // Whether all of it is as it was recorded; absent where no statistics were recorded and the
  // backtest of now gives some, so that there is nothing to compare with.
  std::optional<bool> is_equal;
  double seconds = 0.0;
};

// Evaluates the graph on the days that the run saw of these prices, which must be the run's own,
// and compares with the statistics that were recorded ("null" for none). Where none were recorded
// and the backtest fails again, both are equal. genetic::ValueError for stored texts that are no
// JSON.
[[nodiscard]] Replay replay_attempt(const AttemptRecord& attempt, const RunRecord& run,
                                    const std::string& recorded_statistics_json,
                                    const MarketData& prices);

}  // namespace varnholt::embedded
