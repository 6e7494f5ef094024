// Goal: what passes and is recorded is enqueued once, best first; nothing else ever is.
// Method: a scripted queue and the ordered log of calls.
#include "search_templates/genetic/submission/submitting.hpp"

#include <initializer_list>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNotRecorded =
    "RuntimeError: genetic candidate cannot enqueue before parent evaluation persistence";
constexpr const char* kNoQueue =
    "RuntimeError: genetic search requires canonical submission enqueue";

class Submitting : public testing::Test {
 protected:
  void queue(std::initializer_list<Value> answers) {
    host.context.on_enqueue_deferred_submission_payload =
        always(scripted_callable(host.log, "enqueue", in_turn(answers)));
  }
  std::string submit(const Value& submitted) {
    return error_of([&] { return submit_candidate(host.bundle(), host.context, submitted), 0; });
  }

  ScriptedHost host;
  Mapping candidate{{"passes", true},
                    {"_parent_recorded", true},
                    {"eval_id", "e"},
                    {"backtest_timing", Mapping{{"seconds", 1}}},
                    {"submission_payload", Mapping{{"eval_id", "e"}, {"market_id", 3}}}};
};

TEST_F(Submitting, EnqueuesTheVeryPayloadOnce) {
  Value enqueued;
  host.context.on_enqueue_deferred_submission_payload = always(scripted_callable(
      host.log, "enqueue", [&](std::span<const Value> positional, const Mapping& keywords) {
        EXPECT_EQ(positional.size(), 1U);
        EXPECT_TRUE(keywords.empty());
        enqueued = positional[0];
        return Value();
      }));
  EXPECT_EQ(submit(candidate), "no error");
  EXPECT_TRUE(same_object(enqueued, candidate.at("submission_payload")));
  EXPECT_EQ(candidate.at("_submission_enqueued"), true);
  host.log.clear();
  EXPECT_EQ(submit(candidate), "no error");
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST_F(Submitting, TimingIsCheckedAgainBeforeTheQueueIsLookedUp) {
  queue({Value()});
  candidate.set("submission_payload", Mapping{{"market_id", 3}, {"era_number", 9}});
  EXPECT_EQ(submit(candidate), "no error");
  EXPECT_THAT(host.log.names(),
              ElementsAre("timings.validate_backtest_timing_payload",
                          "timings.validate_graph_backtest_timing_payload",
                          "context.enqueue_deferred_submission_payload", "enqueue"));
  // The pool is not measured again.
  EXPECT_EQ(host.log.count("engine.refresh_submission_manifest_membership"), 0U);

  candidate.erase("_submission_enqueued");
  candidate.set("backtest_timing", Mapping{{"seconds", 2}});
  host.log.clear();
  EXPECT_EQ(submit(candidate),
            "RuntimeError: genetic candidate backtest timing disagrees with submission payload "
            "backtest timing");
  EXPECT_EQ(host.log.count("context.enqueue_deferred_submission_payload"), 0U);
}

TEST_F(Submitting, MarksAndPassingDecideInThisOrder) {
  struct Row {
    const char* what;
    Value enqueued;
    Value recorded;
    Value passes;
    const char* error;
    std::size_t look_ups;
  };
  const std::vector<Row> table = {
      {"enqueued", true, true, true, "no error", 0},
      {"enqueued, by its truth", "yes", Value(), true, "no error", 0},
      {"enqueued though not recorded", true, false, true, "no error", 0},
      {"not recorded", false, false, true, kNotRecorded, 0},
      {"not recorded, by its truth", 0, "", true, kNotRecorded, 0},
      {"not recorded and failing", Value(), Value(), false, kNotRecorded, 0},
      {"recorded and failing", Value(), true, false, "no error", 0},
      {"recorded and failing, by its truth", Value(), 1, 0, "no error", 0},
      {"recorded and passing", Value(), true, true, "no error", 1},
      {"recorded and passing, by its truth", 0, "yes", 1, "no error", 1},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    queue({Value()});
    candidate.set("_submission_enqueued", row.enqueued);
    candidate.set("_parent_recorded", row.recorded);
    candidate.set("passes", row.passes);
    host.log.clear();
    EXPECT_EQ(submit(candidate), row.error);
    EXPECT_EQ(host.log.count("context.enqueue_deferred_submission_payload"), row.look_ups);
    EXPECT_EQ(host.log.count("enqueue"), row.look_ups);
    if (row.look_ups == 0) {
      EXPECT_THAT(host.log.lines(), IsEmpty());
      EXPECT_TRUE(is_same_or_equal(candidate.at("_submission_enqueued"), row.enqueued));
    }
  }
  EXPECT_EQ(submit(Mapping()), kNotRecorded);
}

TEST_F(Submitting, OnlyFalseItselfSaysThatItWasNotTaken) {
  struct Row {
    Value answer;
    bool taken;
  };
  const std::vector<Row> table = {{false, false},    {true, true},   {Value(), true},
                                  {0, true},         {0.0, true},    {"", true},
                                  {Mapping(), true}, {List(), true}, {"False", true}};
  for (const Row& row : table) {
    SCOPED_TRACE(repr(row.answer));
    candidate.erase("_submission_enqueued");
    queue({row.answer, Value()});
    EXPECT_EQ(submit(candidate), "no error");
    EXPECT_EQ(candidate.contains("_submission_enqueued"), row.taken);
    host.log.clear();
    EXPECT_EQ(submit(candidate), "no error");
    EXPECT_EQ(host.log.count("enqueue"), row.taken ? 0U : 1U);
    EXPECT_EQ(candidate.at("_submission_enqueued"), true);
  }
}

TEST_F(Submitting, MissingQueueIsAnErrorOfWhatIsToBeEnqueuedAlone) {
  EXPECT_EQ(submit(candidate), kNoQueue);
  EXPECT_FALSE(candidate.contains("_submission_enqueued"));
  candidate.set("passes", false);
  EXPECT_EQ(submit(candidate), "no error");
}

TEST_F(Submitting, EmptyPayloadCannotArise) {
  // Completing an empty one fills it, so that its truth never stops a submission.
  queue({Value()});
  candidate.set("submission_payload", Mapping());
  EXPECT_EQ(submit(candidate), "no error");
  EXPECT_EQ(host.log.count("enqueue"), 1U);
}

TEST_F(Submitting, PayloadThatWasNeverMadeIsMadeNow) {
  Mapping payload;
  host.context.on_enqueue_deferred_submission_payload = always(scripted_callable(
      host.log, "enqueue", [&](std::span<const Value> positional, const Mapping&) {
        payload = positional[0].mapping();
        return Value();
      }));
  candidate.erase("submission_payload");
  EXPECT_EQ(submit(candidate), "no error");
  EXPECT_EQ(payload.at("eval_id"), "e");
  EXPECT_EQ(payload.at("submission_type"), "signal");
}

TEST_F(Submitting, QueuesErrorPassesAndNothingIsMarked) {
  host.context.on_enqueue_deferred_submission_payload =
      always(scripted_callable(host.log, "enqueue", failing(KeyError("full"))));
  EXPECT_EQ(submit(candidate), "KeyError: full");
  EXPECT_FALSE(candidate.contains("_submission_enqueued"));
}

TEST_F(Submitting, BlockedCandidateIsNotEnqueued) {
  candidate.set("passes", false);
  candidate.set("_submission_blocked_reason", "correlation_exceeded");
  queue({});
  EXPECT_EQ(submit(candidate), "no error");
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST_F(Submitting, PendingCandidateIsEnqueuedWithItsMark) {
  queue({Value()});
  Mapping payload = candidate.at("submission_payload").mapping();
  candidate.set("_submission_pending_reason", "pool_metrics_refresh_required");
  payload.set("_submission_pending_reason", "pool_metrics_refresh_required");
  EXPECT_EQ(submit(candidate), "no error");
  EXPECT_EQ(payload.at("_submission_pending_reason"), "pool_metrics_refresh_required");
  EXPECT_EQ(host.log.count("enqueue"), 1U);
}

// Several at once --------------------------------------------------------------------------------

class SubmittingMany : public Submitting {
 protected:
  SubmittingMany() {
    host.eliteness.on_score_candidate = [](const Value& scored, const Mapping&) {
      return scored.mapping().at("score");
    };
    host.context.on_enqueue_deferred_submission_payload = always(scripted_callable(
        host.log, "enqueue", [this](std::span<const Value> positional, const Mapping&) {
          enqueued.push_back(str(positional[0].mapping().at("eval_id")));
          return enqueued.size() == refused ? Value(false) : Value();
        }));
  }
  static Mapping recorded(const char* id, int score) {
    return {{"passes", true},
            {"_parent_recorded", true},
            {"eval_id", id},
            {"score", score},
            {"backtest_timing", "t"}};
  }
  std::string submit_all(const Value& candidates) {
    return error_of(
        [&] { return submit_submittable_candidates(host.bundle(), host.context, candidates), 0; });
  }

  std::vector<std::string> enqueued;
  std::size_t refused = 0;  // The number of the one that the queue does not take.
};

TEST_F(SubmittingMany, BestComesFirst) {
  Mapping failing_one = recorded("failing", 9);
  failing_one.set("passes", false);
  EXPECT_EQ(submit_all(List{recorded("a", 1), recorded("b", 3), failing_one, recorded("c", 2)}),
            "no error");
  EXPECT_THAT(enqueued, ElementsAre("b", "c", "a"));
}

TEST_F(SubmittingMany, RefusedOneDoesNotStopTheOthersAndIsOfferedAgain) {
  refused = 1;
  const List all{recorded("a", 1), recorded("b", 2)};
  EXPECT_EQ(submit_all(all), "no error");
  EXPECT_EQ(submit_all(all), "no error");
  EXPECT_EQ(submit_all(all), "no error");
  EXPECT_THAT(enqueued, ElementsAre("b", "a", "b"));
  // All are ranked each time, enqueued or not.
  EXPECT_EQ(host.log.count("eliteness.score_candidate"), 6U);
}

TEST_F(SubmittingMany, UnrecordedOneStopsWhatRanksBelowIt) {
  Mapping unrecorded = recorded("b", 2);
  unrecorded.erase("_parent_recorded");
  EXPECT_EQ(submit_all(List{recorded("c", 1), unrecorded, recorded("a", 3)}), kNotRecorded);
  EXPECT_THAT(enqueued, ElementsAre("a"));
}

TEST_F(SubmittingMany, AllAreRankedBeforeTheFirstIsEnqueued) {
  EXPECT_EQ(submit_all(List{recorded("a", 1), recorded("b", 2)}), "no error");
  const std::vector<std::string> names = host.log.names();
  EXPECT_EQ(names.at(0), "eliteness.score_candidate");
  EXPECT_EQ(names.at(1), "eliteness.score_candidate");
  EXPECT_EQ(submit_all(List()), "no error");
}

}  // namespace
}  // namespace varnholt::genetic::test
