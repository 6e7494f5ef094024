#include "hosts/embedded/vocabulary/vocabulary.hpp"

#include <algorithm>
#include <array>
#include <string>

#include "hosts/embedded/vocabulary/panel_functions.hpp"

namespace varnholt::embedded {
namespace {

constexpr std::string_view kCross = "cross";
constexpr std::string_view kTimeSeries = "ts";
constexpr std::string_view kArithmetic = "arith";
constexpr std::string_view kComparison = "comparison";

// A feature, and whether the market data hold what it is made of.
struct FeatureRow {
  FeatureEntry entry;
  bool (*is_there)(const MarketData&) = nullptr;
};

bool always(const MarketData& /*data*/) {
  return true;
}
bool has_open(const MarketData& data) {
  return data.open.has_value();
}
bool has_high(const MarketData& data) {
  return data.high.has_value();
}
bool has_low(const MarketData& data) {
  return data.low.has_value();
}
bool has_volume(const MarketData& data) {
  return data.volume.has_value();
}
bool has_range(const MarketData& data) {
  return has_high(data) && has_low(data);
}

// Returns and what is made of them carry most known daily effects; raw levels say little before
// something is done to them, so they are chosen less often.
constexpr auto kFeatures = std::to_array({
    FeatureRow{{"close", 1.0, "the close, as it stands in the file"}, always},
    FeatureRow{{"returns", 2.0, "close(t) / close(t-1) - 1; both days must be known"}, always},
    FeatureRow{{"log_returns", 1.0, "ln(close(t) / close(t-1)); both days must be known"}, always},
    FeatureRow{{"open", 0.5, "the open, as it stands in the file"}, has_open},
    FeatureRow{{"high", 0.5, "the high, as it stands in the file"}, has_high},
    FeatureRow{{"low", 0.5, "the low, as it stands in the file"}, has_low},
    FeatureRow{{"volume", 1.0, "the volume, as it stands in the file"}, has_volume},
    FeatureRow{{"range", 1.0, "(high - low) / close"}, has_range},
    FeatureRow{{"dollar_volume", 0.5, "close * volume"}, has_volume},
});

// What several functions say in the same words.
constexpr std::string_view kConstantDay = "the whole day, where n < 2 or the values are constant";
constexpr std::string_view kConstantWindow = "the window is constant";
constexpr std::string_view kOneDayWindow = "the window is one day";
constexpr std::string_view kSharedPlaces = "equal values share the mean of their places";

std::vector<FeatureEntry> features_of(const MarketData& data) {
  std::vector<FeatureEntry> features;
  for (const FeatureRow& row : kFeatures) {
    if (row.is_there(data)) features.push_back(row.entry);
  }
  return features;
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

std::vector<FeatureEntry> all_features() {
  std::vector<FeatureEntry> features;
  features.reserve(kFeatures.size());
  for (const FeatureRow& row : kFeatures) {
    features.push_back(row.entry);
  }
  return features;
}

// In the texts of the functions across instruments n is the number of instruments known that day,
// in those over time the window in days.
std::vector<FunctionEntry> all_functions() {
  return {
      {"cross_rank",
       kCross,
       2.0,
       cross_rank,
       {"(place of x among the day's known values - 1) / (n - 1); 0.5 where n = 1", "",
        kSharedPlaces}},
      {"cross_zscore",
       kCross,
       2.0,
       cross_zscore,
       {"(x - mean(x)) / s, with s the sample standard deviation (divisor n - 1)", kConstantDay,
        ""}},
      {"cross_demean", kCross, 1.0, cross_demean, {"x - mean(x)", "", ""}},
      {"cross_scale",
       kCross,
       0.5,
       cross_scale,
       {"x / sum(|x|); a day of nothing but zeros stays zero", "", ""}},
      {"ts_mean", kTimeSeries, 2.0, ts_mean, {"sum of the window / n", "", ""}},
      {"ts_std",
       kTimeSeries,
       1.0,
       ts_std,
       {"the sample standard deviation (divisor n - 1); exactly 0 for a constant window",
        kOneDayWindow, ""}},
      {"ts_zscore",
       kTimeSeries,
       2.0,
       ts_zscore,
       {"(x - mean of the window) / s, with s as ts_std has it", kConstantWindow, ""}},
      {"ts_rank",
       kTimeSeries,
       1.5,
       ts_rank,
       {"(place of today's x in the window - 1) / (n - 1); 0.5 where n = 1", "", kSharedPlaces}},
      {"ts_min", kTimeSeries, 0.5, ts_min, {"the least value of the window", "", ""}},
      {"ts_max", kTimeSeries, 0.5, ts_max, {"the greatest value of the window", "", ""}},
      {"ts_delta",
       kTimeSeries,
       2.0,
       ts_delta,
       {"x(t) - x(t-n); only these two days must be known", "", ""}},
      {"ts_sum", kTimeSeries, 1.0, ts_sum, {"the sum of the window", "", ""}},
      {"ts_decay",
       kTimeSeries,
       1.5,
       ts_decay,
       {"(n x(t) + (n-1) x(t-1) + ... + 1 x(t-n+1)) / (n (n+1) / 2)", "", ""}},
      {"ts_correlation",
       kTimeSeries,
       1.0,
       ts_correlation,
       {"Pearson's correlation of x and y over the window, within -1 to 1", "either is constant",
        ""}},
      {"ts_covariance",
       kTimeSeries,
       0.5,
       ts_covariance,
       {"the sample covariance of x and y over the window (divisor n - 1)", kOneDayWindow, ""}},
      {"arith_add", kArithmetic, 1.0, arith_add, {"x + y", "", ""}},
      {"arith_sub", kArithmetic, 1.5, arith_sub, {"x - y", "", ""}},
      {"arith_mul", kArithmetic, 1.0, arith_mul, {"x * y", "", ""}},
      {"arith_div", kArithmetic, 1.0, arith_div, {"x / y", "|y| is below 1e-12", ""}},
      {"arith_neg", kArithmetic, 1.0, arith_neg, {"-x", "", ""}},
      {"arith_abs", kArithmetic, 0.5, arith_abs, {"|x|", "", ""}},
      {"arith_sign", kArithmetic, 0.5, arith_sign, {"-1, 0 or 1", "", ""}},
      {"arith_log", kArithmetic, 0.5, arith_log, {"sign(x) ln(1 + |x|)", "", ""}},
      {"arith_tanh", kArithmetic, 0.5, arith_tanh, {"tanh(x)", "", ""}},
      {"arith_min", kArithmetic, 0.5, arith_min, {"the lesser of x and y", "", ""}},
      {"arith_max", kArithmetic, 0.5, arith_max, {"the greater of x and y", "", ""}},
      {"comparison_gt", kComparison, 0.5, comparison_gt, {"1 where x > y, else 0", "", ""}},
      {"comparison_lt", kComparison, 0.5, comparison_lt, {"1 where x < y, else 0", "", ""}},
  };
}

Vocabulary make_vocabulary(const MarketData& data) {
  // Two days to half a year; each step is about half as long again as the one before it.
  Vocabulary vocabulary = {features_of(data), all_functions(), {2, 3, 5, 10, 15, 20, 40, 60, 120}};
  if (data.instrument_count() > 1) return vocabulary;
  // Across one instrument there is nothing to compare. They stay known, for graphs that have them.
  for (FunctionEntry& function : vocabulary.functions) {
    if (function.family == kCross) function.weight = 0.0;
  }
  return vocabulary;
}

}  // namespace varnholt::embedded
