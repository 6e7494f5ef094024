// The pool without processes evaluates each candidate here, in order, and calls back as one with
// processes does. Method: every callback writes into one list.
#include "search_templates/genetic/host/in_process_pool.hpp"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/host/function_callable.hpp"
#include "search_templates/genetic/host/pool_objects.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;
using testing::ElementsAre;

class InProcessPoolTest : public testing::Test {
 protected:
  [[nodiscard]] Value evaluated(const ProcessEvaluationConfig& settings) {
    const auto configured = pool_.configure([&settings] { return settings; });
    return configured->evaluate_candidate_batch(two_candidates(), simulate());
  }

  Callable told(const std::string& callback) {
    return make_callable([this, callback](std::span<const Value> positional, const Mapping&) {
      const Mapping event = positional[0].mapping();
      told_.push_back(callback + " " + str(event.at("event")) + " " +
                      str(event.at("candidate_index")) + "." + str(event.at("attempt")));
      EXPECT_EQ(*attribute(event.at("candidate"), "candidate_index"), event.at("candidate_index"));
      return Value();
    });
  }

  ProcessEvaluationConfig config() {
    ProcessEvaluationConfig config;
    config.pre_dispatch_callback = told("dispatch");
    config.lifecycle_callback = told("lifecycle");
    config.progress_callback = told("progress");
    config.completed_result_callback =
        make_callable([this](std::span<const Value> positional, const Mapping&) {
          told_.push_back("result " + str(*attribute(positional[0], "candidate_index")));
          return Value();
        });
    return config;
  }

  List two_candidates() {
    return {pool_.candidate_evaluation(0, "a"), pool_.candidate_evaluation(1, "b")};
  }

  // Doubles the graph's text.
  Callable simulate() {
    return make_callable([this](std::span<const Value> positional, const Mapping&) -> Value {
      const std::string graph = str(*attribute(positional[0], "graph"));
      told_.push_back("simulate " + graph);
      if (graph == failing_) throw KeyError("'broken'");
      return graph + graph;
    });
  }

  InProcessPool pool_;
  std::vector<std::string> told_;
  std::string failing_;
};

TEST_F(InProcessPoolTest, EvaluatesInOrderAndTellsEachStep) {
  const Value results = evaluated(config());
  EXPECT_THAT(told_, ElementsAre("dispatch pre_dispatch 0.0", "lifecycle started 0.0",
                                 "progress started 0.0", "simulate a", "lifecycle ok 0.0",
                                 "progress ok 0.0", "result 0", "dispatch pre_dispatch 1.0",
                                 "lifecycle started 1.0", "progress started 1.0", "simulate b",
                                 "lifecycle ok 1.0", "progress ok 1.0", "result 1"));
  ASSERT_EQ(length(results), 2U);
  const Value second = item(results, 1);
  EXPECT_EQ(*attribute(second, "payload"), Value("bb"));
  EXPECT_EQ(*attribute(second, "candidate_index"), Value(1));
  EXPECT_TRUE(attribute(second, "worker_pid")->is_absent());
  EXPECT_GE(attribute(second, "elapsed_simulation_seconds")->real(), 0.0);
}

TEST_F(InProcessPoolTest, NeedsNoCallbacks) {
  const Value results = evaluated({});
  EXPECT_EQ(length(results), 2U);
}

TEST_F(InProcessPoolTest, StopsBeforeTheCandidateThatIsNotWanted) {
  ProcessEvaluationConfig settings;
  settings.stop_requested = make_callable(
      [this](std::span<const Value>, const Mapping&) -> Value { return !told_.empty(); });
  const Value results = evaluated(settings);
  EXPECT_THAT(told_, ElementsAre("simulate a"));
  EXPECT_EQ(length(results), 1U);
}

TEST_F(InProcessPoolTest, AFailureOfTheSimulationEndsTheBatch) {
  failing_ = "a";
  EXPECT_EQ(error_of([&] { return evaluated(config()); }), "KeyError: 'broken'");
  EXPECT_EQ(told_.back(), "simulate a");
}

TEST_F(InProcessPoolTest, ResolvesToOneWorker) {
  EXPECT_EQ(pool_.resolve_process_worker_count_details([] { return Value(8); }, 100)->resolved(),
            Value(1));
}

}  // namespace
}  // namespace varnholt::genetic
