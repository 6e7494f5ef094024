// Panels that several candidates share: whatever is shared, the signals stay the same to the last
// bit; what is computed is what was met often enough, within the limit.
// Method: hand-made expressions, and random ones evaluated with and without shared panels.
#include "hosts/embedded/backtest/shared_panels.hpp"

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/embedded/backtest/evaluator.hpp"
#include "hosts/embedded/vocabulary/random_graphs.hpp"
#include "search_templates/genetic/host/twister_generators.hpp"
#include "tests/hosts/embedded/graph_helpers.hpp"
#include "tests/hosts/embedded/synthetic_universe.hpp"

namespace varnholt::embedded::test {
namespace {

using ::testing::ElementsAre;

class SharedPanelsTest : public ::testing::Test {
 protected:
  static constexpr std::size_t kAnyPanel = 0;

  [[nodiscard]] Expression compiled(const genetic::Value& graph) const {
    return evaluator_.compile(graph);
  }
  static genetic::Value mean_of_rank(const char* days) {
    return rotation("ts_mean", {rotation("cross_rank", {feature("close")}), window(days)});
  }
  [[nodiscard]] std::size_t panel_bytes() const {
    return static_cast<std::size_t>(evaluator_.close().size()) * sizeof(double);
  }
  [[nodiscard]] static bool is_same(const Panel& left, const Panel& right) {
    // A NaN equals itself here.
    return left.rows() == right.rows() && left.cols() == right.cols() &&
           ((left == right) || (left.isNaN() && right.isNaN())).all();
  }

  Evaluator evaluator_{make_synthetic_universe({.instruments = 6, .days = 120, .seed = 5})};
};

TEST_F(SharedPanelsTest, EqualPartsOfExpressionsHaveOneText) {
  EXPECT_THAT(step_texts(compiled(mean_of_rank("5"))),
              ElementsAre("close", "cross_rank(close,)", "ts_mean(cross_rank(close,),5)"));
  EXPECT_THAT(step_texts(compiled(rotation("arith_sub", {feature("close"), feature("volume")}))),
              ElementsAre("close", "volume", "arith_sub(close,volume,)"));
}

TEST_F(SharedPanelsTest, WhatTwoOfOneChunkHaveIsComputedOnce) {
  SharedPanels shared = evaluator_.shared_panels(100 * panel_bytes(), kAnyPanel);
  shared.prepare({compiled(mean_of_rank("5")), compiled(mean_of_rank("20"))});
  EXPECT_EQ(shared.computed(), 1);
  EXPECT_NE(shared.find("cross_rank(close,)"), nullptr);
  EXPECT_EQ(shared.find("ts_mean(cross_rank(close,),5)"), nullptr);
  EXPECT_EQ(shared.bytes(), panel_bytes());
  // Of two that are the same in all only the whole is.
  shared.prepare({compiled(mean_of_rank("60")), compiled(mean_of_rank("60"))});
  EXPECT_EQ(shared.computed(), 2);
  EXPECT_NE(shared.find("ts_mean(cross_rank(close,),60)"), nullptr);
}

TEST_F(SharedPanelsTest, WhatWasMetOftenIsComputedForOneAlone) {
  SharedPanels shared = evaluator_.shared_panels(100 * panel_bytes(), kAnyPanel);
  shared.prepare({compiled(mean_of_rank("5"))});
  shared.prepare({compiled(mean_of_rank("20"))});
  EXPECT_EQ(shared.computed(), 0);
  shared.prepare({compiled(mean_of_rank("60"))});
  EXPECT_EQ(shared.computed(), 1) << "the third time";
  EXPECT_NE(shared.find("cross_rank(close,)"), nullptr);
}

TEST_F(SharedPanelsTest, TheLeastRecentlyUsedGiveWayAndTheLimitHolds) {
  SharedPanels shared = evaluator_.shared_panels(2 * panel_bytes(), kAnyPanel);
  const auto twice = [&](const char* name) {
    const Expression expression = compiled(rotation("cross_rank", {feature(name)}));
    shared.prepare({expression, expression});
  };
  twice("close");
  twice("volume");
  twice("close");
  twice("returns");
  EXPECT_NE(shared.find("cross_rank(close,)"), nullptr);
  EXPECT_EQ(shared.find("cross_rank(volume,)"), nullptr);
  EXPECT_NE(shared.find("cross_rank(returns,)"), nullptr);
  EXPECT_EQ(shared.bytes(), 2 * panel_bytes());
  // What the chunk itself reads does not give way to the rest of it.
  const std::vector<Expression> many = {compiled(rotation("cross_rank", {feature("open")})),
                                        compiled(rotation("cross_rank", {feature("open")})),
                                        compiled(rotation("cross_rank", {feature("high")})),
                                        compiled(rotation("cross_rank", {feature("high")})),
                                        compiled(rotation("cross_rank", {feature("low")})),
                                        compiled(rotation("cross_rank", {feature("low")}))};
  shared.prepare(many);
  EXPECT_NE(shared.find("cross_rank(open,)"), nullptr);
  EXPECT_NE(shared.find("cross_rank(high,)"), nullptr);
  EXPECT_EQ(shared.find("cross_rank(low,)"), nullptr);
}

TEST_F(SharedPanelsTest, WithoutRoomOrForSmallPanelsNothingIsKept) {
  const Expression expression = compiled(mean_of_rank("5"));
  SharedPanels none = evaluator_.shared_panels(0, kAnyPanel);
  none.prepare({expression, expression});
  EXPECT_EQ(none.computed(), 0);
  SharedPanels small = evaluator_.shared_panels(100 * panel_bytes());
  small.prepare({expression, expression});
  EXPECT_EQ(small.computed(), 0) << "such a panel is computed at once";
  small.prepare({});
  EXPECT_TRUE(small.is_empty());
}

TEST_F(SharedPanelsTest, SignalsAreTheSameWithAndWithoutThem) {
  constexpr std::uint64_t kSeed = 77;
  SCOPED_TRACE(kSeed);
  genetic::TwisterGenerator generator{genetic::MersenneTwister(kSeed)};
  std::mt19937 random(kSeed);
  SharedPanels shared = evaluator_.shared_panels(30 * panel_bytes(), kAnyPanel);
  // Few features and windows, so that much is shared.
  const RandomGraphOptions options{.max_depth = 4, .max_nodes = 12, .max_window = 10};
  std::vector<genetic::Value> graphs;
  for (int i = 0; i < 300; ++i)
    graphs.push_back(random_graph(generator, evaluator_.vocabulary(), options));
  for (int round = 0; round < 200; ++round) {
    std::vector<Expression> chunk;
    for (int i = 0; i < 4; ++i)
      chunk.push_back(compiled(graphs[random() % graphs.size()]));
    shared.prepare(chunk);
    ASSERT_LE(shared.bytes(), 30 * panel_bytes());
    for (const Expression& expression : chunk)
      ASSERT_TRUE(is_same(evaluator_.signal(expression, &shared), evaluator_.signal(expression)));
  }
  EXPECT_GT(shared.computed(), 20);
}

}  // namespace
}  // namespace varnholt::embedded::test
