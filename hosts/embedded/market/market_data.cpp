#include "hosts/embedded/market/market_data.hpp"

#include <stdexcept>

#include "hosts/embedded/system/memory_advice.hpp"

namespace varnholt::embedded {

MarketData MarketData::first_days(Eigen::Index days) const {
  if (days < 0 || days > day_count()) {
    throw std::out_of_range("cannot take " + std::to_string(days) + " days of a history of " +
                            std::to_string(day_count()) + "; ask for 0 to that many");
  }
  const auto head = [days](const std::optional<Panel>& panel) -> std::optional<Panel> {
    if (!panel) return std::nullopt;
    return Panel(panel->topRows(days));
  };
  MarketData result;
  result.dates.assign(dates.begin(), dates.begin() + days);
  result.symbols = symbols;
  result.close = close.topRows(days);
  for (const NamedPanel& named : kOptionalPanels)
    result.*named.panel = head(this->*named.panel);
  for (const auto& [name, panel] : features)
    result.features.emplace(name, panel.topRows(days));
  for (const auto& [name, panel] : groups)
    result.groups.emplace(name, GroupPanel(panel.topRows(days)));
  return result;
}

namespace {

template <typename Advice>
void advise_panels(const MarketData& data, const Advice& advice) {
  const auto advise = [&advice](const Panel& panel) {
    advice(panel.data(), static_cast<std::size_t>(panel.size()) * sizeof(double));
  };
  advise(data.close);
  for (const NamedPanel& named : kOptionalPanels) {
    if (const auto& panel = data.*named.panel) advise(*panel);
  }
  for (const auto& [name, panel] : data.features)
    advise(panel);
}

}  // namespace

void keep_from_children(const MarketData& data) {
  advise_panels(data,
                [](const double* begin, std::size_t bytes) { keep_from_children(begin, bytes); });
}

void give_to_children(const MarketData& data) {
  advise_panels(data,
                [](const double* begin, std::size_t bytes) { give_to_children(begin, bytes); });
}

}  // namespace varnholt::embedded
