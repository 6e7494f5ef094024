// An operation that may be missing: an empty Callable is false, another one passes its arguments,
// its result and its errors through.
#include "search_templates/genetic/host/callable.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/error_of.hpp"
#include "tests/support/scripted_answers.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::CallLog;
using test::failing;
using test::scripted_callable;
using ::testing::ElementsAre;

TEST(Callable, IsFalseWhenThereIsNone) {
  EXPECT_FALSE(Callable());
  EXPECT_FALSE(Callable(nullptr));
  EXPECT_EQ(Callable().body(), nullptr);
}

TEST(Callable, PassesArgumentsAndResult) {
  CallLog log;
  const Callable operation = scripted_callable(log, "operation", always("answer"));
  ASSERT_TRUE(operation);
  EXPECT_EQ(operation({1, "two"}, {{"keyword", 3}}).text(), "answer");
  EXPECT_EQ(operation({}).text(), "answer");
  EXPECT_THAT(log.lines(), ElementsAre("operation(1, 'two', keyword=3)", "operation()"));
}

TEST(Callable, PassesErrors) {
  CallLog log;
  const Callable operation = scripted_callable(log, "operation", failing(KeyError("'k'")));
  EXPECT_EQ(test::error_of([&] { return operation({}); }), "KeyError: 'k'");
}

TEST(Callable, TellsItsParametersWhereItCan) {
  CallLog log;
  EXPECT_FALSE(scripted_callable(log, "a", always(1)).signature().has_value());
  const Callable operation =
      scripted_callable(log, "b", always(1), {{{"rng", ParameterKind::kKeywordOnly}}});
  ASSERT_TRUE(operation.signature().has_value());
  EXPECT_EQ(operation.signature()->front().name, "rng");
  EXPECT_EQ(operation.signature()->front().kind, ParameterKind::kKeywordOnly);
}

}  // namespace
}  // namespace varnholt::genetic
