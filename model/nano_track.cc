#include "model/nano_track.h"

#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "common/log.h"
#include "nvt/gfx_scale.h"

namespace mirvane {
namespace {

constexpr uint32_t kBufferFormatWord = 2;  // the runtime's word for a two-plane picture
constexpr uint8_t kNeutralChroma = 128;
constexpr size_t kMaxTensorElements = 0x1ffffffe;

// The decoder trusts the shapes it is given: a model whose outputs do not fit is refused here.
void CheckShapes(const NanoTrackOutputs& outputs) {
  const int classes = outputs.heatmaps[0].channels;
  for (int s = 0; s < kNanoTrackScaleCount; ++s) {
    const TensorView& hm = outputs.heatmaps[s];
    const TensorView& reg = outputs.regressions[s];
    const TensorView& tr = outputs.trackings[s];
    const bool fits = hm.height > 0 && hm.width > 0 && hm.channels == classes && classes > 0 &&
                      reg.height == hm.height && reg.width == hm.width &&
                      reg.channels == kRegressionChannels && tr.height == hm.height &&
                      tr.width == hm.width && tr.channels == kTrackingChannels;
    if (!fits) {
      throw InferenceError("Output shapes of scale " + std::to_string(s + 1) +
                           " do not fit the decoder: heatmap " + std::to_string(hm.width) + "x" +
                           std::to_string(hm.height) + "x" + std::to_string(hm.channels) +
                           ", regression channels " + std::to_string(reg.channels) +
                           ", tracking channels " + std::to_string(tr.channels));
    }
  }
}

}  // namespace

NanoTrack::NanoTrack(uint32_t proc_id, const float& detection_threshold, HdModule& arena)
    : runner_(proc_id, arena), params_(detection_threshold) {
  std::memset(inputs_, 0, sizeof(inputs_));
  regions_[0] = arena.FetchMemMapping(kInputBytes);
  regions_[1] = arena.FetchMemMapping(kInputBytes);
}

void NanoTrack::PrepareInput(const VENDOR_AI_BUF& source) {
  const MemMapping& region = regions_[current_];
  const uint32_t needed = input_width_ * input_height_ * 3 / 2;
  if (needed > region.size) {
    throw std::runtime_error("Buf size [" + std::to_string(region.size) +
                             "] to saved resized imgs " + std::to_string(needed) +
                             " is not enough.");
  }
  // Black padding: luma 0, neutral chroma.
  auto* pixels = reinterpret_cast<uint8_t*>(region.virtual_address);
  std::memset(pixels, kNeutralChroma, needed);
  std::memset(pixels, 0, input_width_ * input_height_);
  int r = hd_common_mem_flush_cache(pixels, region.size);
  if (r != 0) throw std::runtime_error("hd_common_mem_flush_cache fail= " + std::to_string(r));

  const LetterboxSize fit = Letterbox(source.width, source.height, input_width_, input_height_);
  // The frame's chroma plane is taken at width x height bytes after its luma (the snapshot
  // getter counts line offset x height instead; each keeps its own reckoning).
  HD_GFX_SCALE request =
      GfxScaleRequest(source, source.pa + source.width * source.height, source.fmt,
                      region.physical_address, input_width_, input_height_,
                      {0, 0, static_cast<INT32>(source.width), static_cast<INT32>(source.height)},
                      {0, 0, static_cast<INT32>(fit.width), static_cast<INT32>(fit.height)});
  r = hd_gfx_scale(&request);
  if (r != 0) throw std::runtime_error("hd_gfx_scale fail= " + std::to_string(r));

  VENDOR_AI_BUF& input = inputs_[current_];
  std::memset(&input, 0, sizeof(input));
  input.sign = VENDOR_AI_BUF_SIGN;
  input.pa = region.physical_address;
  input.va = static_cast<UINT32>(region.virtual_address);
  input.size = needed;
  input.fmt = source.fmt;
  input.width = input_width_;
  input.height = input_height_;
  input.channel = kBufferFormatWord;
  input.line_ofs = input_width_;
}

void NanoTrack::Set(uint32_t path_id, VENDOR_AI_BUF* buffer) {
  const int r =
      vendor_ai_net_set(runner_.proc_id(), static_cast<VENDOR_AI_NET_PARAM_ID>(path_id), buffer);
  if (r != 0) {
    throw InferenceError("Set " + std::to_string(path_id) + " fail: " + std::to_string(r));
  }
}

void NanoTrack::Proc() {
  const int r = vendor_ai_net_proc(runner_.proc_id());
  if (r != 0) throw InferenceError("Proc fail: " + std::to_string(r));
}

Tensor NanoTrack::Get(uint32_t path_id) {
  VENDOR_AI_BUF record;
  std::memset(&record, 0, sizeof(record));
  int r =
      vendor_ai_net_get(runner_.proc_id(), static_cast<VENDOR_AI_NET_PARAM_ID>(path_id), &record);
  if (r != 0) {
    throw InferenceError("Get " + std::to_string(path_id) + " fail: " + std::to_string(r));
  }
  Tensor tensor;
  tensor.height = static_cast<int>(record.height);
  tensor.width = static_cast<int>(record.width);
  tensor.channels = static_cast<int>(record.channel);
  const size_t count = static_cast<size_t>(record.width) * record.height * record.channel;
  if (count > kMaxTensorElements) throw std::bad_array_new_length();
  tensor.data.reset(new float[count]);
  void* values = reinterpret_cast<void*>(static_cast<uintptr_t>(record.va));
  r = hd_common_mem_flush_cache(values, static_cast<unsigned int>(record.size));
  if (r != 0) throw InferenceError("hd_common_mem_flush_cache fail: " + std::to_string(r));
  vendor_ai_cpu_util_fixed2float(values, record.fmt, tensor.data.get(), record.scale_ratio,
                                 static_cast<INT32>(count));
  return tensor;
}

DetectionsPerClass NanoTrack::Run(VENDOR_AI_BUF source) {
  try {
    PrepareInput(source);
    const int previous = 1 - current_;
    if (inputs_[previous].va == 0) inputs_[previous] = inputs_[current_];  // first frame
    const ModelIds& ids = runner_.ids();
    Set(ids.current_img, &inputs_[current_]);
    Set(ids.pre_img, &inputs_[previous]);
    Proc();
    Tensor tensors[9];
    for (int s = 0; s < 3; ++s) tensors[s] = Get(ids.hm[s]);
    for (int s = 0; s < 3; ++s) tensors[3 + s] = Get(ids.reg[s]);
    for (int s = 0; s < 3; ++s) tensors[6 + s] = Get(ids.tracking[s]);
    NanoTrackOutputs outputs;
    for (int s = 0; s < 3; ++s) {
      outputs.heatmaps[s] = tensors[s].view();
      outputs.regressions[s] = tensors[3 + s].view();
      outputs.trackings[s] = tensors[6 + s].view();
    }
    CheckShapes(outputs);
    DetectionsPerClass detections =
        Decode(params_, outputs, static_cast<int>(source.width), static_cast<int>(source.height));
    current_ = previous;
    return detections;
  } catch (const std::exception& e) {
    MIRVANE_LOG(kLogErr, "%s\n", e.what());
    // No detections, but one (empty) list per class, so that the tracker still ages its tracks.
    return DetectionsPerClass(kClassCount);
  }
}

}  // namespace mirvane
