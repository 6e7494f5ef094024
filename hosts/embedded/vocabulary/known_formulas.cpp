#include "hosts/embedded/vocabulary/known_formulas.hpp"

#include <array>

namespace varnholt::embedded {
namespace {

constexpr auto kFormulas = std::to_array<KnownFormula>({
    {"day_reversal", "-cross_zscore(returns)", "what rose most today gives some of it back"},
    {"week_reversal", "-cross_rank(ts_sum(returns, 5))", "the same over a week"},
    {"month_reversal", "-cross_rank(ts_sum(returns, 20))", "the same over a month"},
    {"momentum", "cross_rank(ts_sum(returns, 120))", "what rose for half a year goes on rising"},
    {"momentum_with_gap", "cross_rank(ts_sum(returns, 120) - ts_sum(returns, 20))",
     "the same without the last month, which reverses"},
    {"steady_momentum", "cross_rank(ts_mean(returns, 60) / ts_std(returns, 60))",
     "what rose in small steps goes on sooner than what jumped"},
    {"near_high", "cross_rank(close / ts_max(close, 120))",
     "prices near their high are held back, and go on"},
    {"averages_cross", "cross_rank(ts_mean(close, 20) / ts_mean(close, 120))",
     "a short average above a long one tells a trend"},
    {"below_average", "-cross_rank(close / ts_mean(close, 60))",
     "a price comes back to its average"},
    {"outside_band", "-cross_zscore(ts_zscore(close, 20))",
     "a price far from its average, in its own spread, comes back"},
    {"own_trend", "arith_tanh(ts_sum(returns, 120) / ts_std(returns, 20))",
     "an instrument follows its own trend, whatever the others do"},
    {"own_reversal", "-arith_tanh(ts_zscore(returns, 20))",
     "an unusual day of its own is taken back, whatever the others do"},
    {"low_volatility", "-cross_rank(ts_std(returns, 60))", "quiet instruments earn more than due"},
    {"calming", "-cross_rank(ts_std(returns, 10) / ts_std(returns, 60))",
     "what has become quieter than it was is bought again"},
    {"lottery", "-cross_rank(ts_max(returns, 20))",
     "what had one great day is dear to those who gamble"},
    {"skewness", "-cross_rank(ts_skew(returns, 60))", "the same, by the skewness of its days"},
    {"attention", "cross_rank(volume / ts_mean(volume, 20))", "much volume draws buyers"},
    {"growing_volume", "cross_rank(ts_mean(volume, 5) / ts_mean(volume, 60))",
     "volume that grows over weeks tells of interest"},
    {"reversal_on_volume", "-cross_rank(returns * (volume / ts_mean(volume, 20)))",
     "a move on much volume was pressed, and comes back"},
    {"illiquidity", "cross_rank(ts_mean(arith_abs(returns) / dollar_volume, 20))",
     "what moves by little money has to pay for it"},
    {"price_with_volume", "-cross_rank(ts_correlation(close, volume, 10))",
     "a rise on growing volume is near its end"},
    {"ranks_together", "-ts_correlation(cross_rank(close), cross_rank(volume), 20)",
     "the same, by the places among the others"},
    {"close_in_day", "-cross_rank((close - low) / (high - low))",
     "a close near the day's high was pressed up"},
    {"close_in_month",
     "-cross_rank((close - ts_min(low, 20)) / (ts_max(high, 20) - ts_min(low, 20)))",
     "the same within the range of a month"},
    {"wide_days", "-cross_rank(range / ts_mean(range, 20))", "an unusually wide day is uneasy"},
    // Without a function for it, the close of the day before is what two days have beside today.
    {"overnight_gap", "-cross_rank(open / (ts_sum(close, 2) - close))",
     "a gap at the open is closed"},
    {"within_day", "-cross_rank((close - open) / open)", "what rose since the open gives it back"},
    {"below_vwap", "-cross_rank(close / vwap)", "a close above what was paid on the day falls"},
    {"small_size", "-cross_rank(cap)", "small companies earn more"},
});

}  // namespace

std::span<const KnownFormula> known_formulas() {
  return kFormulas;
}

}  // namespace varnholt::embedded
