#include "hosts/embedded/store/sqlite_run_rows.hpp"

#include <utility>

#include "hosts/embedded/store/store_relations.hpp"

namespace varnholt::embedded {
namespace {

constexpr const char* kReadingRuns = "reading runs";
constexpr const char* kReadingEvaluation = "reading an evaluation";
constexpr const char* kReadingStructures = "reading what a run tried";
constexpr const char* kReadingFigures = "reading the figures of a signal";

constexpr const char* kOneRun = "WHERE id = :run";
constexpr const char* kOneEvaluation = "WHERE eval_id = :eval_id";
constexpr const char* kSelectStructures =
    "SELECT graph_key, min(candidate_number) AS first FROM evaluations WHERE run_id = :run "
    "GROUP BY graph_key";
constexpr const char* kSelectFigures =
    "SELECT f.sample AS sample, f.figures AS figures FROM signal_figures f "
    "JOIN evaluations e ON e.id = f.evaluation_id WHERE e.eval_id = :eval_id";

}  // namespace

SqliteRunRows::SqliteRunRows(SqliteDatabase& database)
    : database_(database),
      select_run_(database, select_from(run_relation()) + kOneRun, kReadingRuns),
      select_evaluation_(database, select_from(evaluation_relation()) + kOneEvaluation,
                         kReadingEvaluation),
      select_structures_(database, kSelectStructures, kReadingStructures),
      select_figures_(database, kSelectFigures, kReadingFigures) {}

std::optional<RunRecord> SqliteRunRows::find_run(std::int64_t run) {
  SqliteUse rows(select_run_);
  if (!rows.bind("run", run).step()) return std::nullopt;
  return read_row(rows, run_relation());
}

std::optional<EvaluationOfRun> SqliteRunRows::find_evaluation(const std::string& eval_id) {
  SqliteUse rows(select_evaluation_);
  if (!rows.bind("eval_id", eval_id).step()) return std::nullopt;
  EvaluationRecord evaluation = read_row(rows, evaluation_relation());
  std::optional<RunRecord> run = find_run(evaluation.run);
  if (!run) {
    throw StoreError(database_.path(), "evaluation " + eval_id + " has no run",
                     "the file is damaged; move it away");
  }
  return EvaluationOfRun{*std::move(run), std::move(evaluation)};
}

std::map<std::string, std::int64_t> SqliteRunRows::first_candidates(std::int64_t run) {
  std::map<std::string, std::int64_t> found;
  SqliteUse rows(select_structures_);
  rows.bind("run", run);
  while (rows.step())
    found.emplace(rows.text("graph_key"), rows.integer("first"));
  return found;
}

std::map<std::string, std::string> SqliteRunRows::figures(const std::string& eval_id) {
  std::map<std::string, std::string> found;
  SqliteUse rows(select_figures_);
  rows.bind("eval_id", eval_id);
  while (rows.step())
    found.emplace(rows.text("sample"), rows.text("figures"));
  return found;
}

}  // namespace varnholt::embedded
