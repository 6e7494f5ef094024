// Goal: the host scores a candidate with the keywords that it must get.
// Method: a scripted scoring operation.
#include "search_templates/genetic/population/parent_scoring.hpp"

#include <gmock/gmock.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

TEST(CandidateEliteness, AsksTheHostOnceWithTheWholeRecord) {
  ScriptedHost host;
  const Mapping candidate{{"graph", 1}, {"correlation", 0.5}};
  Value given;
  host.eliteness.on_score_candidate = [&given](const Value& record, const Mapping&) {
    given = record;
    return Value("the score, as it stands");
  };
  EXPECT_EQ(candidate_eliteness(host.eliteness, candidate, 0.25, 2.0), "the score, as it stands");
  EXPECT_TRUE(same_object(given, candidate));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("eliteness.score_candidate({'graph': 1, 'correlation': 0.5}, "
                          "sibling_correlations=(), pool_correlation=0.5, diversity_weight=0.25, "
                          "parsimony_weight=2.0)"));
}

TEST(CandidateEliteness, MissingCorrelationIsAbsent) {
  ScriptedHost host;
  static_cast<void>(candidate_eliteness(host.eliteness, Mapping(), 0.0, 0.0));
  EXPECT_THAT(host.log.lines(),
              ElementsAre("eliteness.score_candidate({}, sibling_correlations=(), "
                          "pool_correlation=None, diversity_weight=0.0, parsimony_weight=0.0)"));
}

TEST(CandidateEliteness, HostsErrorPasses) {
  ScriptedHost host;
  host.eliteness.on_score_candidate = failing(ValueError("no score"));
  EXPECT_THROW(static_cast<void>(candidate_eliteness(host.eliteness, Mapping(), 0, 0)), ValueError);
  EXPECT_THROW(static_cast<void>(candidate_eliteness(host.eliteness, 5, 0, 0)), AttributeError);
}

}  // namespace
}  // namespace varnholt::genetic::test
