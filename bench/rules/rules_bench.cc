// Per-frame cost of the two rules on a busy scene: 50 tracked objects (30 people, 10 cars of
// class 2, 5 of class 3, 5 of class 4) moving through a 16-point detection region and across a
// 6-point fence. Each iteration applies the rule to one frame; items are tracked objects.
//
// Runs in a private /tmp (the rules log their set-up to the daemon's log file).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "bin/rule/intrusion.h"
#include "bin/rule/people_vehicle.h"
#include "common/detection_region.h"
#include "common/fence.h"
#include "common/object_class.h"
#include "debugLog.h"
#include "private_namespace.h"

namespace mirvane {
namespace {

constexpr int kObjects = 50;
constexpr int kFrames = 120;
constexpr double kPi = 3.14159265358979323846;

int32_t ClassOf(int i) {
  if (i < 30) return dva::kClassPerson;
  if (i < 40) return dva::kClassVehicle;
  return i < 45 ? dva::kClassOther : dva::kClassVehicle2;
}

// Frames of the scene: every object walks its own ellipse around the frame's centre, a little
// further each frame, so that boxes move, enter and leave the region and cross the fence.
std::vector<TrackResult> Scene() {
  std::vector<TrackResult> frames(kFrames);
  for (int f = 0; f < kFrames; ++f) {
    TrackResult& frame = frames[f];
    frame.objects.resize(4);
    frame.removed_ids.resize(4);
    for (int i = 0; i < kObjects; ++i) {
      const int32_t class_id = ClassOf(i);
      const double angle = 2 * kPi * (i / double(kObjects) + f / double(kFrames));
      const float cx = static_cast<float>(0.5 + (0.2 + 0.005 * (i % 30)) * std::cos(angle));
      const float cy = static_cast<float>(0.5 + (0.15 + 0.005 * (i % 40)) * std::sin(angle));
      const float w = dva::IsPerson(class_id) ? 0.05f : 0.12f;
      const float h = dva::IsPerson(class_id) ? 0.15f : 0.08f;
      TrackedObject o;
      o.score = 0.8f;
      o.xmin = cx - w / 2;
      o.xmax = cx + w / 2;
      o.ymin = cy - h / 2;
      o.ymax = cy + h / 2;
      o.class_id = class_id;
      o.tracking_id = static_cast<uint32_t>(i);
      frame.objects[dva::ClassIndex(class_id)].push_back(o);
    }
  }
  return frames;
}

// A 16-point star around the centre, alternating radii 0.42 and 0.3.
dva::DetectionRegion Region() {
  dva::Polygon star;
  for (int k = 0; k < 16; ++k) {
    const double r = k % 2 == 0 ? 0.42 : 0.3;
    const double a = 2 * kPi * k / 16;
    star.push_back(dva::Point{static_cast<float>(0.5 + r * std::cos(a)),
                              static_cast<float>(0.5 + r * std::sin(a))});
  }
  return dva::DetectionRegion(dva::DetectionRegion::kInclusion, {star});
}

rule::PeopleVeichileSettings PeopleVehicleSettings(bool all_switches) {
  rule::PeopleVeichileSettings s;
  s.min_people_trigger_seconds = 0;
  s.min_vehicle_trigger_seconds = 0;
  s.min_object_ratio = 0.002f;
  s.class_id_filter = 0x1e;
  s.detection_region = Region();
  s.only_moved_people = all_switches;
  s.only_moved_vehicle = all_switches;
  s.only_both_people_vehicle = all_switches;
  s.crowd_people_threshold = all_switches ? 3 : 0;
  return s;
}

void BM_PeopleVeichileApply(benchmark::State& state) {
  const std::vector<TrackResult> frames = Scene();
  rule::PeopleVeichile rule(PeopleVehicleSettings(state.range(0) != 0));
  size_t f = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(rule.Apply(frames[f]));
    f = (f + 1) % frames.size();
  }
  state.SetItemsProcessed(state.iterations() * kObjects);
}
BENCHMARK(BM_PeopleVeichileApply)->ArgName("all_switches")->Arg(0)->Arg(1);

void BM_IntrusionApply(benchmark::State& state) {
  const std::vector<TrackResult> frames = Scene();
  rule::IntrusionSettings s;
  // A zigzag from the left edge to the right edge.
  for (const dva::Point p :
       {dva::Point{0.0f, 0.5f}, dva::Point{0.2f, 0.3f}, dva::Point{0.4f, 0.7f},
        dva::Point{0.6f, 0.3f}, dva::Point{0.8f, 0.7f}, dva::Point{1.0f, 0.5f}}) {
    s.fence.AddPoint(p);
  }
  s.fence.set_intersect_type(3);
  s.class_id_filter = 0x1e;
  s.min_object_ratio = 0.002f;
  rule::Intrusion rule(std::move(s));
  size_t f = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(rule.Apply(frames[f]));
    f = (f + 1) % frames.size();
  }
  state.SetItemsProcessed(state.iterations() * kObjects);
}
BENCHMARK(BM_IntrusionApply);

}  // namespace
}  // namespace mirvane

int main(int argc, char** argv) {
  std::string error;
  if (!mirvane::hostns::EnterPrivateNamespace({}, &error)) {
    std::fprintf(stderr, "rules_bench: cannot enter a private namespace (%s)\n", error.c_str());
    return 1;
  }
  CreateLogFile();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
