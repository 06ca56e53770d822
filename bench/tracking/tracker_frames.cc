// Replays the benchmark scene through the detection tracker for a fixed number of frames, for
// instruction counts under callgrind, where a time-driven benchmark loop would vary its
// iteration count:
//
//   valgrind --tool=callgrind --toggle-collect='*TrackFrames*' tracker_frames 200 500
//
// counts only the measured frames (after one frame that creates the tracks); divide the
// "Collected" instruction total by the frame count.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/tracking/moving_scene.h"
#include "bin/obj_detect_tracker.h"

namespace {

// The tracked object count, so that the work cannot be optimised away.
__attribute__((noinline)) size_t TrackFrames(mirvane::dva::ObjDetectTracker* tracker,
                                             const std::vector<mirvane::DetectionsPerClass>& loop,
                                             int frames) {
  size_t objects = 0;
  for (int f = 1; f <= frames; ++f) {
    const mirvane::TrackResult result =
        tracker->Update(loop[static_cast<size_t>(f) % loop.size()], mirvane::bench::kSceneWidth,
                        mirvane::bench::kSceneHeight, static_cast<uint64_t>(f));
    for (const auto& list : result.objects) objects += list.size();
  }
  return objects;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s BOXES_PER_CLASS FRAMES\n", argv[0]);
    return 2;
  }
  const int boxes = std::atoi(argv[1]);
  const int frames = std::atoi(argv[2]);
  if (boxes <= 0 || frames <= 0) {
    std::fprintf(stderr, "%s: counts must be positive\n", argv[0]);
    return 2;
  }
  const std::vector<mirvane::DetectionsPerClass> loop =
      mirvane::bench::SceneLoop(boxes, mirvane::bench::kSceneClasses);
  mirvane::dva::ObjDetectTracker tracker(mirvane::bench::kSceneClasses,
                                         mirvane::bench::kSceneTrackingThreshold);
  tracker.Update(loop[0], mirvane::bench::kSceneWidth, mirvane::bench::kSceneHeight, 0);
  const size_t objects = TrackFrames(&tracker, loop, frames);
  std::printf("%d frames, %d boxes per class, %zu tracked objects\n", frames, boxes, objects);
  return 0;
}
