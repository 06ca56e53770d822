// One run of the daemon on a scene: the ground truth and the reported events put side by side
// by frame timestamp. The frames of a run are the union of both: a frame the truth lists but
// the daemon did not report counts its objects as missed; a reported frame the truth does not
// list is a frame without objects (the simulation's CSV has no rows for those), so whatever it
// reports is false. Plain values; any thread.
#ifndef MIRVANE_TOOLS_EVAL_RUN_H
#define MIRVANE_TOOLS_EVAL_RUN_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "events.h"
#include "sequence.h"
#include "truth.h"

namespace mirvane {
namespace eval {

struct RunFrame {
  uint64_t timestamp = 0;
  int64_t frame = -1;  // the scene's frame index, -1 when the truth does not list the frame
  double time = 0;     // seconds into the scene
  bool in_truth = false;
  bool reported = false;
  std::vector<TruthObject> truth;
  std::vector<ReportedObject> reported_objects;
};

struct AlignedRun {
  std::vector<RunFrame> frames;  // by timestamp
  size_t truth_frames = 0;
  size_t reported_frames = 0;
  size_t matched_frames = 0;  // in both
  // Reported frames at timestamps the truth does not list although it lists empty frames too:
  // a sign that the two files come from different runs.
  size_t unknown_frames = 0;
  double fps = 0;  // the truth's frame rate, 0 when unknown
};

struct RunOptions {
  std::string class_name;  // only objects of this class on both sides; empty for all
};

AlignedRun AlignRun(const GroundTruth& truth, const EventLog& events, const RunOptions& options);

// The boxes and identities of a run for the tracking metrics, frame for frame and in the same
// order of objects (index i of a frame's truth is truth object i of the run frame).
Sequence ToSequence(const AlignedRun& run);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_RUN_H
