#include "hosts/embedded/host/statistics_object.hpp"

#include <array>
#include <cstdint>

#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::embedded {
namespace {

using genetic::Key;
using genetic::key;
using genetic::Mapping;
using genetic::Value;

struct RealField {
  Key name;
  double BacktestStatistics::*member;
};
struct CountField {
  Key name;
  std::int64_t BacktestStatistics::*member;
};

constexpr auto kRealFields = std::to_array(
    {RealField{key<"sharpe">(), &BacktestStatistics::sharpe},
     RealField{key<"gross_returns_sharpe">(), &BacktestStatistics::gross_returns_sharpe},
     RealField{key<"annualized_returns">(), &BacktestStatistics::annualized_returns},
     RealField{key<"turnover">(), &BacktestStatistics::turnover},
     RealField{key<"drawdown">(), &BacktestStatistics::drawdown},
     RealField{key<"max_weight">(), &BacktestStatistics::max_weight},
     RealField{key<"delta_exposure">(), &BacktestStatistics::delta_exposure},
     RealField{key<"abs_weight_sum_mean">(), &BacktestStatistics::abs_weight_sum_mean},
     RealField{key<"quality_score">(), &BacktestStatistics::quality_score}});

constexpr auto kCountFields = std::to_array(
    {CountField{key<"holding_days">(), &BacktestStatistics::holding_days},
     CountField{key<"active_days">(), &BacktestStatistics::active_days},
     CountField{key<"missing_return_count">(), &BacktestStatistics::missing_return_count}});

}  // namespace

std::optional<Value> StatisticsObject::attribute(std::string_view name) const {
  for (const RealField& field : kRealFields) {
    if (field.name.view() == name) return statistics_.*field.member;
  }
  for (const CountField& field : kCountFields) {
    if (field.name.view() == name) return statistics_.*field.member;
  }
  return std::nullopt;
}

Mapping statistics_mapping(const BacktestStatistics& statistics) {
  Mapping mapping(kRealFields.size() + kCountFields.size());
  for (const RealField& field : kRealFields)
    mapping.set(field.name, statistics.*field.member);
  for (const CountField& field : kCountFields)
    mapping.set(field.name, statistics.*field.member);
  return mapping;
}

BacktestStatistics statistics_from(const Mapping& mapping) {
  BacktestStatistics statistics;
  for (const RealField& field : kRealFields) {
    statistics.*field.member = genetic::to_float(mapping.at(field.name));
  }
  for (const CountField& field : kCountFields) {
    statistics.*field.member =
        genetic::saturated_integer(genetic::to_integer(mapping.at(field.name)));
  }
  return statistics;
}

const StatisticsObject* statistics_object(const Value& stats) {
  return stats.is_object() ? dynamic_cast<const StatisticsObject*>(&stats.object()) : nullptr;
}

std::optional<BacktestStatistics> statistics_of(const Value& stats) {
  const StatisticsObject* const object = statistics_object(stats);
  return object == nullptr ? std::nullopt : std::optional(object->statistics());
}

Mapping statistics_by_name(const Value& stats) {
  const auto statistics = statistics_of(stats);
  return statistics ? statistics_mapping(*statistics) : Mapping();
}

}  // namespace varnholt::embedded
