// HOTA (higher order tracking accuracy) with its detection, association and localisation
// parts, evaluated at the 19 IoU thresholds alpha = 0.05, 0.10 .. 0.95 and averaged over them.
//
// Per frame the objects and hypotheses are paired by a min-cost assignment that prefers pairs
// whose identities go together over the whole sequence: the score of a pair is its IoU times
// the pair's global alignment (their overlap-weighted co-occurrence over the union of their
// frames). At each alpha the pairs with IoU >= alpha are true positives; DetA = TP / (TP + FN +
// FP); AssA is the mean, over true positives, of the associated pair's TPA / (TPA + FNA + FPA);
// LocA the mean IoU of the true positives; HOTA = sqrt(DetA * AssA). Pure code; any thread.
#ifndef MIRVANE_TOOLS_EVAL_HOTA_H
#define MIRVANE_TOOLS_EVAL_HOTA_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "sequence.h"

namespace mirvane {
namespace eval {

constexpr size_t kHotaAlphaCount = 19;
double HotaAlpha(size_t index);  // 0.05 * (index + 1)

struct HotaParts {
  double hota = 0;
  double det_a = 0;
  double ass_a = 0;
  double det_re = 0;
  double det_pr = 0;
  double ass_re = 0;
  double ass_pr = 0;
  double loc_a = 0;
};

struct HotaAtAlpha : HotaParts {
  int64_t tp = 0;
  int64_t fn = 0;
  int64_t fp = 0;
};

struct HotaScores {
  std::array<HotaAtAlpha, kHotaAlphaCount> at_alpha;
  HotaParts mean;  // over the alphas
};

HotaScores ComputeHota(const Sequence& sequence);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_HOTA_H
