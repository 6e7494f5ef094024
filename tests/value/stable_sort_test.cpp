// Goal: the sort is stable, and whatever the order answers, it yields a permutation and reads
// nothing but the items.
//
// Method: random items against the standard library's sort; orders that contradict themselves,
// under which the sanitizers watch every read.
#include "search_templates/genetic/value/stable_sort.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace varnholt::genetic {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

// A number to sort by, and the place that the item had.
using Item = std::pair<std::uint64_t, std::size_t>;

std::vector<Item> random_items(std::mt19937_64& draw) {
  std::vector<Item> items(draw() % 100);
  for (std::size_t place = 0; place < items.size(); ++place)
    items[place] = {draw() % 9, place};
  return items;
}

bool number_is_less(const Item& left, const Item& right) {
  return left.first < right.first;
}

TEST(StableSort, AgreesWithTheStandardLibrary) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 draw(seed);
    std::vector<Item> items = random_items(draw);
    std::vector<Item> expected = items;
    std::stable_sort(expected.begin(), expected.end(), number_is_less);
    stable_sort(items, number_is_less);
    EXPECT_EQ(items, expected);
  }
}

TEST(StableSort, SortsAPartOfAVector) {
  std::vector<int> items = {5, 4, 3, 2, 1};
  stable_sort(std::span(items).subspan(2), std::less<>());
  EXPECT_THAT(items, ElementsAre(5, 4, 1, 2, 3));
}

TEST(StableSort, AnOrderThatContradictsItselfStillGivesAPermutation) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 draw(seed);
    const std::vector<Item> given = random_items(draw);
    std::vector<Item> items = given;
    stable_sort(items, [&](const Item&, const Item&) { return draw() % 2 == 0; });
    EXPECT_THAT(items, UnorderedElementsAreArray(given));
    items = given;
    stable_sort(items, [](const Item&, const Item&) { return true; });
    EXPECT_THAT(items, UnorderedElementsAreArray(given));
  }
}

TEST(StableSort, WhatTheOrderThrowsPassesAndNothingLeaks) {
  std::vector<std::unique_ptr<int>> items;
  for (int i = 0; i < 20; ++i)
    items.push_back(std::make_unique<int>(i));
  int asked = 0;
  EXPECT_THROW(stable_sort(items,
                           [&](const auto&, const auto&) {
                             if (++asked == 25) throw std::runtime_error("no order");
                             return false;
                           }),
               std::runtime_error);
  EXPECT_EQ(items.size(), 20U);
}

}  // namespace
}  // namespace varnholt::genetic
