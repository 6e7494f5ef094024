// The verdict on what was not evaluated comes from the host anew at each call.
#include "search_templates/genetic/context/verdicts.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

TEST(NotEvaluatedVerdict, IsAskedOfTheHostEachTime) {
  test::ScriptedHost host;
  const Value first = not_evaluated_verdict(host.evaluation_verdicts);
  const Value second = not_evaluated_verdict(host.evaluation_verdicts);
  EXPECT_TRUE(first == second);
  EXPECT_FALSE(same_object(first, second));
  EXPECT_EQ(host.log.count("evaluation_verdicts.not_evaluated_verdict"), 2U);
}

}  // namespace
}  // namespace varnholt::genetic
