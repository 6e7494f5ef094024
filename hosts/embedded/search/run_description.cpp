#include "hosts/embedded/search/run_description.hpp"

#include <filesystem>

#include <fmt/format.h>

#include "hosts/embedded/gates/threshold_set.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/market/bar_frequency.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/system/wall_clock.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "search_templates/genetic/value/tolerant.hpp"

namespace varnholt::embedded {

using genetic::List;
using genetic::Mapping;
using genetic::Value;

namespace {

constexpr const char* kDelayDays = "delay_days";
constexpr const char* kDelistingReturn = "delisting_return";
constexpr const char* kLeastKnownShare = "least_known_share";
constexpr const char* kPeriodsPerYear = "periods_per_year";

Value optional_value(const auto& value) {
  return value ? Value(*value) : Value();
}

// What makes a run repeatable, beside its seed and its prices.
std::string settings_json(const SearchOptions& options, const RunData& data,
                          const genetic::GeneticTemplate& config, int jobs) {
  const HostConfig& host = options.config;
  return genetic::json_text(
      Mapping{{"batch_size", config.batch_size()},
              {"restart_threshold", config.restart_threshold()},
              {"elite_fraction", config.elite_fraction()},
              {"diversity_weight", config.diversity_weight()},
              {"parsimony_weight", config.parsimony_weight()},
              {"operator_rates", config.operator_rates()},
              {"max_improvement_depth", config.max_improvement_depth()},
              {"max_improvement_candidates", config.max_improvement_candidates()},
              {"max_improvement_rounds", config.max_improvement_rounds()},
              {"initial_candidates", config.thawed_initial_candidates()},
              {"jobs", jobs},
              {"generations", optional_value(options.generations)},
              {"candidates", optional_value(options.candidates)},
              {"seconds", optional_value(options.seconds)},
              {"max_depth", options.graphs.max_depth},
              {"max_nodes", static_cast<std::int64_t>(options.graphs.max_nodes)},
              {"max_window", options.graphs.max_window},
              {"leaf_share", options.graphs.leaf_share},
              {"cost_basis_points", data.book.cost_basis_points},
              {kDelayDays, data.book.delay_days},
              {kDelistingReturn, data.book.delisting_return},
              {kLeastKnownShare, data.book.least_known_share},
              {kPeriodsPerYear, data.book.periods_per_year},
              {"timeout_seconds", options.timeout_seconds},
              {"worker_memory_limit_bytes", optional_value(options.worker_memory_limit_bytes)},
              {"gates", threshold_set(host.gates, host.limits)},
              {"pool", Mapping{{"name", host.pool.name},
                               {"correlation_max", host.pool.correlation_max},
                               {"novelty_min", host.pool.novelty_min},
                               {"minimum_days", host.pool.minimum_days}}},
              {"eras", Mapping{{"train", host.eras.train}, {"holdout", host.eras.holdout}}}});
}

Mapping day_span(const DaySpan& span) {
  return {{"first_date", date_text(span.first_date)},
          {"last_date", date_text(span.last_date)},
          {"first_day", static_cast<std::int64_t>(span.first_day)},
          {"end_day", static_cast<std::int64_t>(span.end_day)}};
}

std::string eras_json(const EraPlan& plan) {
  List train;
  for (const DaySpan& era : plan.train)
    train.append(day_span(era));
  return genetic::json_text(Mapping{{"train", train},
                                    {"holdout", day_span(plan.holdout)},
                                    {"era", plan.era},
                                    {"seen_days", static_cast<std::int64_t>(plan.seen_days())}});
}

}  // namespace

RunData::RunData(const SearchOptions& options, const InterruptCheck& check)
    : RunData(options, read_price_bytes(options.prices, check), check) {}

RunData::RunData(const SearchOptions& options, const std::string& price_bytes,
                 const InterruptCheck& check)
    : whole(read_price_text(price_bytes, options.prices.string(), check)),
      plan(split_eras(whole.dates, options.config.eras)),
      digest(sha256_hex(price_bytes)),
      book{options.cost_basis_points, options.delay_days, options.delisting_return,
           options.least_known_share,
           options.periods_per_year.value_or(periods_per_year(whole.dates))} {}

PoolIdentity pool_identity(const SearchOptions& options, const RunData& data) {
  const BookRules& book = data.book;
  // The periods of a year scale figures, and leave the daily PnL as it is.
  const std::string comparable =
      fmt::format("{} {} {} {} {} {}", data.digest, data.plan.seen_days(), book.cost_basis_points,
                  book.delay_days, book.delisting_return, book.least_known_share);
  return {options.config.pool.name, options.config.market_id, data.plan.era,
          sha256_hex(comparable)};
}

BookRules book_rules_of(const RunStart& start) {
  BookRules rules;
  rules.cost_basis_points = start.cost_basis_points.value_or(rules.cost_basis_points);
  const auto settings = genetic::as_mapping(read_json(start.settings_json));
  if (!settings) return rules;
  const auto figure = [&](std::string_view name, double fallback) {
    return genetic::tolerant_float(settings->get(Value(name))).value_or(fallback);
  };
  rules.delay_days = static_cast<int>(figure(kDelayDays, rules.delay_days));
  rules.delisting_return = figure(kDelistingReturn, rules.delisting_return);
  rules.least_known_share = figure(kLeastKnownShare, rules.least_known_share);
  rules.periods_per_year = figure(kPeriodsPerYear, rules.periods_per_year);
  return rules;
}

RunStart run_start(const SearchOptions& options, const RunData& data,
                   const genetic::GeneticTemplate& config, int jobs) {
  RunStart start;
  start.started_at = wall_clock_seconds();
  start.seed = genetic::saturated_integer(config.seed());
  start.settings_json = settings_json(options, data, config, jobs);
  start.price_file = options.prices.filename().string();
  start.price_digest = data.digest;
  start.host_version = VARNHOLT_VERSION;
  start.price_path = std::filesystem::absolute(options.prices).string();
  start.market_id = options.config.market_id;
  start.era_number = data.plan.era;
  start.eras_json = eras_json(data.plan);
  start.cost_basis_points = data.book.cost_basis_points;
  return start;
}

SearchStarted started_event(const SearchOptions& options, const RunData& data,
                            const genetic::GeneticTemplate& config, const RunStore& store,
                            std::int64_t run_id, int jobs) {
  SearchStarted started;
  started.run_id = run_id;
  started.prices = options.prices;
  started.database = store.path();
  started.instruments = data.whole.instrument_count();
  started.days = data.whole.day_count();
  started.first_date = date_text(data.whole.dates.front());
  started.last_date = date_text(data.whole.dates.back());
  started.jobs = jobs;
  started.batch_size = genetic::saturated_integer(config.batch_size());
  started.seed = genetic::saturated_integer(config.seed());
  started.signal_pool_name = options.config.pool.name;
  started.market_id = options.config.market_id;
  started.era_number = data.plan.era;
  started.seen_days = data.plan.seen_days();
  started.last_seen_date = date_text(data.plan.searched().last_date);
  started.holdout_days = data.plan.holdout.day_count();
  started.book = data.book;
  started.periods_are_inferred = !options.periods_per_year;
  started.first_holdout_date = date_text(data.plan.holdout.first_date);
  return started;
}

Mapping client_manifest(const RunData& data, std::int64_t run_id) {
  return {{"client", "genetic-search"},
          {"version", VARNHOLT_VERSION},
          {"price_digest", data.digest},
          {"run", run_id}};
}

}  // namespace varnholt::embedded
