// The daemon's per-frame chain after inference, on a replayed scene: the runtime's conversion of
// the nine outputs to floats, the decoder, the detection tracker, the people and vehicle rule, the
// intrusion rule, the event conversion and the payload packing, each stage a function of its own
// (so that callgrind can count it) fed by the one before.
//
// The scene: 50 objects over the four classes and three scales, each swaying on its own ellipse
// with a period of kChainPeriod frames (so that the frames replay in a loop without a jump), drawn
// the way a trained network answers them, with a background of low scores and noisy logits, and
// stored in the reference model's fixed-point output formats. The clock runs at 25 frames a second;
// the rules are the demo settings of scripts/demo-settings.json.
//
// A Chain owns its state (scene, tracker, rules, snapshot-id cache) and is used by one thread.
#ifndef MIRVANE_BENCH_CHAIN_CHAIN_H
#define MIRVANE_BENCH_CHAIN_CHAIN_H

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "bin/event_converter.h"
#include "bin/obj_detect_tracker.h"
#include "bin/rule/intrusion.h"
#include "bin/rule/people_vehicle.h"
#include "model/nano_track_decoder.h"
#include "result_sender/ipc_eventcb_converter.h"

namespace mirvane {
namespace bench {

constexpr int kChainObjects = 50;
constexpr int kChainPeriod = 32;
constexpr int kChainSourceWidth = 1920;
constexpr int kChainSourceHeight = 1080;
constexpr int kChainFrameMs = 40;

// One output tensor as the runtime leaves it: fixed-point values and their format.
struct FixedTensor {
  std::vector<uint8_t> bytes;
  uint32_t format = 0;
  float scale_ratio = 1.0f;
  int height = 0;
  int width = 0;
  int channels = 0;
};

// The nine outputs of one frame, in the order heatmaps, regressions, trackings, each by scale.
using FixedOutputs = std::array<FixedTensor, 3 * kNanoTrackScaleCount>;

// Renders the scene's frame f (0 <= f < kChainPeriod).
FixedOutputs ChainSceneFrame(int f);

class Chain {
 public:
  Chain();
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

  // Runs the chain on frame `index` of the replay (the scene's frame index % kChainPeriod, the
  // clock at index * 40 ms); returns the payload's object count.
  uint32_t RunFrame(uint64_t index);

  // The stages, in order; each reads what the one before left.
  void ConvertOutputs(const FixedOutputs& outputs);
  void DecodeOutputs();
  void Track(uint64_t timestamp);
  void ApplyPeopleVehicle();
  void ApplyIntrusion();
  void ConvertEvents();
  void Pack(uint64_t timestamp);

  const uint8_t* payload() const { return payload_.data(); }

 private:
  std::vector<FixedOutputs> scene_;
  std::array<std::vector<float>, 3 * kNanoTrackScaleCount> floats_;
  float detection_threshold_ = 0.35f;
  NanoTrackDecoderParams params_{detection_threshold_};
  dva::SteadyTimePoint now_{};
  std::unique_ptr<dva::ObjDetectTracker> tracker_;
  std::unique_ptr<rule::PeopleVeichile> people_vehicle_;
  std::unique_ptr<rule::Intrusion> intrusion_;
  std::unique_ptr<SnapshotIdCache> snapshots_;
  DetectionsPerClass detections_;
  TrackResult tracked_;
  std::vector<std::vector<bool>> pv_;
  std::vector<std::vector<uint8_t>> intrusion_values_;
  std::vector<EventObject> events_;
  std::array<uint8_t, result_sender::kEventPayloadSize> payload_{};
};

}  // namespace bench
}  // namespace mirvane

#endif  // MIRVANE_BENCH_CHAIN_CHAIN_H
