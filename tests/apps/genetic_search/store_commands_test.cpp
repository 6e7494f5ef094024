// Goal: signals and show tell what is stored, in a text and in JSON, and name what is not there.
// Method: a small store made by hand; whole texts compared.
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/genetic_search/show_command.hpp"
#include "apps/genetic_search/signal_lineage.hpp"
#include "apps/genetic_search/signals_command.hpp"
#include "apps/genetic_search/usage_error.hpp"
#include "hosts/embedded/store/sqlite_database.hpp"
#include "tests/apps/genetic_search/captured.hpp"
#include "tests/apps/genetic_search/sample_store.hpp"

namespace varnholt::app::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

embedded::EvaluationRecord with_figures(std::int64_t number, double sharpe, double turnover) {
  embedded::EvaluationRecord record = samples::evaluation(number, R"({"origin":"fresh"})");
  Json statistics = Json::parse(samples::kStatistics);
  statistics["sharpe"] = sharpe;
  statistics["turnover"] = turnover;
  record.statistics_json = statistics.dump();
  return record;
}

class StoreCommands : public samples::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    path_ = filled();
  }

  [[nodiscard]] SignalsCommand listing() const {
    SignalsCommand command;
    command.database = path_;
    return command;
  }
  std::string signals(const SignalsCommand& command) {
    signals_command(command, text_.output, std::nullopt);
    return text_.take();
  }
  std::string show(const std::string& eval_id, bool json = false, Width width = std::nullopt) {
    show_command({path_, eval_id, json}, text_.output, width);
    return text_.take();
  }

  std::filesystem::path path_;
  embedded::InterruptFlag interrupt_;
  Captured text_{interrupt_};
};

TEST_F(StoreCommands, ListWhatWasSubmitted) {
  EXPECT_EQ(signals(listing()),
            " id  run  pool     market  era  in sample  hold-out  expression\n"
            "1-1    1  signals       1    2       1.25     -0.50  cross_rank(close)\n");
}

TEST_F(StoreCommands, ListRefusedAndWaitingOnesWhenAsked) {
  SignalsCommand command = listing();
  command.all = true;
  EXPECT_EQ(signals(command),
            " id  run  pool     market  era  in sample  hold-out  state                          "
            "expression\n"
            "1-1    1  signals       1    2       1.25     -0.50  submitted                      "
            "cross_rank(close)\n"
            "1-3    1  signals       1    2       1.25         -  refused: correlation_exceeded  "
            "cross_rank(close)\n"
            "1-4    1  others        1    2       1.25         -  waiting                        "
            "cross_rank(close)\n");
  command.pool = "others";
  EXPECT_THAT(signals(command), AllOf(HasSubstr("\n1-4 "), Not(HasSubstr("\n1-1 "))));
}

TEST_F(StoreCommands, TellWhatThereIsInsteadOfAnEmptyList) {
  SignalsCommand command = listing();
  command.pool = "mine";
  EXPECT_EQ(signals(command),
            "No signal was submitted to the signal pool \"mine\". The signal pools are: \"others\" "
            "\"signals\".\n");
  command.pool = "others";
  EXPECT_EQ(
      signals(command),
      "No signal was submitted to the signal pool \"others\". With --all, refused and waiting ones "
      "are listed too.\n");
  command = listing();
  command.run = 2;
  command.all = true;
  EXPECT_EQ(signals(command), "Nothing was handed in by run 2.\n");
}

TEST_F(StoreCommands, ListAnEmptyStore) {
  const std::filesystem::path empty = in_folder("empty.db");
  static_cast<void>(embedded::SqliteRunStore(empty.string()));
  SignalsCommand command = listing();
  command.database = empty;
  EXPECT_EQ(signals(command), "No signal was submitted.\n");
  command.json = true;
  EXPECT_EQ(signals(command), "");
}

TEST_F(StoreCommands, ListTheBestByAFigureFirst) {
  {
    embedded::SqliteRunStore store(path_.string());
    store.record_evaluations(2, {with_figures(11, 0.5, 0.9), with_figures(12, 2.0, 0.8)});
    const embedded::Settlement settlement{0.6, 0.2, 0.3, 0.7, {}, {}, 1'600'000'002};
    for (const char* id : {"2-11", "2-12"}) {
      const std::int64_t number = samples::submit(store, id, "signals");
      ASSERT_TRUE(store.submissions().settle(number, settlement));
    }
  }
  const auto ids = [this](const SignalsCommand& command) {
    SignalsCommand as_json = command;
    as_json.json = true;
    std::istringstream lines(signals(as_json));
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);)
      found.push_back(Json::parse(line)["eval_id"]);
    return found;
  };
  SignalsCommand command = listing();
  EXPECT_THAT(ids(command), ElementsAre("1-1", "2-11", "2-12"));
  command.limit = 2;
  EXPECT_THAT(ids(command), ElementsAre("2-11", "2-12")) << "the latest";
  command.sort = "sharpe";
  EXPECT_THAT(ids(command), ElementsAre("2-12", "1-1"));
  command.sort = "turnover";
  EXPECT_THAT(ids(command), ElementsAre("1-1", "2-12")) << "the least is the best";
  command.sort = "holdout";
  command.limit = 3;
  EXPECT_THAT(ids(command), ElementsAre("1-1", "2-11", "2-12")) << "two have no hold-out yet";
  command.bounds["holdout"] = -1.0;
  EXPECT_THAT(ids(command), ElementsAre("1-1"));
  command = listing();
  command.bounds["sharpe"] = 1.0;
  command.bounds["turnover"] = 0.6;
  EXPECT_THAT(ids(command), ElementsAre("1-1"));
  command.bounds["turnover"] = 0.8;
  EXPECT_THAT(ids(command), ElementsAre("1-1", "2-12")) << "a bound itself is within";
  command.sort = "turnover";
  command.limit = 1;
  EXPECT_EQ(signals(command),
            " id  run  pool     market  era  in sample  hold-out  turnover  expression\n"
            "1-1    1  signals       1    2       1.25     -0.50      0.50  cross_rank(close)\n"
            "1 of 3; the rest are beyond what was asked for.\n");
  command.bounds["sharpe"] = 100.0;
  EXPECT_EQ(signals(command), "0 of 3; the rest are beyond what was asked for.\n");
}

TEST_F(StoreCommands, ListForMachines) {
  SignalsCommand command = listing();
  command.all = true;
  command.json = true;
  std::istringstream lines(signals(command));
  std::vector<Json> objects;
  for (std::string line; std::getline(lines, line);)
    objects.push_back(Json::parse(line));
  ASSERT_EQ(objects.size(), 3U);
  EXPECT_EQ(objects[0].dump(),
            R"({"eval_id":"1-1","run_id":1,"signal_pool_name":"signals","market_id":1,)"
            R"("era_number":2,"state":"submitted","pending_reason":null,"novelty":1.0,)"
            R"("novelty_min":0.2,"correlation":0.0,"correlation_max":0.7,"refusal_reason":null,)"
            R"("refusal_detail":null,"queued_at":1600000001.0,"settled_at":1600000002.0,)"
            R"-("in_sample_sharpe":1.25,"holdout_sharpe":-0.5,"expression":"cross_rank(close)"})-");
  EXPECT_EQ(objects[1]["refusal_reason"], "correlation_exceeded");
  EXPECT_EQ(objects[1]["holdout_sharpe"], nullptr);
  EXPECT_EQ(objects[2]["state"], "queued");
  EXPECT_EQ(objects[2]["novelty"], nullptr);
}

TEST_F(StoreCommands, RefuseARunAndAnIdThatAreNotThere) {
  SignalsCommand command = listing();
  command.run = 9;
  EXPECT_THROW(signals_command(command, text_.output, std::nullopt), UsageError);
  for (const char* id : {"9-9", "1", "", "1-1 ", "diary"}) {
    EXPECT_THROW(static_cast<void>(show(id)), UsageError) << id;
  }
}

TEST_F(StoreCommands, ShowASubmittedSignal) {
  EXPECT_EQ(
      show("1-1"),
      "evaluation  1-1: candidate 1 of run 1, generation 0\n"
      "expression  cross_rank(close)\n"
      "verdict     passed its gates\n"
      "submission  submitted, signal pool \"signals\", market 1, era 2; novelty 1.00 (at least "
      "0.2), "
      "correlation 0.00 (at most 0.7)\n"
      "run         1, seed 123, begun 2020-09-13 12:26:40 UTC, ended: stopped\n"
      "prices      /data/prices.csv\n"
      "book        traded at the close of the signal, not neutralized, costs 5 basis points, "
      "delisting return 0, windows 100 % known, 252 periods a year\n"
      "days        in sample 80, 2020-01-01 to 2020-03-31; hold-out 2020-04-01 to 2020-05-01\n"
      "\nStatistics\n"
      "Return                               in sample    hold-out\n"
      "  sharpe                                  1.25        -0.5  a year\n"
      "  gross_returns_sharpe                     1.5           -  a year\n"
      "  annualized_returns                       0.1           -  of capital a year\n"
      "  quality_score                              1           -\n"
      "Risk                                 in sample    hold-out\n"
      "  drawdown                                 0.2           -  of the peak\n"
      "Book                                 in sample    hold-out\n"
      "  turnover                                 0.5           -  of capital a day\n"
      "  delta_exposure                             0           -  of capital\n"
      "  abs_weight_sum_mean                        1           -  of capital\n"
      "  max_weight                               0.4           -  of capital\n"
      "  holding_days                              79           -  days\n"
      "  active_days                               79           -  days\n"
      "  missing_return_count                       0           -\n"
      "\nLineage, parents below their child\n"
      "  1-1  fresh: cross_rank(close)\n"
      "\nGraph\n" +
          std::string(samples::kGraph) + "\n");
}

TEST_F(StoreCommands, ShowWhyACandidateFailed) {
  EXPECT_THAT(
      show("1-2"),
      AllOf(HasSubstr("\nverdict     failed: sharpe_min\n"), HasSubstr("\nsubmission  none\n"),
            HasSubstr("\nFailures\n  sharpe_min  sharpe 0.125 < 0.3, gate sharpe_gate\n")));
  EXPECT_THAT(show("1-3"),
              HasSubstr("submission  refused: correlation_exceeded, signal pool \"signals\""));
  EXPECT_THAT(show("1-3"), HasSubstr("(at most 0.7); correlation 0.9 with 1-1\n"));
  EXPECT_THAT(show("1-4"), HasSubstr("submission  waiting, signal pool \"others\""));
}

TEST_F(StoreCommands, ShowACandidateWithoutBacktestOfARunWithoutEras) {
  const std::string page = show("2-1");
  EXPECT_THAT(page, AllOf(HasSubstr("\nprices      prices.csv\n"), Not(HasSubstr("\ndays ")),
                          HasSubstr("\nStatistics\n  none: there was no whole backtest\n"),
                          HasSubstr("  worker_timeout  the limit was 60 seconds\n"),
                          HasSubstr(" UTC, not ended\n"), HasSubstr("  2-1  seed: ")));
}

TEST_F(StoreCommands, ShowTheStepsOfARepairWithTheFiguresBeforeAndAfter) {
  embedded::SqliteRunStore(path_.string()).record_evaluations(1, samples::repairs());
  EXPECT_THAT(show("1-22"),
              HasSubstr("\nLineage, parents below their child\n"
                        "  1-22  repaired by blend_with_peer for sharpe_min: cross_rank(close)\n"
                        "      what it means\n"
                        "      sharpe 2.5 -> 1.25, gross_returns_sharpe -1.5 -> 1.5, turnover 0.25 "
                        "-> 0.5\n"
                        "    1-21  repaired by reverse for sharpe_min: cross_rank(close)\n"
                        "        what it means\n"
                        "        sharpe 1.25 -> 2.5, gross_returns_sharpe 1.5 -> -1.5, turnover "
                        "0.5 -> 0.25\n"
                        "      1-2  fresh: cross_rank(close)\n"
                        "    1-1  fresh: cross_rank(close)\n"));
  const Json lineage = Json::parse(show("1-22", true))["lineage"];
  EXPECT_EQ(lineage["repair"].dump(),
            R"({"plan":"blend_with_peer","reason":"sharpe_min","explanation":"what it means"})");
  EXPECT_EQ(lineage["statistics"]["sharpe"], 1.25);
  EXPECT_EQ(lineage["parents"][0]["statistics"]["sharpe"], 2.5);
  EXPECT_EQ(lineage["parents"][0]["parents"][0]["repair"], nullptr);
}

TEST_F(StoreCommands, ShowARepairOfWhatTheRunDoesNotHave) {
  embedded::SqliteRunStore(path_.string()).record_evaluations(1, samples::repairs());
  EXPECT_THAT(show("1-23"), HasSubstr("  1-23  repaired by rank for sharpe_min: cross_rank(close)\n"
                                      "      what it means\n"
                                      "    graph feedfacefeed  not in this run\n"));
}

TEST_F(StoreCommands, ShowParentsSeveralGenerationsBack) {
  const std::string page = show("1-6");
  EXPECT_THAT(page, HasSubstr("\n  1-6  bred by hoist_mutation: cross_rank(close)\n"
                              "    1-5  bred by hoist_mutation: cross_rank(close)\n"
                              "      1-4  bred by point_mutation, then crossover: "
                              "cross_rank(close)\n"
                              "        1-3  bred by crossover: cross_rank(close)\n"
                              "          1-1  fresh: cross_rank(close)\n"
                              "          1-2  fresh: cross_rank(close)\n"
                              "        graph feedfacefeed  not in this run\n"));
  EXPECT_THAT(show("1-8"),
              AllOf(HasSubstr("          1-4  bred by point_mutation, then crossover, parents not "
                              "told: cross_rank(close)\n"),
                    Not(HasSubstr("1-3"))));
}

TEST_F(StoreCommands, ShowOneAncestorsParentsOnce) {
  embedded::SqliteRunStore(path_.string())
      .record_evaluations(
          1, {samples::evaluation(
                 9, R"({"operators":["crossover"],"origin":"bred","parents":["k3","k5"]})")});
  const std::string page = show("1-9");
  EXPECT_THAT(page, HasSubstr("      1-4  bred by point_mutation, then crossover: "));
  EXPECT_THAT(page, HasSubstr("1-3  bred by crossover, parents as above: "));
}

TEST_F(StoreCommands, TakeNoLaterCandidateForAParent) {
  embedded::SqliteRunStore(path_.string())
      .record_evaluations(
          1, {samples::evaluation(
                  9, R"({"operators":["crossover"],"origin":"bred","parents":["k9","k10"]})"),
              samples::evaluation(10, R"({"origin":"fresh"})")});
  EXPECT_THAT(show("1-9"), AllOf(HasSubstr("    graph k9  not in this run\n"),
                                 HasSubstr("    graph k10  not in this run\n")));
}

TEST_F(StoreCommands, ShowForMachines) {
  const Json page = Json::parse(show("1-4", true));
  std::vector<std::string> members;
  for (const auto& item : page.items())
    members.push_back(item.key());
  EXPECT_THAT(members,
              ElementsAre("eval_id", "candidate_number", "generation", "expression", "passed",
                          "failure_reason", "failures", "statistics", "holdout_statistics",
                          "figures", "holdout_figures", "submissions", "measures", "run", "lineage",
                          "graph_key", "graph"));
  EXPECT_EQ(page["statistics"]["sharpe"], 1.25);
  EXPECT_EQ(page["holdout_statistics"], nullptr);
  EXPECT_EQ(page["submissions"][0]["state"], "queued");
  EXPECT_EQ(page["run"]["price_digest"], "the digest");
  EXPECT_EQ(page["run"]["eras"]["seen_days"], 80);
  EXPECT_EQ(page["graph"]["node"], "cross_rank");
  const Json& parents = page["lineage"]["parents"];
  ASSERT_EQ(parents.size(), 2U);
  EXPECT_EQ(parents[0]["eval_id"], "1-3");
  EXPECT_EQ(parents[0]["parents"][1]["eval_id"], "1-2");
  EXPECT_EQ(parents[1]["eval_id"], nullptr);
  EXPECT_EQ(parents[1]["graph_key"], "feedfacefeedface");
  EXPECT_EQ(Json::parse(show("1-2", true))["failures"]["sharpe_min"]["value"], 0.125);
}

TEST_F(StoreCommands, TellAStoreWithDamagedTexts) {
  embedded::EvaluationRecord damaged = samples::evaluation(9, R"({"origin":"fresh"})");
  damaged.statistics_json = "{";
  embedded::SqliteRunStore(path_.string()).record_evaluations(1, {damaged});
  const auto error_of = [](const auto& command) {
    try {
      command();
    } catch (const embedded::StoreError& error) {
      return std::string(error.what());
    }
    return std::string("no error");
  };
  EXPECT_THAT(error_of([&] { show("1-9"); }),
              HasSubstr("the statistics of 1-9 is no JSON: not JSON: "));
  const std::string page = text_.take();
  EXPECT_THAT(page, AllOf(HasSubstr("evaluation  1-9: candidate 9"), HasSubstr("\nLineage"),
                          HasSubstr("\nGraph\n{\"")));
  EXPECT_THAT(error_of([&] { show("1-9", true); }), HasSubstr("the file is damaged"));
  EXPECT_EQ(Json::parse(text_.take())["statistics"], nullptr);
}

TEST_F(StoreCommands, ListWhatCanBeReadBesideWhatIsDamaged) {
  embedded::SqliteDatabase(path_.string(), 0)
      .execute("UPDATE evaluations SET statistics = '{' WHERE eval_id = '1-1'", "damaging it");
  SignalsCommand command = listing();
  command.all = true;
  EXPECT_THROW(static_cast<void>(signals(command)), embedded::StoreError);
  const std::string table = text_.take();
  EXPECT_THAT(table, HasSubstr("1-1    1  signals       1    2          -     -0.50"));
  EXPECT_THAT(table, HasSubstr("1-3    1  signals       1    2       1.25"));
}

TEST_F(StoreCommands, ShowTheFiguresOfASignal) {
  {
    embedded::SqliteRunStore store(path_.string());
    store.record_figures(
        "1-1", {{embedded::kInSample,
                 R"({"sharpe":1.25,"beta":0.5,"sortino":null,)"
                 R"("information_coefficient_by_lag":[0.25,null],"by_year":[{"year":2019,"days":7,)"
                 R"("net_return":0.125,"sharpe":1.5,"volatility":0.2,"drawdown":0.05,)"
                 R"("turnover":0.5}]})",
                 1, "[]"},
                {embedded::kHoldout, R"({"beta":-2.0,"information_coefficient_by_lag":[-0.5,0]})",
                 2, "[]"}});
  }
  const std::string page = show("1-1");
  EXPECT_THAT(page, HasSubstr("\nBeside the market                    in sample    hold-out\n"
                              "  beta                                     0.5          -2\n"
                              "Book  "));
  EXPECT_THAT(page, HasSubstr("\nInformation coefficient by lag       in sample    hold-out\n"
                              "  1                                       0.25        -0.5\n"
                              "  2                                          -           0\n"
                              "By year                  days   return %     sharpe volatility %  "
                              "drawdown %   turnover\n"
                              "  2019  in sample     7       12.5       1.50         20.0         "
                              "5.0      0.500\n"));
  EXPECT_THAT(page, Not(HasSubstr("sortino")));
  const Json shown = Json::parse(show("1-1", true));
  EXPECT_EQ(shown["figures"]["by_year"][0]["days"], 7);
  EXPECT_EQ(shown["holdout_figures"]["beta"], -2.0);
}

TEST_F(StoreCommands, WrapALineToTheTerminal) {
  std::istringstream lines(show("1-6", false, 60));
  for (std::string line; std::getline(lines, line) && line != "Graph";)
    EXPECT_LE(column_count(line), 60U) << line;
}

}  // namespace
}  // namespace varnholt::app::test
