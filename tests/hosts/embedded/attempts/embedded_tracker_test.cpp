// Goal: what the search tells of an attempt is in the store, and no call of it is lost or doubled.
// Method: the calls of the search's own functions on a real store; the independent reader of
// invariants at the end of each test.
#include "hosts/embedded/attempts/embedded_tracker.hpp"

#include <gmock/gmock.h>

#include "hosts/embedded/attempts/attempt_accounts.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "tests/hosts/embedded/store/store_fixture.hpp"
#include "tests/support/store_invariants.hpp"

namespace varnholt::embedded::test {
namespace {

using genetic::AttemptEnd;
using genetic::key;
using genetic::List;
using genetic::Mapping;
using genetic::NewAttempt;
using genetic::Value;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class EmbeddedTrackerTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    store_.emplace(path_);
    run_ = store_->begin_run(start());
    sync_.emplace(store_->attempts());
    tracker_ = std::make_shared<EmbeddedTracker>(store_->attempts(), *sync_, [this] {
      now_ += 1.0;
      return now_;
    });
  }
  void TearDown() override {
    EXPECT_THAT(store_violations(path_), IsEmpty());
    StoreTest::TearDown();
  }

  static Value graph() { return Mapping{{"node", "close"}, {"type", "feature"}}; }
  [[nodiscard]] NewAttempt new_attempt() const {
    return {.product_run_id = run_,
            .source_path = key<"search_signal">(),
            .graph = graph(),
            .algorithm = key<"genetic">(),
            .rotation_identifier = "candidate-4",
            .era_number = 3,
            .market_id = 1,
            .data_shape = EmbeddedMarkers().attempt_declared_data_shape()(List{"sharpe"}),
            .expected_columns = List{"sharpe"},
            .eval_type = key<"signal">()};
  }
  static AttemptEnd lost() {
    return {.terminal_disposition = key<"backtest_failed">(),
            .stats_construction_blocker = {{"type", "process_backtest_execution_failed"}},
            .expected_columns = List{"sharpe"},
            .per_column_inventory = Mapping{{"sharpe", "missing"}},
            .threshold_gate = {{"verdict", "blocked"}},
            .failure_category = key<"execution">(),
            .failure_reason = "worker_failed",
            .failure_detail = Value(),
            .classification_source = key<"process_evaluation">()};
  }
  [[nodiscard]] Value running() {
    const Value id = tracker_->create_simulation_attempt()(new_attempt());
    tracker_->mark_simulation_attempt_dispatched(id);
    tracker_->mark_simulation_attempt_backtest_started(id);
    return id;
  }

  double now_ = 0.0;
  std::optional<SqliteRunStore> store_;
  std::int64_t run_ = 0;
  std::optional<EndSync> sync_;
  std::shared_ptr<EmbeddedTracker> tracker_;
};

TEST_F(EmbeddedTrackerTest, StoresTheWholeLifeOfAnAttempt) {
  const Value id = running();
  tracker_->finalize_simulation_attempt()(id, lost());
  const AttemptRecord row = store_->attempts().find(id.integer()).value();
  EXPECT_EQ(row.start.run, run_);
  EXPECT_EQ(row.start.source_path, "search_signal");
  EXPECT_EQ(row.start.graph_json, R"({"node":"close","type":"feature"})");
  EXPECT_EQ(row.start.graph_key, StoredGraph(graph()).key);
  EXPECT_EQ(row.start.algorithm, "genetic");
  EXPECT_EQ(row.start.rotation_identifier, "candidate-4");
  EXPECT_EQ(row.start.era_number, 3);
  EXPECT_EQ(row.start.market_id, 1);
  EXPECT_EQ(row.start.data_shape_json, R"({"columns":1,"rows":1})");
  EXPECT_EQ(row.start.expected_columns_json, R"(["sharpe"])");
  EXPECT_EQ(row.start.eval_type, "signal");
  ASSERT_TRUE(row.end.has_value());
  EXPECT_EQ(row.end->terminal_disposition, "backtest_failed");
  EXPECT_FALSE(row.end->backtest_completed);
  EXPECT_EQ(row.end->generated_stats_json, "null");
  EXPECT_EQ(row.end->candidate_stats_json, "null");
  EXPECT_EQ(row.end->stats_construction_blocker_json,
            R"({"type":"process_backtest_execution_failed"})");
  EXPECT_EQ(row.end->per_column_inventory_json, R"({"sharpe":"missing"})");
  EXPECT_EQ(row.end->threshold_gate_json, R"({"verdict":"blocked"})");
  EXPECT_EQ(row.end->failure_category, "execution");
  EXPECT_EQ(row.end->failure_reason, "worker_failed");
  EXPECT_EQ(row.end->failure_detail, std::nullopt);
  EXPECT_EQ(row.end->classification_source, "process_evaluation");
  ASSERT_EQ(row.events.size(), 4U);
  EXPECT_EQ(row.events[0].at, 1.0);
  EXPECT_EQ(row.events[3].at, 4.0);
}

TEST_F(EmbeddedTrackerTest, TheFirstEndCounts) {
  const Value id = running();
  tracker_->finalize_simulation_attempt()(id, lost());
  AttemptEnd late = lost();
  late.failure_reason = "another";
  tracker_->finalize_simulation_attempt()(id, late);
  const AttemptRecord row = store_->attempts().find(id.integer()).value();
  EXPECT_EQ(row.end->failure_reason, "worker_failed");
  EXPECT_EQ(row.ignored_ends, 1);
}

TEST_F(EmbeddedTrackerTest, AnAttemptWithoutMarketAndEraIsStored) {
  NewAttempt attempt = new_attempt();
  attempt.market_id = Value();
  attempt.era_number = Value();
  const Value id = tracker_->create_simulation_attempt()(attempt);
  EXPECT_EQ(store_->attempts().find(id.integer())->start.market_id, std::nullopt);
  AttemptEnd end = lost();
  end.terminal_disposition = key<"resource_blocked">();
  end.failure_category = key<"resource">();
  tracker_->finalize_simulation_attempt()(id, end);
}

TEST_F(EmbeddedTrackerTest, RefusesIdentitiesThatAreNone) {
  NewAttempt attempt = new_attempt();
  attempt.product_run_id = Value();
  EXPECT_THROW(static_cast<void>(tracker_->create_simulation_attempt()(attempt)),
               genetic::ValueError);
  EXPECT_THROW(tracker_->mark_simulation_attempt_dispatched("7"), genetic::ValueError);
  EXPECT_THROW(tracker_->finalize_simulation_attempt()(Value(), lost()), genetic::ValueError);
  EXPECT_THROW(tracker_->mark_simulation_attempt_dispatched(7), StoreError);
}

TEST_F(EmbeddedTrackerTest, MarkersGoThroughTheContextsTracker) {
  EmbeddedMarkers markers;
  const Value tracker = genetic::make_object<TrackerObject>(tracker_, run_);
  const Value marker = markers.write_evaluation_attempt_marker()(
      tracker, graph(), "all", Mapping{{"cost_basis_points", 5.0}}, "evaluate_expression");
  ASSERT_TRUE(marker.is_integer());
  EXPECT_EQ(store_->attempts().open_markers(run_), 1);
  EXPECT_EQ(
      SqliteDatabase(path_, 0).query_text(
          "SELECT named_universe || ' ' || metaparameters || ' ' || phase || ' ' || graph_key "
          "FROM evaluation_markers",
          "reading"),
      R"(all {"cost_basis_points":5.0} evaluate_expression )" + StoredGraph(graph()).key);
  markers.clear_evaluation_attempt_marker()(tracker, marker);
  EXPECT_EQ(store_->attempts().open_markers(run_), 0);
}

TEST_F(EmbeddedTrackerTest, WithoutATrackerThereAreNoMarkers) {
  EmbeddedMarkers markers;
  EXPECT_TRUE(
      markers.write_evaluation_attempt_marker()(Value(), graph(), "", Mapping(), "x").is_absent());
  markers.clear_evaluation_attempt_marker()(Value(), 1);
  EXPECT_EQ(store_->attempts().open_markers(run_), 0);
}

}  // namespace
}  // namespace varnholt::embedded::test
