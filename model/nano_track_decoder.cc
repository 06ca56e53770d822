#include "model/nano_track_decoder.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mirvane {
namespace {

// expf of the softmax exponents, remembered by bit pattern for one Decode call. The regression
// tensors come from fixed-point values, so one frame's exponents (a bin minus its side's maximum)
// take only a few hundred distinct values; a repeated exponent costs a table probe instead of an
// expf call, with the very same result. Direct-mapped: a collision just computes again.
class ExpMemo {
 public:
  ExpMemo() {
    // Every slot starts as the true pair (1, expf(1)): an exponent is never positive, and should
    // one be, the answer is still right.
    const float one = 1.0f;
    const uint32_t one_bits = Bits(one);
    const float e = std::exp(one);
    for (std::size_t i = 0; i < kSlots; ++i) {
      keys_[i] = one_bits;
      values_[i] = e;
    }
  }
  ExpMemo(const ExpMemo&) = delete;
  ExpMemo& operator=(const ExpMemo&) = delete;

  float Exp(float x) {
    const uint32_t bits = Bits(x);
    const std::size_t slot = (bits * 0x9e3779b1u) >> (32 - kSlotBits);
    if (keys_[slot] != bits) {
      keys_[slot] = bits;
      values_[slot] = std::exp(x);  // the single-precision expf
    }
    return values_[slot];
  }

 private:
  static constexpr int kSlotBits = 11;
  static constexpr std::size_t kSlots = std::size_t{1} << kSlotBits;

  static uint32_t Bits(float x) {
    uint32_t bits;
    std::memcpy(&bits, &x, sizeof(bits));
    return bits;
  }

  uint32_t keys_[kSlots];
  float values_[kSlots];
};

// Expected distance, in grid cells, of each box side at one cell (left, top, right, bottom): the
// softmax of the side's 8 bin values (maximum subtracted first) weighted by bin index. bins points
// at the first regression channel at this cell; consecutive channels are plane elements apart.
// The four sides are computed side by side (the compiler may pair their arithmetic), each going
// through the one-side operations in the same order: the maximum, the exponents and their sum in
// bin order, the weighted sum in bin order.
void SideDistances(const float* bins, std::size_t plane, ExpMemo* exp,
                   float distance[kRegressionSides]) {
  float values[kRegressionBins][kRegressionSides];
  for (int k = 0; k < kRegressionSides; ++k) {
    const float* side = bins + static_cast<std::size_t>(k * kRegressionBins) * plane;
#pragma GCC unroll 8
    for (int j = 0; j < kRegressionBins; ++j) {
      values[j][k] = side[static_cast<std::size_t>(j) * plane];
    }
  }
  float max_value[kRegressionSides];
  float sum[kRegressionSides];
  for (int k = 0; k < kRegressionSides; ++k) {
    max_value[k] = values[0][k];
    sum[k] = 0.0f;
    distance[k] = 0.0f;
  }
#pragma GCC unroll 8
  for (int j = 0; j < kRegressionBins; ++j) {
    for (int k = 0; k < kRegressionSides; ++k) {
      max_value[k] = std::max(max_value[k], values[j][k]);
    }
  }
#pragma GCC unroll 8
  for (int j = 0; j < kRegressionBins; ++j) {
#pragma GCC unroll 4
    for (int k = 0; k < kRegressionSides; ++k) {
      values[j][k] = exp->Exp(values[j][k] - max_value[k]);
    }
  }
#pragma GCC unroll 8
  for (int j = 0; j < kRegressionBins; ++j) {
    for (int k = 0; k < kRegressionSides; ++k) sum[k] += values[j][k];
  }
#pragma GCC unroll 8
  for (int j = 0; j < kRegressionBins; ++j) {
    const float weight = static_cast<float>(j);
    for (int k = 0; k < kRegressionSides; ++k) distance[k] += weight * (values[j][k] / sum[k]);
  }
}

// Bit k of the result tells whether scores[k] qualifies (score >= threshold; a not-a-number score
// never does), for k below 32: on x86 four compares and a sign-bit gather per four scores.
uint32_t QualifyingMask32(const float* scores, float threshold) {
  uint32_t mask = 0;
#if defined(__SSE2__)
  const __m128 limit = _mm_set1_ps(threshold);
#pragma GCC unroll 8
  for (int k = 0; k < 32; k += 4) {
    const __m128 four = _mm_loadu_ps(scores + k);
    mask |= static_cast<uint32_t>(_mm_movemask_ps(_mm_cmpge_ps(four, limit))) << k;
  }
#else
  for (int k = 0; k < 32; ++k) mask |= static_cast<uint32_t>(scores[k] >= threshold) << k;
#endif
  return mask;
}

// Appends the candidate of cell i (raster index) of one map: its box from the distance bins and
// its tracking offset.
void AppendCandidate(const NanoTrackDecoderParams& params, std::size_t i, float score,
                     const TensorView& heatmap, const TensorView& regression,
                     const TensorView& tracking, ExpMemo* exp, std::vector<Detection>* out) {
  const std::size_t plane = heatmap.PlaneSize();
  const std::size_t width = static_cast<std::size_t>(heatmap.width);
  const float cx = static_cast<float>(i % width) + 0.5f;
  const float cy = static_cast<float>(i / width) + 0.5f;
  float side[kRegressionSides];
  SideDistances(regression.Channel(0) + i, plane, exp, side);
  const float grid_width = static_cast<float>(heatmap.width);
  const float grid_height = static_cast<float>(heatmap.height);
  Detection d;
  d.score = score;
  d.xmin = std::max((cx - side[0]) / grid_width, 0.0f);
  d.ymin = std::max((cy - side[1]) / grid_height, 0.0f);
  d.xmax = std::min((cx + side[2]) / grid_width, 1.0f);
  d.ymax = std::min((cy + side[3]) / grid_height, 1.0f);
  d.track_dx = tracking.Channel(0)[i] / static_cast<float>(params.input_width);
  d.track_dy = tracking.Channel(1)[i] / static_cast<float>(params.input_height);
  out->push_back(d);
}

// Appends the candidates of one heatmap channel of one scale to out: the qualifying cells in raster
// order, at most per_map_limit of them.
void ExtractCandidates(const NanoTrackDecoderParams& params, int class_index,
                       const TensorView& heatmap, const TensorView& regression,
                       const TensorView& tracking, ExpMemo* exp, std::vector<Detection>* out) {
  const float threshold = params.detection_threshold;  // read once per map
  const std::size_t plane = heatmap.PlaneSize();
  const float* scores = heatmap.Channel(class_index);
  // The scan takes the scores 32 at a time as a mask of the qualifying ones and visits only
  // those, in raster order; the tail of fewer than 32 cells one by one.
  constexpr std::size_t kRun = 32;
  std::size_t taken = 0;
  std::size_t run = 0;
  for (; run + kRun <= plane; run += kRun) {
    for (uint32_t mask = QualifyingMask32(scores + run, threshold); mask != 0; mask &= mask - 1) {
      if (taken == params.per_map_limit) return;
      ++taken;
      const std::size_t i = run + static_cast<std::size_t>(__builtin_ctz(mask));
      AppendCandidate(params, i, scores[i], heatmap, regression, tracking, exp, out);
    }
  }
  for (std::size_t i = run; i < plane; ++i) {
    const float score = scores[i];
    if (!(score >= threshold)) continue;
    if (taken == params.per_map_limit) return;
    ++taken;
    AppendCandidate(params, i, score, heatmap, regression, tracking, exp, out);
  }
}

// A key whose ascending order is the descending order of the score, for any score but
// not-a-number (never a candidate's): the float's bits made monotonic, then inverted. Zero is made
// positive first, so that -0 and +0 tie as they compare.
uint32_t DescendingScoreKey(float score) {
  const float canonical = score + 0.0f;
  uint32_t bits;
  std::memcpy(&bits, &canonical, sizeof(bits));
  const uint32_t ascending = (bits & 0x80000000u) != 0 ? ~bits : (bits | 0x80000000u);
  return ~ascending;
}

// Greedy non-maximum suppression of one class's list: keeps entries in descending score order
// (equal scores in list order), dropping every later entry whose overlap with a kept one exceeds
// the threshold.
void SuppressOverlaps(float iou_threshold, std::vector<Detection>* list) {
  const std::vector<Detection>& in = *list;
  // Score (descending) above list index: one integer sort.
  std::vector<uint64_t> order(in.size());
  for (std::size_t n = 0; n < in.size(); ++n) {
    order[n] = (uint64_t{DescendingScoreKey(in[n].score)} << 32) | n;
  }
  std::sort(order.begin(), order.end());
  // The entries still in the running, in that order: the first is kept, and the others that it
  // does not suppress stay in the running.
  std::vector<uint32_t> pending(order.size());
  for (std::size_t n = 0; n < order.size(); ++n) pending[n] = static_cast<uint32_t>(order[n]);
  const bool only_overlaps = iou_threshold >= 0.0f;
  std::vector<Detection> kept;
  kept.reserve(in.size());
  for (std::size_t count = pending.size(); count > 0;) {
    const Detection& a = in[pending[0]];
    kept.push_back(a);
    // The overlap of a and each later candidate, computed as SuppressionIou computes it, with a's
    // clamped corners and area taken once. With a threshold of zero or more only an overlapping
    // box can be suppressed: without a positive overlap along both axes the intersection is zero
    // (or not a number) and so is the IoU.
    const float left = std::max(a.xmin, 0.0f);
    const float top = std::max(a.ymin, 0.0f);
    const float right = std::min(a.xmax, 1.0f);
    const float bottom = std::min(a.ymax, 1.0f);
    const float area_a = (a.xmax - a.xmin) * (a.ymax - a.ymin);
    std::size_t left_in = 0;
    for (std::size_t m = 1; m < count; ++m) {
      const Detection& b = in[pending[m]];
      const float width = std::min(right, b.xmax) - std::max(left, b.xmin);
      const float height = std::min(bottom, b.ymax) - std::max(top, b.ymin);
      if (!only_overlaps || (width > 0.0f && height > 0.0f)) {
        const float intersection = std::max(width, 0.0f) * std::max(height, 0.0f);
        const float union_area = area_a + (b.xmax - b.xmin) * (b.ymax - b.ymin) - intersection;
        if (intersection / union_area > iou_threshold) continue;
      }
      pending[left_in++] = pending[m];
    }
    count = left_in;
  }
  list->swap(kept);
}

// Maps boxes normalised to the letterboxed input back to the source frame. The resized image fills
// the input along the source's longer side (relative to the input's aspect), from the top-left.
void UndoLetterbox(const NanoTrackDecoderParams& params, int source_width, int source_height,
                   DetectionsPerClass* per_class) {
  const float source_aspect = static_cast<float>(source_width) / static_cast<float>(source_height);
  const float input_aspect =
      static_cast<float>(params.input_width) / static_cast<float>(params.input_height);
  float sx = 1.0f;
  float sy = 1.0f;
  if (source_aspect > input_aspect) {
    sy = source_aspect / input_aspect;
  } else {
    sx = input_aspect / source_aspect;
  }
  for (std::vector<Detection>& list : *per_class) {
    for (Detection& d : list) {
      d.xmin = d.xmin * sx;
      d.xmax = std::min(d.xmax * sx, 1.0f);
      d.ymin = d.ymin * sy;
      d.ymax = std::min(d.ymax * sy, 1.0f);
      d.track_dx = d.track_dx * sx;
      d.track_dy = d.track_dy * sy;
    }
  }
}

}  // namespace

float SuppressionIou(const Detection& kept, const Detection& candidate) {
  const float ix1 = std::max(std::max(kept.xmin, 0.0f), candidate.xmin);
  const float iy1 = std::max(std::max(kept.ymin, 0.0f), candidate.ymin);
  const float ix2 = std::min(std::min(kept.xmax, 1.0f), candidate.xmax);
  const float iy2 = std::min(std::min(kept.ymax, 1.0f), candidate.ymax);
  const float intersection = std::max(ix2 - ix1, 0.0f) * std::max(iy2 - iy1, 0.0f);
  const float union_area = (kept.xmax - kept.xmin) * (kept.ymax - kept.ymin) +
                           (candidate.xmax - candidate.xmin) * (candidate.ymax - candidate.ymin) -
                           intersection;
  return intersection / union_area;
}

DetectionsPerClass Decode(const NanoTrackDecoderParams& params, const NanoTrackOutputs& outputs,
                          int source_width, int source_height) {
  const int class_count = outputs.heatmaps[0].channels;
  DetectionsPerClass per_class(static_cast<std::size_t>(std::max(class_count, 0)));
  ExpMemo exp;
  for (int c = 0; c < class_count; ++c) {
    std::vector<Detection>& list = per_class[static_cast<std::size_t>(c)];
    for (int s = 0; s < kNanoTrackScaleCount; ++s) {
      ExtractCandidates(params, c, outputs.heatmaps[s], outputs.regressions[s],
                        outputs.trackings[s], &exp, &list);
    }
    SuppressOverlaps(params.nms_iou_threshold, &list);
  }
  UndoLetterbox(params, source_width, source_height, &per_class);
  return per_class;
}

LetterboxSize Letterbox(uint32_t source_w, uint32_t source_h, uint32_t target_w,
                        uint32_t target_h) {
  LetterboxSize size = {0, 0};
  if (source_w > 0 && source_h > 0) {
    if (static_cast<float>(source_w) / static_cast<float>(source_h) <=
        static_cast<float>(target_w) / static_cast<float>(target_h)) {
      size.height = target_h;
      size.width = source_w * target_h / source_h;
    } else {
      size.width = target_w;
      size.height = source_h * target_w / source_w;
    }
  }
  if (size.width == 0 || size.height == 0) {
    throw std::runtime_error("width or height <= 0 after resize");
  }
  return size;
}

}  // namespace mirvane
