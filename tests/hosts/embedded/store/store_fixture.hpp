// A store in a folder of its own, and rows to put into it.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/sqlite_run_store.hpp"

namespace varnholt::embedded::test {

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(folder_); }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  static RunStart start() {
    return {1000.5, 123456789012345, R"({"batch_size":16})", "prices.csv", "ab12", "0.1.0"};
  }
  static EvaluationRecord passing(std::int64_t number, double quality, double sharpe = 1.0) {
    EvaluationRecord record;
    record.candidate_number = number;
    record.generation = number / 10;
    record.graph_key = "key" + std::to_string(number);
    record.graph_json = R"({"node":"close"})";
    record.passed = true;
    record.statistics_json = R"({"turnover":0.25})";
    record.sharpe = sharpe;
    record.quality_score = quality;
    record.elapsed_seconds = 0.125;
    record.worker_pid = 4000 + number;
    record.recorded_at = 2000.0 + static_cast<double>(number);
    return record;
  }
  static EvaluationRecord failing(std::int64_t number, const std::string& reason) {
    EvaluationRecord record = passing(number, 9.0, 9.0);
    record.passed = false;
    record.failure_reason = reason;
    record.failure_detail = "because";
    return record;
  }
  static std::vector<EvaluationRecord> batch(std::int64_t first, std::int64_t count) {
    std::vector<EvaluationRecord> records;
    for (std::int64_t number = first; number < first + count; ++number) {
      records.push_back(passing(number, static_cast<double>(number)));
    }
    return records;
  }
  // The text of the StoreError that an action gives.
  template <typename Action>
  static std::string error_of(const Action& action) {
    try {
      action();
    } catch (const StoreError& error) {
      return error.what();
    }
    return "no error";
  }
  static std::string bytes_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static std::string integrity(const std::string& path) {
    SqliteDatabase database(path, 1000);
    return database.query_text("PRAGMA integrity_check", "checking it");
  }

  const std::filesystem::path folder_ =
      std::filesystem::path(::testing::TempDir()) / ("store_test_" + std::to_string(::getpid()));
  const std::string path_ = (folder_ / "runs.db").string();
};

}  // namespace varnholt::embedded::test
