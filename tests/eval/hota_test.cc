// HOTA and its parts on cases computed by hand, alpha by alpha.
#include <gtest/gtest.h>

#include <cmath>

#include "hota.h"
#include "sequence_builder.h"

namespace mirvane {
namespace eval {
namespace {

TEST(Hota, AlphasRunFromFivePercentToNinetyFive) {
  EXPECT_DOUBLE_EQ(HotaAlpha(0), 0.05);
  EXPECT_NEAR(HotaAlpha(kHotaAlphaCount - 1), 0.95, 1e-12);
}

TEST(Hota, PerfectTrackingScoresOne) {
  SequenceBuilder b;
  for (int f = 0; f < 5; ++f) {
    b.Frame().Truth(1, 0).Hyp(5, 0);
    if (f % 2 == 0) b.Truth(2, 1).Hyp(6, 1);
  }
  const HotaScores s = ComputeHota(b.Build());
  EXPECT_DOUBLE_EQ(s.mean.hota, 1.0);
  EXPECT_DOUBLE_EQ(s.mean.det_a, 1.0);
  EXPECT_DOUBLE_EQ(s.mean.ass_a, 1.0);
  EXPECT_DOUBLE_EQ(s.mean.loc_a, 1.0);
  EXPECT_DOUBLE_EQ(s.mean.det_re, 1.0);
  EXPECT_DOUBLE_EQ(s.mean.ass_pr, 1.0);
}

TEST(Hota, EmptyHypothesesScoreZeroWithVacuousLocalisation) {
  SequenceBuilder b;
  for (int f = 0; f < 3; ++f) b.Frame().Truth(1, 0);
  const HotaScores s = ComputeHota(b.Build());
  EXPECT_DOUBLE_EQ(s.mean.hota, 0.0);
  EXPECT_DOUBLE_EQ(s.mean.det_a, 0.0);
  EXPECT_DOUBLE_EQ(s.mean.ass_a, 0.0);
  EXPECT_DOUBLE_EQ(s.mean.loc_a, 1.0);
  EXPECT_EQ(s.at_alpha[0].fn, 3);
}

// One object over four frames, hypothesis h1 in frames 0-1 and h2 in frames 2-3, every box with
// IoU 0.625 (5/8, exact in binary).
// For alpha <= 0.625 (0.05 .. 0.60: 12 alphas): TP 4, FN 0, FP 0, DetA 1. Each pair has 2
// matches over 4 + 2 - 2 = 4 frames of union: A = 0.5 for every true positive, AssA 0.5,
// HOTA sqrt(0.5), LocA 0.625, AssRe (2*2/4 + 2*2/4)/4 = 0.5, AssPr (2*2/2 + 2*2/2)/4 = 1.
// For the 7 alphas above: no true positive, DetA = AssA = HOTA = 0, LocA 1 (vacuous).
TEST(Hota, SplitTrackHalvesAssociation) {
  SequenceBuilder b;
  for (int f = 0; f < 4; ++f) b.Frame().Truth(1, 0).Hyp(f < 2 ? 1 : 2, 0, 0.625);
  const HotaScores s = ComputeHota(b.Build());
  const HotaAtAlpha& low = s.at_alpha[11];  // alpha 0.60
  EXPECT_EQ(low.tp, 4);
  EXPECT_DOUBLE_EQ(low.det_a, 1.0);
  EXPECT_NEAR(low.ass_a, 0.5, 1e-12);
  EXPECT_NEAR(low.ass_re, 0.5, 1e-12);
  EXPECT_NEAR(low.ass_pr, 1.0, 1e-12);
  EXPECT_NEAR(low.loc_a, 0.625, 1e-12);
  EXPECT_EQ(s.at_alpha[12].tp, 0);  // alpha 0.65
  EXPECT_EQ(s.at_alpha[12].fp, 4);

  EXPECT_NEAR(s.mean.det_a, 12.0 / 19.0, 1e-12);
  EXPECT_NEAR(s.mean.ass_a, 6.0 / 19.0, 1e-12);
  EXPECT_NEAR(s.mean.hota, 12.0 * std::sqrt(0.5) / 19.0, 1e-12);
  EXPECT_NEAR(s.mean.loc_a, (12 * 0.625 + 7) / 19.0, 1e-12);
}

// One object a in frames 0-2 followed by h1 (IoU 1, 1, then 0.8); in frame 2 a second
// hypothesis h2 covers a exactly (IoU 1). Pairing by IoU alone would take h2 in frame 2; HOTA
// pairs by IoU times global alignment:
//   frame 2 shares: h1 0.8 / (1.8 + 0.8 - 0.8) = 4/9, h2 1 / (1.8 + 1 - 1) = 5/9
//   alignment a-h1 = (2 + 4/9) / (3 + 3 - (2 + 4/9)) = 22/32 = 0.6875 -> score 0.55
//   alignment a-h2 = (5/9) / (3 + 1 - 5/9) = 5/31 -> score 0.161
// so a keeps h1 and h2 is a false positive.
//   alpha <= 0.80 (16 alphas): TP 3, FN 0, FP 1: DetA 3/4; a-h1 3 matches of 3 + 3 - 3:
//       AssA 1; HOTA sqrt(3/4); LocA 2.8/3.
//   alpha 0.85 .. 0.95 (3): frame 2 pair fails: TP 2, FN 1, FP 2: DetA 2/5; a-h1 2 matches
//       of 3 + 3 - 2: AssA 1/2; HOTA sqrt(1/5); LocA 1.
TEST(Hota, PairsByAlignmentBeforeOverlap) {
  SequenceBuilder b;
  b.Frame().Truth(1, 0).Hyp(1, 0);
  b.Frame().Truth(1, 0).Hyp(1, 0);
  b.Frame().Truth(1, 0).Hyp(1, 0, 0.8).Hyp(2, 0);
  const HotaScores s = ComputeHota(b.Build());
  const HotaAtAlpha& at80 = s.at_alpha[15];
  EXPECT_EQ(at80.tp, 3);
  EXPECT_EQ(at80.fp, 1);
  EXPECT_NEAR(at80.det_a, 0.75, 1e-12);
  EXPECT_NEAR(at80.ass_a, 1.0, 1e-12);
  EXPECT_NEAR(at80.det_pr, 0.75, 1e-12);
  EXPECT_NEAR(at80.loc_a, 2.8 / 3.0, 1e-12);
  const HotaAtAlpha& at85 = s.at_alpha[16];
  EXPECT_EQ(at85.tp, 2);
  EXPECT_EQ(at85.fn, 1);
  EXPECT_EQ(at85.fp, 2);
  EXPECT_NEAR(at85.ass_a, 0.5, 1e-12);

  EXPECT_NEAR(s.mean.det_a, (16 * 0.75 + 3 * 0.4) / 19.0, 1e-12);
  EXPECT_NEAR(s.mean.ass_a, (16 * 1.0 + 3 * 0.5) / 19.0, 1e-12);
  EXPECT_NEAR(s.mean.hota, (16 * std::sqrt(0.75) + 3 * std::sqrt(0.2)) / 19.0, 1e-12);
  EXPECT_NEAR(s.mean.loc_a, (16 * 2.8 / 3.0 + 3 * 1.0) / 19.0, 1e-12);
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
