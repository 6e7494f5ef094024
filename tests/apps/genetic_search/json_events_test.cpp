// Goal: every event is one line of valid JSON with all its members and without a NaN.
// Method: hand-made events, read back by the JSON library.
#include "apps/genetic_search/json_events.hpp"

#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "tests/apps/genetic_search/samples.hpp"

namespace varnholt::app::test {
namespace {

using genetic::List;
using genetic::Mapping;
using genetic::Tuple;
using genetic::Value;

std::vector<std::string> members(const Json& event) {
  std::vector<std::string> names;
  for (const auto& item : event.items())
    names.push_back(item.key());
  return names;
}

TEST(JsonEvents, ConvertEachKindOfValue) {
  const double infinity = std::numeric_limits<double>::infinity();
  const Value value = Mapping{{"absent", Value()},
                              {"truth", true},
                              {"whole", 9223372036854775807},
                              {"real", 0.5},
                              {"infinite", infinity},
                              {"nan", std::numeric_limits<double>::quiet_NaN()},
                              {"text", "a\"b"},
                              {"list", List{1, 2}},
                              {"tuple", Tuple{3}},
                              {"mapping", Mapping{{4, 5}}}};
  EXPECT_EQ(to_json(value).dump(),
            R"({"absent":null,"truth":true,"whole":9223372036854775807,"real":0.5,)"
            R"("infinite":null,"nan":null,"text":"a\"b","list":[1,2],"tuple":[3],)"
            R"("mapping":{"4":5}})");
}

TEST(JsonEvents, RefuseWhatIsNestedTooDeeply) {
  Value deep = 1;
  for (int i = 0; i < 2000; ++i)
    deep = List{deep};
  EXPECT_THROW(static_cast<void>(to_json(deep)), genetic::RecursionError);
}

TEST(JsonEvents, AreOneLineEach) {
  const std::string line = json_line(log_event(embedded::LogLevel::Warning, "a\nb"));
  EXPECT_EQ(line, "{\"event\":\"log\",\"level\":\"warning\",\"text\":\"a\\nb\"}\n");
}

TEST(JsonEvents, ReplaceBytesThatAreNoUtf8) {
  const std::string line = json_line(log_event(embedded::LogLevel::Error, "a\xff"));
  EXPECT_TRUE(Json::accept(line));
  EXPECT_EQ(Json::parse(line)["text"], "a\uFFFD");
}

TEST(JsonEvents, TellTheStart) {
  EXPECT_EQ(started_event(samples::started()).dump(),
            R"({"event":"started","run_id":7,"prices":"prices.csv","database":"runs.db",)"
            R"("instruments":4,"days":3268,"first_date":"2000-03-01","last_date":"2013-03-01",)"
            R"("jobs":2,"batch_size":32,"seed":123,"signal_pool_name":"signals","market_id":1,)"
            R"("era_number":3,"seen_days":2451,"last_seen_date":"2009-11-27","holdout_days":817,)"
            R"("first_holdout_date":"2009-11-30","split_is_kept":false,)"
            R"("known_structures":null,"earlier_signals":0,)"
            R"("cost_basis_points":5.0,"delay_days":0,"delisting_return":0.0,)"
            R"("least_known_share":1.0,"neutralize":"none",)"
            R"("periods_per_year":252.0,"periods_are_inferred":true})");
}

TEST(JsonEvents, TellWhatWasMeasured) {
  EXPECT_EQ(measured_event({.members = 9, .done = 7, .failed = 2, .is_over = true}).dump(),
            R"({"event":"measured","members":9,"done":7,"failed":2})");
}

TEST(JsonEvents, TellACandidateWithTheSameMembersWhetherItPassedOrNot) {
  const Json passed = recorded_event(samples::passing(17, 1.32));
  const Json failed = recorded_event(samples::failing(18));
  EXPECT_EQ(members(passed), members(failed));
  EXPECT_EQ(passed["event"], "recorded");
  EXPECT_EQ(passed["eval_id"], "7-17");
  EXPECT_EQ(passed["candidate_number"], 17);
  EXPECT_EQ(passed["failure_reason"], nullptr);
  EXPECT_EQ(passed["statistics"]["sharpe"], 1.234);
  EXPECT_EQ(passed["statistics"].size(), 12U);
  EXPECT_EQ(failed["failure_detail"], "sharpe 0.12 is below 0.3");
  EXPECT_EQ(failed["expression"], nullptr);
  EXPECT_EQ(failed["statistics"], nullptr);
}

TEST(JsonEvents, WriteNoNan) {
  embedded::CandidateRecorded candidate = samples::passing(1, 1.0);
  candidate.statistics->sharpe = std::numeric_limits<double>::quiet_NaN();
  candidate.statistics->drawdown = std::numeric_limits<double>::infinity();
  const std::string line = json_line(recorded_event(candidate));
  EXPECT_TRUE(Json::parse(line)["statistics"]["sharpe"].is_null());
  EXPECT_TRUE(Json::parse(line)["statistics"]["drawdown"].is_null());
}

TEST(JsonEvents, TellAGeneration) {
  embedded::SearchProgress progress = samples::progress();
  progress.repair_rounds = 6;
  progress.repaired_in_generation = 9;
  progress.repairs = {{"rank", {50, 1, 0}}, {"reverse", {30, 20, 5}}};
  EXPECT_EQ(generation_event(progress).dump(),
            R"({"event":"generation","generation":3,"candidates":96,)"
            R"("candidates_per_second":24.0,"passing":12,)"
            R"("fresh_in_generation":18,"bred_in_generation":14,"repaired_in_generation":9,)"
            R"("repair_rounds":6,"repaired":80,"rescued":21,)"
            R"("failures":{"sharpe_min":60,"turnover_max":20,"worker_timeout":4},)"
            R"("best_eval_id":"7-17","elapsed_seconds":4.0})");
  EXPECT_EQ(generation_event({})["best_eval_id"], nullptr);
  EXPECT_EQ(generation_event({})["failures"], Json::object());
}

TEST(JsonEvents, TellTheEnd) {
  const Json ended = ended_event(samples::summary(), "runs.db", "the limit was reached");
  EXPECT_EQ(ended["event"], "ended");
  EXPECT_EQ(ended["stop_cause"], "generations");
  EXPECT_EQ(ended["why"], "the limit was reached");
  EXPECT_EQ(ended["database"], "runs.db");
  ASSERT_EQ(ended["best"].size(), 2U);
  EXPECT_EQ(ended["best"][0]["eval_id"], "7-17");
  EXPECT_EQ(ended["best"][0]["expression"], "arith_add(cross_rank(ts_delta(close, 5)), volume)");
}

TEST(JsonEvents, TellAtTheEndThePoolTheMarketAndTheSubmissions) {
  const Json ended = ended_event(samples::summary(), "runs.db", "the limit was reached");
  ASSERT_EQ(ended["submitted"].size(), 2U);
  const Json& signal = ended["submitted"][0];
  EXPECT_THAT(members(signal), ::testing::ElementsAre("eval_id", "expression", "novelty",
                                                      "correlation", "in_sample", "holdout"));
  EXPECT_EQ(signal["eval_id"], "7-17");
  EXPECT_EQ(signal["novelty"], 0.75);
  EXPECT_EQ(signal["correlation"], 0.125);
  EXPECT_EQ(signal["in_sample"]["sharpe"], 1.234);
  EXPECT_EQ(signal["holdout"]["sharpe"], 0.4);
  EXPECT_EQ(signal["holdout"].size(), 12U);
  EXPECT_EQ(ended["market"]["in_sample"]["sharpe"], 0.51);
  EXPECT_EQ(ended["market"]["holdout"]["sharpe"], 0.62);
  EXPECT_EQ(ended["submissions"].dump(),
            R"({"submitted":2,"refused":{"correlation_exceeded":4,"pnl_mi_below_threshold":1},)"
            R"("waiting":1,"replaced":0})");
}

TEST(JsonEvents, TellTheRepairsPlanByPlan) {
  embedded::SearchSummary summary = samples::summary();
  EXPECT_EQ(ended_event(summary, "runs.db", "")["repairs"], Json::object());
  summary.progress.repairs = {{"rank", {50, 1, 0}}, {"reverse", {30, 20, 5}}};
  EXPECT_EQ(ended_event(summary, "runs.db", "")["repairs"].dump(),
            R"({"rank":{"tried":50,"rescued":1,"submitted":0},)"
            R"("reverse":{"tried":30,"rescued":20,"submitted":5}})");
  embedded::CandidateRecorded candidate = samples::passing(17, 1.32);
  EXPECT_EQ(recorded_event(candidate)["repaired_by"], nullptr);
  candidate.repaired_by = "reverse";
  EXPECT_EQ(recorded_event(candidate)["repaired_by"], "reverse");
}

TEST(JsonEvents, TellWhatBecameOfASubmission) {
  EXPECT_EQ(settled_event(samples::settled(17)).dump(),
            R"({"event":"settled","eval_id":"7-17","submitted":true,"refusal_reason":null,)"
            R"("refusal_detail":null,"novelty":0.75,"correlation":0.9,"replaced":["7-2"]})");
  const Json refused = settled_event(samples::settled(18, "correlation_exceeded"));
  EXPECT_EQ(refused["submitted"], false);
  EXPECT_EQ(refused["refusal_reason"], "correlation_exceeded");
  EXPECT_EQ(refused["refusal_detail"], "0.9 is above 0.7");
}

TEST(JsonEvents, HoldTheThirteenEntriesOfTheMetricsRecord) {
  const Json metrics = metrics_event(samples::metrics());
  EXPECT_EQ(metrics["event"], "metrics");
  EXPECT_EQ(metrics.size(), 14U);
  EXPECT_EQ(members(metrics)[0], "event");
  EXPECT_EQ(metrics["terminal_reason"], "stopped");
  EXPECT_EQ(metrics["determinism_metadata"]["seed"], 123);
}

}  // namespace
}  // namespace varnholt::app::test
