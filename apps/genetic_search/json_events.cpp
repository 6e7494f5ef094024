#include "apps/genetic_search/json_events.hpp"

#include <cmath>
#include <optional>

#include "apps/genetic_search/progress_line.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/host_object.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::app {
namespace {

using embedded::BacktestStatistics;
using embedded::CandidateRecorded;
using embedded::SearchProgress;
using genetic::Value;

Json to_json(const Value& value, int depth) {
  if (depth > genetic::kMaximumNesting) {
    throw genetic::RecursionError("a value is nested too deeply to be written as JSON");
  }
  if (value.is_absent()) return nullptr;
  if (value.is_boolean()) return value.boolean();
  if (value.is_integer()) return value.integer();
  if (value.is_real()) return number_json(value.real());
  if (value.is_text()) return std::string(value.text());
  if (value.is_mapping()) {
    Json object = Json::object();
    genetic::MappingCursor cursor(value.mapping());
    while (const auto entry = cursor.next())
      object[genetic::str(entry->key)] = to_json(entry->value, depth + 1);
    return object;
  }
  if (value.is_tuple()) {
    Json array = Json::array();
    for (const Value& item : value.tuple().items())
      array.push_back(to_json(item, depth + 1));
    return array;
  }
  if (value.is_list()) {
    Json array = Json::array();
    genetic::ListCursor cursor(value.list());
    while (const auto item = cursor.next())
      array.push_back(to_json(*item, depth + 1));
    return array;
  }
  // A NaN is an object of the library; an integer beyond 64 bits keeps all its digits as a text.
  if (value.object().exact_kind() == genetic::Kind::kReal)
    return number_json(genetic::to_float(value));
  return genetic::str(value);
}

Json statistics_json(const std::optional<BacktestStatistics>& statistics) {
  if (!statistics) return nullptr;
  return {{"sharpe", statistics->sharpe},
          {"gross_returns_sharpe", statistics->gross_returns_sharpe},
          {"annualized_returns", statistics->annualized_returns},
          {"turnover", statistics->turnover},
          {"drawdown", statistics->drawdown},
          {"max_weight", statistics->max_weight},
          {"delta_exposure", statistics->delta_exposure},
          {"abs_weight_sum_mean", statistics->abs_weight_sum_mean},
          {"quality_score", statistics->quality_score},
          {"holding_days", statistics->holding_days},
          {"active_days", statistics->active_days},
          {"missing_return_count", statistics->missing_return_count}};
}

Json text_or_null(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

Json candidate_json(const CandidateRecorded& candidate) {
  return {{"eval_id", candidate.eval_id},
          {"candidate_number", candidate.candidate_number},
          {"generation", candidate.generation},
          {"bred", candidate.bred},
          {"repaired_by", text_or_null(candidate.repaired_by)},
          {"passed", candidate.passed},
          {"failure_reason", text_or_null(candidate.failure_reason)},
          {"failure_detail", text_or_null(candidate.failure_detail)},
          {"expression", text_or_null(candidate.expression)},
          {"statistics", statistics_json(candidate.statistics)},
          {"elapsed_seconds", candidate.elapsed_seconds}};
}

Json event_of(std::string_view name, const Json& members) {
  Json event = {{"event", name}};
  event.update(members);
  return event;
}

Json counts_json(const std::map<std::string, std::int64_t>& counts) {
  Json object = Json::object();
  for (const auto& [name, count] : counts)
    object[name] = count;
  return object;
}

// The counts, the best by its id only: it was told when it was recorded.
Json progress_json(const SearchProgress& progress) {
  Json best = nullptr;
  if (progress.best) best = progress.best->eval_id;
  const embedded::RepairCount repairs = progress.all_repairs();
  return {{"generation", progress.generation},
          {"candidates", progress.candidates},
          {"candidates_per_second", candidates_a_second(progress)},
          {"passing", progress.passing},
          {"fresh_in_generation", progress.fresh_in_generation},
          {"bred_in_generation", progress.bred_in_generation},
          {"repaired_in_generation", progress.repaired_in_generation},
          {"repair_rounds", progress.repair_rounds},
          {"repaired", repairs.tried},
          {"rescued", repairs.rescued},
          {"failures", counts_json(progress.failures)},
          {"best_eval_id", best},
          {"elapsed_seconds", progress.elapsed_seconds}};
}

Json repairs_json(const std::map<std::string, embedded::RepairCount>& repairs) {
  Json object = Json::object();
  for (const auto& [plan, count] : repairs) {
    object[plan] = {
        {"tried", count.tried}, {"rescued", count.rescued}, {"submitted", count.submitted}};
  }
  return object;
}

Json samples_json(const embedded::SampleStatistics& statistics) {
  return {{"in_sample", statistics_json(statistics.in_sample)},
          {"holdout", statistics_json(statistics.holdout)}};
}

Json submitted_json(const embedded::SubmittedSignal& signal) {
  Json object = {{"eval_id", signal.eval_id},
                 {"expression", text_or_null(signal.expression)},
                 {"novelty", number_json(signal.novelty)},
                 {"correlation", number_json(signal.correlation)}};
  object.update(samples_json(signal.statistics));
  if (!signal.has_holdout) object["holdout"] = nullptr;
  return object;
}

Json or_null(const std::optional<double>& figure) {
  return figure ? number_json(*figure) : Json(nullptr);
}

}  // namespace

Json number_json(double number) {
  return std::isfinite(number) ? Json(number) : Json(nullptr);
}

Json to_json(const Value& value) {
  return to_json(value, 0);
}

Json started_event(const embedded::SearchStarted& started) {
  return event_of("started",
                  {{"run_id", started.run_id},
                   {"prices", started.prices.text()},
                   {"database", started.database.string()},
                   {"instruments", started.instruments},
                   {"days", started.days},
                   {"first_date", started.first_date},
                   {"last_date", started.last_date},
                   {"jobs", started.jobs},
                   {"batch_size", started.batch_size},
                   {"seed", started.seed},
                   {"signal_pool_name", started.signal_pool_name},
                   {"market_id", started.market_id},
                   {"era_number", started.era_number},
                   {"seen_days", started.seen_days},
                   {"last_seen_date", started.last_seen_date},
                   {"holdout_days", started.holdout_days},
                   {"first_holdout_date", started.first_holdout_date},
                   {"split_is_kept", started.split_is_kept},
                   {"known_structures",
                    started.known_structures ? Json(*started.known_structures) : Json(nullptr)},
                   {"earlier_signals", started.earlier_signals},
                   {"cost_basis_points", started.book.cost_basis_points},
                   {"delay_days", started.book.delay_days},
                   {"delisting_return", started.book.delisting_return},
                   {"least_known_share", started.book.least_known_share},
                   {"neutralize", started.book.neutralize},
                   {"periods_per_year", started.book.periods_per_year},
                   {"periods_are_inferred", started.periods_are_inferred}});
}

Json measured_event(const embedded::PoolMeasuring& measuring) {
  return event_of(
      "measured",
      {{"members", measuring.members}, {"done", measuring.done}, {"failed", measuring.failed}});
}

Json recorded_event(const CandidateRecorded& candidate) {
  return event_of("recorded", candidate_json(candidate));
}

Json settled_event(const embedded::SettledSignal& signal) {
  return event_of("settled", {{"eval_id", signal.eval_id},
                              {"submitted", signal.submitted},
                              {"refusal_reason", text_or_null(signal.refusal_reason)},
                              {"refusal_detail", text_or_null(signal.refusal_detail)},
                              {"novelty", number_json(signal.novelty)},
                              {"correlation", number_json(signal.correlation)},
                              {"replaced", signal.replaced}});
}

Json generation_event(const SearchProgress& progress) {
  return event_of("generation", progress_json(progress));
}

Json log_event(embedded::LogLevel level, std::string_view text) {
  return event_of(
      "log", {{"level", level == embedded::LogLevel::Error ? "error" : "warning"}, {"text", text}});
}

Json stopping_event(const SearchProgress& progress) {
  return event_of("stopping", progress_json(progress));
}

Json luck_json(const embedded::RunLuck& luck) {
  Json best = nullptr;
  if (luck.best) {
    best = {{"eval_id", luck.best->eval_id},
            {"in_sample_sharpe", number_json(luck.best->in_sample_sharpe)},
            {"holdout_sharpe", number_json(luck.best->holdout_sharpe)},
            {"deflated_sharpe", number_json(luck.deflated_sharpe)},
            {"confidence", number_json(luck.confidence)}};
  }
  return {{"trials", luck.spread.trials},
          {"independent_trials", number_json(luck.spread.independent)},
          {"sampled_trials", luck.sampled_trials},
          {"expected_maximum_sharpe", number_json(luck.expected_maximum_sharpe)},
          {"better_than_luck", luck.better_than_luck},
          {"best", best},
          {"overfitting_probability", or_null(luck.overfitting_probability)},
          {"signals", luck.signals},
          {"mean_in_sample_sharpe", number_json(luck.mean_in_sample_sharpe)},
          {"mean_holdout_sharpe", number_json(luck.mean_holdout_sharpe)},
          {"sample_correlation", or_null(luck.sample_correlation)}};
}

Json ended_event(const embedded::SearchSummary& summary, const std::filesystem::path& database,
                 std::string_view why) {
  Json best = Json::array();
  for (const CandidateRecorded& signal : summary.best)
    best.push_back(candidate_json(signal));
  Json members = {{"run_id", summary.run_id},
                  {"database", database.string()},
                  {"stop_cause", embedded::to_text(summary.stop_cause)},
                  {"why", why}};
  members.update(progress_json(summary.progress));
  members["repairs"] = repairs_json(summary.progress.repairs);
  members["best"] = best;
  Json submitted = Json::array();
  for (const embedded::SubmittedSignal& signal : summary.submitted)
    submitted.push_back(submitted_json(signal));
  members["submitted"] = submitted;
  members["market"] = samples_json(summary.market);
  members["luck"] = luck_json(summary.luck);
  members["submissions"] = {{"submitted", summary.submissions.submitted},
                            {"refused", counts_json(summary.submissions.refused)},
                            {"waiting", summary.submissions.waiting},
                            {"replaced", summary.submissions.replaced}};
  members["left_out"] = summary.left_out;
  members["completed_holdouts"] = summary.completed_holdouts;
  return event_of("ended", members);
}

Json metrics_event(const genetic::Mapping& metrics) {
  return event_of("metrics", to_json(Value(metrics)));
}

std::string json_line(const Json& event) {
  return event.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace varnholt::app
