// The record that flows from the tracker into the rules and the event converter, and the tracker's
// per-frame result.
#ifndef MIRVANE_BIN_TRACKED_OBJECT_H
#define MIRVANE_BIN_TRACKED_OBJECT_H

#include <cstdint>
#include <unordered_set>
#include <vector>

namespace mirvane {

// One tracked object: a plain value record, copied freely. Outside the tracker the box and offsets
// are normalised to the frame (0..1); inside it they are in pixels.
struct TrackedObject {
  float score = 0.0f;  // confidence of this frame's box
  float xmin = 0.0f;
  float ymin = 0.0f;
  float xmax = 0.0f;
  float ymax = 0.0f;
  float offset_x = 0.0f;  // the model's motion offset, horizontal
  float offset_y = 0.0f;  // and vertical
  int32_t class_id = 0;   // 1 to 4 by class list, 0 for a list beyond the fourth
  uint64_t time = 0;      // the frame's timestamp, carried unchanged
  uint32_t tracking_id = 0;
  uint32_t reserved = 0;  // neither set nor read by the tracker; copied through
  int64_t age_ms = 0;     // milliseconds since the track was first seen
};

// What the tracker returns for one frame.
struct TrackResult {
  std::vector<std::vector<TrackedObject>> objects;        // one list per class, in class order
  std::vector<std::unordered_set<uint32_t>> removed_ids;  // per tracker: ids dropped this frame
};

}  // namespace mirvane

#endif  // MIRVANE_BIN_TRACKED_OBJECT_H
