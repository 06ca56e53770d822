// Identity metrics (IDF1, IDP, IDR): every true object is paired with at most one hypothesis
// for the whole sequence, by a global min-cost bipartite assignment that maximises the number of
// frames in which the paired boxes overlap at or above the threshold (IDTP). Everything else is
// an identity miss (IDFN) or an identity false positive (IDFP). Pure code; any thread.
#ifndef MIRVANE_TOOLS_EVAL_IDENTITY_H
#define MIRVANE_TOOLS_EVAL_IDENTITY_H

#include <cstdint>
#include <map>

#include "sequence.h"

namespace mirvane {
namespace eval {

struct IdentityScores {
  int64_t idtp = 0;
  int64_t idfp = 0;
  int64_t idfn = 0;
  // The pairing: true object id -> hypothesis id, only pairs that share at least one frame.
  std::map<int64_t, int64_t> pairing;

  double Idp() const;   // idtp / (idtp + idfp)
  double Idr() const;   // idtp / (idtp + idfn)
  double Idf1() const;  // 2 idtp / (2 idtp + idfp + idfn)
};

IdentityScores ComputeIdentity(const Sequence& sequence, double threshold);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_IDENTITY_H
