// The loops of the neighbour search keep what is near enough and find the last neighbour, in either
// compilation the same. Method: beside a plain reading of what they say, for every number of days
// around the width of a vector, with equal distances among them.
#include "hosts/embedded/signal_pool/near_days.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

constexpr std::size_t kMostDays = 80;
constexpr double kNotADay = 1e-9;  // Near to everything: it would be kept.

class NearDaysTest : public ::testing::TestWithParam<const NearDays*> {
 protected:
  void SetUp() override {
    if (GetParam() == nullptr) GTEST_SKIP() << "this machine has no such vectors";
  }
  // Numbers of which some are equal.
  std::vector<double> numbers(std::size_t count) {
    std::uniform_int_distribution<int> step(-20, 20);
    std::vector<double> drawn(count);
    for (double& number : drawn)
      number = 0.125 * step(random_);
    return drawn;
  }
  std::mt19937_64 random_{7};
};

TEST_P(NearDaysTest, KeepsWhatIsNearEnoughInItsOrder) {
  for (std::size_t count = 0; count <= kMostDays; ++count) {
    std::vector<double> xs = numbers(count);
    std::vector<double> ys = numbers(count);
    const PlaneDay day{numbers(1)[0], numbers(1)[0]};
    for (const double limit : {0.0, 0.5, 1.25, std::numeric_limits<double>::infinity()}) {
      SCOPED_TRACE(testing::Message() << count << " days, limit " << limit);
      std::vector<double> near;
      for (std::size_t i = 0; i < count; ++i) {
        const double distance = std::max(std::abs(day.x - xs[i]), std::abs(day.y - ys[i]));
        if (distance <= limit) near.push_back(distance);
      }
      std::vector<double> more_xs = xs;
      std::vector<double> more_ys = ys;
      more_xs.resize(count + NearDays::kReadBeyond, day.x + kNotADay);
      more_ys.resize(count + NearDays::kReadBeyond, day.y);
      std::vector<double> kept(count + NearDays::kReadBeyond);
      kept.resize(
          GetParam()->keep(day, {more_xs.data(), more_ys.data(), count}, limit, kept.data()));
      EXPECT_EQ(kept, near);
    }
  }
}

TEST_P(NearDaysTest, FindsTheLastNeighbour) {
  for (std::size_t count = kNeighbours + 1; count <= kMostDays; ++count) {
    std::vector<double> distances = numbers(count);
    std::vector<double> in_order = distances;
    std::sort(in_order.begin(), in_order.end());
    EXPECT_EQ(GetParam()->of_last_neighbour(distances.data(), count), in_order[kNeighbours])
        << count;
  }
}

INSTANTIATE_TEST_SUITE_P(Plain, NearDaysTest, ::testing::Values(&plain_near_days()));
INSTANTIATE_TEST_SUITE_P(Quads, NearDaysTest, ::testing::Values(near_days_of_quads()));

}  // namespace
}  // namespace varnholt::embedded::test
