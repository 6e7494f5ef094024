#include "hosts/embedded/search/run_description.hpp"

#include <algorithm>
#include <filesystem>
#include <vector>

#include <fmt/format.h>

#include "hosts/embedded/gates/threshold_set.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/market/bar_frequency.hpp"
#include "hosts/embedded/market/panel_digest.hpp"
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
constexpr const char* kJudgesBothSigns = "judges_both_signs";
constexpr const char* kLeastKnownShare = "least_known_share";
constexpr const char* kPeriodsPerYear = "periods_per_year";
constexpr const char* kNeutralize = "neutralize";
constexpr const char* kPriceFormat = "price_format";
constexpr const char* kPricePaths = "price_paths";
constexpr const char* kColumns = "columns";
constexpr const char* kDateFormat = "date_format";
constexpr const char* kDecimal = "decimal";
constexpr const char* kSymbol = "symbol";

Value optional_value(const auto& value) {
  return value ? Value(*value) : Value();
}

// Empty where the file says all itself.
Mapping price_format_object(const PriceFormat& format) {
  Mapping columns;
  for (const auto& [field, name] : format.columns)
    columns.set(Value(field), Value(name));
  Mapping object;
  if (!format.columns.empty()) object.set(Value(kColumns), Value(columns));
  if (!format.date_format.empty()) object.set(Value(kDateFormat), Value(format.date_format));
  if (format.decimal != '\0') object.set(Value(kDecimal), Value(std::string(1, format.decimal)));
  if (!format.symbol.empty()) object.set(Value(kSymbol), Value(format.symbol));
  return object;
}

// Of several; where one was named the store has a column for it.
List absolute_paths(const PriceSource& prices) {
  List paths;
  if (prices.named().size() == 1) return paths;
  for (const std::filesystem::path& path : prices.named())
    paths.append(Value(std::filesystem::absolute(path).string()));
  return paths;
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
              {"has_archive", !options.has_no_archive},
              {"has_known_formulas", !options.has_no_known_formulas},
              {"has_simple_forms", !options.has_no_simple_forms},
              {kJudgesBothSigns, !options.is_as_written},
              {"vocabulary", settings_mapping(host.vocabulary)},
              {"cost_basis_points", data.book.cost_basis_points},
              {kDelayDays, data.book.delay_days},
              {kDelistingReturn, data.book.delisting_return},
              {kLeastKnownShare, data.book.least_known_share},
              {kPeriodsPerYear, data.book.periods_per_year},
              {kNeutralize, data.book.neutralize},
              {kPriceFormat, price_format_object(options.price_format)},
              {kPricePaths, absolute_paths(options.prices)},
              {"isolation", Value(to_text(options.isolation))},
              {"timeout_seconds", options.timeout_seconds},
              {"worker_memory_limit_bytes", optional_value(options.worker_memory_limit_bytes)},
              {"gates", threshold_set(data.gates, host.limits)},
              {"pool", Mapping{{"name", host.pool.name},
                               {"correlation_max", host.pool.correlation_max},
                               {"novelty_min", host.pool.novelty_min},
                               {"deflated_sharpe_min", host.pool.deflated_sharpe_min},
                               {"replaces_weaker", host.pool.replaces_weaker},
                               {"minimum_days", host.pool.minimum_days}}},
              {"eras", Mapping{{"train", host.eras.train},
                               {"holdout", host.eras.holdout},
                               {"holdout_from", date_text(data.holdout_from)}}}});
}

Mapping day_span(const DaySpan& span) {
  return {{"first_date", date_text(span.first_date)},
          {"last_date", date_text(span.last_date)},
          {"first_day", static_cast<std::int64_t>(span.first_day)},
          {"end_day", static_cast<std::int64_t>(span.end_day)}};
}

// The split of these days. What was held out once is never searched, nor the other way round: its
// signals have been judged by it.
EraPlan planned(const std::vector<Date>& dates, const HostConfig& config,
                const std::optional<Date>& kept_holdout) {
  if (!kept_holdout) return split_eras(dates, config.eras);
  const auto days_before = [&dates](Date day) {
    return std::lower_bound(dates.begin(), dates.end(), day) - dates.begin();
  };
  const std::optional<Date>& asked = config.eras.holdout_from;
  const std::string kept = fmt::format("the signal pool \"{}\" keeps its hold-out from {} on",
                                       config.pool.name, date_text(*kept_holdout));
  if (asked && days_before(*asked) != days_before(*kept_holdout)) {
    throw EraError(
        fmt::format("a hold-out from {} on was asked for, and {}; leave --holdout-from "
                    "out, or begin another signal pool with --pool NAME",
                    date_text(*asked), kept));
  }
  EraSettings settings = config.eras;
  settings.holdout_from = kept_holdout;
  try {
    return split_eras(dates, settings);
  } catch (const EraError& error) {
    throw EraError(
        fmt::format("{}: {}, or begin another signal pool with --pool NAME", kept, error.what()));
  }
}

// With other gates another candidate passes, and into another pool it has to be submitted anew.
std::string key_of_evaluations(const HostConfig& config, const GateThresholds& gates,
                               const std::string& data_key, const BookRules& book,
                               bool both_signs) {
  return sha256_hex(fmt::format("{} {} {} {} {} {}", data_key, book.periods_per_year,
                                genetic::json_text(threshold_set(gates, config.limits)),
                                config.market_id, config.pool.name, both_signs));
}

// The rules by which signals are traded on these prices.
BookRules book_rules(const SearchOptions& options, const MarketData& data) {
  BookRules book{options.cost_basis_points, options.delay_days, options.delisting_return,
                 options.least_known_share};
  book.periods_per_year = options.periods_per_year.value_or(periods_per_year(data.dates));
  const bool is_wide = data.instrument_count() >= kLeastNeutralInstruments;
  book.neutralize =
      options.neutralize.value_or(std::string(is_wide ? kNeutralizeMarket : kNeutralizeNone));
  return book;
}

// Without neutralized weights that of the versions which knew none, so that their stores go on.
std::string key_of_data(const std::string& prices, const BookRules& book) {
  std::string text = fmt::format("{} {} {} {} {}", prices, book.cost_basis_points, book.delay_days,
                                 book.delisting_return, book.least_known_share);
  if (book.neutralize != kNeutralizeNone) text += " " + book.neutralize;
  return sha256_hex(text);
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

RunData::RunData(const SearchOptions& options, const InterruptCheck& check,
                 const std::optional<Date>& kept_holdout)
    : RunData(options, read_prices(options.prices, options.price_format, check), kept_holdout) {}

RunData::RunData(const SearchOptions& options, PricesRead prices,
                 const std::optional<Date>& kept_holdout)
    : whole(std::move(prices.data)),
      plan(planned(whole.dates, options.config, kept_holdout)),
      digest(std::move(prices.digest)),
      holdout_from(kept_holdout.value_or(
          options.config.eras.holdout_from.value_or(plan.holdout.first_date))),
      split_is_kept(kept_holdout.has_value()),
      book(book_rules(options, whole)),
      gates(gates_on_days(options.config.gates, static_cast<double>(plan.seen_days()),
                          book.periods_per_year)),
      data_key(key_of_data(panel_digest(whole, plan.seen_days()), book)),
      evaluation_key(
          key_of_evaluations(options.config, gates, data_key, book, !options.is_as_written)) {}

PoolIdentity pool_identity(const SearchOptions& options, const RunData& data) {
  return {options.config.pool.name, options.config.market_id, data.plan.era, data.data_key};
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
  const Value neutralize = settings->get(Value(kNeutralize));
  if (neutralize.is_text()) rules.neutralize = genetic::str(neutralize);
  return rules;
}

bool judges_both_signs(const RunStart& start) {
  const auto settings = genetic::as_mapping(read_json(start.settings_json));
  return settings && genetic::truth(settings->get(Value(kJudgesBothSigns)));
}

PriceFormat price_format_of(const RunStart& start) {
  PriceFormat format;
  const auto settings = genetic::as_mapping(read_json(start.settings_json));
  const auto object =
      settings ? genetic::as_mapping(settings->get(Value(kPriceFormat))) : std::nullopt;
  if (!object) return format;
  const auto text = [&object](const char* name) {
    const Value value = object->get(Value(name));
    return value.is_text() ? genetic::str(value) : std::string();
  };
  if (const auto columns = genetic::as_mapping(object->get(Value(kColumns)))) {
    genetic::MappingCursor cursor(*columns);
    while (const auto column = cursor.next())
      format.columns.emplace(genetic::str(column->key), genetic::str(column->value));
  }
  format.date_format = text(kDateFormat);
  format.decimal = text(kDecimal).empty() ? '\0' : text(kDecimal).front();
  format.symbol = text(kSymbol);
  return format;
}

PriceSource price_source_of(const RunStart& start) {
  const auto settings = genetic::as_mapping(read_json(start.settings_json));
  const Value paths = settings ? settings->get(Value(kPricePaths)) : Value();
  PriceSource source;
  for (std::size_t i = 0; paths.is_list() && i < paths.list().size(); ++i)
    source.add(genetic::str(paths.list().at(i)));
  if (source.empty() && !start.price_path.empty()) source.add(start.price_path);
  return source;
}

RunStart run_start(const SearchOptions& options, const RunData& data,
                   const genetic::GeneticTemplate& config, int jobs) {
  RunStart start;
  start.started_at = wall_clock_seconds();
  start.seed = genetic::saturated_integer(config.seed());
  start.settings_json = settings_json(options, data, config, jobs);
  start.price_file = options.prices.named().front().filename().string();
  start.price_digest = data.digest;
  start.host_version = VARNHOLT_VERSION;
  start.price_path = std::filesystem::absolute(options.prices.named().front()).string();
  start.market_id = options.config.market_id;
  start.era_number = data.plan.era;
  start.eras_json = eras_json(data.plan);
  start.cost_basis_points = data.book.cost_basis_points;
  start.evaluation_key = data.evaluation_key;
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
  started.gates = data.gates;
  started.sharpe_gate_is_of_days = !options.config.gates.min_sharpe;
  started.periods_are_inferred = !options.periods_per_year;
  started.first_holdout_date = date_text(data.plan.holdout.first_date);
  started.split_is_kept = data.split_is_kept;
  return started;
}

Mapping client_manifest(const RunData& data, std::int64_t run_id) {
  return {{"client", "genetic-search"},
          {"version", VARNHOLT_VERSION},
          {"price_digest", data.digest},
          {"run", run_id}};
}

}  // namespace varnholt::embedded
