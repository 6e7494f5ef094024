// Vectors of four numbers give what vectors of two do, and both what is asked for.
// Method: every function on random panels with gaps, through the table for each length; the bits
// must be the same. Where the machine has no vectors of four, there is nothing to compare.
#include "hosts/embedded/vocabulary/vector_kernels.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/embedded/vocabulary/element_functions.hpp"
#include "hosts/embedded/vocabulary/lane_vector.hpp"
#include "hosts/embedded/vocabulary/vocabulary.hpp"
#include "tests/hosts/embedded/panel_helpers.hpp"

namespace varnholt::embedded::test {
namespace {

constexpr std::array kFunctions = {
    RollingFunction::Sum,       RollingFunction::Mean,          RollingFunction::Least,
    RollingFunction::Greatest,  RollingFunction::Product,       RollingFunction::Decay,
    RollingFunction::Fade,      RollingFunction::FirstGreatest, RollingFunction::FirstLeast,
    RollingFunction::Deviation, RollingFunction::Score,         RollingFunction::Skew,
    RollingFunction::Kurtosis,  RollingFunction::Covariance,    RollingFunction::Correlation,
    RollingFunction::Slope,     RollingFunction::Residual,
};

Panel rolled_with(const VectorKernels& kernels, const RollingTask& task) {
  Panel result(task.panels[0]->rows(), task.panels[0]->cols());
  kernels.roll(task, result);
  return result;
}

TEST(VectorKernels, OfFourHaveTheBitsOfThoseOfTwo) {
  const VectorKernels* const quads = kernels_of_quads();
  if (quads == nullptr) GTEST_SKIP() << "this machine has no vectors of four numbers";
  std::mt19937_64 engine(8);
  for (const Eigen::Index columns : {1, 4, 20, 67}) {
    const Panel x = random_panel(engine, 170, columns, 0.003);
    const Panel y = random_panel(engine, 170, columns, 0.003);
    for (const RollingFunction function : kFunctions) {
      for (const Eigen::Index days : {1, 2, 5, 20, 33}) {
        SCOPED_TRACE("function " + std::to_string(static_cast<int>(function)) + ", window " +
                     std::to_string(days) + ", columns " + std::to_string(columns));
        const RollingTask task{function, {&x, &y}, Window(days, 0.7)};
        EXPECT_TRUE(begins_with(rolled_with(kernels_of_pairs(), task), rolled_with(*quads, task)));
      }
    }
  }
}

// Numbers of all sizes, some that are alike, zero with both signs and what is not known.
std::vector<double> entries_of_all_kinds(std::mt19937_64& engine, std::size_t count) {
  std::uniform_real_distribution<double> log(-30.0, 8.0);
  std::vector<double> values(count);
  for (double& value : values) {
    value = (engine() % 2 == 0 ? 1.0 : -1.0) * std::exp(log(engine));
    if (engine() % 3 == 0) value = static_cast<double>(engine() % 4) - 1.0;
    if (engine() % 9 == 0) value *= 1.0 + 0.7e-9;
    if (engine() % 11 == 0) value = -0.0;
    if (engine() % 13 == 0) value = kNan;
  }
  return values;
}

// All functions of the vocabulary that work entry by entry.
std::vector<ElementFunction> element_functions() {
  std::vector<ElementFunction> functions;
  for (const FunctionEntry& entry : all_functions()) {
    if (const auto* const function = std::get_if<ElementFunction>(&entry.function))
      functions.push_back(*function);
  }
  return functions;
}

Panel mapped_with(const VectorKernels& kernels, ElementFunction function,
                  const std::array<std::vector<double>, kMostElementInputs>& inputs) {
  Panel result(static_cast<Eigen::Index>(inputs[0].size()), 1);
  kernels.map(
      function,
      {{inputs[0].data(), inputs[1].data(), inputs[2].data()}, result.data(), inputs[0].size()});
  return result;
}

TEST(VectorKernels, MapEntriesAlikeInAnyPlaceAndOverAnInput) {
  std::mt19937_64 engine(10);
  const std::vector<ElementFunction> functions = element_functions();
  ASSERT_EQ(functions.size(), 25U);
  for (const std::size_t count : {1U, 7U, 8U, 9U, 500U, 1003U}) {
    std::array<std::vector<double>, kMostElementInputs> inputs;
    for (std::vector<double>& values : inputs)
      values = entries_of_all_kinds(engine, count);
    for (const ElementFunction function : functions) {
      SCOPED_TRACE("function " + std::to_string(static_cast<int>(function)) + " of " +
                   std::to_string(count) + " entries");
      const Panel whole = mapped_with(kernels_of_pairs(), function, inputs);
      EXPECT_TRUE(begins_with(whole, mapped_with(vector_kernels(), function, inputs)));
      // From the second entry on, so that each stands in another lane.
      auto rest = inputs;
      for (std::vector<double>& values : rest)
        values.erase(values.begin());
      if (count > 1) {
        EXPECT_TRUE(begins_with(whole.bottomRows(whole.rows() - 1),
                                mapped_with(vector_kernels(), function, rest)));
      }
      for (std::size_t input = 0; input < inputs_of(function); ++input) {
        auto places = inputs;
        std::vector<double>& place = places.at(input);
        vector_kernels().map(
            function,
            {{places[0].data(), places[1].data(), places[2].data()}, place.data(), count});
        EXPECT_TRUE(begins_with(whole, Eigen::Map<const Panel>(place.data(), whole.rows(), 1)));
      }
    }
  }
}

// The places of the days of `history` from `before` on, as a kernel has them.
std::array<double, kLanes> places_of(const VectorKernels& kernels,
                                     const std::vector<double>& history, std::size_t before) {
  std::array<double, kLanes> places{};
  kernels.count_lesser(history.data() + before, before, places.data());
  return places;
}

TEST(VectorKernels, CountWhatIsLessAndHalfOfWhatIsAlike) {
  constexpr std::size_t kBefore = 11;
  std::mt19937_64 engine(9);
  for (int turn = 0; turn < 50; ++turn) {
    std::vector<double> history(kBefore + kLanes);
    for (double& value : history) {
      const double near = (static_cast<double>(engine() % 5) - 2.0) *
                          (1.0 + 0.6e-9 * static_cast<double>(engine() % 3));
      value = engine() % 7 == 0 ? kNan : near;
    }
    const auto of_pairs = places_of(kernels_of_pairs(), history, kBefore);
    EXPECT_EQ(of_pairs, places_of(vector_kernels(), history, kBefore));
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      const double today = history[kBefore + lane];
      double expected = 0.0;
      for (std::size_t day = lane; day < kBefore + lane; ++day) {
        const double other = history[day];
        const bool is_alike =
            std::abs(other - today) <= 1e-9 * std::max(std::abs(other), std::abs(today));
        expected += is_alike ? 0.5 : (other < today ? 1.0 : 0.0);
      }
      EXPECT_EQ(of_pairs.at(lane), expected) << "turn " << turn << ", lane " << lane;
    }
  }
}

// Where a value is alike to two that are not alike, a day is told; elsewhere the place is that of
// the mean of those that are alike.
TEST(VectorKernels, RankWhatIsAlikeAndTellOfChains) {
  constexpr std::size_t kColumns = 4;
  const auto ranks_of = [](const VectorKernels& kernels, const std::array<double, kColumns>& day) {
    std::array<double, kColumns * kLanes> values{};
    values.fill(kNan);
    for (std::size_t i = 0; i < kColumns; ++i)
      values.at(i * kLanes + 2) = day.at(i);
    std::array<double, kColumns * kLanes> ranks{};
    const auto is_unsure = kernels.rank_few({values.data(), kLanes, kColumns}, ranks.data());
    std::vector<double> result;
    for (std::size_t i = 0; i < kColumns; ++i)
      result.push_back(ranks.at(i * kLanes + 2));
    result.push_back(is_unsure.at(2) ? 1.0 : 0.0);
    EXPECT_EQ(std::count(is_unsure.begin(), is_unsure.end(), true), is_unsure.at(2) ? 1 : 0);
    return result;
  };
  for (const VectorKernels* kernels : {&kernels_of_pairs(), &vector_kernels()}) {
    EXPECT_EQ(ranks_of(*kernels, {3.0, 1.0, 2.0, 4.0}),
              (std::vector<double>{2.0 / 3.0, 0.0, 1.0 / 3.0, 1.0, 0.0}));
    EXPECT_EQ(ranks_of(*kernels, {-1.0, -1.0 + 1e-12, 5.0, -1.0}),
              (std::vector<double>{1.0 / 3.0, 1.0 / 3.0, 1.0, 1.0 / 3.0, 0.0}));
    EXPECT_EQ(ranks_of(*kernels, {1.0, 1.0 + 0.8e-9, 1.0 + 1.6e-9, 9.0}).back(), 1.0);
    const std::vector<double> with_gap = ranks_of(*kernels, {2.0, kNan, 1.0, 1.0});
    EXPECT_EQ(with_gap[0], 1.0);
    EXPECT_TRUE(std::isnan(with_gap[1]));
    EXPECT_EQ(with_gap[2], 0.25);
    EXPECT_EQ(ranks_of(*kernels, {kNan, 7.0, kNan, kNan})[1], 0.5);
  }
}

}  // namespace
}  // namespace varnholt::embedded::test
