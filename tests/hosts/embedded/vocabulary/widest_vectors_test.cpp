// What is compiled for wider vectors has the bits of what every machine runs, and is what runs.
// Method: a loop with every kind of arithmetic that days are summed by, called directly and through
// the functions.
#include "hosts/embedded/vocabulary/widest_vectors.hpp"

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

struct Series {
  std::vector<double> x;
  std::vector<double> y;
  std::vector<double> sums;
};

Series drawn() {
  constexpr std::size_t kDays = 1003;  // No multiple of a vector.
  std::mt19937_64 engine(4);
  std::normal_distribution<double> normal;
  Series series{std::vector<double>(kDays), std::vector<double>(kDays),
                std::vector<double>(kDays, 1.0 / 3.0)};
  for (std::size_t i = 0; i < kDays; ++i) {
    series.x[i] = i % 17 == 0 ? std::numeric_limits<double>::quiet_NaN() : normal(engine);
    series.y[i] = normal(engine);
  }
  return series;
}

// A fused multiplication would round the products once less.
void add_up(Series& series) {
  for (std::size_t i = 0; i < series.x.size(); ++i) {
    const double share = series.x[i] / series.y[i];
    series.sums[i] += std::isfinite(share) ? share * share + std::abs(series.x[i]) : 0.0;
  }
}

TEST(WidestVectors, GiveTheBitsOfAnyMachine) {
  Series expected = drawn();
  for (int turn = 0; turn < 3; ++turn)
    add_up(expected);
  Series actual = drawn();
  for (int turn = 0; turn < 3; ++turn)
    in_widest_vectors([&actual] { add_up(actual); });
  EXPECT_EQ(actual.sums, expected.sums);
}

#if defined(__x86_64__)
TEST(WidestVectors, OfFourHaveTheBitsOfThoseOfTwo) {
  if (kernels_of_quads() == nullptr) GTEST_SKIP() << "this machine has no vectors of four numbers";
  Series expected = drawn();
  add_up(expected);
  Series actual = drawn();
  work_in_quads([&actual] { add_up(actual); });
  EXPECT_EQ(actual.sums, expected.sums);
}
#endif

}  // namespace
}  // namespace varnholt::embedded::test
