// The canonical text of a graph: the JSON text of its plain data. The JSON rules themselves are
// tested with the JSON text.
#include "search_templates/genetic/graph/canonical_text.hpp"

#include <string>

#include <gtest/gtest.h>

#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/value/json_text.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

TEST(CanonicalGraphString, SortsKeysAndWritesNoBlanks) {
  EXPECT_EQ(canonical_graph_string(Mapping{
                {"type", "op"}, {"node", "add"}, {"children", List{Mapping{{"node", 1.0}}, true}}}),
            R"({"children":[{"node":1.0},true],"node":"add","type":"op"})");
  EXPECT_EQ(canonical_graph_string(Value()), "null");
  EXPECT_EQ(canonical_graph_string(Mapping{{"b", 1}, {"a", 2}}),
            canonical_graph_string(Mapping{{"a", 2}, {"b", 1}}));
  EXPECT_NE(canonical_graph_string(Mapping{{"a", 1}}),
            canonical_graph_string(Mapping{{"a", true}}));
}

TEST(CanonicalGraphString, RefusesWhatIsNotPlainThoughJsonCouldHoldIt) {
  EXPECT_EQ(error_of([] { return canonical_graph_string(List{Tuple{}}); }),
            "TypeError: genetic initial candidates must contain only plain graph data");
  EXPECT_EQ(error_of([] {
              return canonical_graph_string(Mapping{{1, 1}});
            }),
            "TypeError: genetic initial candidate graph keys must be strings");
  // A bad value is met in the mapping's order, not in that of its sorted keys.
  EXPECT_EQ(error_of([] {
              return canonical_graph_string(Mapping{{"b", Tuple{}}, {1, 1}});
            }),
            "TypeError: genetic initial candidates must contain only plain graph data");
}

TEST(CanonicalGraphString, OfAGraphNestedTooDeepIsAnOrdinaryError) {
  Value deep;
  for (int i = 0; i < 100'000; ++i)
    deep = i % 2 == 0 ? Value(List{deep}) : Value(Mapping{{"k", deep}});
  EXPECT_EQ(error_of([&] { return canonical_graph_string(deep); }),
            "RecursionError: maximum recursion depth exceeded");
}

TEST(CanonicalGraphString, IsTheJsonTextOfThePlainCopy) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  test::RandomValues random(seed);
  for (int i = 0; i < 500; ++i) {
    const Value graph = random.plain(i % 5);
    const std::string expected = json_text(plain_graph_data(graph));
    EXPECT_EQ(canonical_graph_string(graph), expected);
    EXPECT_EQ(canonical_graph_string(test::as_host_containers(graph)), expected);
  }
}

}  // namespace
}  // namespace varnholt::genetic
