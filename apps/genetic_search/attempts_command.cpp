#include "apps/genetic_search/attempts_command.hpp"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/signal_table.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "search_templates/genetic/value/errors.hpp"

namespace varnholt::app {
namespace {

using embedded::AttemptFilter;
using embedded::AttemptRecord;
using embedded::DispositionCount;

Json or_null(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json(nullptr);
}

// A stored JSON text as JSON; the text itself where it is damaged.
Json parsed(const std::string& text) {
  try {
    return to_json(embedded::read_json(text));
  } catch (const genetic::ValueError&) {
    return text;
  }
}

std::string disposition_of(const AttemptRecord& attempt) {
  return attempt.end ? attempt.end->terminal_disposition : embedded::kOpenAttempt;
}

std::string table_of(const std::vector<AttemptRecord>& attempts, Width width) {
  const std::vector<TableColumn> columns = {{"attempt"},
                                            {"run"},
                                            {"candidate", Align::Left},
                                            {"seconds"},
                                            {"ended as", Align::Left},
                                            {"reason", Align::Left},
                                            {"id"}};
  std::vector<SignalRow> rows;
  for (const AttemptRecord& attempt : attempts) {
    const auto& end = attempt.end;
    const std::optional<double> seconds = attempt_seconds(attempt);
    const auto text = [](const std::optional<std::string>& told) {
      return told ? on_one_line(*told) : std::string("-");
    };
    SignalRow& row = rows.emplace_back();
    row.cells = {std::to_string(attempt.id),
                 std::to_string(attempt.start.run),
                 on_one_line(attempt.start.rotation_identifier),
                 seconds ? fmt::format("{:.3f}", *seconds) : "-",
                 on_one_line(disposition_of(attempt)),
                 end ? text(end->failure_reason) : "-",
                 end ? text(end->eval_id) : "-"};
    row.expression = stored_expression(attempt.start.graph_json);
  }
  return signal_table_text(columns, rows, width);
}

// "412 attempts: rejected 390, passed 20, open 2."
std::string counts_text(const std::vector<DispositionCount>& counts) {
  std::int64_t all = 0;
  std::string text;
  for (const DispositionCount& count : counts) {
    all += count.count;
    text += fmt::format("{} {} {}", text.empty() ? ":" : ",", on_one_line(count.disposition),
                        count.count);
  }
  return fmt::format("{} attempt{}{}.\n", all, all == 1 ? "" : "s", text);
}

void check(const AttemptsCommand& command, embedded::StoreReader& store) {
  if (command.run && !store.find_run(*command.run)) {
    throw UsageError(fmt::format("there is no run {} in {}; leave out --run to list those of all",
                                 *command.run, store.path()));
  }
  if (!command.disposition) return;
  const std::vector<DispositionCount> known = store.attempts().dispositions({});
  const auto has_name = [&](const DispositionCount& count) {
    return count.disposition == *command.disposition;
  };
  if (std::any_of(known.begin(), known.end(), has_name)) return;
  std::string names;
  for (const DispositionCount& count : known)
    names += (names.empty() ? "" : ", ") + count.disposition;
  throw UsageError(
      fmt::format("no attempt in {} ended as \"{}\"; {}", store.path(),
                  cut_to_width(on_one_line(*command.disposition), 40),
                  names.empty() ? "there are no attempts" : "there are " + on_one_line(names)));
}

}  // namespace

std::optional<double> attempt_seconds(const AttemptRecord& attempt) {
  if (!attempt.end || attempt.events.empty()) return std::nullopt;
  // A wall clock that was set back between the two tells nothing.
  return std::max(0.0, attempt.events.back().at - attempt.events.front().at);
}

Json attempt_json(const AttemptRecord& attempt) {
  const embedded::NewAttemptRow& start = attempt.start;
  Json object = {{"attempt_id", attempt.id},
                 {"run_id", start.run},
                 {"source_path", start.source_path},
                 {"graph_key", start.graph_key},
                 {"graph", parsed(start.graph_json)},
                 {"algorithm", start.algorithm},
                 {"rotation_identifier", start.rotation_identifier},
                 {"era_number", start.era_number ? Json(*start.era_number) : Json(nullptr)},
                 {"market_id", start.market_id ? Json(*start.market_id) : Json(nullptr)},
                 {"data_shape", parsed(start.data_shape_json)},
                 {"expected_columns", parsed(start.expected_columns_json)},
                 {"eval_type", start.eval_type}};
  const embedded::AttemptEndRow end = attempt.end.value_or(embedded::AttemptEndRow());
  const bool has_ended = attempt.end.has_value();
  const auto ended = [has_ended](Json value) { return has_ended ? std::move(value) : Json(); };
  object["terminal_disposition"] = ended(end.terminal_disposition);
  object["backtest_completed"] = ended(end.backtest_completed);
  object["generated_stats"] = parsed(end.generated_stats_json);
  object["candidate_stats"] = parsed(end.candidate_stats_json);
  object["stats_construction_blocker"] = parsed(end.stats_construction_blocker_json);
  object["per_column_inventory"] = parsed(end.per_column_inventory_json);
  object["threshold_gate"] = parsed(end.threshold_gate_json);
  object["failure_category"] = or_null(end.failure_category);
  object["failure_reason"] = or_null(end.failure_reason);
  object["failure_detail"] = or_null(end.failure_detail);
  object["classification_source"] = ended(end.classification_source);
  object["eval_id"] = or_null(end.eval_id);
  object["ignored_ends"] = attempt.ignored_ends;
  object["seconds"] = figure_json(attempt_seconds(attempt));
  object["events"] = Json::array();
  for (const embedded::AttemptEvent& event : attempt.events) {
    object["events"].push_back({{"step", embedded::name_of(event.step)}, {"at", event.at}});
  }
  return object;
}

void attempts_command(const AttemptsCommand& command, Output& output, Width width) {
  const std::unique_ptr<embedded::StoreReader> opened =
      embedded::open_store_reader(command.database);
  embedded::StoreReader& store = *opened;
  check(command, store);
  AttemptFilter filter{command.run, command.disposition, command.limit};
  if (!command.limit && !command.json) filter.limit = kListedAttempts;
  const std::vector<AttemptRecord> attempts = store.attempts().list(filter);
  if (command.json) {
    for (const AttemptRecord& attempt : attempts)
      output.write(json_line(attempt_json(attempt)));
  } else {
    if (!attempts.empty()) output.write(table_of(attempts, width));
    output.write(counts_text(store.attempts().dispositions(filter)));
  }
  output.throw_if_failed();
}

}  // namespace varnholt::app
