// One detected object as the model's output decoder returns it. The class is not a field: the
// decoder returns one list per class, indexed by heatmap channel.
#ifndef MIRVANE_MODEL_DETECTION_H
#define MIRVANE_MODEL_DETECTION_H

#include <vector>

namespace mirvane {

struct Detection {
  float score;  // heatmap value at the detection's cell, as it is
  float xmin;   // box corners, normalised: 0..1 spans the source frame's width (x) or height (y)
  float ymin;
  float xmax;
  float ymax;
  float track_dx;  // motion offset to the previous frame, in the same normalised units
  float track_dy;
};

// Detections of one frame, one list per class.
using DetectionsPerClass = std::vector<std::vector<Detection>>;

}  // namespace mirvane

#endif  // MIRVANE_MODEL_DETECTION_H
