// The rotations that a repair may use. Method: a scripted host that logs what it is asked for.
#include "search_templates/genetic/population/safe_rotations.hpp"

#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic {
namespace {

using test::always;
using test::error_of;
using test::failing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SafeRotations : public ::testing::Test {
 protected:
  [[nodiscard]] List rotations() { return safe_reaction_rotations(host_.engine, host_.context); }
  [[nodiscard]] std::set<std::string> names() {
    return safe_reaction_rotation_names(host_.engine, host_.context);
  }
  void give(const Value& given) {
    host_.engine.on_signal_generation_safe_rotations = always(given);
  }
  // The depth that the host is asked with when the context's reads like this.
  [[nodiscard]] std::string depth_for(const Value& max_depth) {
    host_.context.on_max_depth = always(std::optional(max_depth));
    host_.log.clear();
    static_cast<void>(rotations());
    for (const std::string& line : host_.log.lines())
      if (line.starts_with("engine.random_weighted_window_limit")) return line;
    return "not asked";
  }

  test::ScriptedHost host_;
};

TEST_F(SafeRotations, AreAskedForInAFixedOrder) {
  host_.context.on_vocabulary = always(std::optional<Value>(Mapping{{"rank", 1}}));
  host_.context.on_max_depth = always(std::optional<Value>(4));
  EXPECT_TRUE(rotations().empty());
  EXPECT_THAT(
      host_.log.lines(),
      ElementsAre("context.vocabulary", "engine.function_entries_for_kind({'rank': 1}, 'rotation')",
                  "context.max_depth", "engine.random_weighted_window_limit(4)",
                  "engine.random_weighted_node_limit()",
                  "engine.random_weighted_runtime_registry()",
                  "engine.signal_generation_safe_rotations('functions', 20, 50, 'registry', "
                  "log_context={'template': 'genetic', 'stage': 'reaction_planning', 'generator': "
                  "'safe_reaction_rotations'}, template_name='genetic', "
                  "stage='reaction_planning', generator='safe_reaction_rotations')"));
}

TEST_F(SafeRotations, AskNothingForAVocabularyThatIsNoMapping) {
  for (const Value& vocabulary : {Value(), Value(List{}), Value("rank"), Value(3)}) {
    host_.log.clear();
    host_.context.on_vocabulary = always(std::optional(vocabulary));
    give(List{Mapping{{"name", "rank"}}});
    EXPECT_TRUE(rotations().empty());
    EXPECT_THAT(host_.log.lines(), ElementsAre("context.vocabulary"));
  }
}

TEST_F(SafeRotations, TakeAMissingVocabularyAsAnEmptyOne) {
  give(List{Mapping{{"name", "rank"}}});
  EXPECT_EQ(repr(rotations()), "[{'name': 'rank'}]");
  EXPECT_EQ(host_.log.lines().at(1), "engine.function_entries_for_kind({}, 'rotation')");
}

TEST_F(SafeRotations, ConvertTheDepthOrTakeOne) {
  static_cast<void>(rotations());
  EXPECT_EQ(host_.log.lines().at(3), "engine.random_weighted_window_limit(1)");
  EXPECT_EQ(depth_for("3"), "engine.random_weighted_window_limit(3)");
  EXPECT_EQ(depth_for(2.9), "engine.random_weighted_window_limit(2)");
  EXPECT_EQ(depth_for(0), "engine.random_weighted_window_limit(0)");
  EXPECT_EQ(depth_for(-5), "engine.random_weighted_window_limit(-5)");
  EXPECT_EQ(depth_for(Value()), "engine.random_weighted_window_limit(1)");
  EXPECT_EQ(depth_for("deep"), "engine.random_weighted_window_limit(1)");
  EXPECT_EQ(depth_for(std::numeric_limits<double>::infinity()),
            "engine.random_weighted_window_limit(1)");
  host_.context.on_max_depth = failing(RuntimeError("no depth"));
  EXPECT_EQ(error_of([&] { return rotations(); }), "RuntimeError: no depth");
}

TEST_F(SafeRotations, LeaveOutWhatHasNoName) {
  give(List{Mapping{{"name", "rank"}, {"window", 5}}, Mapping{{"name", ""}}, Mapping(),
            Mapping{{"name", 3}}, Mapping{{"name", Value()}}, Mapping{{"name", "mean"}}});
  EXPECT_EQ(repr(rotations()), "[{'name': 'rank', 'window': 5}, {'name': 'mean'}]");
  EXPECT_THAT(names(), ElementsAre("mean", "rank"));
}

TEST_F(SafeRotations, KeepTheirOrderAndRepetitions) {
  give(Tuple{Mapping{{"name", "b"}}, Mapping{{"name", "a"}}, Mapping{{"name", "b"}}});
  EXPECT_EQ(repr(rotations()), "[{'name': 'b'}, {'name': 'a'}, {'name': 'b'}]");
  EXPECT_THAT(names(), ElementsAre("a", "b"));
  give(List{});
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(SafeRotations, AreDeepCopies) {
  const Mapping inner{{"low", 1}};
  const Mapping rotation{{"name", "rank"}, {"window", inner}};
  give(List{rotation});
  const List copies = rotations();
  const Mapping copy = copies.at(0).mapping();
  EXPECT_EQ(Value(copy), Value(rotation));
  EXPECT_FALSE(same_object(copy, rotation));
  EXPECT_FALSE(same_object(copy.at("window"), inner));
}

TEST_F(SafeRotations, AreMappings) {
  give(List{"rank"});
  EXPECT_EQ(error_of([&] { return rotations(); }),
            "AttributeError: 'str' object has no attribute 'get'");
  give(3);
  EXPECT_EQ(error_of([&] { return rotations(); }), "TypeError: 'int' object is not iterable");
}

}  // namespace
}  // namespace varnholt::genetic
