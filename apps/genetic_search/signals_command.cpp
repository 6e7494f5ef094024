#include "apps/genetic_search/signals_command.hpp"

#include <set>
#include <vector>

#include <fmt/format.h>

#include "apps/genetic_search/signal_table.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "search_templates/genetic/value/value.hpp"

namespace varnholt::app {
namespace {

using embedded::SubmissionRecord;
using embedded::SubmissionState;

constexpr genetic::Key kSharpe = genetic::key<"sharpe">();

// A submission with what its evaluation has of it.
struct Listed {
  SubmissionRecord submission;
  std::string expression;
  std::optional<double> in_sample_sharpe;
  std::optional<double> holdout_sharpe;
};

Listed listed(embedded::StoreReader& store, const SubmissionRecord& submission, Damages& damages) {
  Listed signal;
  signal.submission = submission;
  const auto found = store.find_evaluation(submission.eval_id);
  if (!found) {
    damages.note("there is no evaluation " + submission.eval_id + ", which was submitted");
    return signal;
  }
  const embedded::EvaluationRecord& evaluation = found->evaluation;
  const std::string statistics = "the statistics of " + submission.eval_id;
  signal.expression = stored_expression(evaluation.graph_json);
  signal.in_sample_sharpe =
      figure_of(stored_json(evaluation.statistics_json, statistics, damages), kSharpe);
  signal.holdout_sharpe =
      figure_of(stored_json(evaluation.holdout_statistics_json.value_or("null"),
                            "the hold-out statistics of " + submission.eval_id, damages),
                kSharpe);
  return signal;
}

std::string signal_line(const Listed& signal) {
  Json object = {{"eval_id", signal.submission.eval_id}, {"run_id", signal.submission.run}};
  object.update(submission_json(signal.submission));
  object["in_sample_sharpe"] = figure_json(signal.in_sample_sharpe);
  object["holdout_sharpe"] = figure_json(signal.holdout_sharpe);
  object["expression"] = signal.expression.empty() ? Json(nullptr) : Json(signal.expression);
  return json_line(object);
}

std::string table_of(const std::vector<Listed>& signals, bool with_state, Width width) {
  std::vector<TableColumn> columns = {{"id"},  {"run"},       {"pool", Align::Left}, {"market"},
                                      {"era"}, {"in sample"}, {"hold-out"}};
  if (with_state) columns.push_back({"state", Align::Left});
  std::vector<SignalRow> rows;
  for (const Listed& signal : signals) {
    const embedded::PoolIdentity& pool = signal.submission.pool;
    SignalRow& row = rows.emplace_back();
    row.cells = {signal.submission.eval_id,          std::to_string(signal.submission.run),
                 on_one_line(pool.signal_pool_name), std::to_string(pool.market_id),
                 std::to_string(pool.era_number),    figure_text(signal.in_sample_sharpe),
                 figure_text(signal.holdout_sharpe)};
    if (with_state) row.cells.push_back(on_one_line(state_text(signal.submission)));
    row.expression = signal.expression;
  }
  return signal_table_text(columns, rows, width);
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
  std::vector<Listed> signals;
  Damages damages;
  for (const SubmissionRecord& submission : store.submissions().list(filter)) {
    if (command.pool && submission.pool.signal_pool_name != *command.pool) continue;
    if (command.json) {
      output.write(signal_line(listed(store, submission, damages)));
    } else {
      signals.push_back(listed(store, submission, damages));
    }
  }
  if (!command.json) {
    output.write(signals.empty() ? nothing_text(command, store)
                                 : table_of(signals, command.all, width));
  }
  output.throw_if_failed();
  damages.throw_if_any(store);
}

}  // namespace varnholt::app
