// Goal: attempts tells what became of every attempt, replay what comes out now, in a text and in
// JSON, and both name what is not there.
// Method: a small store made by hand; whole texts compared; a replay on prices of the test's own.
#include "apps/genetic_search/attempts_command.hpp"

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/replay_command.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/host/json_value.hpp"
#include "hosts/embedded/host/statistics_object.hpp"
#include "hosts/embedded/market/price_file.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "tests/apps/genetic_search/captured.hpp"
#include "tests/apps/genetic_search/sample_store.hpp"
#include "tests/hosts/embedded/price_text.hpp"
#include "tests/support/attempt_rows.hpp"

namespace varnholt::app::test {
namespace {

using embedded::AttemptEndRow;
using embedded::AttemptTable;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class AttemptsCommands : public samples::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    path_ = filled();
    embedded::SqliteRunStore store(path_.string());
    AttemptTable& attempts = store.attempts();
    AttemptEndRow passed;
    passed.terminal_disposition = "passed";
    passed.backtest_completed = true;
    passed.classification_source = "parent_recorder";
    passed.eval_id = "1-1";
    attempts.end(begun(attempts, 1), passed, 3.5);
    attempts.end(begun(attempts, 2), embedded::test::worker_lost(), 5.0);
    begun(attempts, 2);
  }

  static std::int64_t begun(AttemptTable& attempts, int candidate) {
    embedded::NewAttemptRow attempt = embedded::test::new_attempt(1, "k1", candidate);
    attempt.graph_json = samples::kGraph;
    return embedded::test::running_attempt(attempts, attempt);
  }
  [[nodiscard]] AttemptsCommand listing() const {
    AttemptsCommand command;
    command.database = path_;
    return command;
  }
  std::string attempts(const AttemptsCommand& command) {
    attempts_command(command, text_.output, std::nullopt);
    return text_.take();
  }
  template <typename Action>
  static std::string refusal(const Action& action) {
    try {
      action();
    } catch (const UsageError& error) {
      return error.what();
    }
    return "no error";
  }

  std::filesystem::path path_;
  embedded::InterruptFlag interrupt_;
  Captured text_{interrupt_};
};

TEST_F(AttemptsCommands, ListsWhatBecameOfEach) {
  EXPECT_EQ(attempts(listing()),
            "attempt  run  candidate    seconds  ended as         reason          id  expression\n"
            "      1    1  candidate-1    2.500  passed           -              1-1  "
            "cross_rank(close)\n"
            "      2    1  candidate-2    4.000  backtest_failed  worker_failed    -  "
            "cross_rank(close)\n"
            "      3    1  candidate-2        -  open             -                -  "
            "cross_rank(close)\n"
            "3 attempts: backtest_failed 1, open 1, passed 1.\n");
}

TEST_F(AttemptsCommands, ListsThoseThatAreAskedFor) {
  AttemptsCommand command = listing();
  command.disposition = "open";
  EXPECT_THAT(attempts(command), AllOf(HasSubstr("\n      3 "), Not(HasSubstr("\n      2 ")),
                                       HasSubstr("\n1 attempt: open 1.\n")));
  command = listing();
  command.limit = 1;
  EXPECT_THAT(attempts(command), AllOf(HasSubstr("\n      3 "), Not(HasSubstr("\n      2 ")),
                                       HasSubstr("\n3 attempts: ")));
  command = listing();
  command.run = 2;
  EXPECT_EQ(attempts(command), "0 attempts.\n");
}

TEST_F(AttemptsCommands, ListsForMachines) {
  AttemptsCommand command = listing();
  command.json = true;
  std::istringstream lines(attempts(command));
  std::vector<Json> objects;
  for (std::string line; std::getline(lines, line);)
    objects.push_back(Json::parse(line));
  ASSERT_EQ(objects.size(), 3U);
  EXPECT_EQ(objects[1]["attempt_id"], 2);
  EXPECT_EQ(objects[1]["run_id"], 1);
  EXPECT_EQ(objects[1]["graph"]["node"], "cross_rank");
  EXPECT_EQ(objects[1]["expected_columns"][0], "sharpe");
  EXPECT_EQ(objects[1]["terminal_disposition"], "backtest_failed");
  EXPECT_EQ(objects[1]["stats_construction_blocker"]["type"], "process_backtest_execution_failed");
  EXPECT_EQ(objects[1]["failure_detail"], "killed by signal 9");
  EXPECT_EQ(objects[1]["eval_id"], nullptr);
  EXPECT_EQ(objects[1]["seconds"], 4.0);
  EXPECT_EQ(objects[1]["events"].dump(),
            R"([{"step":"created","at":1.0},{"step":"dispatched","at":2.0},)"
            R"({"step":"backtest_started","at":3.0},{"step":"ended","at":5.0}])");
  EXPECT_EQ(objects[2]["terminal_disposition"], nullptr);
  EXPECT_EQ(objects[2]["classification_source"], nullptr);
  EXPECT_EQ(objects[2]["seconds"], nullptr);
}

TEST_F(AttemptsCommands, RefuseWhatIsNotThere) {
  AttemptsCommand command = listing();
  command.run = 9;
  EXPECT_THAT(refusal([&] { attempts(command); }), HasSubstr("there is no run 9 in "));
  command = listing();
  command.disposition = "failed";
  EXPECT_THAT(refusal([&] { attempts(command); }),
              HasSubstr("ended as \"failed\"; there are backtest_failed, open, passed"));
  EXPECT_THAT(refusal([&] {
                static_cast<void>(replay_command({path_, 77, {}, false}, text_.output));
              }),
              HasSubstr("there is no attempt 77 in "));
}

TEST_F(AttemptsCommands, ReplayRefusesOtherPrices) {
  EXPECT_THROW(static_cast<void>(replay_command({path_, 1, {}, false}, text_.output)),
               embedded::ExportError)
      << "the run's file is not there";
}

// A run on prices that are there, with one attempt that was recorded with true statistics, one with
// others, and one whose worker was lost.
class ReplayCommandTest : public AttemptsCommands {
 protected:
  void SetUp() override {
    AttemptsCommands::SetUp();
    const std::string prices = in_folder("prices.csv").string();
    {
      std::ofstream file(prices);
      file << "date,A,B,C\n";
      for (int day = 0; day < 60; ++day) {
        file << "2020-" << (day < 31 ? "01-" : "02-") << (day % 31 < 9 ? "0" : "") << day % 31 + 1
             << "," << 100 + day << "," << 100 + (day * 7) % 11 << "," << 100 - day % 5 << "\n";
        if (day == 58) break;
      }
    }
    std::ifstream file(prices, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    embedded::RunStart start = samples::run_start();
    start.price_path = prices;
    start.price_digest = embedded::sha256_hex(text);
    start.eras_json = R"({"seen_days":40})";
    const embedded::MarketData data = embedded::test::read_price_text(text, prices).first_days(40);
    const embedded::BacktestStatistics statistics =
        embedded::Evaluator(data)
            .evaluate(embedded::read_json(samples::kGraph))
            .backtest.statistics;

    embedded::SqliteRunStore store(path_.string());
    const std::int64_t run = store.begin_run(start);
    for (int i = 0; i < 3; ++i) {
      embedded::NewAttemptRow attempt = embedded::test::new_attempt(run, "k", i);
      attempt.graph_json = samples::kGraph;
      const std::int64_t id = embedded::test::running_attempt(store.attempts(), attempt);
      AttemptEndRow end = embedded::test::worker_lost();
      if (i == 0) end.generated_stats_json = genetic::json_text(statistics_mapping(statistics));
      if (i == 1) end.generated_stats_json = samples::kStatistics;
      store.attempts().end(id, end, 4.0);
      (i == 0 ? same_ : i == 1 ? other_ : lost_) = id;
    }
  }
  bool replay(std::int64_t id, bool json = false) {
    const bool equal = replay_command({path_, id, {}, json}, text_.output);
    told_ = text_.take();
    return equal;
  }

  std::int64_t same_ = 0;
  std::int64_t other_ = 0;
  std::int64_t lost_ = 0;
  std::string told_;
};

TEST_F(ReplayCommandTest, TellsThatTheFiguresAreTheSame) {
  EXPECT_TRUE(replay(same_));
  EXPECT_THAT(told_,
              AllOf(HasSubstr("attempt 4 of run 3: cross_rank(close)\n"),
                    HasSubstr("ended as backtest_failed: killed by signal 9\n"),
                    HasSubstr("\nThe recorded statistics again, in "), Not(HasSubstr("differs"))));
  EXPECT_TRUE(replay(same_, true));
  const Json object = Json::parse(told_);
  EXPECT_EQ(object["is_equal"], true);
  EXPECT_EQ(object["failure"], nullptr);
  EXPECT_EQ(object["figures"]["sharpe"]["recorded"], object["figures"]["sharpe"]["replayed"]);
}

TEST_F(ReplayCommandTest, TellsWhichFiguresDiffer) {
  EXPECT_FALSE(replay(other_));
  EXPECT_THAT(told_,
              AllOf(HasSubstr("  differs\n"), HasSubstr("\nOther statistics than recorded, in ")));
  EXPECT_FALSE(replay(other_, true));
  EXPECT_EQ(Json::parse(told_)["figures"]["sharpe"]["is_equal"], false);
}

TEST_F(ReplayCommandTest, TellsWhatComesOutWhereNothingWasRecorded) {
  EXPECT_TRUE(replay(lost_));
  EXPECT_THAT(told_, HasSubstr("\nNo statistics were recorded to compare with, in "));
  EXPECT_TRUE(replay(lost_, true));
  EXPECT_EQ(Json::parse(told_)["is_equal"], nullptr);
}

}  // namespace
}  // namespace varnholt::app::test
