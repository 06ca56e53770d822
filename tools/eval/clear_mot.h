// CLEAR MOT: the per-frame correspondence between true objects and hypotheses, and the counts
// and ratios built on it (MOTA, MOTP, misses, false positives, identity switches,
// fragmentations, mostly tracked / partially tracked / mostly lost).
//
// Correspondence, frame by frame: a true object keeps the hypothesis it was last matched with
// (in any earlier frame) while their overlap stays at or above the threshold; the objects and
// hypotheses left over are paired by a min-cost assignment on 1 - IoU over the pairs at or
// above the threshold (as many pairs as possible, then the tightest). A pair whose object was
// last matched with another hypothesis is an identity switch. Pure code; any thread.
#ifndef MIRVANE_TOOLS_EVAL_CLEAR_MOT_H
#define MIRVANE_TOOLS_EVAL_CLEAR_MOT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "sequence.h"

namespace mirvane {
namespace eval {

struct FrameMatch {
  size_t truth = 0;       // index into the frame's truth
  size_t hypothesis = 0;  // index into the frame's hypotheses
  double iou = 0;
  bool is_switch = false;
};

struct FrameCorrespondence {
  std::vector<FrameMatch> matches;      // by truth index
  std::vector<size_t> misses;           // truth indices left unmatched
  std::vector<size_t> false_positives;  // hypothesis indices left unmatched
};

std::vector<FrameCorrespondence> MatchFrames(const Sequence& sequence, double threshold);

struct ClearMot {
  int64_t frames = 0;
  int64_t truth_boxes = 0;       // object appearances over all frames
  int64_t hypothesis_boxes = 0;  // hypothesis appearances over all frames
  int64_t truth_ids = 0;         // distinct true objects
  int64_t hypothesis_ids = 0;    // distinct hypotheses (tracks)
  int64_t matches = 0;           // matched pairs, switches included
  int64_t misses = 0;
  int64_t false_positives = 0;
  int64_t switches = 0;
  // Interruptions of an object's tracking: runs of missed appearances between two matched ones.
  int64_t fragmentations = 0;
  // Objects matched in at least 80 % of their appearances, in 20 % to 80 %, under 20 %.
  int64_t mostly_tracked = 0;
  int64_t partially_tracked = 0;
  int64_t mostly_lost = 0;
  double iou_sum = 0;  // over the matched pairs

  // 1 - (misses + false positives + switches) / truth boxes.
  double Mota() const;
  // Mean IoU of the matched pairs (1 for perfect boxes; toolkits that match on the distance
  // 1 - IoU report one minus this).
  double Motp() const;
  double Recall() const;     // matches / truth boxes
  double Precision() const;  // matches / hypothesis boxes
};

// Ratios with a zero denominator are NaN (0 / 0) or infinite.
ClearMot ComputeClearMot(const Sequence& sequence,
                         const std::vector<FrameCorrespondence>& correspondence);
ClearMot ComputeClearMot(const Sequence& sequence, double threshold);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_CLEAR_MOT_H
