// The detection network as the pipeline uses it: each source frame is letterboxed into a
// 384 x 384 NV12 input in device memory, the network runs on that picture and the previous
// one, and its nine output tensors are decoded into per-class detections.
//
// Owns: the network runner (open and started network) and two 221184-byte picture regions carved
// from the arena (the arena outlives the model), which take turns as current and previous input.
// Threads: the pipeline thread only.
#ifndef MIRVANE_MODEL_NANO_TRACK_H
#define MIRVANE_MODEL_NANO_TRACK_H

#include <cstdint>
#include <memory>
#include <stdexcept>

#include "model/detection.h"
#include "model/model_util.h"
#include "model/nano_track_decoder.h"
#include "nvt/hd_module.h"

namespace mirvane {

// A step of one inference failed; Run turns it into one log line and an empty result.
class InferenceError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One output tensor converted to floats.
struct Tensor {
  std::unique_ptr<float[]> data;
  int height = 0;
  int width = 0;
  int channels = 0;
  TensorView view() const { return TensorView{data.get(), height, width, channels}; }
};

class NanoTrack {
 public:
  static constexpr uint32_t kInputWidth = 384;
  static constexpr uint32_t kInputHeight = 384;
  static constexpr uint32_t kInputBytes = kInputWidth * kInputHeight * 3 / 2;  // 221184
  static constexpr int kClassCount = kNanoTrackClassCount;

  // detection_threshold is read anew on every frame; it must outlive the model.
  NanoTrack(uint32_t proc_id, const float& detection_threshold, HdModule& arena);
  NanoTrack(const NanoTrack&) = delete;
  NanoTrack& operator=(const NanoTrack&) = delete;

  // Detections of the frame; empty (after one log line) when any step fails. Never throws.
  DetectionsPerClass Run(VENDOR_AI_BUF source);

 private:
  void PrepareInput(const VENDOR_AI_BUF& source);
  void Set(uint32_t path_id, VENDOR_AI_BUF* buffer);
  void Proc();
  Tensor Get(uint32_t path_id);

  uint32_t input_width_ = kInputWidth;
  uint32_t input_height_ = kInputHeight;
  NetworkRunner runner_;
  NanoTrackDecoderParams params_;
  MemMapping regions_[2];
  VENDOR_AI_BUF inputs_[2];
  int current_ = 0;  // which region and descriptor hold this frame's input
};

}  // namespace mirvane

#endif  // MIRVANE_MODEL_NANO_TRACK_H
