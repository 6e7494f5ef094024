// Goal: lists are sorted as CPython sorts them, also where there is no order to sort by, and with
// the same comparisons. Whatever the comparison answers, the outcome is a permutation.
//
// Method: random lists, with runs, ties and NaNs in them, and a comparison that is no order, are
// sorted by the installed CPython, which writes down every pair that it compares. The merging of
// long runs depends on its version and is compared with version 3.11 alone; below 64 items all
// versions up to 3.12 agree.
#include "search_templates/genetic/value/list_order.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/python_process.hpp"

namespace varnholt::genetic {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::run_python;
using testing_support::ScriptInput;
using testing_support::seed_note;
using testing_support::split;
using testing_support::test_seed;

using Numbers = std::vector<int>;
constexpr int kNan = -1;

bool is_less_number(const Numbers& numbers, std::size_t left, std::size_t right) {
  const auto number = [&](std::size_t place) {
    return numbers[place] == kNan ? std::nan("") : static_cast<double>(numbers[place]);
  };
  return number(left) < number(right);
}

bool is_less_by_formula(std::size_t left, std::size_t right) {
  return (left * 31 + right * 17) % 3 == 0;
}

// The line that the script writes for this list.
std::string sorted_line(const std::string& rule, const Numbers& numbers) {
  std::string compared;
  const auto order = list_order(numbers.size(), [&](std::size_t left, std::size_t right) {
    compared += (compared.empty() ? "" : " ") + std::to_string(left) + "," + std::to_string(right);
    return rule == "numbers" ? is_less_number(numbers, left, right)
                             : is_less_by_formula(left, right);
  });
  std::string places;
  for (const std::size_t place : order)
    places += (places.empty() ? "" : " ") + std::to_string(place);
  return places + "\t" + compared;
}

// Stretches that rise, fall, stay or mean nothing.
Numbers random_numbers(std::mt19937_64& draw, std::size_t size, bool has_nans) {
  Numbers numbers;
  while (numbers.size() < size) {
    const auto kind = draw() % 4;
    int number = static_cast<int>(draw() % 1000);
    for (std::size_t left = 1 + draw() % 60; left > 0 && numbers.size() < size; --left) {
      if (kind == 0) number += static_cast<int>(draw() % 3);
      if (kind == 1) number = std::max(0, number - static_cast<int>(1 + draw() % 3));
      if (kind == 2) number = static_cast<int>(draw() % 1000);
      numbers.push_back(has_nans && draw() % 7 == 0 ? kNan : number);
    }
  }
  return numbers;
}

void compare_with_python(std::uint64_t seed, std::size_t smallest, std::size_t largest) {
  SCOPED_TRACE(seed_note(seed));
  std::mt19937_64 draw(seed);
  std::vector<std::string> lines;
  std::vector<std::string> expected;
  for (int i = 0; i < 400; ++i) {
    const std::string rule = draw() % 4 == 0 ? "formula" : "numbers";
    const std::size_t size = smallest + draw() % (largest - smallest + 1);
    const Numbers numbers = random_numbers(draw, size, draw() % 2 == 0);
    std::string line = rule + "\t";
    for (const int number : numbers)
      line += std::to_string(number) + " ";
    lines.push_back(line);
    expected.push_back(sorted_line(rule, numbers));
  }
  const ScriptInput input(lines);
  const std::vector<std::string> answers = run_python("tests/value/list_order.py", {input.path()});
  ASSERT_EQ(answers.size(), expected.size());
  for (std::size_t i = 0; i < answers.size(); ++i)
    ASSERT_EQ(answers[i], expected[i]) << lines[i];
}

bool python_merges_as_we_do() {
  const std::vector<std::string> version = run_python("tests/value/python_version.py", {});
  return version.front() == "3.11" || version.front() == "3.12";
}

TEST(ListOrder, ComparesThePairsOfCPythonInShortLists) {
  compare_with_python(test_seed(), 0, 63);
}

TEST(ListOrder, ComparesThePairsOfCPythonInLongLists) {
  if (!python_merges_as_we_do()) GTEST_SKIP() << "another CPython merges by another rule";
  compare_with_python(test_seed(), 64, 1500);
}

TEST(ListOrder, IsStable) {
  const Numbers numbers = {2, 1, 2, 0, 1, 2};
  EXPECT_THAT(list_order(numbers.size(),
                         [&](std::size_t left, std::size_t right) {
                           return is_less_number(numbers, left, right);
                         }),
              ElementsAre(3, 1, 4, 0, 2, 5));
}

TEST(ListOrder, AgreesWithTheStandardLibrary) {
  const std::uint64_t seed = test_seed();
  SCOPED_TRACE(seed_note(seed));
  std::mt19937_64 draw(seed);
  for (int i = 0; i < 200; ++i) {
    const Numbers numbers = random_numbers(draw, draw() % 3000, false);
    const auto is_less = [&](std::size_t left, std::size_t right) {
      return numbers[left] < numbers[right];
    };
    std::vector<std::size_t> expected(numbers.size());
    for (std::size_t place = 0; place < expected.size(); ++place)
      expected[place] = place;
    std::stable_sort(expected.begin(), expected.end(), is_less);
    EXPECT_EQ(list_order(numbers.size(), is_less), expected);
  }
}

TEST(ListOrder, YieldsAPermutationWhateverTheAnswers) {
  const std::uint64_t seed = test_seed();
  SCOPED_TRACE(seed_note(seed));
  std::mt19937_64 draw(seed);
  for (int i = 0; i < 300; ++i) {
    const std::size_t size = draw() % 2000;
    std::vector<std::size_t> order =
        list_order(size, [&](std::size_t, std::size_t) { return draw() % 2 == 0; });
    std::sort(order.begin(), order.end());
    for (std::size_t place = 0; place < size; ++place)
      ASSERT_EQ(order[place], place);
  }
}

TEST(ListOrder, OfNothingAndOfOneAsksNothing) {
  const PlaceIsLess never = [](std::size_t, std::size_t) -> bool {
    throw std::logic_error("asked");
  };
  EXPECT_THAT(list_order(0, never), IsEmpty());
  EXPECT_THAT(list_order(1, never), ElementsAre(0));
}

TEST(ListOrder, LetsPassWhatTheComparisonThrows) {
  int asked = 0;
  EXPECT_THROW(static_cast<void>(list_order(200,
                                            [&](std::size_t, std::size_t) {
                                              if (++asked == 90) throw std::logic_error("refused");
                                              return asked % 3 == 0;
                                            })),
               std::logic_error);
  EXPECT_EQ(asked, 90);
}

}  // namespace
}  // namespace varnholt::genetic
