// Goal: whatever is called in whatever order, and whatever the host answers, no result is recorded
// before its own checks, nothing unrecorded is enqueued, and nothing is enqueued twice.
// Method: random sequences of recording, submitting and measuring over candidates of every kind and
// a host that answers, refuses and fails at random; recorder and queue check what reaches them.
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/submission/pool_metric_refresh.hpp"
#include "search_templates/genetic/submission/ranking.hpp"
#include "search_templates/genetic/submission/recording.hpp"
#include "search_templates/genetic/submission/submitting.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

constexpr const char* kNotRecorded =
    "RuntimeError: genetic candidate cannot enqueue before parent evaluation persistence";
constexpr const char* kNotPersisted =
    "RuntimeError: genetic candidate parent evaluation persistence failed";
constexpr const char* kMissingTiming =
    "RuntimeError: genetic candidate is missing serialized backtest timing";
constexpr const char* kTimingsDisagree =
    "RuntimeError: genetic candidate backtest timing disagrees with";
// What the scripted host itself throws.
constexpr const char* kHostsError = "KeyError: host";

class NotReady : public RuntimeError {
 public:
  using RuntimeError::RuntimeError;
};

// What recorder and queue know of a graph.
struct Told {
  int recorded = 0;
  int enqueued = 0;
  bool recorded_as_passing = false;
};

// A host that answers at random and checks what it is asked to do.
class RandomHost {
 public:
  explicit RandomHost(RandomValues& random) : random_(random) {
    host.engine.on_as_pool_data_not_ready = error_object_of<NotReady>;
    host.engine.on_find_submission_mi_threshold_and_pool = [this] {
      return scripted_callable(host.log, "mi_threshold", always(Value(Tuple{0.5, "pool"})));
    };
    host.engine.on_find_recorded_failure_detail = [this] {
      return scripted_callable(host.log, "failure_detail", always(Value("detail")));
    };
    host.context.on_attribute = [this](std::string_view name) -> std::optional<Value> {
      if (!has_pool_) return std::nullopt;
      if (name == "_backtester" || name == "_signal_pool_name") return Value(name);
      if (name == "_era_config") return Value(Mapping());
      return std::nullopt;
    };
    host.engine.on_refresh_submission_manifest_membership = [this] {
      maybe_fail();
      return Value(!chance(5));
    };
    host.engine.on_submission_pnl_mi_from_backtest_or_compute = [this] { return measured(); };
    host.engine.on_submission_correlation_from_backtest_or_compute = [this] { return measured(); };
    host.context.on_required_safe_record = always(scripted_callable(
        host.log, "safe_record", [this](std::span<const Value> values, const Mapping& keywords) {
          return record(values[0], values[1], keywords);
        }));
    host.context.on_enqueue_deferred_submission_payload = always(scripted_callable(
        host.log, "enqueue",
        [this](std::span<const Value> values, const Mapping&) { return enqueue(values[0]); }));
    host.context.on_last_evaluation_record = [this] {
      return std::optional<Value>(Mapping{{"recording_succeeded", succeeded_}});
    };
  }

  // A candidate whose graph is its number.
  Mapping candidate(std::int64_t number) {
    Mapping made{{"graph", number}, {"passes", !chance(3)}, {"failures", Mapping()}};
    if (chance(2)) made.set("candidate_index", number);
    if (chance(2)) made.set("worker_pid", 1);
    if (!chance(4)) made.set("backtest_timing", Mapping{{"of", number}});
    if (chance(3)) {
      Mapping evidence{{"backtest_completed", chance(2)}};
      // Rarely of another graph.
      if (chance(2)) evidence.set("backtest_timing", Mapping{{"of", chance(6) ? -1 : number}});
      made.set("attempt_evidence", evidence);
    }
    if (chance(4)) made.set("submission_payload", Mapping{{"graph", number}});
    return made;
  }

  void next_step() {
    has_pool_ = !chance(4);
    succeeded_ = chance(2);
    host.log.clear();
  }
  bool chance(std::size_t one_in) { return random_.below(one_in) == 0; }

  ScriptedHost host;
  std::map<std::int64_t, Told> told;

 private:
  void maybe_fail() {
    if (chance(15)) throw KeyError("host");
  }
  Value measured() {
    maybe_fail();
    if (chance(8)) throw NotReady("not yet");
    return Tuple{0.5, !chance(4)};
  }

  Value record(const Value& graph, const Value& passed, const Mapping& keywords) {
    Told& entry = told[graph.integer()];
    EXPECT_EQ(entry.recorded, 0) << "recorded twice";
    const Names names = host.log.names();
    if (truth(passed)) {
      EXPECT_TRUE(truth(keywords.at("backtest_timing"))) << "passes without a timing";
      EXPECT_TRUE(keywords.at("rejection_reason").is_absent());
      // This step has checked the timing and measured the pool, in this order, for this record.
      const auto from = since_last_record(names);
      const auto checked = std::find_if(from, names.end(), [](const std::string& name) {
        return name.rfind("timings.", 0) == 0;
      });
      const auto wiped = std::find(from, names.end(), "evaluation_verdicts.not_evaluated_verdict");
      EXPECT_NE(wiped, names.end()) << "recorded before it was measured";
      EXPECT_LT(checked, wiped) << "measured before its timing was checked";
    }
    maybe_fail();
    if (chance(8)) {
      if (succeeded_) note_recorded(entry, passed);
      return Value();
    }
    note_recorded(entry, passed);
    return "persisted " + repr(graph);
  }
  using Names = std::vector<std::string>;
  // The calls behind the record before this one, which is the last of the log.
  static Names::const_iterator since_last_record(const Names& names) {
    const auto previous = std::find(std::next(names.rbegin()), names.rend(), "safe_record");
    return previous.base();
  }
  static void note_recorded(Told& entry, const Value& passed) {
    ++entry.recorded;
    entry.recorded_as_passing = truth(passed);
  }

  Value enqueue(const Value& payload) {
    Told& entry = told[payload.mapping().at("graph").integer()];
    EXPECT_EQ(entry.recorded, 1) << "enqueued without a record";
    EXPECT_TRUE(entry.recorded_as_passing) << "enqueued although it was recorded as failing";
    EXPECT_EQ(entry.enqueued, 0) << "enqueued twice";
    maybe_fail();
    if (chance(4)) return false;
    ++entry.enqueued;
    return chance(2) ? Value() : Value(0);
  }

  RandomValues& random_;
  bool has_pool_ = true;
  bool succeeded_ = false;
};

bool is_expected(const std::string& error) {
  const std::vector<std::string> expected = {"no error",     kNotRecorded,     kNotPersisted,
                                             kMissingTiming, kTimingsDisagree, kHostsError};
  return std::any_of(expected.begin(), expected.end(),
                     [&](const std::string& start) { return error.rfind(start, 0) == 0; });
}

TEST(SubmissionSequence, RecorderAndQueueAreAskedOnlyWhatTheyMay) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  RandomValues random(seed);
  std::map<std::string, int> outcomes;
  int enqueued = 0;
  for (int round = 0; round < 120 && !testing::Test::HasFailure(); ++round) {
    RandomHost random_host(random);
    Host& host = random_host.host.bundle();
    SearchContext& context = random_host.host.context;
    List all;
    for (std::int64_t number = 0; number < 4; ++number)
      all.append(random_host.candidate(number));

    for (int step = 0; step < 25; ++step) {
      random_host.next_step();
      Mapping one = all.at(random.below(all.size())).mapping();
      const std::size_t action = random.below(6);
      const std::string error = error_of([&] {
        switch (action) {
          case 0:
          case 1:
            static_cast<void>(record_candidate_result_in_parent(host, context, one));
            break;
          case 2:
            submit_candidate(host, context, one);
            break;
          case 3:
            record_candidate_results_in_parent(host, context, all);
            break;
          case 4:
            submit_submittable_candidates(host, context, all);
            break;
          default:
            if (auto payload = as_mapping(one.get("submission_payload"));
                payload && !truth(one.get("_parent_recorded"))) {
              refresh_candidate_submission_pool_metrics(host, context, one, *payload);
            }
        }
        return 0;
      });
      EXPECT_TRUE(is_expected(error)) << error;
      ++outcomes[error];

      for (std::size_t i = 0; i < all.size(); ++i) {
        const Mapping candidate = all.at(i).mapping();
        const Told& told = random_host.told[candidate.at("graph").integer()];
        SCOPED_TRACE(repr(candidate));
        // The marks say what the host knows.
        EXPECT_EQ(truth(candidate.get("_parent_recorded")), told.recorded == 1);
        EXPECT_EQ(truth(candidate.get("_submission_enqueued")), told.enqueued == 1);
        if (!truth(candidate.get("_parent_recorded"))) continue;
        EXPECT_EQ(truth(candidate.at("passes")), told.recorded_as_passing);
        if (const auto payload = as_mapping(candidate.get("submission_payload"));
            payload && !candidate.get("eval_id").is_absent()) {
          EXPECT_EQ(payload->get("eval_id"), candidate.get("eval_id"));
        }
      }
    }
    for (const auto& [graph, told] : random_host.told)
      enqueued += told.enqueued;
  }
  // The sequences reach every outcome, or they would show nothing.
  EXPECT_GT(enqueued, 50);
  for (const char* outcome : {"no error", kNotRecorded, kNotPersisted, kMissingTiming, kHostsError})
    EXPECT_GT(outcomes[outcome], 0) << outcome;
}

}  // namespace
}  // namespace varnholt::genetic::test
