// A candidate is bred when an operator made its structure since the generation began.
#include "hosts/embedded/search/lineage.hpp"

#include <gtest/gtest.h>

#include "hosts/embedded/operators/genetic_operators.hpp"
#include "search_templates/genetic/value/keys.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/hosts/embedded/search/search_fixture.hpp"

namespace varnholt::embedded {
namespace {

TEST(Lineage, KnowsTheOffspringOfThisGenerationAlone) {
  Lineage lineage;
  EXPECT_FALSE(lineage.is_bred(ranked("close")));
  lineage.next_generation();
  lineage.note_offspring(ranked("close"));
  EXPECT_TRUE(lineage.is_bred(ranked("close")));
  EXPECT_FALSE(lineage.is_bred(ranked("returns")));
  lineage.next_generation();
  EXPECT_FALSE(lineage.is_bred(ranked("close")));
}

TEST(Lineage, SeesARootThatIsChangedAfterTheOperator) {
  Lineage lineage;
  genetic::Value child = ranked("close");
  lineage.note_offspring(child);
  child.mapping().set(genetic::keys::kNode, "cross_zscore");
  EXPECT_TRUE(lineage.is_bred(child));
}

TEST(ObservedOperators, PassEveryOperatorOnAndNoteItsChild) {
  GeneticOperators operators(GraphLimits{});
  const genetic::Value elite = ranked("close");
  const genetic::List replacements{ranked("returns")};
  const auto noted = [&](auto apply) {
    Lineage lineage;
    ObservedOperators observed(operators, lineage);
    const genetic::Value child = apply(observed);
    EXPECT_TRUE(child == apply(operators));
    EXPECT_TRUE(lineage.is_bred(child));
  };
  noted([&](genetic::GeneticOps& ops) {
    return ops.crossover(elite, ranked("returns"), nullptr, {});
  });
  noted([&](genetic::GeneticOps& ops) {
    return ops.point_mutation(elite, replacements, nullptr, {});
  });
  noted([&](genetic::GeneticOps& ops) {
    return ops.subtree_mutation(elite, replacements, nullptr, {});
  });
  noted([&](genetic::GeneticOps& ops) { return ops.hoist_mutation(elite, nullptr, {}); });
}

}  // namespace
}  // namespace varnholt::embedded
