// Prices, graphs and an observer for tests of the embedded search.
#pragma once

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "hosts/embedded/host/embedded_context.hpp"
#include "hosts/embedded/host/lineage.hpp"
#include "hosts/embedded/host/process_side.hpp"
#include "hosts/embedded/host/search_events.hpp"
#include "hosts/embedded/host/signal_submission.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "hosts/embedded/store/sqlite_run_store.hpp"
#include "hosts/embedded/vocabulary/graph_node.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {

inline MarketData small_universe() {
  SyntheticUniverseOptions options;
  options.instruments = 5;
  options.days = 200;
  options.factors = 2;
  options.seed = 11;
  return make_synthetic_universe(options);
}

// The close prices as a wide file.
inline void write_prices(const std::filesystem::path& path, const MarketData& data) {
  std::ofstream file(path);
  file.precision(17);
  file << "date";
  for (const std::string& symbol : data.symbols)
    file << ',' << symbol;
  file << '\n';
  for (Eigen::Index day = 0; day < data.day_count(); ++day) {
    file << date_text(data.dates[static_cast<std::size_t>(day)]);
    for (Eigen::Index column = 0; column < data.instrument_count(); ++column) {
      file << ',';
      if (!std::isnan(data.close(day, column))) file << data.close(day, column);
    }
    file << '\n';
  }
}

inline genetic::Value feature(const char* name) {
  return make_graph_node(name, kFeatureType, genetic::List());
}

// rank(name): valid in every vocabulary that has the feature.
inline genetic::Value ranked(const char* name) {
  return make_graph_node("cross_rank", kRotationType, genetic::List{feature(name)});
}

// Keeps everything that it is told.
class RecordingObserver : public SearchObserver {
 public:
  void on_started(const SearchStarted& event) override { started.push_back(event); }
  void on_tick(const SearchProgress& /*progress*/, std::int64_t evaluated) override {
    ticks.push_back(evaluated);
  }
  void on_measuring(const PoolMeasuring& measuring) override {
    if (measuring.is_over) measured.push_back(measuring);
  }
  void on_recorded(const CandidateRecorded& candidate) override { recorded.push_back(candidate); }
  void on_settled(const SettledSignal& signal) override { settled.push_back(signal); }
  void on_generation(const SearchProgress& progress) override { generations.push_back(progress); }
  void on_log(LogLevel /*level*/, std::string_view text) override { logs.emplace_back(text); }
  void on_metrics(const genetic::Mapping& record) override { metrics.emplace_back(record); }

  std::vector<SearchStarted> started;
  std::vector<std::int64_t> ticks;
  std::vector<PoolMeasuring> measured;  // At their ends.
  std::vector<CandidateRecorded> recorded;
  std::vector<SettledSignal> settled;
  std::vector<SearchProgress> generations;
  std::vector<std::string> logs;
  std::vector<genetic::Value> metrics;
};

// For tests in which nothing may be recorded.
class NoRecorder : public ResultRecorder {
 public:
  genetic::Value record(const genetic::Value& /*graph*/, bool /*passed*/,
                        const genetic::Mapping& /*keywords*/,
                        const ActiveAttempt& /*attempt*/) override {
    throw std::logic_error("nothing is recorded in this test");
  }
  void record_metrics(const genetic::Mapping& /*metrics*/) override {
    throw std::logic_error("no metrics are recorded in this test");
  }
};

// A folder of the test's own.
class FolderTest : public ::testing::Test {
 protected:
  FolderTest() { std::filesystem::create_directories(folder_); }
  ~FolderTest() override { std::filesystem::remove_all(folder_); }

  [[nodiscard]] std::filesystem::path in_folder(const char* name) const { return folder_ / name; }

 private:
  // The name of a parametrised test has a slash.
  static std::string test_name() {
    std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::replace(name.begin(), name.end(), '/', '-');
    return name;
  }

  std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() /
      ("varnholt-search-" + std::to_string(getpid()) + "-" + test_name());
};

// Thresholds that no signal fails.
inline GateThresholds open_gates() {
  constexpr double kBeyond = 1e9;
  return {.min_abs_weight_sum_mean = 0.0,
          .max_turnover = kBeyond,
          .max_max_weight = kBeyond,
          .max_delta_exposure = kBeyond,
          .min_gross_returns_sharpe = -kBeyond,
          .min_sharpe = -kBeyond};
}

// A signal that is like a member is refused, also where it earns more: some of these earn so little
// that their opposites do.
inline PoolSettings first_stays() {
  PoolSettings settings;
  settings.replaces_weaker = false;
  return settings;
}

// What a context stands on: an evaluator, a stop event without limits, an empty store, and the side
// of the processes.
class ContextTest : public FolderTest {
 protected:
  explicit ContextTest(const PoolSettings& pool = first_stays())
      : submission_(store_, evaluator_, pool_identity_, pool) {}

  [[nodiscard]] std::string database() const { return in_folder("runs.db").string(); }
  // What only somebody with the file in hand could do.
  void execute(const std::string& sql) const {
    SqliteDatabase(database(), kBusyMilliseconds).execute(sql.c_str(), "changing the file");
  }

  static constexpr int kBusyMilliseconds = 20;

  InterruptFlag interrupt_;
  std::shared_ptr<SearchStop> stop_ = std::make_shared<SearchStop>(StopLimits{}, interrupt_);
  Evaluator evaluator_{small_universe()};
  SqliteRunStore store_{database(), {.busy_timeout_milliseconds = kBusyMilliseconds}};
  PoolIdentity pool_identity_{"alpha", 7, 3, "data"};
  SignalSubmission submission_;
  RealSystemCalls system_;
  ProcessSide process_{system_, 60.0};
  Lineage lineage_;
};

}  // namespace varnholt::embedded::test
