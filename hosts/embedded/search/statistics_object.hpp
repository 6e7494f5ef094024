// A backtest's statistics as the search reads them: an object with one attribute a statistic.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hosts/embedded/backtest/statistics.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

class StatisticsObject : public genetic::HostObject {
 public:
  explicit StatisticsObject(const BacktestStatistics& statistics) : statistics_(statistics) {}

  [[nodiscard]] const BacktestStatistics& statistics() const { return statistics_; }

  [[nodiscard]] std::string type_name() const override { return "BacktestStatistics"; }
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) const override;

 private:
  BacktestStatistics statistics_;
};

// Every statistic under its name, in the order of the structure.
[[nodiscard]] genetic::Mapping statistics_mapping(const BacktestStatistics& statistics);

// The statistics of such a mapping. genetic::KeyError for one that is missing.
[[nodiscard]] BacktestStatistics statistics_from(const genetic::Mapping& mapping);

// The statistics behind a record's entry "stats", or nothing when it holds none.
[[nodiscard]] std::optional<BacktestStatistics> statistics_of(const genetic::Value& stats);

}  // namespace varnholt::embedded
