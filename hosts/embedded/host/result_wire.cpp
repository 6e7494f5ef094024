#include "hosts/embedded/host/result_wire.hpp"

#include <optional>
#include <string>
#include <string_view>

#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/host/value_wire.hpp"
#include "search_templates/genetic/value/copy.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr genetic::Key kPnl = genetic::key<"pnl">();
constexpr genetic::Key kPool = genetic::key<"pool">();
constexpr genetic::Key kOrientation = genetic::key<"orientation">();
constexpr genetic::Key kBehaviour = genetic::key<"behaviour">();

Value optional_text(const std::optional<std::string>& text) {
  return text ? Value(*text) : Value();
}

std::optional<std::string> text_of(const Value& value) {
  return value.is_absent() ? std::nullopt : std::optional(std::string(value.text()));
}

Value information_value(const std::optional<MemberInformation>& found) {
  if (!found) return {};
  return Mapping{{"information", found->information}, {"eval_id", found->eval_id}};
}

std::optional<MemberInformation> information_from(const Value& value) {
  if (value.is_absent()) return std::nullopt;
  const Mapping& mapping = value.mapping();
  return MemberInformation{mapping.at("information").real(),
                           std::string(mapping.at("eval_id").text())};
}

Value integers_value(const std::optional<std::vector<std::int64_t>>& numbers) {
  if (!numbers) return {};
  List list;
  for (const std::int64_t number : *numbers)
    list.append(number);
  return list;
}

std::optional<std::vector<std::int64_t>> integers_from(const Value& value) {
  if (value.is_absent()) return std::nullopt;
  std::vector<std::int64_t> numbers;
  const List list = value.list();
  for (std::size_t i = 0; i < list.size(); ++i)
    numbers.push_back(list.at(i).integer());
  return numbers;
}

Mapping comparison_mapping(const PoolComparison& comparison) {
  return {{"members", comparison.members},
          {"last_member", comparison.last_member},
          {"novelty", comparison.measure.novelty},
          {"mutual_information", comparison.measure.mutual_information},
          {"correlation", comparison.measure.correlation},
          {"nearest_by_information", optional_text(comparison.measure.nearest_by_information)},
          {"nearest_by_correlation", optional_text(comparison.measure.nearest_by_correlation)},
          {"measured_members", comparison.measure.members},
          {"informed", comparison.measure.informed},
          {"of_doubtful", information_value(comparison.of_doubtful)},
          {"of_nearest", information_value(comparison.of_nearest)},
          {"of_told", information_value(comparison.of_told)},
          {"told", comparison.told},
          {"alike", integers_value(comparison.alike)}};
}

PoolComparison comparison_from(const Mapping& mapping) {
  PoolComparison comparison;
  comparison.members = mapping.at("members").integer();
  comparison.last_member = mapping.at("last_member").integer();
  comparison.measure.novelty = mapping.at("novelty").real();
  comparison.measure.mutual_information = mapping.at("mutual_information").real();
  comparison.measure.correlation = mapping.at("correlation").real();
  comparison.measure.nearest_by_information = text_of(mapping.at("nearest_by_information"));
  comparison.measure.nearest_by_correlation = text_of(mapping.at("nearest_by_correlation"));
  comparison.measure.members = mapping.at("measured_members").integer();
  comparison.measure.informed = mapping.at("informed").integer();
  comparison.of_doubtful = information_from(mapping.at("of_doubtful"));
  comparison.of_nearest = information_from(mapping.at("of_nearest"));
  comparison.of_told = information_from(mapping.at("of_told"));
  comparison.told = mapping.at("told").real();
  comparison.alike = integers_from(mapping.at("alike"));
  return comparison;
}

Mapping behaviour_mapping(const Behaviour& behaviour) {
  return {{"residual_sharpe", behaviour.residual_sharpe},
          {"profile", number_bytes(behaviour.profile)}};
}

Behaviour behaviour_from(const Mapping& mapping) {
  return {mapping.at("residual_sharpe").real(), numbers_from(mapping.at("profile").text())};
}

Mapping sent_statistics(const StatisticsObject& stats) {
  Mapping sent = statistics_mapping(stats.statistics());
  sent.set(kOrientation, stats.statistics().orientation);
  if (stats.pnl()) sent.set(kPnl, number_bytes(*stats.pnl()));
  if (stats.comparison()) sent.set(kPool, comparison_mapping(*stats.comparison()));
  if (stats.behaviour()) sent.set(kBehaviour, behaviour_mapping(*stats.behaviour()));
  return sent;
}

Value received_statistics(const Mapping& sent) {
  std::optional<Eigen::ArrayXd> pnl;
  std::optional<PoolComparison> comparison;
  if (const auto text = sent.find(kPnl)) pnl = numbers_from(text->text());
  if (const auto found = sent.find(kPool)) comparison = comparison_from(found->mapping());
  std::optional<Behaviour> behaviour;
  if (const auto found = sent.find(kBehaviour)) behaviour = behaviour_from(found->mapping());
  BacktestStatistics statistics = statistics_from(sent);
  statistics.orientation = sent.at(kOrientation).integer();
  return genetic::make_object<StatisticsObject>(statistics, pnl, comparison, behaviour);
}

}  // namespace

std::string encode_result(const Mapping& result) {
  Mapping record = genetic::shallow_copy(result);
  if (const auto* const stats = statistics_object(record.get(genetic::keys::kStats))) {
    record.set(genetic::keys::kStats, sent_statistics(*stats));
  }
  std::string bytes;
  append_value(bytes, record);
  return bytes;
}

Mapping decode_result(std::string_view bytes) {
  ValueReader reader(bytes);
  const Value value = reader.next();
  if (!value.is_mapping() || !reader.is_at_end())
    throw genetic::ValueError("a candidate result record is a mapping");
  Mapping record = value.mapping();
  const Value stats = record.get(genetic::keys::kStats);
  if (stats.is_mapping()) {
    record.set(genetic::keys::kStats, received_statistics(stats.mapping()));
  }
  return record;
}

}  // namespace varnholt::embedded
