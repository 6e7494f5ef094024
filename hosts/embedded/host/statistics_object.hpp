// A backtest's statistics as the search reads them: an object with one attribute a statistic.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <Eigen/Core>

#include "hosts/embedded/archive/behaviour.hpp"
#include "hosts/embedded/backtest/statistics.hpp"
#include "hosts/embedded/signal_pool/signal_pool.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::embedded {

// The daily PnL is there only where the signal is compared with the pool and submitted with it: in
// what a backtest was asked for, and in a child's result that passed its gates. The latter also
// holds what the child found when it compared the signal with the pool's members.
class StatisticsObject : public genetic::HostObject {
 public:
  explicit StatisticsObject(const BacktestStatistics& statistics,
                            std::optional<Eigen::ArrayXd> pnl = std::nullopt,
                            std::optional<PoolComparison> comparison = std::nullopt,
                            std::optional<Behaviour> behaviour = std::nullopt)
      : statistics_(statistics),
        pnl_(std::move(pnl)),
        comparison_(std::move(comparison)),
        behaviour_(std::move(behaviour)) {}

  [[nodiscard]] const BacktestStatistics& statistics() const { return statistics_; }
  // Net returns, one entry a holding day.
  [[nodiscard]] const std::optional<Eigen::ArrayXd>& pnl() const { return pnl_; }
  [[nodiscard]] const std::optional<PoolComparison>& comparison() const { return comparison_; }

  // What the archive of the search needs; there in every child's result that has any.
  [[nodiscard]] const std::optional<Behaviour>& behaviour() const { return behaviour_; }

  [[nodiscard]] std::string type_name() const override { return "BacktestStatistics"; }
  [[nodiscard]] std::optional<genetic::Value> attribute(std::string_view name) const override;

 private:
  BacktestStatistics statistics_;
  std::optional<Eigen::ArrayXd> pnl_;
  std::optional<PoolComparison> comparison_;
  std::optional<Behaviour> behaviour_;
};

// Every statistic under its name, in the order of the structure, without the orientation, which is
// no figure of the signal that they are of.
[[nodiscard]] genetic::Mapping statistics_mapping(const BacktestStatistics& statistics);

// The statistics of such a mapping. genetic::KeyError for one that is missing.
[[nodiscard]] BacktestStatistics statistics_from(const genetic::Mapping& mapping);

// The object behind a record's entry "stats"; null when it holds another value.
[[nodiscard]] const StatisticsObject* statistics_object(const genetic::Value& stats);
// Its statistics, or nothing.
[[nodiscard]] std::optional<BacktestStatistics> statistics_of(const genetic::Value& stats);
// They by name; empty when there are none.
[[nodiscard]] genetic::Mapping statistics_by_name(const genetic::Value& stats);

}  // namespace varnholt::embedded
