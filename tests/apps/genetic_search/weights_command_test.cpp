// Goal: weights computes stored signals on other prices, tells how these differ from the run's, and
// refuses only what cannot be computed.
// Method: a store with two signals in a pool, and price files that differ in one thing at a time.
#include "apps/genetic_search/weights_command.hpp"

#include <fstream>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/search/signal_export.hpp"
#include "hosts/embedded/system/digest.hpp"
#include "hosts/embedded/system/read_file.hpp"
#include "tests/apps/genetic_search/captured.hpp"
#include "tests/apps/genetic_search/sample_store.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::HasSubstr;

constexpr const char* kOldPrices = "date,AAA,BBB\n2020-01-01,1,2\n2020-01-02,2,2\n";
constexpr const char* kNewPrices = "date,AAA,BBB\n2020-01-01,1,2\n2020-01-02,2,2\n2020-01-03,1,4\n";

class WeightsCommandTest : public samples::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    write("old.csv", kOldPrices);
    write("new.csv", kNewPrices);
    command_.database = in_folder("runs.db");
    command_.eval_id = "1-1";
    command_.prices = in_folder("new.csv");
    embedded::SqliteRunStore store(command_.database.string());
    embedded::RunStart start = samples::run_start();
    start.price_digest = embedded::sha256_hex(embedded::read_file(in_folder("old.csv")).bytes);
    start.price_path = in_folder("old.csv");
    embedded::EvaluationRecord needs_volume = samples::evaluation(2, R"({"origin":"fresh"})");
    needs_volume.graph_json = R"({"children":[],"node":"volume","type":"feature"})";
    store.record_evaluations(
        store.begin_run(start),
        {samples::evaluation(1, R"({"origin":"fresh"})"), std::move(needs_volume)});
  }

  void submit(const char* eval_id) const {
    embedded::SqliteRunStore store(command_.database.string());
    const embedded::Settlement settlement{1.0, 0.2, 0.0, 0.7, {}, {}, 1'600'000'002};
    ASSERT_TRUE(store.submissions().settle(samples::submit(store, eval_id, "signals"), settlement));
  }
  void write(const char* name, const char* text) const { std::ofstream(in_folder(name)) << text; }
  [[nodiscard]] std::string contents(const char* name) const {
    std::ostringstream text;
    text << std::ifstream(in_folder(name)).rdbuf();
    return text.str();
  }

  bool run() { return weights_command(command_, {text_.output, messages_.output}, interrupt_); }
  std::string refusal() {
    try {
      (void)run();
    } catch (const std::exception& error) {
      return error.what();
    }
    return "accepted";
  }

  WeightsCommand command_;
  embedded::InterruptFlag interrupt_;
  Captured text_{interrupt_};
  Captured messages_{interrupt_};
};

TEST_F(WeightsCommandTest, WritesTheRowsAndTellsTheDifferences) {
  EXPECT_TRUE(run());
  EXPECT_EQ(text_.take(), "date,AAA,BBB\n2020-01-01,0,1\n2020-01-02,0.5,0.5\n2020-01-03,0,1\n");
  const std::string told = messages_.take();
  EXPECT_THAT(told, HasSubstr("new.csv beside the prices of run 1: 1 day more, 0 fewer; where both "
                              "have prices, the returns are the same\n"));
  EXPECT_THAT(told, HasSubstr("1 signal of 3 days, from 2020-01-01 to 2020-01-03; traded at the "
                              "close of the signal"));
}

TEST_F(WeightsCommandTest, WritesTheLatestDaysOnly) {
  command_.last = 1;
  EXPECT_TRUE(run());
  EXPECT_EQ(text_.take(), "date,AAA,BBB\n2020-01-03,0,1\n");
  command_.last.reset();
  command_.since = embedded::parse_date("2020-01-02");
  EXPECT_TRUE(run());
  EXPECT_EQ(text_.take(), "date,AAA,BBB\n2020-01-02,0.5,0.5\n2020-01-03,0,1\n");
  command_.since = embedded::parse_date("2021-01-01");
  EXPECT_THAT(refusal(),
              HasSubstr("new.csv has no day from 2021-01-01 on; its last is 2020-01-03"));
}

TEST_F(WeightsCommandTest, ComputesEachSignalByTheRulesOfItsRun) {
  std::string rows = "date,AAA,BBB\n";
  for (int day = 1; day <= 5; ++day)
    rows += "2020-01-0" + std::to_string(day) + (day == 3 ? ",,1\n" : ",3,1\n");
  write("new.csv", rows.c_str());
  embedded::EvaluationRecord mean = samples::evaluation(1, R"({"origin":"fresh"})");
  mean.graph_json =
      R"({"children":[{"children":[],"node":"close","type":"feature"},)"
      R"({"children":[],"node":"5","type":"window"}],"node":"ts_mean","type":"rotation"})";
  {
    embedded::SqliteRunStore store(command_.database.string());
    for (const char* settings : {"{}", R"({"least_known_share":0.8})"}) {
      embedded::RunStart start = samples::run_start();
      start.settings_json = settings;
      store.record_evaluations(store.begin_run(start), {mean});
    }
  }
  command_.last = 1;
  command_.eval_id = "2-1";
  EXPECT_TRUE(run());
  EXPECT_EQ(text_.take(), "date,AAA,BBB\n2020-01-05,0,1\n") << "a run of before: all days";
  command_.eval_id = "3-1";
  EXPECT_TRUE(run());
  EXPECT_EQ(text_.take(), "date,AAA,BBB\n2020-01-05,0.75,0.25\n");
}

TEST_F(WeightsCommandTest, WritesAFileAndThenTellsOnStandardOutput) {
  command_.output = in_folder("w.csv");
  EXPECT_TRUE(run());
  EXPECT_EQ(contents("w.csv"),
            "date,AAA,BBB\n2020-01-01,0,1\n2020-01-02,0.5,0.5\n2020-01-03,0,1\n");
  EXPECT_THAT(text_.take(), HasSubstr("1 day more"));
  EXPECT_EQ(messages_.take(), "");
  EXPECT_THAT(refusal(), HasSubstr("there is such a file already"));
  command_.force = true;
  EXPECT_TRUE(run());
}

TEST_F(WeightsCommandTest, TellsWhatChangedInTheHistory) {
  write("new.csv", "date,AAA,CCC\n2020-01-01,1,2\n2020-01-02,3,2\n");
  EXPECT_TRUE(run());
  const std::string told = messages_.take();
  EXPECT_THAT(told,
              HasSubstr("new instruments CCC; gone are BBB; the largest change of a return is "
                        "that of AAA on 2020-01-02, 100 % then and 200 % now\n"));
}

TEST_F(WeightsCommandTest, DoesWithoutThePricesOfTheRun) {
  write("old.csv", "date,AAA\n2020-01-01,1\n");
  EXPECT_TRUE(run());
  EXPECT_THAT(messages_.take(), HasSubstr("not compared, because "));
}

TEST_F(WeightsCommandTest, ComputesAWholePool) {
  submit("1-1");
  command_.eval_id.clear();
  command_.pool = "signals";
  command_.last = 1;
  EXPECT_TRUE(run());
  EXPECT_EQ(text_.take(), "id,date,AAA,BBB\n1-1,2020-01-03,0,1\n");
  command_.pool = "none";
  EXPECT_THAT(refusal(), HasSubstr("no signal was submitted to the signal pool \"none\" in "));
}

TEST_F(WeightsCommandTest, AMemberThatCannotBeComputedIsToldAndTheOthersAreWritten) {
  submit("1-1");
  submit("1-2");
  command_.eval_id.clear();
  command_.pool = "signals";
  command_.last = 1;
  EXPECT_FALSE(run());
  EXPECT_EQ(text_.take(), "id,date,AAA,BBB\n1-1,2020-01-03,0,1\n");
  EXPECT_THAT(messages_.take(), HasSubstr("1-2 cannot be computed on "));
}

TEST_F(WeightsCommandTest, ASignalThatCannotBeComputedIsRefused) {
  command_.eval_id = "1-2";
  EXPECT_THAT(refusal(), HasSubstr("volume"));
  command_.eval_id = "1-77";
  EXPECT_THROW((void)run(), UsageError);
}

TEST_F(WeightsCommandTest, EndsAtAnInterruptWithoutAFile) {
  command_.output = in_folder("w.csv");
  interrupt_.requests = 1;
  EXPECT_THROW((void)run(), embedded::InterruptedAtOnce);
  EXPECT_FALSE(std::filesystem::exists(command_.output));
}

}  // namespace
}  // namespace varnholt::app::test
