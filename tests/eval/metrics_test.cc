// CLEAR MOT, identity and HOTA scores on the reference fixture and on hand-computed cases.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "clear_mot.h"
#include "hota.h"
#include "identity.h"
#include "sequence_builder.h"

namespace mirvane {
namespace eval {
namespace {

constexpr double kThreshold = 0.5;
constexpr double kAny = -1;  // a ratio the row does not check

// The reference case: a (id 1) split into h1, h2, h3 and b (id 2) into h4, h5; h1 lingers
// beside a at IoU 0.3 in frames 2-3 (two false positives), h4 covers b at 0.6 in frame 1.
// Switches a h1->h2, a h2->h3, b h4->h5: MOTA 1 - (0 + 2 + 3) / 9, MOTP 8.6 / 9. The best
// identity pairing takes two frames per object: IDTP 4 of 9 true and 11 hypothesis boxes,
// IDF1 8 / 20 = 0.4, IDP 4/11, IDR 4/9.
Sequence TwoTracksSplitThreeSwitches() {
  return Frames(
      {"1@0 2@1 | 1@0 4@1", "1@0 2@1 | 1@0 4@1:0.6", "2* 1@0 2@1 | 1@0:0.3 2@0 5@1", "1@0 | 3@0"});
}

using Counts = std::vector<int64_t>;

void ExpectRatios(const std::vector<double>& actual, const std::vector<double>& expected) {
  for (size_t i = 0; i < actual.size(); ++i) {
    if (expected[i] == kAny) continue;
    if (std::isnan(expected[i])) {
      EXPECT_TRUE(std::isnan(actual[i])) << "ratio " << i << ": " << actual[i];
    } else if (actual[i] != expected[i]) {  // infinities compare equal
      EXPECT_NEAR(actual[i], expected[i], 1e-12) << "ratio " << i;
    }
  }
}

TEST(ClearMotAndIdentity, ScoreHandComputedSequences) {
  const struct {
    const char* name;
    Sequence sequence;
    int64_t matches, misses, false_positives, switches, fragmentations;
    double mota, motp;
    int64_t idtp, idfn, idfp;
    double idf1;
  } cases[] = {
      {"two tracks split with three switches", TwoTracksSplitThreeSwitches(), 9, 0, 2, 3, 0,
       1 - 5 / 9.0, 8.6 / 9, 4, 5, 7, 0.4},
      {"perfect", Frames({"2* 7@0 | 70@0", "4* 7@0 8@1 | 70@0 80@1"}), 10, 0, 0, 0, 0, 1, 1, 10, 0,
       0, 1},
      {"no hypotheses", Frames({"4* 1@0 2@1 |"}), 0, 8, 0, 0, 0, 0, NAN, 0, 8, 0, 0},
      {"no truth", Frames({"| 1@0 2@1", ""}), 0, 0, 2, 0, 0, -INFINITY, NAN, 0, 0, 2, 0},
      // The averaging example of the CLEAR MOT paper: weighed by objects, not frame by frame.
      {"four missed then one tracked", Frames({"4* 1@0 2@1 3@2 4@3 |", "4* 4@3 | 4@3"}), 4, 16, 0,
       0, 0, 0.2, 1, 4, 16, 0, 1 / 3.0},
      // h1 still overlaps 0.6: no switch to h2 although it fits better.
      {"keeps the previous partner", Frames({"1@0 | 1@0", "1@0 | 1@0:0.6 2@0"}), 2, 0, 1, 0, 0, 0.5,
       0.8, 2, 0, 1, 0.8},
      {"takes the tightest box once the partner falls below",
       Frames({"1@0 | 1@0", "1@0 | 1@0:0.45 2@0:0.55 3@0:0.9"}), 2, 0, 2, 1, 0, -0.5, 0.95, 1, 1, 3,
       1 / 3.0},
      {"overlap exactly at the threshold matches", Frames({"1@0 | 1@0:0.5", "1@0 | 1@0:0.499"}), 1,
       1, 1, 0, 0, 0, 0.5, 1, 1, 1, 0.5},
      // Object 1 is lost for a frame and found by h1 again: a fragmentation, no switch. Object 2
      // comes back under h3: a switch although it was absent in between.
      {"remembers the partner across gaps",
       Frames({"1@0 2@1 | 1@0 2@1", "1@0 | 1@0:0.2", "1@0 2@1 | 1@0 3@1"}), 4, 1, 1, 1, 1, 0.4, 1,
       3, 2, 2, 0.6},
      // Shared frames a-h1 3, a-h2 2, b-h1 2: greedy a-h1 gives 3, the optimum a-h2 b-h1 4.
      {"pairs identities globally", Frames({"3* 1@0 | 1@0", "2* 1@0 | 2@0", "2* 2@1 | 1@1"}), 7, 0,
       0, 1, 0, 6 / 7.0, 1, 4, 3, 3, 8 / 14.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const ClearMot m = ComputeClearMot(c.sequence, kThreshold);
    EXPECT_EQ((Counts{m.matches, m.misses, m.false_positives, m.switches, m.fragmentations}),
              (Counts{c.matches, c.misses, c.false_positives, c.switches, c.fragmentations}));
    const IdentityScores s = ComputeIdentity(c.sequence, kThreshold);
    EXPECT_EQ((Counts{s.idtp, s.idfn, s.idfp}), (Counts{c.idtp, c.idfn, c.idfp}));
    ExpectRatios({m.Mota(), m.Motp(), s.Idf1()}, {c.mota, c.motp, c.idf1});
  }
  const ClearMot m = ComputeClearMot(TwoTracksSplitThreeSwitches(), kThreshold);
  const IdentityScores s = ComputeIdentity(TwoTracksSplitThreeSwitches(), kThreshold);
  ExpectRatios({m.Recall(), m.Precision(), s.Idp(), s.Idr()}, {1, 9 / 11.0, 4 / 11.0, 4 / 9.0});
}

// Tracked and missed appearances per object, absent frames left out:
//   object 1: T T M T M M T M       4/8 tracked: partially; two interruptions (not the last miss)
//   object 2: M M T T T T T T T T   8/10: mostly tracked (the bound is inclusive)
//   object 3: T M M M M M           1/6: mostly lost
//   object 4: M M M M T             1/5: partially tracked (inclusive)
TEST(ClearMot, CountsFragmentationsAndTrackedRatios) {
  const std::string all = "1@0 2@1 3@2 4@3 | ";
  const ClearMot m = ComputeClearMot(
      Frames({all + "1@0 3@2", all + "1@0", all + "2@1", all + "1@0 2@1", all + "2@1 4@3",
              "1@0 2@1 3@2 | 2@1", "1@0 2@1 | 1@0 2@1", "1@0 2@1 | 2@1", "2* 2@1 | 2@1"}),
      kThreshold);
  // Truth boxes 8 + 10 + 6 + 5, matches 4 + 8 + 1 + 1.
  EXPECT_EQ((Counts{m.truth_boxes, m.matches, m.truth_ids, m.hypothesis_ids, m.switches,
                    m.fragmentations, m.mostly_tracked, m.partially_tracked, m.mostly_lost}),
            (Counts{29, 14, 4, 4, 0, 2, 1, 2, 1}));
}

// Alpha index 11 is 0.60, 12 is 0.65, 15 is 0.80, 16 is 0.85.
// Split track: one object over four frames, h1 in frames 0-1 and h2 in 2-3, all at IoU 0.625.
//   alpha <= 0.60 (12 alphas): TP 4, DetA 1; each pair 2 matches over a union of 4: AssA 0.5,
//   AssRe 0.5, AssPr 1. Above (7 alphas): no TP, all zero, LocA 1 (vacuous).
// Alignment: a followed by h1 (IoU 1, 1, 0.8); in frame 2 h2 covers a exactly. HOTA pairs by
// IoU times global alignment: a-h1 (2 + 4/9) / (6 - (2 + 4/9)) = 0.6875 -> score 0.55 against
// a-h2 (5/9) / (4 - 5/9) -> 0.161: a keeps h1 and h2 is a false positive.
//   alpha <= 0.80 (16): TP 3, FP 1: DetA 3/4, AssA 1. Above (3): TP 2, FN 1, FP 2: DetA 2/5,
//   a-h1 2 matches over 3 + 3 - 2: AssA 1/2.
TEST(Hota, ScoresHandComputedSequencesAlphaByAlpha) {
  struct AtAlpha {
    size_t alpha;
    int64_t tp, fn, fp;
    double det_a, ass_a, ass_re, ass_pr, loc_a;
  };
  const struct {
    const char* name;
    Sequence sequence;
    std::vector<AtAlpha> at;
    double hota, det_a, ass_a, loc_a;  // means over the alphas
  } cases[] = {
      {"perfect", Frames({"2* 1@0 2@1 | 5@0 6@1", "1@0 | 5@0"}), {}, 1, 1, 1, 1},
      {"no hypotheses", Frames({"3* 1@0 |"}), {{0, 0, 3, 0, 0, 0, kAny, kAny, 1}}, 0, 0, 0, 1},
      {"split track",
       Frames({"2* 1@0 | 1@0:0.625", "2* 1@0 | 2@0:0.625"}),
       {{11, 4, 0, 0, 1, 0.5, 0.5, 1, 0.625}, {12, 0, 4, 4, 0, 0, kAny, kAny, 1}},
       12 * std::sqrt(0.5) / 19,
       12 / 19.0,
       6 / 19.0,
       (12 * 0.625 + 7) / 19},
      {"alignment before overlap",
       Frames({"2* 1@0 | 1@0", "1@0 | 1@0:0.8 2@0"}),
       {{15, 3, 0, 1, 0.75, 1, 1, 1, 2.8 / 3}, {16, 2, 1, 2, 0.4, 0.5, 2 / 3.0, 2 / 3.0, 1}},
       (16 * std::sqrt(0.75) + 3 * std::sqrt(0.2)) / 19,
       (16 * 0.75 + 3 * 0.4) / 19,
       (16 + 3 * 0.5) / 19,
       (16 * 2.8 / 3 + 3) / 19},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const HotaScores s = ComputeHota(c.sequence);
    for (const AtAlpha& e : c.at) {
      SCOPED_TRACE(e.alpha);
      const HotaAtAlpha& a = s.at_alpha[e.alpha];
      EXPECT_EQ((Counts{a.tp, a.fn, a.fp}), (Counts{e.tp, e.fn, e.fp}));
      ExpectRatios({a.det_a, a.ass_a, a.ass_re, a.ass_pr, a.loc_a},
                   {e.det_a, e.ass_a, e.ass_re, e.ass_pr, e.loc_a});
    }
    ExpectRatios({s.mean.hota, s.mean.det_a, s.mean.ass_a, s.mean.loc_a},
                 {c.hota, c.det_a, c.ass_a, c.loc_a});
  }
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
