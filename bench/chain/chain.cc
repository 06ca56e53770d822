#include "bench/chain/chain.h"

#include <jansson.h>

#include <cmath>
#include <random>
#include <stdexcept>

#include "fixed_point.h"
#include "model/nano_track_synthetic.h"

extern "C" {
#include "vendor_ai.h"
}

namespace mirvane {
namespace bench {
namespace {

using testing_model::OwnedOutputs;
using testing_model::OwnedTensor;
using testing_model::SyntheticObject;

// The reference model's output formats: heatmaps unsigned 8-bit in 1/255 steps, regressions
// signed 8-bit with 4 fraction bits, trackings signed 16-bit with 6 fraction bits.
struct OutputFormat {
  uint32_t format;
  float scale_ratio;
};
constexpr OutputFormat kHeatmapFormat{0xa2080000u, 1.0f / 255.0f};
constexpr OutputFormat kRegressionFormat{0xa1080004u, 1.0f};
constexpr OutputFormat kTrackingFormat{0xa1100006u, 1.0f};

// The demo rules (scripts/demo-settings.json).
constexpr const char* kPeopleVehicleSettings = R"({
  "DetectionRegion": "0.55,0.45,0.95,0.45,0.95,1.0,0.55,1.0",
  "DetectionRegionType": 0,
  "MinPeopleTriggerTimeSeconds": 3,
  "MinVehicleTriggerTimeSeconds": 3,
  "MinTriggerObjectRatioPermille": 0,
  "ClassIdFilter": 22,
  "TriggeredOnlyBothPeopleVehicle": false,
  "TriggeredOnlyMovedPeople": false,
  "TriggeredOnlyMovedVehicle": false,
  "CrowdPeopleThreshold": 0
})";
constexpr const char* kIntrusionSettings = R"({
  "FenceLine": "0.5,0.0,0.5,1.0",
  "FenceIntersectType": 3,
  "MinTriggerObjectRatioPermille": 0,
  "ClassIdFilter": 20
})";

json_t* LoadJson(const char* text) {
  json_error_t error;
  json_t* value = json_loads(text, 0, &error);
  if (value == nullptr) throw std::runtime_error(error.text);
  return value;
}

FixedTensor Quantize(const OwnedTensor& tensor, const OutputFormat& format) {
  sim::ai::FixedFormat fixed;
  if (!sim::ai::DecodeFixedFormat(format.format, &fixed)) throw std::logic_error("format");
  FixedTensor out;
  out.format = format.format;
  out.scale_ratio = format.scale_ratio;
  out.height = tensor.height();
  out.width = tensor.width();
  out.channels = tensor.channels();
  const size_t count = static_cast<size_t>(out.height) * out.width * out.channels;
  out.bytes.resize(count * fixed.bytes());
  sim::ai::QuantizeFixed(tensor.View().data, count, fixed, format.scale_ratio, out.bytes.data());
  return out;
}

// An object of the scene: where it sways and how.
struct SceneObject {
  SyntheticObject shape;  // at the centre of its sway
  float radius_x, radius_y;
  float phase;
};

std::vector<SceneObject> SceneObjects() {
  // The picture of a 1920x1080 source fills the top 216 rows of the 384x384 input.
  constexpr float kPictureWidth = 384.0f;
  constexpr float kPictureHeight = 216.0f;
  constexpr std::array<std::array<float, 2>, kNanoTrackScaleCount> kSizes = {
      {{{16.0f, 56.0f}}, {{48.0f, 112.0f}}, {{96.0f, 200.0f}}}};
  std::mt19937 random(11);
  auto uniform = [&random](float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
  };
  std::vector<SceneObject> objects;
  for (int n = 0; n < kChainObjects; ++n) {
    SceneObject object;
    SyntheticObject& s = object.shape;
    s.class_index = n % 4;
    s.scale = n % kNanoTrackScaleCount;
    const std::array<float, 2>& size = kSizes[static_cast<size_t>(s.scale)];
    const float width = uniform(size[0], size[1]);
    const float height = std::min(uniform(size[0], size[1]), kPictureHeight - 20.0f);
    object.radius_x = uniform(2.0f, 10.0f);
    object.radius_y = std::min(uniform(2.0f, 10.0f), (kPictureHeight - height) / 2.0f);
    s.x1 = uniform(object.radius_x, kPictureWidth - width - object.radius_x);
    s.y1 = uniform(object.radius_y, kPictureHeight - height - object.radius_y);
    s.x2 = s.x1 + width;
    s.y2 = s.y1 + height;
    s.score = uniform(0.5f, 0.95f);
    object.phase = uniform(0.0f, 1.0f);
    objects.push_back(object);
  }
  return objects;
}

// The sway of an object at frame f, in input pixels.
std::array<float, 2> Sway(const SceneObject& object, int f) {
  const float angle = 6.2831853f * (static_cast<float>(f) / kChainPeriod + object.phase);
  return {object.radius_x * std::cos(angle), object.radius_y * std::sin(angle)};
}

}  // namespace

FixedOutputs ChainSceneFrame(int f) {
  OwnedOutputs floats = testing_model::MakeBlankOutputs(4, {48, 24, 12});
  std::mt19937 random(static_cast<uint32_t>(1000 + f));
  auto uniform = [&random](float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
  };
  for (size_t s = 0; s < floats.heatmaps.size(); ++s) {
    OwnedTensor& heatmap = floats.heatmaps[s];
    for (int row = 0; row < heatmap.height(); ++row) {
      for (int col = 0; col < heatmap.width(); ++col) {
        for (int c = 0; c < heatmap.channels(); ++c) heatmap.At(c, row, col) = uniform(0.0f, 0.05f);
        for (int k = 0; k < kRegressionChannels; ++k) {
          floats.regressions[s].At(k, row, col) = uniform(-2.0f, 2.0f);
        }
        for (int k = 0; k < kTrackingChannels; ++k) {
          floats.trackings[s].At(k, row, col) = uniform(-1.0f, 1.0f);
        }
      }
    }
  }
  for (const SceneObject& object : SceneObjects()) {
    const std::array<float, 2> now = Sway(object, f);
    const std::array<float, 2> before = Sway(object, f - 1);
    SyntheticObject shape = object.shape;
    shape.x1 += now[0];
    shape.x2 += now[0];
    shape.y1 += now[1];
    shape.y2 += now[1];
    // The network's offset: from the present position back to the previous one.
    shape.track_x = before[0] - now[0];
    shape.track_y = before[1] - now[1];
    testing_model::RenderObject(&floats, shape);
  }
  FixedOutputs out;
  for (size_t s = 0; s < kNanoTrackScaleCount; ++s) {
    out[s] = Quantize(floats.heatmaps[s], kHeatmapFormat);
    out[kNanoTrackScaleCount + s] = Quantize(floats.regressions[s], kRegressionFormat);
    out[2 * kNanoTrackScaleCount + s] = Quantize(floats.trackings[s], kTrackingFormat);
  }
  return out;
}

Chain::Chain() {
  for (int f = 0; f < kChainPeriod; ++f) scene_.push_back(ChainSceneFrame(f));
  for (size_t i = 0; i < floats_.size(); ++i) {
    const FixedTensor& t = scene_[0][i];
    floats_[i].resize(static_cast<size_t>(t.height) * t.width * t.channels);
  }
  dva::SteadyNow clock = [this] { return now_; };
  tracker_ = std::make_unique<dva::ObjDetectTracker>(kNanoTrackClassCount, 0.6f, clock);
  json_t* pv = LoadJson(kPeopleVehicleSettings);
  people_vehicle_ =
      std::make_unique<rule::PeopleVeichile>(rule::ParsePeopleVeichileSettings(pv), clock);
  json_decref(pv);
  json_t* intrusion = LoadJson(kIntrusionSettings);
  intrusion_ = std::make_unique<rule::Intrusion>(rule::ParseIntrusionSettings(intrusion), clock);
  json_decref(intrusion);

  // Snapshots are numbered without taking pictures.
  class CountingGetter : public result_sender::ISnapshotGetter {
   public:
    int32_t GetSnapshot(VENDOR_AI_BUF, float, float, float, float) override { return ++taken_; }

   private:
    int32_t taken_ = 0;
  };
  snapshots_ = std::make_unique<SnapshotIdCache>(std::make_unique<CountingGetter>(), clock);
}

uint32_t Chain::RunFrame(uint64_t index) {
  now_ = dva::SteadyTimePoint(std::chrono::milliseconds(kChainFrameMs * index));
  ConvertOutputs(scene_[index % kChainPeriod]);
  DecodeOutputs();
  Track(index);
  ApplyPeopleVehicle();
  ApplyIntrusion();
  ConvertEvents();
  Pack(index);
  uint32_t count = 0;
  for (int i = 0; i < 4; ++i) count |= static_cast<uint32_t>(payload_[16 + i]) << (8 * i);
  return count;
}

__attribute__((noinline)) void Chain::ConvertOutputs(const FixedOutputs& outputs) {
  for (size_t i = 0; i < outputs.size(); ++i) {
    FixedTensor& t = const_cast<FixedTensor&>(outputs[i]);  // the runtime's call takes VOID*
    vendor_ai_cpu_util_fixed2float(t.bytes.data(), static_cast<HD_VIDEO_PXLFMT>(t.format),
                                   floats_[i].data(), t.scale_ratio,
                                   static_cast<INT32>(floats_[i].size()));
  }
}

__attribute__((noinline)) void Chain::DecodeOutputs() {
  NanoTrackOutputs outputs;
  const FixedOutputs& shapes = scene_[0];
  for (size_t s = 0; s < kNanoTrackScaleCount; ++s) {
    for (size_t kind = 0; kind < 3; ++kind) {
      const size_t i = kind * kNanoTrackScaleCount + s;
      TensorView view{floats_[i].data(), shapes[i].height, shapes[i].width, shapes[i].channels};
      (kind == 0   ? outputs.heatmaps
       : kind == 1 ? outputs.regressions
                   : outputs.trackings)[s] = view;
    }
  }
  detections_ = Decode(params_, outputs, kChainSourceWidth, kChainSourceHeight);
}

__attribute__((noinline)) void Chain::Track(uint64_t timestamp) {
  tracked_ = tracker_->Update(detections_, kChainSourceWidth, kChainSourceHeight, timestamp);
}

__attribute__((noinline)) void Chain::ApplyPeopleVehicle() {
  pv_ = people_vehicle_->Apply(tracked_);
}

__attribute__((noinline)) void Chain::ApplyIntrusion() {
  intrusion_values_ = intrusion_->Apply(tracked_);
}

__attribute__((noinline)) void Chain::ConvertEvents() {
  VENDOR_AI_BUF frame{};
  events_ = Convert(*snapshots_, tracked_, pv_, intrusion_values_, frame);
}

__attribute__((noinline)) void Chain::Pack(uint64_t timestamp) {
  result_sender::Convert(result_sender::kEventMaxNum, events_, timestamp, payload_.data());
}

}  // namespace bench
}  // namespace mirvane
