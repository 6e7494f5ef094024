// A store opened for reading only.
//
// Opening a RunStore makes the file when it is not there, brings old tables up to date, and marks
// the runs of dead processes as interrupted. Commands that look do none of that: they read the
// tables as docs/store-schema.md describes them, over a connection that refuses to write. All reads
// of a reader see the store as it was at the first one, also while a search goes on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/embedded/store/attempt_table.hpp"
#include "hosts/embedded/store/store_error.hpp"
#include "hosts/embedded/store/store_records.hpp"
#include "hosts/embedded/store/submission_table.hpp"

namespace varnholt::embedded {

class StoreReader {
 public:
  StoreReader() = default;
  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;
  virtual ~StoreReader() = default;

  // The absolute path of the file.
  [[nodiscard]] virtual const std::string& path() const noexcept = 0;

  [[nodiscard]] virtual std::optional<RunRecord> find_run(std::int64_t run) = 0;
  // With its run.
  [[nodiscard]] virtual std::optional<EvaluationOfRun> find_evaluation(
      const std::string& eval_id) = 0;
  // The figures of an evaluation by sample (kInSample, kHoldout), as JSON; empty where there are
  // none.
  [[nodiscard]] virtual std::map<std::string, std::string> figures(const std::string& eval_id) = 0;
  // The first candidate number of each structure that the run tried, by the graph's key.
  [[nodiscard]] virtual std::map<std::string, std::int64_t> first_candidates(std::int64_t run) = 0;

  // Both refuse to write.
  [[nodiscard]] virtual SubmissionTable& submissions() noexcept = 0;
  [[nodiscard]] virtual AttemptTable& attempts() noexcept = 0;
};

// Throws StoreError for a file that is not there, that is not a store, or whose tables are of
// another version than this program's.
[[nodiscard]] std::unique_ptr<StoreReader> open_store_reader(const std::filesystem::path& path);

// The first day of the hold-out that a pool keeps, "2026-01-31": for a run that is to read its
// prices before it opens the store. In a store of an earlier version it is the one that bringing it
// up to date will give. Nothing where the pool has none, and where there is no store yet or
// something else: what that is, whoever opens it says.
[[nodiscard]] std::optional<std::string> stored_holdout_from(const std::filesystem::path& path,
                                                             const PoolIdentity& pool);

// What runs of one evaluation key have found.
struct EarlierSearch {
  // The keys of the structures whose backtest was completed, whatever it came to.
  std::vector<std::string> structures;
  // The graphs of the best that passed, as JSON, each structure once, the best quality first.
  std::vector<std::string> best_graphs;
};

// At most `best_count` of the best. Nothing where there is no store yet, or one of another version,
// in which runs have no such key.
[[nodiscard]] EarlierSearch stored_search(const std::filesystem::path& path,
                                          const std::string& evaluation_key,
                                          std::int64_t best_count);

}  // namespace varnholt::embedded
