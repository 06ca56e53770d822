// Per-frame cost of tracking: one class's GreedyTracker, and the whole detection tracker over
// four classes (conversions included), at 10, 50 and 200 boxes per class in steady state (every
// object already tracked, all boxes continuing their tracks).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench/tracking/moving_scene.h"
#include "bin/obj_detect_tracker.h"
#include "tracking/greedy_tracker.h"

namespace mirvane {
namespace bench {
namespace {

struct PixelFrame {
  std::vector<TrackedObject> boxes;
  std::vector<float> scores;
};

std::vector<PixelFrame> PixelLoop(int boxes) {
  std::vector<PixelFrame> frames;
  for (const DetectionsPerClass& lists : SceneLoop(boxes, 1)) {
    PixelFrame frame;
    for (const Detection& d : lists[0]) {
      frame.boxes.push_back(dva::ToTrackerInput(d, kSceneWidth, kSceneHeight, 1, 0));
      frame.scores.push_back(d.score);
    }
    frames.push_back(frame);
  }
  return frames;
}

void BM_GreedyTrackerUpdate(benchmark::State& state) {
  const std::vector<PixelFrame> frames = PixelLoop(static_cast<int>(state.range(0)));
  uint32_t next_id = 0;
  dva::GreedyTracker tracker(&next_id, kSceneTrackingThreshold);
  benchmark::DoNotOptimize(tracker.Update(frames[0].boxes, frames[0].scores));
  size_t f = 1;
  for (auto _ : state) {
    const PixelFrame& frame = frames[f];
    benchmark::DoNotOptimize(tracker.Update(frame.boxes, frame.scores));
    f = (f + 1) % frames.size();
  }
  if (next_id != static_cast<uint32_t>(state.range(0))) state.SkipWithError("tracks were lost");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GreedyTrackerUpdate)->Arg(10)->Arg(50)->Arg(200);

void BM_ObjDetectTrackerUpdate(benchmark::State& state) {
  const std::vector<DetectionsPerClass> frames =
      SceneLoop(static_cast<int>(state.range(0)), kSceneClasses);
  dva::ObjDetectTracker tracker(kSceneClasses, kSceneTrackingThreshold);
  uint64_t timestamp = 0;
  benchmark::DoNotOptimize(tracker.Update(frames[0], kSceneWidth, kSceneHeight, timestamp));
  size_t f = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tracker.Update(frames[f], kSceneWidth, kSceneHeight, ++timestamp));
    f = (f + 1) % frames.size();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ObjDetectTrackerUpdate)->Arg(10)->Arg(50)->Arg(200);

}  // namespace
}  // namespace bench
}  // namespace mirvane

BENCHMARK_MAIN();
