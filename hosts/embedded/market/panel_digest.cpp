#include "hosts/embedded/market/panel_digest.hpp"

#include <cstddef>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>

#include "hosts/embedded/system/digest.hpp"

namespace varnholt::embedded {
namespace {

// A column's history lies together, so that nothing is copied.
template <typename AnyPanel>
std::string column_digest(const AnyPanel& panel, Eigen::Index column, Eigen::Index days) {
  const auto* const bytes = reinterpret_cast<const char*>(panel.col(column).data());
  return sha256_hex({bytes, static_cast<std::size_t>(days) * sizeof(typename AnyPanel::Scalar)});
}

template <typename AnyPanel>
std::string panel_text(std::string_view name, const AnyPanel& panel, Eigen::Index days) {
  std::string text(name);
  for (Eigen::Index column = 0; column < panel.cols(); ++column)
    text.append(" ").append(column_digest(panel, column, days));
  return text;
}

}  // namespace

std::string panel_digest(const MarketData& data, Eigen::Index days) {
  if (days < 0 || days > data.day_count()) {
    throw std::out_of_range(
        fmt::format("cannot digest {} days of a history of {}; ask for 0 to "
                    "that many",
                    days, data.day_count()));
  }
  std::string text;
  for (Eigen::Index day = 0; day < days; ++day)
    text.append(date_text(data.dates[static_cast<std::size_t>(day)])).append("\n");
  // With its length a symbol cannot be taken for two.
  for (const std::string& symbol : data.symbols)
    text += fmt::format("{} {}\n", symbol.size(), symbol);
  text += panel_text("close", data.close, days);
  for (const NamedPanel& named : kOptionalPanels) {
    if (const auto& panel = data.*named.panel) text += panel_text(named.name, *panel, days);
  }
  // A name of the owner's own may be that of a group of other prices.
  for (const auto& [name, panel] : data.features)
    text += panel_text("feature " + name, panel, days);
  for (const auto& [name, panel] : data.groups)
    text += panel_text(name, panel, days);
  return sha256_hex(text);
}

}  // namespace varnholt::embedded
