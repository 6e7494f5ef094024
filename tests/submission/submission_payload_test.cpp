// Goal: a passing candidate's payload is built once, with the keys in their order, and later only
// completed; the id that is made up for it is the one that the host's language gives.
// Method: a scripted host; payloads compared whole, and the ordered log of calls. The digests were
// made with Python: hashlib.sha256(json.dumps(graph, sort_keys=True, separators=(",", ":"))
// .encode("utf-8")).hexdigest()[:16].
#include "search_templates/genetic/submission/submission_payload.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CandidateEvalId, IsTheOwnOneOrMadeOfTheIndexOrOfTheGraph) {
  struct Row {
    Mapping candidate;
    Value eval_id;
  };
  const Value graph = Mapping{{"node", "close"}};
  const std::vector<Row> table = {
      {{{"eval_id", "own"}, {"candidate_index", 3}}, "own"},
      {{{"eval_id", 0}, {"candidate_index", 3}}, 0},
      {{{"eval_id", ""}}, ""},
      {{{"eval_id", false}}, false},
      {{{"eval_id", Value()}, {"candidate_index", 3}, {"graph", graph}}, "genetic-candidate-3"},
      {{{"candidate_index", 0}}, "genetic-candidate-0"},
      // The payload's id does not count.
      {{{"candidate_index", 4}, {"submission_payload", Mapping{{"eval_id", "p"}}}},
       "genetic-candidate-4"},
      {{{"candidate_index", 3.0}}, "genetic-candidate-3.0"},
      {{{"candidate_index", "x"}}, "genetic-candidate-x"},
      {{{"candidate_index", true}}, "genetic-candidate-True"},
      {{{"candidate_index", Value()}, {"graph", graph}}, "genetic-graph-ffaf3a8e0075cebb"},
      {{{"graph", graph}}, "genetic-graph-ffaf3a8e0075cebb"},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(repr(row.candidate));
    const Value eval_id = candidate_eval_id(row.candidate);
    EXPECT_EQ(repr(eval_id), repr(row.eval_id));
  }
  const Value own = List{"of any kind"};
  EXPECT_TRUE(same_object(candidate_eval_id({{"eval_id", own}}), own));
}

TEST(CandidateEvalId, DigestIsThatOfPython) {
  struct Row {
    Value graph;
    const char* digits;
  };
  const Value add = Mapping{
      {"node", "add"}, {"children", List{Mapping{{"node", "close"}}, Mapping{{"node", "volume"}}}}};
  const Value sorted_add = Mapping{
      {"children", List{Mapping{{"node", "close"}}, Mapping{{"node", "volume"}}}}, {"node", "add"}};
  const std::vector<Row> table = {
      {Value(), "74234e98afe7498f"},
      {Mapping(), "44136fa355b3678a"},
      {add, "9b4e77cbdff279fa"},
      {sorted_add, "9b4e77cbdff279fa"},
      {Mapping{{"node", "mean"},
               {"params", Mapping{{"window", 20}, {"alpha", 0.1}}},
               {"children", List{Mapping{{"node", "gr\u00f6\u00dfe"}}}}},
       "1b1cd939351363b5"},
      {Mapping{{"node", "emoji \U0001f600"}, {"children", List()}}, "89f72fc515c052fd"},
      {Mapping{{"node", "x"}, {"value", 1e22}, {"flag", true}, {"n", Value()}}, "81c6137f33c6162f"},
  };
  for (const Row& row : table) {
    EXPECT_EQ(candidate_eval_id({{"graph", row.graph}}),
              Value("genetic-graph-" + std::string(row.digits)))
        << repr(row.graph);
  }
  EXPECT_EQ(candidate_eval_id(Mapping()), "genetic-graph-74234e98afe7498f");
  EXPECT_EQ(error_of([] {
              return candidate_eval_id({{"graph", Tuple()}});
            }),
            "TypeError: genetic initial candidates must contain only plain graph data");
}

class SubmissionPayload : public testing::Test {
 protected:
  SubmissionPayload() {
    host.context.on_attribute = [this](std::string_view name) { return attributes.find(name); };
  }

  Value ensure(bool refresh_pool_metrics = false) {
    return ensure_candidate_submission_payload(host.bundle(), host.context, candidate,
                                               refresh_pool_metrics);
  }
  std::string error_of_ensure() {
    return error_of([&] { return ensure(); });
  }

  ScriptedHost host;
  Mapping attributes;
  Mapping candidate{{"graph", Mapping{{"node", "close"}}},
                    {"passes", true},
                    {"backtest_timing", Mapping{{"seconds", 1}}}};
};

TEST_F(SubmissionPayload, CandidateThatDoesNotPassHasNoneAndIsLeftAlone) {
  for (const Value& passes : {Value(false), Value(), Value(0), Value("")}) {
    candidate.set("passes", passes);
    const std::string before = repr(candidate);
    EXPECT_TRUE(ensure(true).is_absent());
    EXPECT_EQ(repr(candidate), before);
  }
  candidate.erase("passes");
  EXPECT_TRUE(ensure(true).is_absent());
  EXPECT_THAT(host.log.lines(), IsEmpty());
}

TEST_F(SubmissionPayload, NewOneOfACandidateAndAContextThatKnowNothing) {
  const Value payload = ensure();
  EXPECT_EQ(repr(payload),
            "{'eval_id': 'genetic-graph-ffaf3a8e0075cebb', 'submission_type': 'signal', 'graph': "
            "{'node': 'close'}, 'named_universe': '', 'signal_pool_name': None, 'is_stats': "
            "{'sharpe': 0.0, 'annualized_returns': 0.0, 'turnover': 0.0, 'drawdown': 0.0, "
            "'quality_score': 0.0}, 'metaparameters': {}, 'search_state': {}, "
            "'expression_elapsed_seconds': None, 'backtest_timing': {'seconds': 1}}");
  EXPECT_TRUE(same_object(candidate.at("submission_payload"), payload));
  // Neither the candidate's id nor anything else of it is made up on the candidate.
  EXPECT_FALSE(candidate.contains("eval_id"));
}

TEST_F(SubmissionPayload, NewOneOfAllThatIsKnown) {
  const Value metaparameters = Mapping{{"delay", 1}};
  attributes = {{"_named_universe", "large"},
                {"_signal_pool_name", "pool"},
                {"_metaparameters", metaparameters},
                {"_market_id", "3"},
                {"_era_number", 9.0},
                {"_submission_owner", 0},
                {"_sync_mgr", "manager"}};
  const Value stats_payload = Mapping{{"sharpe", 2}};
  host.engine.on_find_submitted_stats_payload_from_backtest = [&] {
    return scripted_callable(host.log, "build",
                             always(Value(Tuple{stats_payload, "dropped reason"})));
  };
  host.engine.on_annotate_submission_client_manifest = [](Mapping& payload) {
    payload.set("client_manifest", "annotated");
  };
  candidate.set("candidate_index", 5);
  candidate.set("elapsed_simulation_seconds", 1.5);
  candidate.set("source_attempt_id", 0);
  const Mapping payload = ensure().mapping();
  EXPECT_EQ(repr(payload),
            "{'eval_id': 'genetic-candidate-5', 'submission_type': 'signal', 'graph': {'node': "
            "'close'}, 'named_universe': 'large', 'signal_pool_name': 'pool', 'is_stats': "
            "{'sharpe': 2}, 'metaparameters': {'delay': 1}, 'search_state': {}, "
            "'expression_elapsed_seconds': 1.5, 'backtest_timing': {'seconds': 1}, 'market_id': 3, "
            "'era_number': 9, 'client_manifest': 'annotated', '_submission_owner': 0, "
            "'_source_attempt_id': 0}");
  // What is shared with its source.
  EXPECT_TRUE(same_object(payload.at("graph"), candidate.at("graph")));
  EXPECT_TRUE(same_object(payload.at("is_stats"), stats_payload));
  EXPECT_TRUE(same_object(payload.at("metaparameters"), metaparameters));
}

TEST_F(SubmissionPayload, AbsentAttributesAreNotMissingOnes) {
  attributes = {{"_named_universe", Value()},
                {"_metaparameters", Value()},
                {"_signal_pool_name", Value()},
                {"_submission_owner", Value()}};
  candidate.set("source_attempt_id", Value());
  const Mapping payload = ensure().mapping();
  EXPECT_TRUE(payload.at("named_universe").is_absent());
  EXPECT_TRUE(payload.at("metaparameters").is_absent());
  EXPECT_TRUE(payload.at("signal_pool_name").is_absent());
  EXPECT_FALSE(payload.contains("_submission_owner"));
  EXPECT_FALSE(payload.contains("_source_attempt_id"));
}

TEST_F(SubmissionPayload, CallsOfANewOne) {
  attributes = {{"_market_id", 3}, {"_era_number", 9}, {"_submission_owner", "owner"}};
  host.engine.on_find_submitted_stats_payload_from_backtest = [&] {
    return scripted_callable(host.log, "build", always(Value(Tuple{Mapping(), Value()})));
  };
  candidate = {{"eval_id", "e"}, {"passes", 1}, {"backtest_timing", "t"}};
  static_cast<void>(ensure());
  EXPECT_THAT(
      host.log.lines(),
      ElementsAre(
          "timings.validate_backtest_timing_payload('t')",
          "timings.validate_graph_backtest_timing_payload(None, 't')",
          "context.attribute('_named_universe')", "context.attribute('_signal_pool_name')",
          "engine.find_submitted_stats_payload_from_backtest", "context.attribute('_era_config')",
          "context.attribute('era_config')", "build(None, None)",
          "context.attribute('_metaparameters')",
          // Market and era are resolved before the manifest sees the payload.
          "context.attribute('_market_id')", "context.attribute('_era_number')",
          "context.attribute('_sync_mgr')",
          "engine.annotate_submission_client_manifest({'eval_id': 'e', 'submission_type': "
          "'signal', 'graph': None, 'named_universe': '', 'signal_pool_name': None, 'is_stats': "
          "{}, 'metaparameters': {}, 'search_state': {}, 'expression_elapsed_seconds': None, "
          "'backtest_timing': 't', 'market_id': 3, 'era_number': 9}, None)",
          "context.attribute('_submission_owner')"));
}

TEST_F(SubmissionPayload, WhatTheManifestWritesIsNormalisedAfterIt) {
  struct Row {
    const char* what;
    Mapping attributes;
    Mapping written;
    Value market_id;
    Value era_number;
  };
  const std::vector<Row> table = {
      {"nothing is known", Mapping(), Mapping(), Value(), Value()},
      {"texts of the manifest", Mapping(), {{"market_id", "4"}, {"era_number", " 12 "}}, 4, 12},
      {"the manifest's own names",
       Mapping(),
       {{"client_manifest_market_id", 4}, {"client_manifest_era_number", "12"}},
       4,
       12},
      {"the context before the manifest's own names",
       {{"market_id", 3}, {"era_number", 9}},
       {{"client_manifest_market_id", 4}, {"client_manifest_era_number", 12}},
       3,
       9},
      {"what the manifest replaces", {{"market_id", 3}}, {{"market_id", 4.0}}, 4, Value()},
      {"what nobody can read stays", Mapping(), {{"market_id", "four"}}, "four", Value()},
      {"the context instead of what nobody can read",
       {{"market_id", 3}},
       {{"market_id", "four"}},
       3,
       Value()},
  };
  for (const Row& row : table) {
    SCOPED_TRACE(row.what);
    attributes = row.attributes;
    candidate.set("submission_payload", Value());
    host.engine.on_annotate_submission_client_manifest = [&](Mapping& payload) {
      payload.update(row.written);
    };
    const Mapping payload = ensure().mapping();
    EXPECT_EQ(repr(payload.get("market_id")), repr(row.market_id));
    EXPECT_EQ(repr(payload.get("era_number")), repr(row.era_number));
  }
}

TEST_F(SubmissionPayload, ExistingOneIsOnlyCompleted) {
  attributes = {{"_market_id", 3}, {"_submission_owner", "owner"}, {"_named_universe", "large"}};
  const Mapping own{{"graph", "its own"}, {"eval_id", Value()}};
  candidate.set("submission_payload", own);
  candidate.set("eval_id", 0);
  candidate.set("source_attempt_id", "attempt");
  EXPECT_TRUE(same_object(ensure(), own));
  EXPECT_EQ(repr(own),
            "{'graph': 'its own', 'eval_id': 0, '_source_attempt_id': 'attempt', 'market_id': 3, "
            "'backtest_timing': {'seconds': 1}}");
  EXPECT_EQ(host.log.count("engine.annotate_submission_client_manifest"), 0U);
  EXPECT_EQ(host.log.count("engine.find_submitted_stats_payload_from_backtest"), 0U);
}

TEST_F(SubmissionPayload, IdOfAnExistingOne) {
  struct Row {
    Mapping payload;
    Value candidates;
    const char* keys_and_id;
  };
  const std::vector<Row> table = {
      {{{"eval_id", "p"}}, "c", "{'eval_id': 'p', 'backtest_timing': {'seconds': 1}}"},
      {{{"eval_id", 0}}, "c", "{'eval_id': 0, 'backtest_timing': {'seconds': 1}}"},
      {{{"eval_id", Value()}}, "c", "{'eval_id': 'c', 'backtest_timing': {'seconds': 1}}"},
      {Mapping(), "c", "{'eval_id': 'c', 'backtest_timing': {'seconds': 1}}"},
      // Nothing is made up.
      {Mapping(), Value(), "{'backtest_timing': {'seconds': 1}}"},
  };
  for (const Row& row : table) {
    candidate.set("submission_payload", row.payload);
    candidate.set("eval_id", row.candidates);
    candidate.set("candidate_index", 7);
    EXPECT_EQ(repr(ensure()), row.keys_and_id);
  }
}

TEST_F(SubmissionPayload, OneThatIsNoMappingIsReplaced) {
  for (const Value& none : {Value(), Value("text"), Value(List{1}), Value(0)}) {
    candidate.set("submission_payload", none);
    EXPECT_EQ(ensure().mapping().at("submission_type"), "signal");
    EXPECT_TRUE(candidate.at("submission_payload").is_mapping());
  }
}

TEST_F(SubmissionPayload, EmptyExistingOneIsCompletedInPlace) {
  const Mapping own;
  candidate.set("submission_payload", own);
  EXPECT_TRUE(same_object(ensure(), own));
  EXPECT_FALSE(own.contains("submission_type"));
}

TEST_F(SubmissionPayload, CheckedTimingGoesToCandidateAndPayload) {
  const Mapping normalised{{"seconds", "normalised"}};
  host.backtest_timings.on_validate_graph = always(Value(normalised));
  candidate.erase("backtest_timing");
  candidate.set("submission_payload", Mapping{{"backtest_timing", "raw"}});
  const Mapping payload = ensure().mapping();
  EXPECT_TRUE(same_object(payload.at("backtest_timing"), normalised));
  EXPECT_TRUE(same_object(candidate.at("backtest_timing"), normalised));
  // The process identity is not asked for here.
  EXPECT_EQ(host.log.count("timings.validate_process_backtest_timing_payload"), 0U);
}

TEST_F(SubmissionPayload, FaultOfTheTimingComesFirstAndChangesNothing) {
  candidate.set("submission_payload", Mapping{{"backtest_timing", Mapping{{"seconds", 2}}}});
  const std::string before = repr(candidate);
  EXPECT_EQ(error_of_ensure(),
            "RuntimeError: genetic candidate backtest timing disagrees with submission payload "
            "backtest timing");
  EXPECT_EQ(repr(candidate), before);
  candidate = {{"passes", true}};
  EXPECT_EQ(error_of_ensure(),
            "RuntimeError: genetic candidate is missing serialized backtest timing");
  EXPECT_EQ(repr(candidate), "{'passes': True}");
}

TEST_F(SubmissionPayload, NewOneStandsOnTheCandidateOnlyWhenItIsWhole) {
  host.engine.on_annotate_submission_client_manifest = [](Mapping&) { throw KeyError("odd"); };
  EXPECT_EQ(error_of_ensure(), "KeyError: odd");
  EXPECT_FALSE(candidate.contains("submission_payload"));
}

TEST_F(SubmissionPayload, PoolIsMeasuredOnlyWhenAsked) {
  attributes = {{"_backtester", "b"}, {"_signal_pool_name", "pool"}, {"_era_config", "era"}};
  static_cast<void>(ensure(false));
  EXPECT_EQ(host.log.count("engine.refresh_submission_manifest_membership"), 0U);
  const Mapping payload = ensure(true).mapping();
  EXPECT_EQ(host.log.count("engine.refresh_submission_manifest_membership"), 1U);
  EXPECT_EQ(payload.at("is_stats").mapping().at("correlation"), 0.25);
}

TEST_F(SubmissionPayload, MeasurementMayEndThePassingAndThePayloadStays) {
  attributes = {{"_backtester", "b"}, {"_signal_pool_name", "pool"}, {"_era_config", "era"}};
  host.engine.on_submission_correlation_from_backtest_or_compute =
      always(Value(Tuple{0.75, false}));
  EXPECT_TRUE(ensure(true).is_absent());
  EXPECT_EQ(candidate.at("passes"), false);
  EXPECT_EQ(candidate.at("submission_payload").mapping().at("submission_type"), "signal");
}

}  // namespace
}  // namespace varnholt::genetic::test
