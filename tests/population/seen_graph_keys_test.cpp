// The keys that a search has met: none is lost, none is made up, and all of them lie in the memory
// that was given.
// Method: many random graphs beside a plain set of the standard library; keys that are told apart
// by objects; memory that counts.
#include "search_templates/genetic/population/seen_graph_keys.hpp"

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "search_templates/genetic/value/value.hpp"

namespace varnholt::genetic {
namespace {

Value graph(const Value& name, std::int64_t number) {
  return Mapping{{"node", name}, {"children", List{Mapping{{"node", number}}}}};
}

// Counts what it hands out.
class CountingMemory : public std::pmr::memory_resource {
 public:
  std::size_t in_use = 0;

 private:
  void* do_allocate(std::size_t bytes, std::size_t alignment) override {
    in_use += bytes;
    return std::pmr::new_delete_resource()->allocate(bytes, alignment);
  }
  void do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) override {
    in_use -= bytes;
    std::pmr::new_delete_resource()->deallocate(memory, bytes, alignment);
  }
  [[nodiscard]] bool do_is_equal(const memory_resource& other) const noexcept override {
    return this == &other;
  }
};

TEST(SeenGraphKeys, HoldWhatWasAddedAndNothingElse) {
  SeenGraphKeys seen;
  EXPECT_FALSE(seen.contains(structural_key(graph("a", 1))));
  EXPECT_EQ(seen.size(), 0U);
  seen.insert(structural_key(graph("a", 1)));
  seen.insert(structural_key(graph("a", 1)));
  EXPECT_TRUE(seen.contains(structural_key(graph("a", 1))));
  EXPECT_FALSE(seen.contains(structural_key(graph("a", 2))));
  EXPECT_EQ(seen.size(), 1U);
}

TEST(SeenGraphKeys, AgreeWithAPlainSetOverManyGraphs) {
  constexpr unsigned kSeed = 20240607;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  SeenGraphKeys seen;
  StructuralKeySet plain;
  for (int i = 0; i < 20000; ++i) {
    const std::string name(random() % 40, static_cast<char>('a' + random() % 3));
    const StructuralKey key = structural_key(graph(name, random() % 50));
    ASSERT_EQ(seen.contains(key), plain.contains(key));
    if (random() % 2 == 0) continue;
    seen.insert(key);
    plain.insert(key);
    ASSERT_TRUE(seen.contains(key));
    ASSERT_EQ(seen.size(), plain.size());
  }
  for (const StructuralKey& key : plain)
    EXPECT_TRUE(seen.contains(key));
}

TEST(SeenGraphKeys, TellKeysApartThatDifferInObjectsOnly) {
  const Value one = std::nan("");
  const Value other = std::nan("");
  SeenGraphKeys seen;
  seen.insert(structural_key(graph(one, 1)));
  EXPECT_TRUE(seen.contains(structural_key(graph(one, 1))));
  EXPECT_FALSE(seen.contains(structural_key(graph(other, 1))));
  EXPECT_EQ(seen.size(), 1U);
}

TEST(SeenGraphKeys, LieInTheMemoryThatWasGiven) {
  CountingMemory memory;
  {
    SeenGraphKeys seen(memory);
    std::size_t encoded = 0;
    constexpr std::int64_t kGraphs = 10000;
    for (std::int64_t i = 0; i < kGraphs; ++i) {
      const StructuralKey key = structural_key(graph("name", i));
      encoded += key.encoded_size();
      seen.insert(key);
    }
    EXPECT_GE(memory.in_use, encoded);
    // What is promised is 200 bytes beside the key; half of that is enough.
    EXPECT_LE(memory.in_use, 2 * encoded + 100 * kGraphs);
    const SeenGraphKeys moved = std::move(seen);
    EXPECT_EQ(moved.size(), static_cast<std::size_t>(kGraphs));
  }
  EXPECT_EQ(memory.in_use, 0U);
}

}  // namespace
}  // namespace varnholt::genetic
