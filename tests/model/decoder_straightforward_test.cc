// The decoder against a straightforward single-precision decoder written here from its
// definition (scan cell by cell, softmax bin by bin with expf, suppression by sorted indices and
// flags, then the letterbox undo): the fast paths (the masked scan, the sides side by side, the
// exponent memo, the integer-sorted suppression) must give the very same detections, bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "model/nano_track_decoder.h"
#include "model/nano_track_synthetic.h"

namespace mirvane {
namespace {

using testing_model::OwnedOutputs;
using testing_model::OwnedTensor;

float PlainSideDistance(const TensorView& regression, int side, std::size_t cell) {
  float values[kRegressionBins];
  for (int j = 0; j < kRegressionBins; ++j)
    values[j] = regression.Channel(side * kRegressionBins + j)[cell];
  float max_value = values[0];
  for (float v : values) max_value = std::max(max_value, v);
  float sum = 0.0f;
  for (float& v : values) {
    v = std::exp(v - max_value);
    sum += v;
  }
  float distance = 0.0f;
  for (int j = 0; j < kRegressionBins; ++j) distance += static_cast<float>(j) * (values[j] / sum);
  return distance;
}

float PlainIou(const Detection& a, const Detection& b) {
  const float ix1 = std::max(std::max(a.xmin, 0.0f), b.xmin);
  const float iy1 = std::max(std::max(a.ymin, 0.0f), b.ymin);
  const float ix2 = std::min(std::min(a.xmax, 1.0f), b.xmax);
  const float iy2 = std::min(std::min(a.ymax, 1.0f), b.ymax);
  const float intersection = std::max(ix2 - ix1, 0.0f) * std::max(iy2 - iy1, 0.0f);
  const float union_area =
      (a.xmax - a.xmin) * (a.ymax - a.ymin) + (b.xmax - b.xmin) * (b.ymax - b.ymin) - intersection;
  return intersection / union_area;
}

DetectionsPerClass PlainDecode(const NanoTrackDecoderParams& params,
                               const NanoTrackOutputs& outputs, int source_width,
                               int source_height) {
  DetectionsPerClass per_class(static_cast<std::size_t>(std::max(outputs.heatmaps[0].channels, 0)));
  for (std::size_t c = 0; c < per_class.size(); ++c) {
    std::vector<Detection> list;
    for (int s = 0; s < kNanoTrackScaleCount; ++s) {
      const TensorView& heatmap = outputs.heatmaps[s];
      const float threshold = params.detection_threshold;
      const float* scores = heatmap.Channel(static_cast<int>(c));
      std::size_t taken = 0;
      for (std::size_t i = 0; i < heatmap.PlaneSize() && taken < params.per_map_limit; ++i) {
        if (!(scores[i] >= threshold)) continue;
        ++taken;
        const float cx = static_cast<float>(i % static_cast<std::size_t>(heatmap.width)) + 0.5f;
        const float cy = static_cast<float>(i / static_cast<std::size_t>(heatmap.width)) + 0.5f;
        float side[kRegressionSides];
        for (int k = 0; k < kRegressionSides; ++k)
          side[k] = PlainSideDistance(outputs.regressions[s], k, i);
        const float w = static_cast<float>(heatmap.width);
        const float h = static_cast<float>(heatmap.height);
        list.push_back(Detection{
            scores[i], std::max((cx - side[0]) / w, 0.0f), std::max((cy - side[1]) / h, 0.0f),
            std::min((cx + side[2]) / w, 1.0f), std::min((cy + side[3]) / h, 1.0f),
            outputs.trackings[s].Channel(0)[i] / static_cast<float>(params.input_width),
            outputs.trackings[s].Channel(1)[i] / static_cast<float>(params.input_height)});
      }
    }
    std::vector<std::size_t> order(list.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&list](std::size_t a, std::size_t b) {
      return list[a].score > list[b].score || (list[a].score == list[b].score && a < b);
    });
    std::vector<bool> alive(order.size(), true);
    for (std::size_t n = 0; n < order.size(); ++n) {
      if (!alive[n]) continue;
      per_class[c].push_back(list[order[n]]);
      for (std::size_t m = n + 1; m < order.size(); ++m) {
        if (alive[m] && PlainIou(per_class[c].back(), list[order[m]]) > params.nms_iou_threshold)
          alive[m] = false;
      }
    }
  }
  const float source_aspect = static_cast<float>(source_width) / static_cast<float>(source_height);
  const float input_aspect =
      static_cast<float>(params.input_width) / static_cast<float>(params.input_height);
  const float sx = source_aspect > input_aspect ? 1.0f : input_aspect / source_aspect;
  const float sy = source_aspect > input_aspect ? source_aspect / input_aspect : 1.0f;
  for (auto& list : per_class) {
    for (Detection& d : list) {
      d = Detection{d.score,
                    d.xmin * sx,
                    d.ymin * sy,
                    std::min(d.xmax * sx, 1.0f),
                    std::min(d.ymax * sy, 1.0f),
                    d.track_dx * sx,
                    d.track_dy * sy};
    }
  }
  return per_class;
}

// Rounds every value of the tensor to a fixed-point step, as the runtime's outputs are.
void Quantize(OwnedTensor* tensor, float step) {
  for (int c = 0; c < tensor->channels(); ++c) {
    for (int row = 0; row < tensor->height(); ++row) {
      for (int col = 0; col < tensor->width(); ++col) {
        float& v = tensor->At(c, row, col);
        v = std::round(v / step) * step;
      }
    }
  }
}

// Random values everywhere, with a few not-a-number and infinite ones among the regressions and
// the scores, and scores of +0 and -0.
OwnedOutputs NoiseOutputs(const std::array<int, kNanoTrackScaleCount>& grids, uint32_t seed) {
  OwnedOutputs outputs = testing_model::MakeBlankOutputs(4, grids);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                       std::numeric_limits<float>::infinity(),
                       -std::numeric_limits<float>::infinity()};
  for (std::size_t s = 0; s < grids.size(); ++s) {
    for (OwnedTensor* tensor :
         {&outputs.heatmaps[s], &outputs.regressions[s], &outputs.trackings[s]}) {
      for (int c = 0; c < tensor->channels(); ++c) {
        for (int row = 0; row < tensor->height(); ++row) {
          for (int col = 0; col < tensor->width(); ++col) {
            float v = tensor == &outputs.heatmaps[s] ? unit(random) : 16.0f * unit(random) - 8.0f;
            if (random() % 500 == 0) v = odd[random() % 3];
            if (tensor == &outputs.heatmaps[s] && random() % 40 == 0) {
              v = random() % 2 == 0 ? 0.0f : -0.0f;  // zeros of both signs tie
            }
            tensor->At(c, row, col) = v;
          }
        }
      }
    }
  }
  return outputs;
}

void ExpectSameDetections(const DetectionsPerClass& got, const DetectionsPerClass& want) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t c = 0; c < got.size(); ++c) {
    ASSERT_EQ(got[c].size(), want[c].size()) << "class " << c;
    if (!got[c].empty()) {
      EXPECT_EQ(std::memcmp(got[c].data(), want[c].data(), got[c].size() * sizeof(Detection)), 0)
          << "class " << c;
    }
  }
}

TEST(DecodeEquivalence, MatchesTheStraightforwardDecoderBitForBit) {
  struct Case {
    const char* name;
    OwnedOutputs outputs;
    float threshold;
    int source_width;
    int source_height;
  };
  std::vector<Case> cases;
  for (uint32_t seed : {7u, 8u, 9u}) {
    const OwnedOutputs busy = testing_model::MakeBusyFrame(50, seed).outputs;
    cases.push_back({"busy frame", busy, 0.35f, 1920, 1080});
    cases.push_back({"busy frame, low threshold", busy, 0.2f, 1080, 1920});
    cases.push_back({"busy frame, every cell (per-map limit)", busy, 0.0f, 500, 500});
    OwnedOutputs fixed = busy;
    for (std::size_t s = 0; s < kNanoTrackScaleCount; ++s) {
      Quantize(&fixed.heatmaps[s], 1.0f / 255.0f);  // equal scores: ties in the suppression
      Quantize(&fixed.regressions[s], 1.0f / 16.0f);
      Quantize(&fixed.trackings[s], 1.0f / 64.0f);
    }
    cases.push_back({"busy frame in fixed point", fixed, 0.35f, 1920, 1080});
    cases.push_back({"busy frame in fixed point, low threshold", fixed, 0.05f, 640, 480});
    cases.push_back({"noise on odd grid sizes", NoiseOutputs({13, 7, 5}, seed), 0.5f, 1920, 1080});
    cases.push_back({"noise, every cell", NoiseOutputs({33, 17, 3}, seed), -1.0f, 1280, 720});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const float threshold = c.threshold;
    const NanoTrackDecoderParams params(threshold);
    const NanoTrackOutputs views = c.outputs.Views();
    ExpectSameDetections(Decode(params, views, c.source_width, c.source_height),
                         PlainDecode(params, views, c.source_width, c.source_height));
  }
}

}  // namespace
}  // namespace mirvane
