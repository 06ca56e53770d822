// Synthetic detections for the tracker benchmarks: per class, `boxes` objects in separate grid
// cells of the frame, each swaying around its cell centre on a 64-frame period (so that frames
// can be replayed in a loop without a jump), with the model-style offset back to the previous
// frame. Every fifth object scores below the tracking threshold on odd frames, where it only
// continues its track.
#ifndef MIRVANE_BENCH_TRACKING_MOVING_SCENE_H
#define MIRVANE_BENCH_TRACKING_MOVING_SCENE_H

#include <cmath>
#include <vector>

#include "model/detection.h"

namespace mirvane {
namespace bench {

constexpr int kSceneWidth = 1920;
constexpr int kSceneHeight = 1080;
constexpr int kSceneClasses = 4;
constexpr int kScenePeriod = 64;
constexpr float kSceneTrackingThreshold = 0.6f;

inline Detection SceneDetection(int object, int boxes, int frame) {
  const int columns = static_cast<int>(std::ceil(std::sqrt(static_cast<float>(boxes))));
  const int rows = (boxes + columns - 1) / columns;
  const float cell_w = 1.0f / static_cast<float>(columns);
  const float cell_h = 1.0f / static_cast<float>(rows);
  const float base_x = (static_cast<float>(object % columns) + 0.5f) * cell_w;
  const float base_y = (static_cast<float>(object / columns) + 0.5f) * cell_h;
  const float kTwoPi = 6.2831853f;
  auto sway = [&](int f) {
    const float phase = kTwoPi * static_cast<float>((f + object) % kScenePeriod) / kScenePeriod;
    return 0.1f * std::sin(phase);
  };
  const float dx = sway(frame) * cell_w;
  const float dy = sway(frame + kScenePeriod / 4) * cell_h;
  const float prev_dx = sway(frame + kScenePeriod - 1) * cell_w;
  const float prev_dy = sway(frame + kScenePeriod / 4 + kScenePeriod - 1) * cell_h;
  const float half_w = 0.25f * cell_w;
  const float half_h = 0.25f * cell_h;
  const float cx = base_x + dx;
  const float cy = base_y + dy;
  const float score = object % 5 == 4 && frame % 2 == 1 ? 0.4f : 0.9f;
  Detection detection{score, cx - half_w, cy - half_h, cx + half_w, cy + half_h, 0, 0};
  detection.track_dx = prev_dx - dx;
  detection.track_dy = prev_dy - dy;
  return detection;
}

// One frame's detections: `boxes` per class for `classes` classes, listed in reverse.
inline DetectionsPerClass SceneFrame(int boxes, int classes, int frame) {
  DetectionsPerClass lists(static_cast<size_t>(classes));
  for (auto& list : lists) {
    for (int i = 0; i < boxes; ++i) list.push_back(SceneDetection(boxes - 1 - i, boxes, frame));
  }
  return lists;
}

// A whole period of frames, to be replayed in a loop.
inline std::vector<DetectionsPerClass> SceneLoop(int boxes, int classes) {
  std::vector<DetectionsPerClass> frames;
  for (int f = 0; f < kScenePeriod; ++f) frames.push_back(SceneFrame(boxes, classes, f));
  return frames;
}

}  // namespace bench
}  // namespace mirvane

#endif  // MIRVANE_BENCH_TRACKING_MOVING_SCENE_H
