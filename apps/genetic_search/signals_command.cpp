#include "apps/genetic_search/signals_command.hpp"

#include <algorithm>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/listed_signal.hpp"
#include "apps/genetic_search/signal_table.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {
namespace {

using embedded::SubmissionRecord;
using embedded::SubmissionState;

ListedSignal listed(embedded::StoreReader& store, const SubmissionRecord& submission,
                    Damages& damages) {
  ListedSignal signal;
  signal.submission = submission;
  const auto found = store.find_evaluation(submission.eval_id);
  if (!found) {
    damages.note("there is no evaluation " + submission.eval_id + ", which was submitted");
    return signal;
  }
  const embedded::EvaluationRecord& evaluation = found->evaluation;
  const std::string statistics = "the statistics of " + submission.eval_id;
  signal.expression = stored_expression(evaluation.graph_json);
  signal.in_sample = stored_json(evaluation.statistics_json, statistics, damages);
  signal.holdout = stored_json(evaluation.holdout_statistics_json.value_or("null"),
                               "the hold-out statistics of " + submission.eval_id, damages);
  return signal;
}

std::optional<double> figure(const ListedSignal& signal, std::string_view name) {
  return find_signal_figure(name)->of(signal);
}

std::string signal_line(const ListedSignal& signal) {
  Json object = {{"eval_id", signal.submission.eval_id}, {"run_id", signal.submission.run}};
  object.update(submission_json(signal.submission));
  object["in_sample_sharpe"] = figure_json(figure(signal, "sharpe"));
  object["holdout_sharpe"] = figure_json(figure(signal, "holdout"));
  object["expression"] = signal.expression.empty() ? Json(nullptr) : Json(signal.expression);
  return json_line(object);
}

std::string table_of(const std::vector<ListedSignal>& signals, const SignalsCommand& command,
                     Width width) {
  const SignalFigure* const sorted_by = find_signal_figure(command.sort.value_or(""));
  const bool has_own_column = sorted_by != nullptr && !sorted_by->is_always_listed;
  std::vector<TableColumn> columns = {{"id"},  {"run"},       {"pool", Align::Left}, {"market"},
                                      {"era"}, {"in sample"}, {"hold-out"}};
  if (has_own_column) columns.push_back({std::string(sorted_by->name)});
  if (command.all) columns.push_back({"state", Align::Left});
  std::vector<SignalRow> rows;
  for (const ListedSignal& signal : signals) {
    const embedded::PoolIdentity& pool = signal.submission.pool;
    SignalRow& row = rows.emplace_back();
    row.cells = {signal.submission.eval_id,
                 std::to_string(signal.submission.run),
                 on_one_line(pool.signal_pool_name),
                 std::to_string(pool.market_id),
                 std::to_string(pool.era_number),
                 figure_text(figure(signal, "sharpe")),
                 figure_text(figure(signal, "holdout"))};
    if (has_own_column) row.cells.push_back(figure_text(sorted_by->of(signal)));
    if (command.all) row.cells.push_back(on_one_line(state_text(signal.submission)));
    row.expression = signal.expression;
  }
  return signal_table_text(columns, rows, width);
}

// The best by the figure that they are sorted by, else the latest.
std::vector<ListedSignal> chosen(std::vector<ListedSignal> signals, const SignalsCommand& command) {
  const auto wanted = [&command](const ListedSignal& signal) {
    return is_within(signal, command.bounds);
  };
  signals.erase(std::stable_partition(signals.begin(), signals.end(), wanted), signals.end());
  if (command.sort) sort_by(*find_signal_figure(*command.sort), signals);
  const std::size_t limit = static_cast<std::size_t>(
      std::min<std::int64_t>(command.limit.value_or(std::numeric_limits<std::int64_t>::max()),
                             static_cast<std::int64_t>(signals.size())));
  const auto left_out = static_cast<std::ptrdiff_t>(signals.size() - limit);
  if (command.sort) {
    signals.erase(signals.end() - left_out, signals.end());
  } else {
    signals.erase(signals.begin(), signals.begin() + left_out);
  }
  return signals;
}

// What there is instead of a table.
std::string nothing_text(const SignalsCommand& command, embedded::StoreReader& store) {
  std::string text = command.all ? "Nothing was handed in" : "No signal was submitted";
  if (command.run) text += fmt::format(" by run {}", *command.run);
  if (command.pool) text += fmt::format(" to the signal pool \"{}\"", on_one_line(*command.pool));
  text += ".";
  std::set<std::string> pools;
  std::int64_t others = 0;
  for (const SubmissionRecord& submission : store.submissions().list({})) {
    pools.insert(submission.pool.signal_pool_name);
    if (submission.state != SubmissionState::Submitted) ++others;
  }
  if (command.pool && !pools.empty() && !pools.contains(*command.pool)) {
    text += " The signal pools are:";
    for (const std::string& pool : pools)
      text += fmt::format(" \"{}\"", on_one_line(pool));
    text += ".";
  } else if (!command.all && others > 0) {
    text += " With --all, refused and waiting ones are listed too.";
  }
  return text + "\n";
}

}  // namespace

void signals_command(const SignalsCommand& command, Output& output, Width width) {
  const std::unique_ptr<embedded::StoreReader> opened =
      embedded::open_store_reader(command.database);
  embedded::StoreReader& store = *opened;
  if (command.run && !store.find_run(*command.run)) {
    throw UsageError(fmt::format("there is no run {} in {}; leave out --run to list those of all",
                                 *command.run, store.path()));
  }
  embedded::SubmissionFilter filter;
  filter.run = command.run;
  if (!command.all) filter.state = SubmissionState::Submitted;
  std::vector<ListedSignal> all;
  Damages damages;
  for (const SubmissionRecord& submission : store.submissions().list(filter)) {
    if (command.pool && submission.pool.signal_pool_name != *command.pool) continue;
    all.push_back(listed(store, submission, damages));
  }
  const std::size_t found = all.size();
  const std::vector<ListedSignal> signals = chosen(std::move(all), command);
  if (command.json) {
    for (const ListedSignal& signal : signals)
      output.write(signal_line(signal));
  } else if (found == 0) {
    output.write(nothing_text(command, store));
  } else {
    if (!signals.empty()) output.write(table_of(signals, command, width));
    if (signals.size() < found) {
      output.write(fmt::format("{} of {}; the rest are beyond what was asked for.\n",
                               signals.size(), found));
    }
  }
  output.throw_if_failed();
  damages.throw_if_any(store);
}

}  // namespace varnholt::app
