// Goal: a guard stands where the host's operation stood, and what stood there comes back as it was.
// Method: objects that keep operations in a class, in the instance, behind refusals and not at all,
// with every read and write in a log.
#include "search_templates/genetic/process/child_guards.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/host/operation_table.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

// An object whose attributes a test gives, as those of its class and those of its own.
class ReplaceableTarget : public ReplaceableObject {
 public:
  Mapping of_class;
  Mapping own;
  CallLog log;
  std::function<void()> on_set = [] {};
  std::function<void()> on_delete = [] {};

  [[nodiscard]] std::optional<Value> attribute(std::string_view name) override {
    log.add("attribute");
    std::optional<Value> value = own.find(name);
    return value ? value : of_class.find(name);
  }
  [[nodiscard]] Value required_attribute(std::string_view name) override {
    log.add("required_attribute");
    return of_class.at(name);
  }
  [[nodiscard]] std::optional<Value> instance_value(std::string_view name) override {
    log.add("instance_value");
    return own.find(name);
  }
  void set_attribute(std::string_view name, const Value& value) override {
    log.add("set");
    on_set();
    own.set(name, value);
  }
  void delete_attribute(std::string_view name) override {
    log.add("delete");
    on_delete();
    if (!own.erase(name)) throw AttributeError("nothing to delete");
  }
};

class ChildGuards : public testing::Test {
 protected:
  std::optional<ReplacedOperation> replace() {
    return replace_child_parent_operation(target, "record", "guard");
  }

  ReplaceableTarget target;
};

TEST_F(ChildGuards, AnOperationOfTheClassShowsThroughAgain) {
  target.of_class.set("record", "the class's");
  const auto state = replace();
  ASSERT_TRUE(state.has_value());
  EXPECT_EQ(state->operation_name, "record");
  EXPECT_FALSE(state->had_instance_value);
  EXPECT_EQ(state->original, "the class's");
  EXPECT_EQ(target.attribute("record"), "guard");
  restore_child_parent_operation(target, state);
  EXPECT_TRUE(target.own.empty());
  // It is read once to see whether it is there, and once more for its value.
  EXPECT_THAT(target.log.lines(), ElementsAre("attribute", "instance_value", "required_attribute",
                                              "set", "attribute", "delete"));
}

TEST_F(ChildGuards, AnOperationOfTheInstanceComesBack) {
  for (const Value& own : {Value("own"), Value()}) {
    target.of_class.set("record", "the class's");
    target.own.set("record", own);
    const auto state = replace();
    ASSERT_TRUE(state.has_value());
    EXPECT_TRUE(state->had_instance_value);
    EXPECT_TRUE(same_object(state->original, own));
    restore_child_parent_operation(target, state);
    EXPECT_TRUE(same_object(target.own.at("record"), own));
  }
}

TEST_F(ChildGuards, WhatIsNotThereIsSkipped) {
  EXPECT_FALSE(replace().has_value());
  EXPECT_THAT(target.log.lines(), ElementsAre("attribute"));
  restore_child_parent_operation(target, std::nullopt);
  EXPECT_THAT(target.log.lines(), ElementsAre("attribute"));
}

TEST_F(ChildGuards, AGuardThatIsGoneAlreadyIsNone) {
  target.of_class.set("record", 1);
  const auto state = replace();
  target.own = Mapping();
  restore_child_parent_operation(target, state);
  EXPECT_EQ(target.attribute("record"), 1);
}

// The refusal is the cause of the error that stops the evaluation.
template <typename Refusal>
void expect_refused(ReplaceableTarget& target) {
  target.on_set = [] { throw Refusal("frozen"); };
  try {
    static_cast<void>(replace_child_parent_operation(target, "record", "guard"));
    FAIL() << "the refusal must stop the evaluation";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.text(), "cannot disable parent-only operation record in child process");
    const auto* const nested = dynamic_cast<const std::nested_exception*>(&error);
    ASSERT_NE(nested, nullptr);
    EXPECT_THROW(nested->rethrow_nested(), Refusal);
  }
}

TEST_F(ChildGuards, AnObjectThatRefusesStopsTheEvaluation) {
  target.of_class.set("record", 1);
  expect_refused<AttributeError>(target);
  expect_refused<TypeError>(target);
  target.on_set = [] { throw ValueError("odd"); };
  EXPECT_THROW(static_cast<void>(replace()), ValueError);
}

TEST_F(ChildGuards, ARestorePassesWhatIsNotAboutAMissingAttribute) {
  target.of_class.set("record", 1);
  const auto state = replace();
  target.on_delete = [] { throw TypeError("no deleting"); };
  EXPECT_THROW(restore_child_parent_operation(target, state), TypeError);
}

TEST_F(ChildGuards, AForbiddenOperationTakesAnythingAndFails) {
  const Callable forbidden = forbid_child_parent_operation("enqueue");
  EXPECT_EQ(error_of([&] { return forbidden({}); }),
            "RuntimeError: child process cannot call parent-only operation enqueue");
  EXPECT_EQ(error_of([&] {
              return forbidden({1, 2}, Mapping{{"a", 1}});
            }),
            "RuntimeError: child process cannot call parent-only operation enqueue");
}

}  // namespace
}  // namespace varnholt::genetic::test
