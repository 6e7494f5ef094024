#include "hosts/embedded/vocabulary/vocabulary.hpp"

#include <algorithm>
#include <string>

#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kCross = "cross";
constexpr std::string_view kTimeSeries = "ts";
constexpr std::string_view kArithmetic = "arith";
constexpr std::string_view kComparison = "comparison";

// Returns and what is made of them carry most known daily effects; raw levels say little before
// something is done to them, so they are chosen less often.
std::vector<FeatureEntry> all_features(const MarketData& data) {
  std::vector<FeatureEntry> features = {{"close", 1.0}, {"returns", 2.0}, {"log_returns", 1.0}};
  if (data.open) features.push_back({"open", 0.5});
  if (data.high) features.push_back({"high", 0.5});
  if (data.low) features.push_back({"low", 0.5});
  if (data.volume) features.push_back({"volume", 1.0});
  if (data.high && data.low) features.push_back({"range", 1.0});
  if (data.volume) features.push_back({"dollar_volume", 0.5});
  return features;
}

std::vector<FunctionEntry> all_functions() {
  return {
      {"cross_rank", kCross, 2.0, cross_rank},
      {"cross_zscore", kCross, 2.0, cross_zscore},
      {"cross_demean", kCross, 1.0, cross_demean},
      {"cross_scale", kCross, 0.5, cross_scale},
      {"ts_mean", kTimeSeries, 2.0, ts_mean},
      {"ts_std", kTimeSeries, 1.0, ts_std},
      {"ts_zscore", kTimeSeries, 2.0, ts_zscore},
      {"ts_rank", kTimeSeries, 1.5, ts_rank},
      {"ts_min", kTimeSeries, 0.5, ts_min},
      {"ts_max", kTimeSeries, 0.5, ts_max},
      {"ts_delta", kTimeSeries, 2.0, ts_delta},
      {"ts_sum", kTimeSeries, 1.0, ts_sum},
      {"ts_decay", kTimeSeries, 1.5, ts_decay},
      {"ts_correlation", kTimeSeries, 1.0, ts_correlation},
      {"ts_covariance", kTimeSeries, 0.5, ts_covariance},
      {"arith_add", kArithmetic, 1.0, arith_add},
      {"arith_sub", kArithmetic, 1.5, arith_sub},
      {"arith_mul", kArithmetic, 1.0, arith_mul},
      {"arith_div", kArithmetic, 1.0, arith_div},
      {"arith_neg", kArithmetic, 1.0, arith_neg},
      {"arith_abs", kArithmetic, 0.5, arith_abs},
      {"arith_sign", kArithmetic, 0.5, arith_sign},
      {"arith_log", kArithmetic, 0.5, arith_log},
      {"arith_tanh", kArithmetic, 0.5, arith_tanh},
      {"arith_min", kArithmetic, 0.5, arith_min},
      {"arith_max", kArithmetic, 0.5, arith_max},
      {"comparison_gt", kComparison, 0.5, comparison_gt},
      {"comparison_lt", kComparison, 0.5, comparison_lt},
  };
}

template <typename Entry>
const Entry* find_entry(const std::vector<Entry>& entries, std::string_view name) {
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [name](const Entry& entry) { return entry.name == name; });
  return found == entries.end() ? nullptr : &*found;
}

}  // namespace

const FeatureEntry* Vocabulary::find_feature(std::string_view name) const {
  return find_entry(features, name);
}

const FunctionEntry* Vocabulary::find_function(std::string_view name) const {
  return find_entry(functions, name);
}

std::optional<int> Vocabulary::find_window(std::string_view text) const {
  for (const int window : windows) {
    if (text == std::to_string(window)) return window;
  }
  return std::nullopt;
}

Vocabulary make_vocabulary(const MarketData& data) {
  // Two days to half a year; each step is about half as long again as the one before it.
  return {all_features(data), all_functions(), {2, 3, 5, 10, 15, 20, 40, 60, 120}};
}

}  // namespace varnholt::embedded
