// Decoding of the NanoTrack network's nine output tensors into per-class detections.
//
// The network gives, for each of three scales, a heatmap (one channel per class), a box
// regression (4 sides x 8 distance bins, side-major, sides left, top, right, bottom) and a tracking
// map (x and y offset in input pixels). Decode() scans every heatmap channel of every scale for
// cells at or above the detection threshold, turns each into a box by the softmax expectation of
// its distance bins, suppresses overlaps per class, and maps the boxes from the letterboxed input
// back to coordinates normalised to the source frame.
//
// Everything here is a pure computation over caller-owned arrays: no platform calls, no state
// kept between calls, no logging. Any thread may call it; the pipeline thread does, once a frame.
#ifndef MIRVANE_MODEL_NANO_TRACK_DECODER_H
#define MIRVANE_MODEL_NANO_TRACK_DECODER_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "model/detection.h"
#include "model/tensor_view.h"

namespace mirvane {

// The network's fixed geometry and decoding constants.
constexpr int kNanoTrackClassCount = 4;
constexpr int kNanoTrackScaleCount = 3;
constexpr int kNanoTrackInputWidth = 384;
constexpr int kNanoTrackInputHeight = 384;
constexpr std::size_t kNanoTrackPerMapLimit = 128;
constexpr float kNanoTrackNmsIouThreshold = 0.4f;
// Box regression layout: channel side * kRegressionBins + bin, sides left, top, right, bottom.
constexpr int kRegressionSides = 4;
constexpr int kRegressionBins = 8;
constexpr int kRegressionChannels = kRegressionSides * kRegressionBins;
// Tracking layout: channel 0 the x offset, channel 1 the y offset, both in input pixels.
constexpr int kTrackingChannels = 2;

// The decoder's parameter set: constants fixed at build time, plus the live detection threshold,
// which the caller owns and may change between frames (it is read at the start of every heatmap
// scan). Holds a reference only; the threshold must outlive the parameter set. Not synchronised:
// the threshold is changed only on the thread that decodes, between frames.
struct NanoTrackDecoderParams {
  explicit NanoTrackDecoderParams(const float& threshold) : detection_threshold(threshold) {}
  // A temporary threshold would dangle at once.
  explicit NanoTrackDecoderParams(const float&& threshold) = delete;

  // Nominal class and scale counts; decoding takes the class count from the first heatmap and
  // always walks the three scales.
  int class_count = kNanoTrackClassCount;
  int scale_count = kNanoTrackScaleCount;
  // Network input size: normalises the tracking offsets and undoes the letterbox.
  int input_width = kNanoTrackInputWidth;
  int input_height = kNanoTrackInputHeight;
  // Most candidates taken from one heatmap channel of one scale: the first ones in raster order.
  std::size_t per_map_limit = kNanoTrackPerMapLimit;
  // A candidate overlapping a kept box of its class by more than this IoU is dropped.
  float nms_iou_threshold = kNanoTrackNmsIouThreshold;
  // Minimum heatmap score of a detection (inclusive).
  const float& detection_threshold;
};

// The network's outputs for one frame, each array in scale order 1, 2, 3. Heatmaps carry one
// channel per class, regressions kRegressionChannels, trackings kTrackingChannels; the three
// tensors of one scale share one grid size, and every heatmap has at least as many channels as
// the first. These shapes are not checked.
struct NanoTrackOutputs {
  std::array<TensorView, kNanoTrackScaleCount> heatmaps;
  std::array<TensorView, kNanoTrackScaleCount> regressions;
  std::array<TensorView, kNanoTrackScaleCount> trackings;
};

struct LetterboxSize {
  uint32_t width;
  uint32_t height;
};

// The size a source w x h takes inside target_w x target_h with its aspect kept: the picture the
// network sees, in the input's top-left corner. Throws std::runtime_error when a side comes out as
// zero.
LetterboxSize Letterbox(uint32_t source_w, uint32_t source_h, uint32_t target_w, uint32_t target_h);

// Decodes one frame. source_width and source_height are the pixel size of the frame that was
// letterboxed into the network input (the resized image sits in the input's top-left corner).
// Returns one list per class (the first heatmap's channel count; empty when that is zero), each
// list in descending score order, boxes and offsets normalised to the source frame.
DetectionsPerClass Decode(const NanoTrackDecoderParams& params, const NanoTrackOutputs& outputs,
                          int source_width, int source_height);

// The overlap measure of the suppression: intersection over union of a kept box and a later
// candidate, where only the kept box's corners are clamped to 0..1 before intersecting (the
// candidate's are taken as they are, and neither is clamped in the union).
float SuppressionIou(const Detection& kept, const Detection& candidate);

}  // namespace mirvane

#endif  // MIRVANE_MODEL_NANO_TRACK_DECODER_H
