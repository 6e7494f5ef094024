// The shares of the sources follow what got into the archive, within their limits. Method: counts
// by hand.
#include "hosts/embedded/archive/source_shares.hpp"

#include <gtest/gtest.h>

namespace varnholt::embedded::test {
namespace {

class SourceSharesTest : public ::testing::Test {
 protected:
  void count(CandidateSource source, int times, bool has_entered) {
    for (int i = 0; i < times; ++i)
      shares_.count(source, has_entered);
  }

  SourceShares shares_;
};

TEST_F(SourceSharesTest, BeginWhereAllHaveTheSameRate) {
  EXPECT_DOUBLE_EQ(shares_.bred(), 0.5);
  EXPECT_DOUBLE_EQ(shares_.known(), SourceShares::kGreatestKnown) << "a third, but for the limit";
}

TEST_F(SourceSharesTest, WhatIsBredKeepsWithinItsLimits) {
  count(CandidateSource::Archive, 60, true);
  EXPECT_GT(shares_.bred(), 0.6);
  count(CandidateSource::Archive, 300, false);
  EXPECT_DOUBLE_EQ(shares_.bred(), SourceShares::kLeastBred);
  count(CandidateSource::Random, 600, false);
  count(CandidateSource::Archive, 600, true);
  EXPECT_DOUBLE_EQ(shares_.bred(), SourceShares::kGreatestBred);
}

TEST_F(SourceSharesTest, WhatIsKnownKeepsWithinItsLimits) {
  count(CandidateSource::Known, 10, false);
  // One of twelve, or a little more, beside two halves.
  EXPECT_NEAR(shares_.known(), (1.0 / 12) / (1.0 / 12 + 1.0), 0.01);
  count(CandidateSource::Known, 300, false);
  EXPECT_DOUBLE_EQ(shares_.known(), SourceShares::kLeastKnown);
  count(CandidateSource::Known, 600, true);
  EXPECT_DOUBLE_EQ(shares_.known(), SourceShares::kGreatestKnown);
}

TEST_F(SourceSharesTest, WhatTheSearchBredItselfCountsForNone) {
  count(CandidateSource::Archive, 5, true);
  const double bred = shares_.bred();
  const double known = shares_.known();
  count(CandidateSource::Other, 100, true);
  EXPECT_EQ(shares_.bred(), bred);
  EXPECT_EQ(shares_.known(), known);
}

}  // namespace
}  // namespace varnholt::embedded::test
