// Builds metric fixtures frame by frame. Objects stand in columns ten units apart so that only
// boxes in the same column overlap; a hypothesis in a column overlaps the true box there with
// exactly the IoU it is given (same box, height cut to the IoU).
#ifndef MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H
#define MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H

#include "sequence.h"

namespace mirvane {
namespace eval {

inline Box Cell(int column, double height = 1.0) {
  const double x = 10.0 * column;
  return Box{x, 0.0, x + 1.0, height};
}

class SequenceBuilder {
 public:
  SequenceBuilder& Frame() {
    sequence_.emplace_back();
    return *this;
  }
  SequenceBuilder& Truth(int64_t id, int column) {
    sequence_.back().truth.push_back({id, Cell(column)});
    return *this;
  }
  SequenceBuilder& Hyp(int64_t id, int column, double iou = 1.0) {
    sequence_.back().hypotheses.push_back({id, Cell(column, iou)});
    return *this;
  }
  Sequence Build() const { return sequence_; }

 private:
  Sequence sequence_;
};

// Two true objects: a (id 1, column 0) in frames 0-4 and b (id 2, column 1) in frames 0-3.
// The tracker splits a into h1 (frames 0-1), h2 (2-3) and h3 (4), and b into h4 (0-1) and
// h5 (2-3). h1 lingers in frames 2 and 3 beside a with IoU 0.3 (below the threshold). In
// frame 1 h4 covers b with IoU 0.6, everything else matched covers with IoU 1.
//
//   frame    0        1        2          3          4
//   a        h1       h1       h2 (h1~)   h2 (h1~)   h3
//   b        h4       h4@.6    h5         h5
//
// CLEAR: 9 true boxes, all matched; 11 hypothesis boxes, the two lingering h1 are false
// positives; switches: a h1->h2 in frame 2, a h2->h3 in frame 4, b h4->h5 in frame 2 = 3.
//   MOTA = 1 - (0 misses + 2 FP + 3 switches) / 9 = 1 - 5/9 = 4/9;  MOTP = (8 + 0.6) / 9.
// Identity: pair frames a-h1 2, a-h2 2, a-h3 1, b-h4 2, b-h5 2; the best pairing takes one
// 2 for each object: IDTP = 4, IDFN = 9 - 4 = 5, IDFP = 11 - 4 = 7.
//   IDF1 = 2*4 / (9 + 11) = 0.4;  IDP = 4/11;  IDR = 4/9.
inline Sequence TwoTracksSplitThreeSwitches() {
  SequenceBuilder b;
  b.Frame().Truth(1, 0).Truth(2, 1).Hyp(1, 0).Hyp(4, 1);
  b.Frame().Truth(1, 0).Truth(2, 1).Hyp(1, 0).Hyp(4, 1, 0.6);
  b.Frame().Truth(1, 0).Truth(2, 1).Hyp(1, 0, 0.3).Hyp(2, 0).Hyp(5, 1);
  b.Frame().Truth(1, 0).Truth(2, 1).Hyp(1, 0, 0.3).Hyp(2, 0).Hyp(5, 1);
  b.Frame().Truth(1, 0).Hyp(3, 0);
  return b.Build();
}

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TESTS_EVAL_SEQUENCE_BUILDER_H
