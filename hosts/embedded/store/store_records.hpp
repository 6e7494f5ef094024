// Runs and evaluations as a store keeps them (docs/store-schema.md).
//
// Texts called JSON are stored as they are. Times are seconds of wall time since 1970-01-01 UTC.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "hosts/embedded/system/process_identity.hpp"

namespace varnholt::embedded {

struct RunStart {
  double started_at = 0;
  std::int64_t seed = 0;
  std::string settings_json;
  std::string price_file;
  // The SHA-256 of the price file's bytes.
  std::string price_digest;
  std::string host_version;

  // What it takes to evaluate one of the run's signals again, beside its graph: the file with the
  // digest above, the days, and the costs.
  std::string price_path = {};  // Absolute. Empty in runs of the first schema version.
  // Which market and era the run searched in. Absent in runs without eras.
  std::optional<std::int64_t> market_id = {};
  std::optional<std::int64_t> era_number = {};
  // The boundaries of all eras, the hold-out among them.
  std::string eras_json = "null";
  // Of what is traded. Absent in runs of the first schema version, whose settings have it.
  std::optional<double> cost_basis_points = {};
  // A digest of all that decides what an evaluation comes to: runs of one key need not evaluate a
  // structure twice. Empty in runs of earlier schema versions.
  std::string evaluation_key = {};
};

struct RunRecord {
  std::int64_t id = 0;
  RunStart start;
  // The process that runs it or ran it.
  ProcessIdentity process = {};
  // Both absent while the run goes on.
  std::optional<double> ended_at;
  std::optional<std::string> terminal_reason;
  // What chance alone would have found, told at the end of the run; absent before.
  std::optional<std::string> luck_json = {};
};

struct EvaluationRecord {
  // Unique within its run.
  std::int64_t candidate_number = 0;
  std::int64_t generation = 0;
  // A digest of the graph's structural key.
  std::string graph_key;
  std::string graph_json;
  bool passed = false;
  std::optional<std::string> failure_reason;
  std::optional<std::string> failure_detail;
  std::string statistics_json;
  // Repeated from the statistics, to sort by. One that is not a number counts as absent.
  std::optional<double> sharpe;
  std::optional<double> quality_score;
  double elapsed_seconds = 0;
  std::optional<std::int64_t> worker_pid;
  double recorded_at = 0;
  // How the graph came about: lineage_json of search/lineage.hpp.
  std::string lineage_json = R"({"origin":"unknown"})";
  // Every failure by its reason, of which `failure_reason` is the first.
  std::string failures_json = "{}";
  std::optional<std::int64_t> market_id = {};
  std::optional<std::int64_t> era_number = {};
  // The figures on days that the search never saw, once they are known.
  std::optional<std::string> holdout_statistics_json = {};
  // The graph as people read it; absent where it has no such form, and in rows of the first three
  // schema versions.
  std::optional<std::string> expression = {};
  // The store's own, filled in what is read and without meaning in what is recorded: the number of
  // the run, and the public id "<run>-<candidate number>".
  std::int64_t run = 0;
  std::string eval_id = {};
};

// The figures of an evaluation on the days of one sample, with its daily PnL.
struct FiguresRecord {
  std::string sample;  // kInSample or kHoldout.
  std::string figures_json;
  // The day on which the first of the returns is booked, counted from 0 in the days of the prices.
  std::int64_t first_day = 0;
  // A JSON list: fractions of the capital, after costs.
  std::string net_returns_json;
};
inline constexpr const char* kInSample = "in_sample";
inline constexpr const char* kHoldout = "holdout";

// A structure that was backtested, by its first evaluation.
struct TrialRecord {
  std::string eval_id;
  // Annualised, before costs, of the expression as it was tried; absent where it is no number.
  std::optional<double> gross_sharpe = {};
  // Drawn at random: neither bred nor repaired nor given.
  bool is_fresh = false;
};

// The public id of an evaluation, "3-17".
[[nodiscard]] std::string eval_id_of(std::int64_t run, std::int64_t candidate_number);

// An evaluation with the run that it belongs to.
struct EvaluationOfRun {
  RunRecord run;
  EvaluationRecord evaluation;
};

}  // namespace varnholt::embedded
