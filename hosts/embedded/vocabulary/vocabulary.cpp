#include "hosts/embedded/vocabulary/vocabulary.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <system_error>

#include <fmt/format.h>

namespace varnholt::embedded {
namespace {

constexpr std::string_view kCross = "cross";

// A feature, and whether the market data hold what it is made of.
struct FeatureRow {
  std::string_view name;
  double weight = 0.0;
  std::string_view formula;
  Unit unit;
  bool (*is_there)(const MarketData&) = nullptr;

  [[nodiscard]] FeatureEntry entry() const { return {std::string(name), weight, formula, unit}; }
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
bool has_vwap(const MarketData& data) {
  return data.vwap.has_value();
}
bool has_cap(const MarketData& data) {
  return data.cap.has_value();
}

// Returns and what is made of them carry most known daily effects; raw levels say little before
// something is done to them, so they are chosen less often.
constexpr auto kFeatures = std::to_array({
    FeatureRow{"close", 1.0, "the close, as it stands in the file", kPrice, always},
    FeatureRow{"returns", 2.0, "close(t) / close(t-1) - 1; both days must be known", kReturn,
               always},
    FeatureRow{"log_returns", 1.0, "ln(close(t) / close(t-1)); both days must be known", kReturn,
               always},
    FeatureRow{"open", 0.5, "the open, as it stands in the file", kPrice, has_open},
    FeatureRow{"high", 0.5, "the high, as it stands in the file", kPrice, has_high},
    FeatureRow{"low", 0.5, "the low, as it stands in the file", kPrice, has_low},
    FeatureRow{"volume", 1.0, "the volume, as it stands in the file", kVolume, has_volume},
    FeatureRow{"range", 1.0, "(high - low) / close", kReturn, has_range},
    FeatureRow{"dollar_volume", 0.5, "close * volume", kMoney, has_volume},
    FeatureRow{"vwap", 0.5, "the volume-weighted price of the day, as it stands in the file",
               kPrice, has_vwap},
    FeatureRow{"cap", 0.5, "the market capitalisation, as it stands in the file", kMoney, has_cap},
});

std::vector<FeatureEntry> features_of(const MarketData& data) {
  std::vector<FeatureEntry> features;
  for (const FeatureRow& row : kFeatures) {
    if (row.is_there(data)) features.push_back(row.entry());
  }
  for (const auto& [name, panel] : data.features)
    features.push_back({name, 0.0, "as it stands in the file", kFitsAll});
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

const NamedFormula* Vocabulary::find_formula(std::string_view name) const {
  return find_entry(formulas, name);
}

const std::string* Vocabulary::find_group(std::string_view name) const {
  const auto found = std::find(groups.begin(), groups.end(), name);
  return found == groups.end() ? nullptr : &*found;
}

std::optional<int> window_of(std::string_view text) {
  int days = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), days);
  // The same days have one text only: graphs are told apart by their texts.
  const bool is_plain = error == std::errc() && text == std::to_string(days);
  if (!is_plain || days < 1 || days > kLongestWindow) return std::nullopt;
  return days;
}

std::string number_text(double number) {
  return fmt::format("{}", number + 0.0);  // Adding zero turns -0 into 0.
}

std::optional<double> constant_value(std::string_view text) {
  double number = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool is_plain =
      error == std::errc() && std::isfinite(number) && number_text(number) == text;
  return is_plain ? std::optional(number) : std::nullopt;
}

std::vector<double> usual_constants() {
  return {0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0, 20.0, 50.0, 100.0};
}

std::vector<int> usual_windows() {
  return {2, 3, 5, 10, 15, 20, 40, 60, 120};
}

std::vector<FeatureEntry> all_features() {
  std::vector<FeatureEntry> features;
  features.reserve(kFeatures.size());
  for (const FeatureRow& row : kFeatures) {
    features.push_back(row.entry());
  }
  return features;
}

Vocabulary make_vocabulary(const MarketData& data) {
  Vocabulary vocabulary;
  vocabulary.features = features_of(data);
  vocabulary.functions = all_functions();
  vocabulary.windows = usual_windows();
  vocabulary.constants = usual_constants();
  for (const auto& [name, panel] : data.groups)
    vocabulary.groups.push_back(name);
  for (FunctionEntry& function : vocabulary.functions) {
    if (function.drawn == Drawn::WhenSwitchedOn) function.weight = 0.0;
    // Across one instrument there is nothing to compare. They stay known, for graphs that have
    // them.
    if (function.family == kCross && data.instrument_count() <= 1) function.weight = 0.0;
  }
  return vocabulary;
}

}  // namespace varnholt::embedded
