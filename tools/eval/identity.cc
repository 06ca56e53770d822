#include "identity.h"

#include "assignment.h"
#include "id_index.h"

namespace mirvane {
namespace eval {

double IdentityScores::Idp() const {
  return static_cast<double>(idtp) / static_cast<double>(idtp + idfp);
}

double IdentityScores::Idr() const {
  return static_cast<double>(idtp) / static_cast<double>(idtp + idfn);
}

double IdentityScores::Idf1() const {
  return 2.0 * static_cast<double>(idtp) / static_cast<double>(2 * idtp + idfp + idfn);
}

IdentityScores ComputeIdentity(const Sequence& sequence, double threshold) {
  const IdIndex truth_index = IdIndex::OfTruth(sequence);
  const IdIndex hypothesis_index = IdIndex::OfHypotheses(sequence);
  const size_t truth_count = truth_index.size();
  const size_t hypothesis_count = hypothesis_index.size();

  // Frames in which each pair overlaps enough.
  CostMatrix overlap_frames(truth_count, hypothesis_count, 0.0);
  int64_t truth_boxes = 0;
  int64_t hypothesis_boxes = 0;
  for (const SequenceFrame& frame : sequence) {
    truth_boxes += static_cast<int64_t>(frame.truth.size());
    hypothesis_boxes += static_cast<int64_t>(frame.hypotheses.size());
    for (const IdentifiedBox& t : frame.truth) {
      for (const IdentifiedBox& h : frame.hypotheses) {
        if (Iou(t.box, h.box) + kIouTolerance >= threshold) {
          overlap_frames.at(truth_index.Of(t.id), hypothesis_index.Of(h.id)) += 1.0;
        }
      }
    }
  }

  // Pairing object o with hypothesis h costs (frames of o) + (frames of h) - 2 * overlap in
  // misses plus false positives, against (frames of o) + (frames of h) for leaving both alone;
  // so the least total cost is the assignment with the most overlap frames.
  CostMatrix costs(truth_count, hypothesis_count, 0.0);
  for (size_t t = 0; t < truth_count; ++t) {
    for (size_t h = 0; h < hypothesis_count; ++h) costs.at(t, h) = -overlap_frames.at(t, h);
  }
  IdentityScores scores;
  for (const auto& pair : SolveAssignment(costs)) {
    const double overlap = overlap_frames.at(pair.first, pair.second);
    if (overlap <= 0) continue;
    scores.idtp += static_cast<int64_t>(overlap);
    scores.pairing[truth_index.IdAt(pair.first)] = hypothesis_index.IdAt(pair.second);
  }
  scores.idfn = truth_boxes - scores.idtp;
  scores.idfp = hypothesis_boxes - scores.idtp;
  return scores;
}

}  // namespace eval
}  // namespace mirvane
