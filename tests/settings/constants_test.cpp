// The fixed constants and the contexts of the log: literal values that other programs rely on.
#include "search_templates/genetic/settings/constants.hpp"

#include <gtest/gtest.h>

#include "search_templates/genetic/value/semantics.hpp"

namespace varnholt::genetic {
namespace {

TEST(Constants, HaveTheirValues) {
  EXPECT_EQ(DEFAULT_MAX_IMPROVEMENT_DEPTH, 8);
  EXPECT_EQ(DEFAULT_MAX_IMPROVEMENT_CANDIDATES, 96);
  EXPECT_EQ(DEFAULT_MAX_IMPROVEMENT_ROUNDS, 10);
  EXPECT_EQ(DEFAULT_MAX_REACTION_PLANS_PER_SOURCE, 8);
  EXPECT_EQ(DEFAULT_MAX_ACTIONABLE_NEAR_MISS_PARENTS, 8);
  EXPECT_EQ(TIE_SEMANTICS.view(), "score_desc_then_candidate_index_asc_then_canonical_graph");
  EXPECT_EQ(GENERATED_SEED_BITS, 63);
  EXPECT_EQ(GENERATION_PAUSE_SECONDS, 0.01);
}

TEST(LogContexts, AreNewMappingsAtEachCall) {
  const Mapping context = genetic_random_weighted_log_context();
  EXPECT_EQ(repr(context),
            "{'template': 'genetic', 'stage': 'fresh_candidates', "
            "'generator': 'random_weighted_graphs'}");
  EXPECT_FALSE(same_object(context, genetic_random_weighted_log_context()));
  EXPECT_EQ(repr(genetic_reaction_log_context()),
            "{'template': 'genetic', 'stage': 'reaction_planning', "
            "'generator': 'safe_reaction_rotations'}");
}

}  // namespace
}  // namespace varnholt::genetic
