#include "apps/genetic_search/show_command.hpp"

#include <ctime>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "apps/genetic_search/figures_text.hpp"
#include "apps/genetic_search/report.hpp"
#include "apps/genetic_search/signal_lineage.hpp"
#include "apps/genetic_search/signal_table.hpp"
#include "apps/genetic_search/stored_signal.hpp"
#include "hosts/embedded/search/run_description.hpp"
#include "hosts/embedded/store/store_reader.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::app {
namespace {

using embedded::EvaluationOfRun;
using embedded::SubmissionRecord;
using genetic::Key;
using genetic::key;
using genetic::Mapping;
using genetic::MappingCursor;
using genetic::Value;

// All that is shown, as it is stored.
struct Page {
  EvaluationOfRun found;
  std::string expression;
  Value graph;
  StoredFigures in_sample;
  StoredFigures holdout;
  Value failures;
  Value eras;
  std::vector<SubmissionRecord> submissions;
  // What they came to on the days of other runs.
  std::vector<embedded::NewMeasure> measures;
  Ancestor lineage;
};

Page page_of(embedded::StoreReader& store, const std::string& eval_id, Damages& damages) {
  Page page{required_evaluation(store, eval_id), {}, {}, {}, {}, {}, {}, {}, {}, {}};
  const embedded::EvaluationRecord& evaluation = page.found.evaluation;
  const auto json = [&](const std::string& text, const char* what) {
    return stored_json(text, fmt::format("the {} of {}", what, eval_id), damages);
  };
  page.expression = stored_expression(evaluation.graph_json);
  page.graph = json(evaluation.graph_json, "graph");
  page.in_sample.statistics = json(evaluation.statistics_json, "statistics");
  page.holdout.statistics =
      json(evaluation.holdout_statistics_json.value_or("null"), "hold-out statistics");
  const std::map<std::string, std::string> figures = store.figures(eval_id);
  const auto figures_of = [&](const char* sample, const char* what) {
    const auto found = figures.find(sample);
    return found == figures.end() ? Value() : json(found->second, what);
  };
  page.in_sample.figures = figures_of(embedded::kInSample, "figures");
  page.holdout.figures = figures_of(embedded::kHoldout, "hold-out figures");
  page.failures = json(evaluation.failures_json, "failures");
  page.eras = stored_json(page.found.run.start.eras_json,
                          fmt::format("the eras of run {}", page.found.run.id), damages);
  page.submissions = store.submissions().of_evaluation(evaluation.eval_id);
  for (const SubmissionRecord& submission : page.submissions) {
    for (embedded::NewMeasure& measure : store.submissions().measures(submission.id))
      page.measures.push_back(std::move(measure));
  }
  page.lineage = ancestry(store, page.found, damages);
  return page;
}

// --- the page ---

Value entry(const Value& mapping, const std::string& name) {
  return mapping.is_mapping() ? mapping.mapping().get(name) : Value();
}

std::string text_of(const Value& value) {
  return value.is_absent() ? "-" : on_one_line(genetic::str(value));
}

std::string number_text(const Value& value) {
  if (value.is_real()) return fmt::format("{:.6g}", value.real());
  return text_of(value);
}

std::string time_text(double seconds) {
  // To the year 9999: what is beyond is no time that a run was begun at.
  constexpr double kEndOfTimes = 253402300800.0;
  if (!(seconds >= 0.0 && seconds < kEndOfTimes)) return "at no time that can be told";
  return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

std::string verdict_text(const embedded::EvaluationRecord& evaluation) {
  if (evaluation.passed) return "passed its gates";
  std::string text = "failed: " + evaluation.failure_reason.value_or("no reason is stored");
  return on_one_line(text);
}

std::string submission_text(const SubmissionRecord& submission) {
  std::string text = fmt::format("{}, signal pool \"{}\", market {}, era {}",
                                 state_text(submission), submission.pool.signal_pool_name,
                                 submission.pool.market_id, submission.pool.era_number);
  if (const auto& settlement = submission.settlement) {
    text += fmt::format("; novelty {:.2f} (at least {:g}), correlation {:.2f} (at most {:g})",
                        settlement->novelty, settlement->novelty_threshold, settlement->correlation,
                        settlement->correlation_threshold);
    if (settlement->refusal_detail) text += "; " + *settlement->refusal_detail;
  } else if (submission.pending_reason) {
    text += "; " + *submission.pending_reason;
  }
  return on_one_line(text);
}

std::string measure_text(const embedded::NewMeasure& measure) {
  return fmt::format("on the days of run {}: {}", measure.run,
                     measure.problem ? "cannot be, " + on_one_line(*measure.problem)
                                     : "Sharpe ratio " + figure_text(measure.sharpe));
}

std::string run_text(const embedded::RunRecord& run) {
  return fmt::format("{}, seed {}, begun {}, {}", run.id, run.start.seed,
                     time_text(run.start.started_at),
                     run.terminal_reason ? "ended: " + on_one_line(*run.terminal_reason)
                                         : std::string("not ended"));
}

std::string prices_text(const embedded::RunStart& start) {
  return on_one_line(stored_prices(start).text());
}

// Empty for a run without eras.
std::string days_text(const Value& eras) {
  const Value train = entry(eras, "train");
  const Value holdout = entry(eras, "holdout");
  const Value era = entry(eras, "era");
  if (!train.is_list() || !era.is_integer() || era.integer() < 1 ||
      static_cast<std::size_t>(era.integer()) > train.list().size()) {
    return {};
  }
  const Value last = train.list().at(static_cast<std::size_t>(era.integer() - 1));
  return fmt::format("in sample {}, {} to {}; hold-out {} to {}", text_of(entry(eras, "seen_days")),
                     text_of(entry(train.list().at(0), "first_date")),
                     text_of(entry(last, "last_date")), text_of(entry(holdout, "first_date")),
                     text_of(entry(holdout, "last_date")));
}

// "sharpe_min  sharpe 0.12 < 0.3, gate sharpe_min", or the detail as it is.
std::string failed_gates_text(const Value& failures, Width width) {
  if (!failures.is_mapping()) return {};
  std::string text;
  MappingCursor cursor(failures.mapping());
  while (const auto failure = cursor.next()) {
    const Value& detail = failure->value;
    const bool is_gate = !entry(detail, "threshold").is_absent();
    const std::string told =
        is_gate
            ? fmt::format("{} {} {} {}, gate {}", text_of(entry(detail, "metric")),
                          number_text(entry(detail, "value")), text_of(entry(detail, "operator")),
                          number_text(entry(detail, "threshold")), text_of(entry(detail, "gate")))
            : text_of(detail);
    text += entry_text("  " + on_one_line(genetic::str(failure->key)) + "  ", told, width);
  }
  return text;
}

std::string page_text(const Page& page, Width width) {
  const embedded::EvaluationRecord& evaluation = page.found.evaluation;
  std::string text;
  const auto line = [&](const char* name, const std::string& told) {
    if (!told.empty()) text += entry_text(padded(name, 12, Align::Left), told, width);
  };
  line("evaluation",
       fmt::format("{}: candidate {} of run {}, generation {}", evaluation.eval_id,
                   evaluation.candidate_number, page.found.run.id, evaluation.generation));
  line("expression", on_one_line(page.expression.empty() ? "-" : page.expression));
  line("verdict", verdict_text(evaluation));
  for (const SubmissionRecord& submission : page.submissions)
    line("submission", submission_text(submission));
  if (page.submissions.empty()) line("submission", "none");
  for (const embedded::NewMeasure& measure : page.measures)
    line("measured", measure_text(measure));
  line("run", run_text(page.found.run));
  line("prices", prices_text(page.found.run.start));
  line("book", book_text(embedded::book_rules_of(page.found.run.start), false));
  line("days", days_text(page.eras));
  text += "\nStatistics\n" + signal_figures_text(page.in_sample, page.holdout, width);
  const std::string failures = failed_gates_text(page.failures, width);
  if (!failures.empty()) text += "\nFailures\n" + failures;
  text += "\nLineage, parents below their child\n" + ancestry_text(page.lineage, width);
  // As it stands in the store: it can be given to --seeds within [ ].
  text += "\nGraph\n" + genetic::json_text(page.graph) + "\n";
  return text;
}

// --- JSON ---

Json run_json(const Page& page) {
  const embedded::RunRecord& run = page.found.run;
  const embedded::RunStart& start = run.start;
  const embedded::BookRules rules = embedded::book_rules_of(start);
  return {{"run_id", run.id},
          {"seed", start.seed},
          {"started_at", start.started_at},
          {"ended_at", figure_json(run.ended_at)},
          {"terminal_reason", run.terminal_reason ? Json(*run.terminal_reason) : Json(nullptr)},
          {"prices", stored_prices(start).text()},
          {"price_digest", start.price_digest},
          {"cost_basis_points", figure_json(start.cost_basis_points)},
          {"delay_days", rules.delay_days},
          {"delisting_return", rules.delisting_return},
          {"least_known_share", rules.least_known_share},
          {"neutralize", rules.neutralize},
          {"periods_per_year", rules.periods_per_year},
          {"market_id", start.market_id ? Json(*start.market_id) : Json(nullptr)},
          {"era_number", start.era_number ? Json(*start.era_number) : Json(nullptr)},
          {"eras", to_json(page.eras)}};
}

Json measure_json(const embedded::NewMeasure& measure) {
  return {{"run_id", measure.run},
          {"data_key", measure.data_key},
          {"sharpe", figure_json(measure.sharpe)},
          {"problem", measure.problem ? Json(*measure.problem) : Json(nullptr)},
          {"measured_at", measure.measured_at}};
}

Json page_json(const Page& page) {
  const embedded::EvaluationRecord& evaluation = page.found.evaluation;
  Json submissions = Json::array();
  for (const SubmissionRecord& submission : page.submissions)
    submissions.push_back(submission_json(submission));
  Json measures = Json::array();
  for (const embedded::NewMeasure& measure : page.measures)
    measures.push_back(measure_json(measure));
  return {{"eval_id", evaluation.eval_id},
          {"candidate_number", evaluation.candidate_number},
          {"generation", evaluation.generation},
          {"expression", page.expression.empty() ? Json(nullptr) : Json(page.expression)},
          {"passed", evaluation.passed},
          {"failure_reason",
           evaluation.failure_reason ? Json(*evaluation.failure_reason) : Json(nullptr)},
          {"failures", to_json(page.failures)},
          {"statistics", to_json(page.in_sample.statistics)},
          {"holdout_statistics", to_json(page.holdout.statistics)},
          {"figures", to_json(page.in_sample.figures)},
          {"holdout_figures", to_json(page.holdout.figures)},
          {"submissions", submissions},
          {"measures", measures},
          {"run", run_json(page)},
          {"lineage", ancestry_json(page.lineage)},
          {"graph_key", evaluation.graph_key},
          {"graph", to_json(page.graph)}};
}

}  // namespace

void show_command(const ShowCommand& command, Output& output, Width width) {
  const std::unique_ptr<embedded::StoreReader> opened =
      embedded::open_store_reader(command.database);
  embedded::StoreReader& store = *opened;
  Damages damages;
  const Page page = page_of(store, command.eval_id, damages);
  output.write(command.json ? json_line(page_json(page)) : page_text(page, width));
  output.throw_if_failed();
  damages.throw_if_any(store);
}

}  // namespace varnholt::app
