// CLEAR MOT counts and ratios on hand-computed fixtures.
#include <gtest/gtest.h>

#include <cmath>

#include "clear_mot.h"
#include "sequence_builder.h"

namespace mirvane {
namespace eval {
namespace {

constexpr double kThreshold = 0.5;

TEST(ClearMot, SplitTracksCountThreeSwitches) {
  const ClearMot m = ComputeClearMot(TwoTracksSplitThreeSwitches(), kThreshold);
  EXPECT_EQ(m.frames, 5);
  EXPECT_EQ(m.truth_boxes, 9);
  EXPECT_EQ(m.hypothesis_boxes, 11);
  EXPECT_EQ(m.truth_ids, 2);
  EXPECT_EQ(m.hypothesis_ids, 5);
  EXPECT_EQ(m.matches, 9);
  EXPECT_EQ(m.misses, 0);
  EXPECT_EQ(m.false_positives, 2);
  EXPECT_EQ(m.switches, 3);
  EXPECT_EQ(m.fragmentations, 0);
  EXPECT_EQ(m.mostly_tracked, 2);
  EXPECT_NEAR(m.Mota(), 1.0 - 5.0 / 9.0, 1e-12);
  EXPECT_NEAR(m.Motp(), 8.6 / 9.0, 1e-12);
  EXPECT_NEAR(m.Recall(), 1.0, 1e-12);
  EXPECT_NEAR(m.Precision(), 9.0 / 11.0, 1e-12);
}

TEST(ClearMot, PerfectTrackingScoresOne) {
  SequenceBuilder b;
  for (int f = 0; f < 6; ++f) {
    b.Frame().Truth(7, 0).Hyp(70, 0);
    if (f >= 2) b.Truth(8, 1).Hyp(80, 1);
  }
  const ClearMot m = ComputeClearMot(b.Build(), kThreshold);
  EXPECT_EQ(m.matches, 10);
  EXPECT_EQ(m.misses + m.false_positives + m.switches + m.fragmentations, 0);
  EXPECT_DOUBLE_EQ(m.Mota(), 1.0);
  EXPECT_DOUBLE_EQ(m.Motp(), 1.0);
  EXPECT_DOUBLE_EQ(m.Recall(), 1.0);
  EXPECT_DOUBLE_EQ(m.Precision(), 1.0);
  EXPECT_EQ(m.mostly_tracked, 2);
}

TEST(ClearMot, EmptyHypothesesMissEverything) {
  SequenceBuilder b;
  for (int f = 0; f < 4; ++f) b.Frame().Truth(1, 0).Truth(2, 1);
  const ClearMot m = ComputeClearMot(b.Build(), kThreshold);
  EXPECT_EQ(m.misses, 8);
  EXPECT_EQ(m.matches, 0);
  EXPECT_DOUBLE_EQ(m.Mota(), 0.0);  // 1 - 8/8
  EXPECT_TRUE(std::isnan(m.Motp()));
  EXPECT_EQ(m.mostly_lost, 2);
  EXPECT_EQ(m.hypothesis_ids, 0);
}

TEST(ClearMot, OnlyFalsePositivesWithoutTruthLeaveMotaUndefined) {
  SequenceBuilder b;
  b.Frame().Hyp(1, 0).Hyp(2, 1);
  b.Frame();
  const ClearMot m = ComputeClearMot(b.Build(), kThreshold);
  EXPECT_EQ(m.frames, 2);
  EXPECT_EQ(m.false_positives, 2);
  EXPECT_FALSE(std::isfinite(m.Mota()));
  EXPECT_DOUBLE_EQ(m.Precision(), 0.0);
}

// Four objects missed in four frames, then object 4 tracked alone in four more (the averaging
// example of the CLEAR MOT paper): MOTA = 1 - 16 / 20 = 0.2, not the mean of per-frame values.
TEST(ClearMot, MotaWeighsFramesByTheirObjects) {
  SequenceBuilder b;
  for (int f = 0; f < 4; ++f) b.Frame().Truth(1, 0).Truth(2, 1).Truth(3, 2).Truth(4, 3);
  for (int f = 0; f < 4; ++f) b.Frame().Truth(4, 3).Hyp(4, 3);
  EXPECT_NEAR(ComputeClearMot(b.Build(), kThreshold).Mota(), 0.2, 1e-12);
}

TEST(ClearMot, KeepsThePreviousPartnerWhileItOverlapsEnough) {
  // Frame 1 offers h2 with IoU 1, but h1 still overlaps 0.6: no switch, h2 is a false positive.
  SequenceBuilder b;
  b.Frame().Truth(1, 0).Hyp(1, 0);
  b.Frame().Truth(1, 0).Hyp(1, 0, 0.6).Hyp(2, 0);
  const Sequence s = b.Build();
  const auto frames = MatchFrames(s, kThreshold);
  ASSERT_EQ(frames[1].matches.size(), 1u);
  EXPECT_EQ(s[1].hypotheses[frames[1].matches[0].hypothesis].id, 1);
  EXPECT_FALSE(frames[1].matches[0].is_switch);
  const ClearMot m = ComputeClearMot(s, frames);
  EXPECT_EQ(m.switches, 0);
  EXPECT_EQ(m.false_positives, 1);
  EXPECT_NEAR(m.Motp(), 1.6 / 2.0, 1e-12);
}

TEST(ClearMot, TakesTheTighterBoxWhenThePartnerFallsBelowTheThreshold) {
  SequenceBuilder b;
  b.Frame().Truth(1, 0).Hyp(1, 0);
  b.Frame().Truth(1, 0).Hyp(1, 0, 0.45).Hyp(2, 0, 0.55).Hyp(3, 0, 0.9);
  const Sequence s = b.Build();
  const auto frames = MatchFrames(s, kThreshold);
  ASSERT_EQ(frames[1].matches.size(), 1u);
  EXPECT_EQ(s[1].hypotheses[frames[1].matches[0].hypothesis].id, 3);
  EXPECT_TRUE(frames[1].matches[0].is_switch);
  EXPECT_EQ(frames[1].false_positives.size(), 2u);
}

TEST(ClearMot, CountsOverlapExactlyAtTheThresholdAsAMatch) {
  SequenceBuilder b;
  b.Frame().Truth(1, 0).Hyp(1, 0, 0.5);
  b.Frame().Truth(1, 0).Hyp(1, 0, 0.499);
  const ClearMot m = ComputeClearMot(b.Build(), kThreshold);
  EXPECT_EQ(m.matches, 1);
  EXPECT_EQ(m.misses, 1);
  EXPECT_EQ(m.false_positives, 1);
}

TEST(ClearMot, RemembersThePartnerAcrossGaps) {
  // Object 1: h1, then missed (h1 too loose), then h1 again: no switch, one fragmentation.
  // Object 2: h2, then absent, then h3: a switch although the frames between had no object.
  SequenceBuilder b;
  b.Frame().Truth(1, 0).Hyp(1, 0).Truth(2, 1).Hyp(2, 1);
  b.Frame().Truth(1, 0).Hyp(1, 0, 0.2);
  b.Frame().Truth(1, 0).Hyp(1, 0).Truth(2, 1).Hyp(3, 1);
  const ClearMot m = ComputeClearMot(b.Build(), kThreshold);
  EXPECT_EQ(m.switches, 1);
  EXPECT_EQ(m.fragmentations, 1);
  EXPECT_EQ(m.misses, 1);
  EXPECT_EQ(m.false_positives, 1);
}

// Tracked (T) and missed (M) appearances per object, absent frames left out:
//   object 1: T T M T M M T M        4/8 = 0.5 tracked: partially; two interruptions (the
//                                    trailing miss does not end in a match: not a fragment)
//   object 2: M M T T T T T T T T    8/10 = 0.8: mostly tracked (the bound is inclusive); none
//   object 3: T M M M M M            1/6: mostly lost; none
//   object 4: M M M M T              1/5 = 0.2: partially tracked (inclusive); none
TEST(ClearMot, CountsFragmentationsAndTrackedRatios) {
  const char* const kStates[] = {"TTMTMMTM--", "MMTTTTTTTT", "TMMMMM----", "MMMMT-----"};
  SequenceBuilder b;
  for (size_t f = 0; f < 10; ++f) {
    b.Frame();
    for (int object = 0; object < 4; ++object) {
      const char state = kStates[object][f];
      if (state == '-') continue;
      b.Truth(object + 1, object);
      if (state == 'T') b.Hyp(100 + object, object);
    }
  }
  const ClearMot m = ComputeClearMot(b.Build(), kThreshold);
  EXPECT_EQ(m.truth_boxes, 8 + 10 + 6 + 5);
  EXPECT_EQ(m.matches, 4 + 8 + 1 + 1);
  EXPECT_EQ(m.fragmentations, 2);
  EXPECT_EQ(m.mostly_tracked, 1);
  EXPECT_EQ(m.partially_tracked, 2);
  EXPECT_EQ(m.mostly_lost, 1);
  EXPECT_EQ(m.switches, 0);
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
