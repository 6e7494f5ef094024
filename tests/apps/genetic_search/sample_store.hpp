// A store with two runs, for tests of the commands that look into one.
//
// Run 1 tried, with the graph keys k1 to k8:
//
//   1  fresh, passed, submitted to the pool "signals"
//   2  fresh, failed sharpe_min
//   3  crossover of 1 and 2, passed, refused by "signals"
//   4  point_mutation of 3 and of a graph that the run does not have, passed, waiting for "others"
//   5  to 8, each hoisted from the one before, failed
// Run 2 tried one candidate that failed without a backtest.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/store/sqlite_run_store.hpp"

namespace varnholt::app::samples {

inline constexpr const char* kEras =
    R"({"era":2,"holdout":{"end_day":100,"first_date":"2020-04-01","first_day":80,)"
    R"("last_date":"2020-05-01"},"seen_days":80,"train":[{"end_day":40,)"
    R"("first_date":"2020-01-01","first_day":0,"last_date":"2020-02-09"},{"end_day":80,)"
    R"("first_date":"2020-02-10","first_day":40,"last_date":"2020-03-31"}]})";
inline constexpr const char* kGraph =
    R"({"children":[{"children":[],"node":"close","type":"feature"}],"node":"cross_rank",)"
    R"("type":"rotation"})";
inline constexpr const char* kStatistics =
    R"({"abs_weight_sum_mean":1.0,"active_days":79,"annualized_returns":0.1,)"
    R"("delta_exposure":0.0,"drawdown":0.2,"gross_returns_sharpe":1.5,"holding_days":79,)"
    R"("max_weight":0.4,"missing_return_count":0,"quality_score":1.0,"sharpe":1.25,)"
    R"("turnover":0.5})";

inline embedded::EvaluationRecord evaluation(std::int64_t number, const std::string& lineage) {
  embedded::EvaluationRecord record;
  record.candidate_number = number;
  record.generation = (number - 1) / 3;
  record.graph_key = "k" + std::to_string(number);
  record.graph_json = kGraph;
  record.passed = true;
  record.statistics_json = kStatistics;
  record.lineage_json = lineage;
  record.market_id = 1;
  record.era_number = 2;
  return record;
}

inline embedded::EvaluationRecord failed(std::int64_t number, const std::string& lineage) {
  embedded::EvaluationRecord record = evaluation(number, lineage);
  record.passed = false;
  record.failure_reason = "sharpe_min";
  record.failures_json =
      R"({"sharpe_min":{"category":"quality","gate":"sharpe_gate","metric":"sharpe",)"
      R"("operator":"<","reason":"sharpe_min","threshold":0.3,"value":0.125}})";
  return record;
}

inline std::string hoisted_from(std::int64_t number) {
  return R"({"operators":["hoist_mutation"],"origin":"bred","parents":["k)" +
         std::to_string(number) + R"("]})";
}

inline std::string repaired(const std::string& plan, const std::string& parents, int depth) {
  return R"({"depth":)" + std::to_string(depth) +
         R"(,"explanation":"what it means","origin":"repaired","parents":[)" + parents +
         R"(],"plan":")" + plan + R"(","reason":"sharpe_min"})";
}

// Of a repair whose source has kStatistics.
inline constexpr const char* kBetterStatistics =
    R"({"abs_weight_sum_mean":1.0,"active_days":79,"annualized_returns":0.1,)"
    R"("delta_exposure":0.0,"drawdown":0.2,"gross_returns_sharpe":-1.5,"holding_days":79,)"
    R"("max_weight":0.4,"missing_return_count":0,"quality_score":1.0004,"sharpe":2.5,)"
    R"("turnover":0.25})";

// For run 1, where a test wants them: 21 is 2 turned round, 22 is 21 blended with 1, and 23 ranks a
// graph that the run does not have.
inline std::vector<embedded::EvaluationRecord> repairs() {
  std::vector<embedded::EvaluationRecord> found = {
      evaluation(21, repaired("reverse", R"("k2")", 1)),
      evaluation(22, repaired("blend_with_peer", R"("k21","k1")", 2)),
      failed(23, repaired("rank", R"("feedfacefeedface")", 1))};
  found[0].statistics_json = kBetterStatistics;
  return found;
}

inline std::vector<embedded::EvaluationRecord> evaluations() {
  const std::string fresh = R"({"origin":"fresh"})";
  return {evaluation(1, fresh),
          failed(2, fresh),
          evaluation(3, R"({"operators":["crossover"],"origin":"bred","parents":["k1","k2"]})"),
          evaluation(4, R"({"operators":["point_mutation","crossover"],"origin":"bred",)"
                        R"("parents":["k3","feedfacefeedface"]})"),
          failed(5, hoisted_from(4)),
          failed(6, hoisted_from(5)),
          failed(7, hoisted_from(6)),
          failed(8, hoisted_from(7))};
}

inline embedded::RunStart run_start() {
  embedded::RunStart start;
  start.started_at = 1'600'000'000;
  start.seed = 123;
  start.settings_json = "{}";
  start.price_file = "prices.csv";
  start.price_digest = "the digest";
  start.host_version = "1";
  start.price_path = "/data/prices.csv";
  start.market_id = 1;
  start.era_number = 2;
  start.eras_json = kEras;
  start.cost_basis_points = 5.0;
  return start;
}

inline std::int64_t submit(embedded::RunStore& store, const std::string& eval_id,
                           const std::string& pool) {
  const std::vector<double> pnl = {0.5, -0.5};
  embedded::NewSubmission submission;
  submission.pool = {pool, 1, 2, "data"};
  submission.eval_id = eval_id;
  submission.payload_json = "{}";
  submission.pnl = pnl;
  submission.queued_at = 1'600'000'001;
  return store.submissions().enqueue(submission).id;
}

inline void fill(embedded::RunStore& store) {
  const std::int64_t first = store.begin_run(run_start());
  store.record_evaluations(first, evaluations());
  store.record_holdout("1-1", R"({"sharpe":-0.5})");
  embedded::Settlement settlement{1.0, 0.2, 0.0, 0.7, {}, {}, 1'600'000'002};
  static_cast<void>(store.submissions().settle(submit(store, "1-1", "signals"), settlement));
  settlement.correlation = 0.9;
  settlement.refusal_reason = "correlation_exceeded";
  settlement.refusal_detail = "correlation 0.9 with 1-1";
  static_cast<void>(store.submissions().settle(submit(store, "1-3", "signals"), settlement));
  static_cast<void>(submit(store, "1-4", "others"));
  static_cast<void>(store.end_run(first, 1'600'000'100, "stopped"));

  embedded::RunStart old = run_start();
  old.price_path.clear();
  old.market_id.reset();
  old.era_number.reset();
  old.eras_json = "null";
  old.cost_basis_points.reset();
  const std::int64_t second = store.begin_run(old);
  embedded::EvaluationRecord late = failed(1, R"({"origin":"seed"})");
  late.failure_reason = "worker_timeout";
  late.failures_json = R"({"worker_timeout":"the limit was 60 seconds"})";
  late.statistics_json = "null";
  store.record_evaluations(second, {late});
}

// The store in a folder of the test's own.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(folder_); }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  [[nodiscard]] std::filesystem::path in_folder(const char* name) const { return folder_ / name; }
  [[nodiscard]] std::filesystem::path filled() const {
    embedded::SqliteRunStore store(in_folder("runs.db").string());
    fill(store);
    return in_folder("runs.db");
  }

 private:
  std::filesystem::path folder_ = std::filesystem::temp_directory_path() /
                                  ("genetic-search-store-" + std::to_string(getpid()) + "-" +
                                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

}  // namespace varnholt::app::samples
