// Goal: the elements of the peers' sort keys. Method: a table for each of them, and a host that
// notes what it is asked.
#include "search_templates/genetic/reaction/peer_keys.hpp"

#include <cmath>
#include <limits>
#include <vector>

#include <gmock/gmock.h>

#include "search_templates/genetic/value/semantics.hpp"
#include "tests/support/error_of.hpp"
#include "tests/support/scripted_host.hpp"

namespace varnholt::genetic::test {
namespace {

using testing::ElementsAre;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

Value node(const Value& name, const char* type = "rotation", const List& children = List()) {
  return Mapping{{"node", name}, {"type", type}, {"children", children}};
}

TEST(GraphRootFamily, IsTheNameUpToItsFirstUnderscore) {
  EXPECT_EQ(graph_root_family(node("arithmetic_add_x")), "arithmetic");
  EXPECT_EQ(graph_root_family(node("rank")), "rank");
  EXPECT_EQ(graph_root_family(node("_x")), "");
  EXPECT_EQ(graph_root_family(node("comparison_gt")), "comparison");
  EXPECT_EQ(graph_root_family(Mapping{{"node", "ts_mean"}}), "ts");
}

TEST(GraphRootFamily, OfAFeatureIsFeatureWhateverItsName) {
  EXPECT_EQ(graph_root_family(node("close_adjusted", "feature")), "feature");
  EXPECT_EQ(graph_root_family(Mapping{{"type", "feature"}}), "feature");
}

TEST(GraphRootFamily, IsAbsentWithoutAName) {
  for (const Value& graph : {Value(), Value("ts_mean"), Value(List{node("a")}), node(""),
                             node(Value()), node(5), Value(Mapping())})
    EXPECT_TRUE(graph_root_family(graph).is_absent()) << repr(graph);
}

TEST(NumericRepairPeerKey, IsOneForComparisonsAlone) {
  EXPECT_EQ(numeric_repair_peer_key(node("comparison_gt")), 1);
  EXPECT_EQ(numeric_repair_peer_key(node("comparison")), 1);
  EXPECT_EQ(numeric_repair_peer_key(node("comparisons_gt")), 0);
  EXPECT_EQ(numeric_repair_peer_key(node("comparison_gt", "feature")), 0);
  EXPECT_EQ(numeric_repair_peer_key(node("arithmetic_add")), 0);
  EXPECT_EQ(numeric_repair_peer_key(Value()), 0);
}

Value features(std::initializer_list<const char*> names) {
  List children;
  for (const char* name : names)
    children.append(node(name, "feature"));
  return node("add", "rotation", children);
}

TEST(PeerFeatureOverlapKey, TellsTheSameSetAndTheShareInCommon) {
  const auto overlap = [](const List& source, const Value& graph) {
    const FeatureOverlap key = peer_feature_overlap_key(source, graph);
    return std::pair(key.same_feature_set, key.overlap);
  };
  EXPECT_EQ(overlap(List{"a", "b"}, features({"b", "c"})), std::pair(0, 1.0 / 3.0));
  EXPECT_EQ(overlap(List{"a"}, features({"a"})), std::pair(1, 1.0));
  EXPECT_EQ(overlap(List{"a", "b"}, features({"b", "a", "b"})), std::pair(1, 1.0));
  EXPECT_EQ(overlap(List{"a"}, features({"b"})), std::pair(0, 0.0));
  EXPECT_EQ(overlap(List{"a", "b"}, features({"a"})), std::pair(0, 0.5));
  EXPECT_EQ(overlap(List{}, features({"a"})), std::pair(0, 0.0));
  EXPECT_EQ(overlap(List{"a"}, node("add")), std::pair(0, 0.0));
  EXPECT_EQ(overlap(List{}, node("add")), std::pair(0, 0.0));
}

class PeerValue : public testing::Test {
 protected:
  double delta(const Value& result) { return delta_exposure_peer_value(host.bundle(), result); }
  double weight(const Value& result) { return max_weight_peer_value(host.bundle(), result); }
  static Mapping failed(const char* reason, const Value& failure) {
    return {{"failures", Mapping{{reason, failure}}}};
  }

  ScriptedHost host;
};

TEST_F(PeerValue, IsTheMagnitudeOfTheHostsFigure) {
  host.engine.on_stats_gate_metrics =
      always(Value(Mapping{{"delta_exposure", -0.25}, {"max_weight", "0.5"}}));
  EXPECT_EQ(delta(Mapping()), 0.25);
  EXPECT_EQ(weight(Mapping()), 0.5);
  // The failure is not looked at.
  EXPECT_EQ(delta(failed("delta_exposure_max", Mapping{{"value", 9.0}})), 0.25);
}

TEST_F(PeerValue, IsElseTheMagnitudeOfTheFirstFailureWithAValue) {
  EXPECT_EQ(delta(failed("delta_exposure_max", Mapping{{"value", -2.0}})), 2.0);
  EXPECT_EQ(delta(failed("delta_exposure_exceeded", Mapping{{"value", "3"}})), 3.0);
  EXPECT_EQ(weight(failed("max_weight_exceeded", Mapping{{"detail", Mapping{{"value", 4}}}})), 4.0);
  EXPECT_EQ(weight(Mapping{{"failures", Mapping{{"max_weight_exceeded", Mapping{{"value", 4}}},
                                                {"max_weight_max", Mapping{{"value", 3}}}}}}),
            3.0);
  EXPECT_EQ(weight(Mapping{{"failures", Mapping{{"max_weight_exceeded", Mapping{{"value", 4}}},
                                                {"max_weight_max", Mapping{{"value", "x"}}}}}}),
            4.0);
}

TEST_F(PeerValue, IsInfiniteForAFailureWithoutValueAndOneForNone) {
  EXPECT_EQ(delta(failed("delta_exposure_max", Mapping())), kInfinity);
  EXPECT_EQ(delta(failed("delta_exposure_exceeded", "text")), kInfinity);
  EXPECT_EQ(delta(failed("max_weight_max", Mapping{{"value", 3}})), 1.0);
  EXPECT_EQ(delta(Mapping()), 1.0);
  EXPECT_EQ(weight(failed("max_weight_max", Value())), kInfinity);
  EXPECT_EQ(weight(failed("delta_exposure_max", Value())), 1.0);
  EXPECT_EQ(weight(Mapping{{"failures", List{"max_weight_max"}}}), 1.0);
  EXPECT_EQ(delta(5), 1.0);
}

TEST_F(PeerValue, NaNOfTheHostIsAFigure) {
  host.engine.on_stats_gate_metrics = always(Value(Mapping{{"delta_exposure", std::nan("")}}));
  EXPECT_TRUE(std::isnan(delta(failed("delta_exposure_max", Mapping{{"value", 2.0}}))));
}

TEST_F(PeerValue, KeyPutsThoseThatFailedLast) {
  const auto key = [&](const Value& result) {
    const PeerRepairKey repair = delta_exposure_peer_repair_key(host.bundle(), result);
    return std::pair(repair.has_failure, repair.value);
  };
  EXPECT_EQ(key(Mapping()), std::pair(0, 1.0));
  EXPECT_EQ(key(failed("delta_exposure_max", Mapping())), std::pair(1, kInfinity));
  EXPECT_EQ(key(failed("delta_exposure_exceeded", Mapping{{"value", 0.5}})), std::pair(1, 0.5));
  const PeerRepairKey heavy =
      max_weight_peer_repair_key(host.bundle(), failed("max_weight_max", Mapping{{"value", 2}}));
  EXPECT_EQ(heavy.has_failure, 1);
  EXPECT_EQ(heavy.value, 2.0);
}

TEST_F(PeerValue, AsksTheHostOnceForTheStatisticsOfTheResult) {
  static_cast<void>(delta_exposure_peer_repair_key(host.bundle(), Mapping{{"stats", "figures"}}));
  EXPECT_THAT(host.log.lines(), ElementsAre("engine.stats_gate_metrics('figures')"));
}

TEST_F(PeerValue, WhatTheHostThrowsPasses) {
  host.engine.on_stats_gate_metrics = failing(RuntimeError("no figures"));
  EXPECT_EQ(error_of([&] { return delta(Mapping()); }), "RuntimeError: no figures");
}

}  // namespace
}  // namespace varnholt::genetic::test
