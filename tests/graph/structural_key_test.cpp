// The structural key is the frozen form without its weight: two keys are equal exactly when the
// frozen forms are, and then hash alike.
//
// Method: the rules by hand; random pairs of graphs against the equality of the frozen forms, which
// is itself compared with CPython elsewhere; and all small graphs over a few scalars, no two of
// which may share a key.
#include "search_templates/genetic/graph/structural_key.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/graph/plain_graph.hpp"
#include "search_templates/genetic/value/errors.hpp"
#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/host_containers.hpp"
#include "tests/support/python_process.hpp"
#include "tests/support/random_values.hpp"

namespace varnholt::genetic {
namespace {

using test::error_of;

// Whether both have one key. Equal keys must hash alike, and keys with unequal hashes differ.
bool same_key(const Value& left, const Value& right) {
  const StructuralKey left_key = structural_key(left);
  const StructuralKey right_key = structural_key(right);
  const bool same = left_key == right_key;
  EXPECT_EQ(same, right_key == left_key);
  if (same) {
    EXPECT_EQ(left_key.hash(), right_key.hash());
  }
  return same;
}

TEST(StructuralKey, MergesEqualNumbersOfDifferentKinds) {
  EXPECT_TRUE(same_key(1, true));
  EXPECT_TRUE(same_key(1, 1.0));
  EXPECT_TRUE(same_key(true, 1.0));
  EXPECT_TRUE(same_key(0, false));
  EXPECT_TRUE(same_key(0.0, -0.0));
  EXPECT_TRUE(same_key(0, -0.0));
  EXPECT_TRUE(same_key(List{Mapping{{"a", 2}}}, List{Mapping{{"a", 2.0}}}));
  EXPECT_FALSE(same_key(1, 2));
  EXPECT_FALSE(same_key(0, Value()));
  EXPECT_FALSE(same_key(0.5, 0));
  EXPECT_FALSE(same_key(-1, 1));
}

TEST(StructuralKey, ComparesIntegersWithRealsExactly) {
  constexpr std::int64_t kTwoTo53 = std::int64_t{1} << 53;
  EXPECT_TRUE(same_key(kTwoTo53, 9007199254740992.0));
  EXPECT_FALSE(same_key(kTwoTo53 + 1, 9007199254740992.0));
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
  EXPECT_FALSE(same_key(kLargest, 9223372036854775808.0));
  EXPECT_TRUE(same_key(kSmallest, -9223372036854775808.0));
  EXPECT_TRUE(same_key(to_integer("9223372036854775808"), 9223372036854775808.0));
  EXPECT_TRUE(same_key(9223372036854775808.0, to_integer("9223372036854775808")));
  EXPECT_FALSE(same_key(to_integer("9223372036854775809"), 9223372036854775808.0));
  EXPECT_TRUE(same_key(to_integer("1000000000000000000000000000000"),
                       to_integer("1000000000000000000000000000000")));
  EXPECT_FALSE(same_key(to_integer("1000000000000000000000000000000"), 1e30));
  EXPECT_TRUE(same_key(1e300, 1e300));
}

TEST(StructuralKey, LargeIntegersWithOneHashDiffer) {
  // Both leave the same remainder modulo 2**61 - 1, which is the hash of a number.
  const Value first = to_integer("1180591620717411303424");   // 2**70
  const Value second = to_integer("3486434629931105254424");  // 2**70 + 1000 * (2**61 - 1)
  ASSERT_EQ(hash(first), hash(second));
  EXPECT_FALSE(same_key(first, second));
}

TEST(StructuralKey, InfinitiesAndFractions) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(same_key(kInfinity, kInfinity));
  EXPECT_FALSE(same_key(kInfinity, -kInfinity));
  EXPECT_TRUE(same_key(0.1, 0.1));
  EXPECT_FALSE(same_key(0.1, std::nextafter(0.1, 1.0)));
}

TEST(StructuralKey, ANanEqualsTheSameNanAlone) {
  const Value nan(std::nan(""));
  EXPECT_TRUE(same_key(List{nan}, List{nan}));
  EXPECT_FALSE(same_key(List{nan}, List{Value(std::nan(""))}));
  // The plain copy keeps the object, so a copied graph is recognised.
  const Value graph = Mapping{{"a", nan}};
  EXPECT_TRUE(same_key(graph, plain_graph_data(graph)));
}

TEST(StructuralKey, TheOrderOfKeysCounts) {
  EXPECT_FALSE(same_key(Mapping{{"a", 1}, {"b", 2}}, Mapping{{"b", 2}, {"a", 1}}));
  EXPECT_TRUE(same_key(Mapping{{"a", 1}, {"b", 2}}, Mapping{{"a", 1}, {"b", 2}}));
}

TEST(StructuralKey, KindsDiffer) {
  EXPECT_FALSE(same_key(List{}, Mapping{}));
  EXPECT_FALSE(same_key(List{}, Value()));
  EXPECT_FALSE(same_key(Mapping{}, Value()));
  EXPECT_FALSE(same_key("", Value()));
  EXPECT_FALSE(same_key("1", 1));
  EXPECT_FALSE(same_key(List{1}, 1));
  EXPECT_FALSE(same_key(List{List{}, 1}, List{Value(List{1})}));
  EXPECT_FALSE(same_key(List{Mapping{{"a", 1}}}, Mapping{{"a", List{1}}}));
}

TEST(StructuralKey, LongTextsAndContainers) {
  for (const std::size_t size : {126U, 127U, 128U, 129U, 16'383U, 16'384U, 16'385U}) {
    const std::string text(size, 'x');
    EXPECT_TRUE(same_key(text, text));
    EXPECT_FALSE(same_key(text, text + "x"));
    List list;
    for (std::size_t i = 0; i < size; ++i)
      list.append(Value());
    EXPECT_TRUE(same_key(list, plain_graph_data(list)));
    EXPECT_FALSE(same_key(list, List{Value(list)}));
  }
}

TEST(StructuralKey, WhatFollowsATextIsNoPartOfIt) {
  // In memory the integer is the letters "1111111n", of which the last alone means absent.
  constexpr std::int64_t kLetters = 0x6E31313131313131;
  for (const std::string& text : {std::string("a"), std::string(200, 'a')}) {
    EXPECT_FALSE(same_key(List{text, kLetters}, List{text + "i1111111", Value()}));
  }
}

TEST(StructuralKey, ReadsContainersOfTheHost) {
  const Value graph = Mapping{{"b", List{1, Mapping{{"c", 0.5}}}}, {"a", "t"}};
  EXPECT_TRUE(same_key(graph, test::as_host_containers(graph)));
}

TEST(StructuralKey, FailsAsThePlainCopyDoes) {
  EXPECT_EQ(error_of([] { return structural_key(Tuple{}).hash(); }),
            "TypeError: genetic initial candidates must contain only plain graph data");
  EXPECT_EQ(error_of([] {
              return structural_key(Mapping{{1, Tuple{}}}).hash();
            }),
            "TypeError: genetic initial candidate graph keys must be strings");
  Value deep;
  for (int i = 0; i < 100'000; ++i)
    deep = i % 2 == 0 ? Value(List{deep}) : Value(Mapping{{"k", deep}});
  EXPECT_EQ(error_of([&] { return structural_key(deep).hash(); }),
            "RecursionError: maximum recursion depth exceeded");
}

TEST(StructuralKey, HoldsTheEncodingAlone) {
  // A run keeps a key for every graph that it has seen.
  EXPECT_LE(structural_key(Mapping{{"node", "add"}, {"children", List{}}}).encoded_size(), 32U);
}

TEST(StructuralKey, IsEqualExactlyWhenTheFrozenFormIs) {
  const std::uint64_t seed = testing_support::test_seed();
  SCOPED_TRACE(testing_support::seed_note(seed));
  test::RandomValues random(seed);
  constexpr int kPairs = 6000;
  int equal_pairs = 0;
  for (int i = 0; i < kPairs; ++i) {
    const Value left = random.plain(i % 5);
    const Value right = i % 3 == 0 ? random.plain(i % 5) : random.variation(left);
    SCOPED_TRACE(repr(left) + " and " + repr(right));
    const std::string error = error_of([&] { return freeze_graph_data(right); });
    ASSERT_EQ(error_of([&] { return structural_key(right).hash(); }), error);
    if (error != "no error") continue;  // The variation is not plain.
    const bool equal = freeze_graph_data(left) == freeze_graph_data(right);
    ASSERT_EQ(same_key(left, right), equal);
    equal_pairs += equal ? 1 : 0;
  }
  EXPECT_GT(equal_pairs, kPairs / 5);
  EXPECT_LT(equal_pairs, kPairs * 4 / 5);
}

// Every list and every mapping of up to two of `parts`.
std::vector<Value> containers_of(const std::vector<Value>& parts) {
  std::vector<Value> made = {List{}, Mapping{}};
  for (const Value& first : parts) {
    made.emplace_back(List{first});
    made.emplace_back(Mapping{{"i", first}});
    made.emplace_back(Mapping{{"", first}});
    for (const Value& second : parts) {
      made.emplace_back(List{first, second});
      made.emplace_back(Mapping{{"i", first}, {"", second}});
      made.emplace_back(Mapping{{"", first}, {"i", second}});
    }
  }
  return made;
}

TEST(StructuralKey, NoTwoSmallGraphsShareAnEncoding) {
  // Texts that look like parts of an encoding are among the scalars.
  const std::vector<Value> scalars = {
      Value(), 0, 1, 0.5, "", "i", "n", std::string("t\x01i"), std::string("l\x01n", 3)};
  std::vector<Value> parts = {Value(), 0, "", "n"};
  for (const Value& container : containers_of({Value(), "n"}))
    parts.push_back(container);
  std::vector<Value> graphs = scalars;
  for (const std::vector<Value>& level : {containers_of(scalars), containers_of(parts)}) {
    graphs.insert(graphs.end(), level.begin(), level.end());
  }
  StructuralKeySet keys;
  std::vector<Value> frozen;
  std::size_t different = 0;
  Mapping frozen_forms;  // The host's own idea of which forms are equal.
  for (const Value& graph : graphs) {
    const bool is_new = keys.insert(structural_key(graph)).second;
    const Value form = freeze_graph_data(graph);
    ASSERT_EQ(is_new, !frozen_forms.contains(form)) << repr(graph);
    frozen_forms.set(form, true);
    different += is_new ? 1 : 0;
  }
  EXPECT_EQ(keys.size(), different);
  EXPECT_GT(different, 1500U);
}

}  // namespace
}  // namespace varnholt::genetic
