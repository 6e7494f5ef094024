#include "hosts/embedded/vocabulary/feature_panels.hpp"

#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

#include "hosts/embedded/system/memory_advice.hpp"
#include "hosts/embedded/vocabulary/mapped.hpp"
#include "hosts/embedded/vocabulary/panel_checks.hpp"

namespace varnholt::embedded {
namespace {

// function(close today, close of the day before), NaN on the first day.
template <typename Function>
Panel from_day_to_day(const Panel& close, Function function) {
  Panel result = Panel::Constant(close.rows(), close.cols(), kUnknown);
  for (Eigen::Index column = 0; column < close.cols(); ++column) {
    for (Eigen::Index day = 1; day < close.rows(); ++day) {
      result(day, column) = finite_or_nan(function(close(day, column), close(day - 1, column)));
    }
  }
  return result;
}

// The column of that name, or nothing for a feature that is made of columns.
Panel* column_panel(MarketData& data, std::string_view name) {
  if (name == "close") return &data.close;
  if (name == "open") return &data.open.value();
  if (name == "high") return &data.high.value();
  if (name == "low") return &data.low.value();
  if (name == "volume") return &data.volume.value();
  if (name == "vwap") return &data.vwap.value();
  if (name == "cap") return &data.cap.value();
  const auto own = data.features.find(name);
  return own == data.features.end() ? nullptr : &own->second;
}

Panel make_feature(const MarketData& data, std::string_view name) {
  if (name == "returns") {
    return from_day_to_day(data.close,
                           [](double now, double before) { return now / before - 1.0; });
  }
  if (name == "log_returns") {
    return from_day_to_day(data.close,
                           [](double now, double before) { return std::log(now / before); });
  }
  if (name == "range") {
    return mapped(ElementFunction::Div,
                  mapped(ElementFunction::Sub, data.high.value(), data.low.value()), data.close);
  }
  if (name == "dollar_volume") return mapped(ElementFunction::Mul, data.close, data.volume.value());
  throw std::logic_error("the feature \"" + std::string(name) + "\" has no formula");
}

}  // namespace

FeaturePanels::FeaturePanels(MarketData data, const VocabularySettings& settings)
    : vocabulary_(make_vocabulary(data, settings)) {
  for (const FeatureEntry& feature : vocabulary_.features) {
    if (column_panel(data, feature.name) == nullptr) {
      panels_.emplace(feature.name, make_feature(data, feature.name));
    }
  }
  // Only now that all is made of them.
  for (const FeatureEntry& feature : vocabulary_.features) {
    if (Panel* const panel = column_panel(data, feature.name)) {
      panels_.emplace(feature.name, std::move(*panel));
    }
  }
  groups_ = std::move(data.groups);
  for (const auto& [name, panel] : panels_)
    prefer_large_pages(panel.data(), static_cast<std::size_t>(panel.size()) * sizeof(double));
}

const Panel* FeaturePanels::find(std::string_view name) const {
  const auto found = panels_.find(name);
  return found == panels_.end() ? nullptr : &found->second;
}

}  // namespace varnholt::embedded
