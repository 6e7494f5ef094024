// Daily prices of a set of instruments, as the backtester reads them.
//
// A panel is a matrix with one row a day (ascending) and one column an instrument (ascending by
// symbol). It is stored column by column, so that the history of one instrument lies together.
// Every entry is finite or NaN, and NaN means "not known": nothing fills a gap.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Eigen/Core>

#include "hosts/embedded/market/calendar_date.hpp"

namespace varnholt::embedded {

using Panel = Eigen::ArrayXXd;

// To which group each instrument belongs on each day, as a number from 0, or kNoGroup.
using GroupPanel = Eigen::ArrayXXi;
inline constexpr int kNoGroup = -1;

struct MarketData {
  std::vector<Date> dates;           // Ascending, each once: the rows of every panel.
  std::vector<std::string> symbols;  // Ascending, each once: the columns of every panel.

  // Prices in the file's currency, all positive; volume in shares or contracts, not negative.
  Panel close;
  std::optional<Panel> open;
  std::optional<Panel> high;
  std::optional<Panel> low;
  std::optional<Panel> volume;
  // Of the file's own: the volume-weighted price of the day, and the market capitalisation.
  std::optional<Panel> vwap;
  std::optional<Panel> cap;

  // Numbers of the file's owner, such as "short_interest", by the names that formulas know them by.
  std::map<std::string, Panel, std::less<>> features;

  // What the instruments are grouped by, such as "sector".
  std::map<std::string, GroupPanel, std::less<>> groups;

  [[nodiscard]] Eigen::Index day_count() const { return close.rows(); }
  [[nodiscard]] Eigen::Index instrument_count() const { return close.cols(); }

  // The same instruments and columns as they were known at the close of day `days` - 1. Throws
  // std::out_of_range where `days` is negative or beyond day_count().
  [[nodiscard]] MarketData first_days(Eigen::Index days) const;
};

// The panels that a file may lack, each with the name of its column.
struct NamedPanel {
  std::string_view name;
  std::optional<Panel> MarketData::*panel;
};
inline constexpr auto kOptionalPanels = std::to_array<NamedPanel>({{"open", &MarketData::open},
                                                                   {"high", &MarketData::high},
                                                                   {"low", &MarketData::low},
                                                                   {"volume", &MarketData::volume},
                                                                   {"vwap", &MarketData::vwap},
                                                                   {"cap", &MarketData::cap}});

// Keeps the panels out of processes that are forked from now on, and lets them in again, which has
// to be done before they are freed.
void keep_from_children(const MarketData& data);
void give_to_children(const MarketData& data);

}  // namespace varnholt::embedded
