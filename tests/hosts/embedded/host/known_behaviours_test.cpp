// Which weights are told to be the same, and from when on. Method: small panels by hand.
#include "hosts/embedded/host/known_behaviours.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

Panel some_weights() {
  Panel weights(3, 2);
  weights << 0.0, 0.0, 0.5, -0.5, 0.25, 0.75;
  return weights;
}

TEST(BehaviourFingerprint, TellsWeightsThatDifferOnOneDay) {
  const Panel weights = some_weights();
  EXPECT_EQ(behaviour_fingerprint(weights, false), behaviour_fingerprint(weights, false));
  Panel other = weights;
  other(2, 1) += 1e-6;
  EXPECT_NE(behaviour_fingerprint(other, false), behaviour_fingerprint(weights, false));
  Panel exchanged = weights;
  exchanged.row(1) = weights.row(2);
  exchanged.row(2) = weights.row(1);
  EXPECT_NE(behaviour_fingerprint(exchanged, false), behaviour_fingerprint(weights, false));
}

TEST(BehaviourFingerprint, RoundingIsNoDifference) {
  const Panel weights = some_weights();
  EXPECT_EQ(behaviour_fingerprint(weights * (1.0 + 1e-14), false),
            behaviour_fingerprint(weights, false));
}

TEST(BehaviourFingerprint, OppositesAreTheSameWhereBothSignsAreJudged) {
  const Panel weights = some_weights();
  EXPECT_EQ(behaviour_fingerprint(-weights, true), behaviour_fingerprint(weights, true));
  EXPECT_NE(behaviour_fingerprint(-weights, false), behaviour_fingerprint(weights, false));
  Panel half = weights;
  half.row(2) = -weights.row(2);
  EXPECT_NE(behaviour_fingerprint(half, true), behaviour_fingerprint(weights, true));
  const Panel nothing = Panel::Zero(3, 2);
  EXPECT_EQ(behaviour_fingerprint(-nothing, true), behaviour_fingerprint(nothing, true));
}

TEST(KnownBehaviours, CountOnceTheyAreSettled) {
  KnownBehaviours behaviours;
  behaviours.note(std::nullopt);
  behaviours.note(7);
  EXPECT_FALSE(behaviours.find(7));
  behaviours.settle();
  EXPECT_EQ(behaviours.find(7), 2) << "the second candidate";
  EXPECT_FALSE(behaviours.find(8));
}

TEST(KnownBehaviours, TheFirstCandidateIsNamed) {
  KnownBehaviours behaviours;
  behaviours.note(7);
  behaviours.note(7);
  behaviours.settle();
  behaviours.note(7);
  behaviours.settle();
  EXPECT_EQ(behaviours.find(7), 1);
}

}  // namespace
}  // namespace varnholt::embedded::test
