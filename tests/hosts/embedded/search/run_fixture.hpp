// Whole searches on a small price file in a folder of the test's own.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/search/search_run.hpp"
#include "hosts/embedded/store/sqlite_run_store.hpp"
#include "tests/hosts/embedded/host/search_fixture.hpp"

namespace varnholt::embedded::test {

class SearchRunTest : public FolderTest {
 protected:
  SearchRunTest() { write_prices(in_folder("prices.csv"), small_universe()); }

  // Two generations, in which most of what is alive passes.
  [[nodiscard]] SearchOptions options() const {
    SearchOptions options;
    options.prices = in_folder("prices.csv");
    options.database = in_folder("runs.db");
    options.jobs = 2;
    options.batch_size = 6;
    options.generations = 2;
    options.seed = 21;
    options.config.gates.min_sharpe = -10.0;
    options.config.gates.min_gross_returns_sharpe = -10.0;
    return options;
  }
  // More of them, so that the pool has members that refuse others.
  [[nodiscard]] SearchOptions long_options() const {
    SearchOptions longer = options();
    longer.batch_size = 12;
    longer.generations = 4;
    return longer;
  }

  [[nodiscard]] static std::vector<SubmissionRecord> submissions(
      const SearchOptions& options, std::optional<SubmissionState> state = {}) {
    SqliteRunStore store(options.database.string());
    return store.submissions().list({{}, state});
  }

  InterruptFlag interrupt_;
  RecordingObserver observer_;
};

inline std::vector<std::string> expressions_of(const RecordingObserver& observer) {
  std::vector<std::string> expressions;
  for (const CandidateRecorded& candidate : observer.recorded)
    expressions.push_back(candidate.expression);
  return expressions;
}

}  // namespace varnholt::embedded::test
