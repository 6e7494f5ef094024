// Goal: a store can be looked at without being made, repaired or changed, and what is no store is
// refused.
// Method: real files, compared byte by byte before and after; a child that dies without closing its
// store.
#include "hosts/embedded/store/store_reader.hpp"

#include <fstream>
#include <iterator>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "hosts/embedded/store/sqlite_database.hpp"
#include "tests/apps/genetic_search/sample_store.hpp"

namespace varnholt::embedded::test {
namespace {

namespace samples = app::samples;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class StoreReaderTest : public samples::StoreTest {
 protected:
  [[nodiscard]] std::string refusal(const std::filesystem::path& path) const {
    try {
      static_cast<void>(open_store_reader(path));
    } catch (const StoreError& error) {
      return error.what();
    }
    return "no error";
  }

  // Every file of the folder with its bytes.
  [[nodiscard]] std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(in_folder(""))) {
      std::ifstream file(entry.path(), std::ios::binary);
      found[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
    }
    return found;
  }

  void execute(const std::filesystem::path& path, const char* sql) const {
    SqliteDatabase(path.string(), 0).execute(sql, "changing it from outside");
  }
};

TEST_F(StoreReaderTest, ReadsRunsEvaluationsAndSubmissions) {
  const auto reader = open_store_reader(filled());
  const auto found = reader->find_evaluation("1-2");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->run.id, 1);
  EXPECT_EQ(found->run.start.price_path, "/data/prices.csv");
  EXPECT_EQ(found->run.start.price_digest, "the digest");
  EXPECT_EQ(found->run.start.eras_json, samples::kEras);
  EXPECT_EQ(found->run.start.cost_basis_points, 5.0);
  EXPECT_EQ(found->run.terminal_reason, "stopped");
  const EvaluationRecord& evaluation = found->evaluation;
  EXPECT_EQ(evaluation.eval_id, "1-2");
  EXPECT_EQ(evaluation.candidate_number, 2);
  EXPECT_EQ(evaluation.graph_key, "k2");
  EXPECT_EQ(evaluation.graph_json, samples::kGraph);
  EXPECT_FALSE(evaluation.passed);
  EXPECT_EQ(evaluation.failure_reason, "sharpe_min");
  EXPECT_EQ(evaluation.statistics_json, samples::kStatistics);
  EXPECT_THAT(evaluation.failures_json, HasSubstr("sharpe_gate"));
  EXPECT_EQ(evaluation.era_number, 2);
  EXPECT_EQ(evaluation.holdout_statistics_json, std::nullopt);
  EXPECT_EQ(reader->find_evaluation("1-1")->evaluation.holdout_statistics_json,
            R"({"sharpe":-0.5})");
  EXPECT_EQ(reader->submissions().list({}).size(), 3U);
  EXPECT_EQ(reader->find_run(2)->start.price_path, "");
}

TEST_F(StoreReaderTest, KnowsWhatIsNotThere) {
  const auto reader = open_store_reader(filled());
  EXPECT_EQ(reader->find_run(3), std::nullopt);
  EXPECT_EQ(reader->find_evaluation("1-9"), std::nullopt);
  EXPECT_EQ(reader->find_evaluation(""), std::nullopt);
  EXPECT_THAT(reader->first_candidates(3), IsEmpty());
}

TEST_F(StoreReaderTest, KnowsTheFirstCandidateOfEachStructure) {
  const std::filesystem::path path = filled();
  {
    SqliteRunStore store(path.string());
    EvaluationRecord again = samples::evaluation(9, R"({"origin":"fresh"})");
    again.graph_key = "k1";
    store.record_evaluations(1, {again});
  }
  const auto first = open_store_reader(path)->first_candidates(1);
  EXPECT_EQ(first.size(), 8U);
  EXPECT_EQ(first.at("k1"), 1);
  EXPECT_EQ(first.at("k8"), 8);
}

TEST_F(StoreReaderTest, LeavesTheFolderAsItIs) {
  const std::filesystem::path path = filled();
  const auto before = files();
  ASSERT_EQ(before.size(), 1U);
  {
    const auto reader = open_store_reader(path);
    EXPECT_TRUE(reader->find_evaluation("1-1").has_value());
  }
  EXPECT_EQ(files(), before);
}

TEST_F(StoreReaderTest, LeavesARunThatDiedToTheNextRun) {
  const std::filesystem::path path = filled();
  const pid_t child = fork();
  if (child == 0) {
    SqliteRunStore store(path.string());
    static_cast<void>(store.begin_run(samples::run_start()));
    _exit(0);
  }
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  const auto before = files();
  ASSERT_GT(before.at("runs.db-wal").size(), 0U);
  {
    const auto reader = open_store_reader(path);
    const auto run = reader->find_run(3);
    ASSERT_TRUE(run.has_value());
    EXPECT_EQ(run->terminal_reason, std::nullopt);
  }
  EXPECT_EQ(files().at("runs.db"), before.at("runs.db"));
  EXPECT_EQ(files().at("runs.db-wal"), before.at("runs.db-wal"));
  SqliteRunStore store(path.string());
  EXPECT_THAT(store.interrupted_runs(), ::testing::ElementsAre(3));
}

TEST_F(StoreReaderTest, SeesOneStateWhileARunGoesOn) {
  const std::filesystem::path path = filled();
  SqliteRunStore store(path.string());
  const auto reader = open_store_reader(path);
  EXPECT_EQ(reader->submissions().list({}).size(), 3U);
  static_cast<void>(samples::submit(store, "1-1", "third"));
  EXPECT_EQ(reader->submissions().list({}).size(), 3U);
  EXPECT_EQ(open_store_reader(path)->submissions().list({}).size(), 4U);
}

TEST_F(StoreReaderTest, RefusesToWrite) {
  const auto reader = open_store_reader(filled());
  EXPECT_THROW(static_cast<void>(reader->submissions().settle(3, {})), StoreError);
}

TEST_F(StoreReaderTest, MakesNoFile) {
  EXPECT_THAT(refusal(in_folder("none.db")), HasSubstr("none.db: there is no such file; name"));
  EXPECT_THAT(refusal(in_folder("")), HasSubstr("there is no such file"));
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(StoreReaderTest, RefusesWhatIsNoStore) {
  std::ofstream(in_folder("diary.txt")) << std::string(4096, 'x');
  EXPECT_THAT(refusal(in_folder("diary.txt")), HasSubstr("it is no SQLite database"));
  std::ofstream(in_folder("empty.db")).close();
  EXPECT_THAT(refusal(in_folder("empty.db")), HasSubstr("it is no store of genetic-search"));
  execute(in_folder("other.db"), "CREATE TABLE t (x)");
  EXPECT_THAT(refusal(in_folder("other.db")), HasSubstr("it is no store of genetic-search"));
}

TEST_F(StoreReaderTest, RefusesTablesOfAnotherVersionWithTheMend) {
  const std::filesystem::path path = filled();
  execute(path, "PRAGMA user_version = 1");
  EXPECT_THAT(refusal(path), HasSubstr("version 1, and this program reads version 4; a run that"));
  execute(path, "PRAGMA user_version = 5");
  EXPECT_THAT(refusal(path), HasSubstr("version 5, and this program reads version 4; use the"));
}

}  // namespace
}  // namespace varnholt::embedded::test
