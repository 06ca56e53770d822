// The detection tracker: turns each frame's per-class detections into tracked objects with ids
// that stay the same from frame to frame, one greedy tracker per class. All trackers draw their
// ids from one counter, so an id is unique over all classes; it starts at 0 with every new
// detection tracker.
#ifndef MIRVANE_BIN_OBJ_DETECT_TRACKER_H
#define MIRVANE_BIN_OBJ_DETECT_TRACKER_H

#include <cstdint>
#include <vector>

#include "bin/tracked_object.h"
#include "model/detection.h"
#include "tracking/greedy_tracker.h"
#include "tracking/steady_now.h"

namespace mirvane {
namespace dva {

// The greedy trackers' input record for one detection: score, box and offsets with x values
// scaled by width and y values by height (pixels), the class id and the frame's timestamp; the
// other fields zero.
TrackedObject ToTrackerInput(const Detection& detection, float width, float height,
                             int32_t class_id, uint64_t timestamp);

// Owns the id counter and one GreedyTracker per class (which point at the counter, hence neither
// copyable nor movable). Not thread-safe: only the pipeline thread calls it.
class ObjDetectTracker {
 public:
  // class_count: the model's number of class lists; score_threshold: only boxes scoring strictly
  // above it start tracks; now: the steady-clock source for track ages and expiry.
  ObjDetectTracker(int class_count, float score_threshold, SteadyNow now = RealSteadyNow());
  ObjDetectTracker(const ObjDetectTracker&) = delete;
  ObjDetectTracker& operator=(const ObjDetectTracker&) = delete;

  // Tracks one frame. detections: one list per class, boxes normalised to the frame; width and
  // height: the frame's size in pixels, never 0; timestamp: the frame's, copied into every object.
  // Returns the tracked objects per class (normalised, class id 1 to 4 by list, 0 beyond the
  // fourth) and per tracker the ids dropped in this call. A class count other than the tracker's
  // is logged and gives an empty result.
  TrackResult Update(const DetectionsPerClass& detections, int width, int height,
                     uint64_t timestamp);

 private:
  uint32_t next_id_ = 0;
  std::vector<GreedyTracker> trackers_;
  // One class's tracker input, kept between updates so that its storage is reused.
  std::vector<TrackedObject> boxes_;
  std::vector<float> scores_;
};

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_BIN_OBJ_DETECT_TRACKER_H
