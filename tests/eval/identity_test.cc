// Identity metrics: the global pairing of identities, checked on hand-computed fixtures.
#include <gtest/gtest.h>

#include <cmath>

#include "identity.h"
#include "sequence_builder.h"

namespace mirvane {
namespace eval {
namespace {

constexpr double kThreshold = 0.5;

TEST(Identity, SplitTracksScoreIdf1OfTwoFifths) {
  const IdentityScores s = ComputeIdentity(TwoTracksSplitThreeSwitches(), kThreshold);
  EXPECT_EQ(s.idtp, 4);
  EXPECT_EQ(s.idfn, 5);
  EXPECT_EQ(s.idfp, 7);
  EXPECT_NEAR(s.Idf1(), 0.4, 1e-12);
  EXPECT_NEAR(s.Idp(), 4.0 / 11.0, 1e-12);
  EXPECT_NEAR(s.Idr(), 4.0 / 9.0, 1e-12);
  ASSERT_EQ(s.pairing.size(), 2u);
  EXPECT_TRUE(s.pairing.at(1) == 1 || s.pairing.at(1) == 2);
  EXPECT_TRUE(s.pairing.at(2) == 4 || s.pairing.at(2) == 5);
}

// Shared frames: a-h1 3, a-h2 2, b-h1 2, b-h2 0. Taking the largest first (a-h1) leaves b with
// nothing: 3. The global optimum pairs a-h2 and b-h1: IDTP 4 of 7 true and 7 hypothesis boxes.
TEST(Identity, PairsIdentitiesGloballyNotGreedily) {
  SequenceBuilder b;
  for (int f = 0; f < 3; ++f) b.Frame().Truth(1, 0).Hyp(1, 0);
  for (int f = 0; f < 2; ++f) b.Frame().Truth(1, 0).Hyp(2, 0);
  for (int f = 0; f < 2; ++f) b.Frame().Truth(2, 1).Hyp(1, 1);
  const IdentityScores s = ComputeIdentity(b.Build(), kThreshold);
  EXPECT_EQ(s.idtp, 4);
  EXPECT_EQ(s.idfn, 3);
  EXPECT_EQ(s.idfp, 3);
  EXPECT_NEAR(s.Idf1(), 8.0 / 14.0, 1e-12);
  EXPECT_EQ(s.pairing.at(1), 2);
  EXPECT_EQ(s.pairing.at(2), 1);
}

TEST(Identity, CountsOverlapsBelowTheThresholdAsMisses) {
  SequenceBuilder b;
  b.Frame().Truth(1, 0).Hyp(9, 0, 0.4);
  b.Frame().Truth(1, 0).Hyp(9, 0, 0.7);
  const IdentityScores s = ComputeIdentity(b.Build(), kThreshold);
  EXPECT_EQ(s.idtp, 1);
  EXPECT_EQ(s.idfn, 1);
  EXPECT_EQ(s.idfp, 1);
}

TEST(Identity, PerfectAndEmptyRuns) {
  SequenceBuilder perfect;
  SequenceBuilder empty;
  for (int f = 0; f < 5; ++f) {
    perfect.Frame().Truth(1, 0).Truth(2, 1).Hyp(11, 0).Hyp(12, 1);
    empty.Frame().Truth(1, 0).Truth(2, 1);
  }
  const IdentityScores p = ComputeIdentity(perfect.Build(), kThreshold);
  EXPECT_DOUBLE_EQ(p.Idf1(), 1.0);
  EXPECT_DOUBLE_EQ(p.Idp(), 1.0);
  EXPECT_DOUBLE_EQ(p.Idr(), 1.0);
  const IdentityScores e = ComputeIdentity(empty.Build(), kThreshold);
  EXPECT_EQ(e.idfn, 10);
  EXPECT_DOUBLE_EQ(e.Idf1(), 0.0);
  EXPECT_DOUBLE_EQ(e.Idr(), 0.0);
  EXPECT_TRUE(std::isnan(e.Idp()));
  EXPECT_TRUE(e.pairing.empty());
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
