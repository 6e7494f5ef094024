// Goal: a host that keeps no attempts of processes needs to write nothing for them, and what it
// cannot leave out says so. Method: the base classes themselves.
#include <gmock/gmock.h>

#include "search_templates/genetic/host/attempt_accounting.hpp"
#include "search_templates/genetic/host/attempt_markers.hpp"
#include "search_templates/genetic/host/host.hpp"
#include "search_templates/genetic/host/search_context.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"

namespace varnholt::genetic::test {
namespace {

// A context with what every context has, and two attributes.
class PlainContext : public SearchContext {
 public:
  [[nodiscard]] Callable evaluate_for_template() override { return {}; }
  [[nodiscard]] Callable safe_record() override { return {}; }
  [[nodiscard]] Callable enqueue_deferred_submission_payload() override { return {}; }
  [[nodiscard]] std::optional<Value> attribute(std::string_view name) override {
    if (name == "_market_id") return 5;
    if (name == "_era_number") return Value();
    return std::nullopt;
  }
};

TEST(AttemptDefaults, AContextReadsWhatItMustHave) {
  PlainContext context;
  EXPECT_EQ(context.required_attribute("_market_id"), Value(5));
  EXPECT_TRUE(context.required_attribute("_era_number").is_absent()) << "absent is not missing";
  EXPECT_EQ(context.opaque_attribute("_market_id"), std::optional<Value>(5));
  EXPECT_EQ(context.opaque_attribute("_x"), std::nullopt);
  EXPECT_EQ(error_of([&] { return context.required_attribute("_x"); }),
            "AttributeError: 'SearchContext' object has no attribute '_x'");
}

TEST(AttemptDefaults, AContextWithoutATrackerTellsAttemptsApart) {
  PlainContext context;
  const Key any = key<"any">();
  const NewAttempt attempt{.product_run_id = {},
                           .source_path = any,
                           .graph = {},
                           .algorithm = any,
                           .rotation_identifier = "candidate-0",
                           .era_number = {},
                           .market_id = {},
                           .data_shape = {},
                           .expected_columns = {},
                           .eval_type = any};
  EXPECT_EQ(context.tracker()->create_simulation_attempt()(attempt), Value(1));
  EXPECT_EQ(context.tracker()->create_simulation_attempt()(attempt), Value(2));
}

TEST(AttemptDefaults, AContextThatSaysNothingIsNeverCalledOff) {
  PlainContext context;
  EXPECT_FALSE(context.submission_cancelled());
  EXPECT_EQ(context.find_submission_cancelled()({}), false);
}

TEST(AttemptDefaults, AChildOfAPlainContextHasAStateAndNoOperations) {
  PlainContext context;
  ChildContext& child = context.child();
  child.template_evaluation_state()->set_attempt_id("id");
  EXPECT_EQ(*child.template_evaluation_state()->attempt_id(), "id");
  EXPECT_EQ(*child.template_evaluation_state()->parent_owned_attempt(), false);
  EXPECT_FALSE(child.operations()->attribute("_safe_record").has_value());
  EXPECT_FALSE(static_cast<bool>(child.set_last_evaluation_record()));
}

TEST(AttemptDefaults, QueuesThatNobodyMadeCarryNothing) {
  NoSignals no_signals;
  const auto queue = no_signals.fork_context()->simple_queue();
  EXPECT_EQ(queue->reader(), nullptr);
  constexpr const char* kNoQueues =
      "RuntimeError: this host has no queues between parent and children: override "
      "Host::process_contexts";
  EXPECT_EQ(error_of([&] { return queue->get(); }), kNoQueues);
  EXPECT_EQ(error_of([&] {
              queue->put(1);
              return 0;
            }),
            kNoQueues);
}

TEST(AttemptDefaults, AnyErrorHasAnObject) {
  PlainContext context;
  const auto caught = [&context](const auto& error) {
    return repr(context.caught_object(std::make_exception_ptr(error)));
  };
  EXPECT_EQ(caught(ValueError("odd")), "ValueError(odd)");
  EXPECT_EQ(caught(5), "BaseException(interrupted)");
}

TEST(AttemptDefaults, NoMarkersAreKept) {
  AttemptMarkers markers;
  EXPECT_TRUE(markers.write_evaluation_attempt_marker()(1, 2, 3, 4, "phase").is_absent());
  markers.clear_evaluation_attempt_marker()(1, 2);
  EXPECT_TRUE(markers.attempt_declared_data_shape()(Tuple{"a"}).is_absent());
}

TEST(AttemptDefaults, NoAccountsAreKept) {
  AttemptAccounting accounting;
  EXPECT_TRUE(accounting.build_column_inventory(1, 2).is_absent());
  const Mapping value;
  EXPECT_TRUE(same_object(accounting.json_ready(value), value));
}

}  // namespace
}  // namespace varnholt::genetic::test
