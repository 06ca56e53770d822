#include "reference_decoder.h"

#include <algorithm>
#include <cmath>

namespace mirvane {
namespace sim_ai_test {
namespace {

constexpr float kInputSize = 384.0f;

float SideDistance(const Tensor& reg, int side, int y, int x) {
  float bins[8];
  float top = -INFINITY;
  for (int j = 0; j < 8; ++j) {
    bins[j] = reg.at(side * 8 + j, y, x);
    top = std::max(top, bins[j]);
  }
  float sum = 0, expectation = 0;
  for (int j = 0; j < 8; ++j) {
    const float p = std::exp(bins[j] - top);
    sum += p;
    expectation += j * p;
  }
  return expectation / sum;
}

float Iou(const Decoded& a, const Decoded& b) {
  const float ix1 = std::max(std::max(a.xmin, 0.0f), b.xmin);
  const float iy1 = std::max(std::max(a.ymin, 0.0f), b.ymin);
  const float ix2 = std::min(std::min(a.xmax, 1.0f), b.xmax);
  const float iy2 = std::min(std::min(a.ymax, 1.0f), b.ymax);
  const float inter = std::max(ix2 - ix1, 0.0f) * std::max(iy2 - iy1, 0.0f);
  const float uni =
      (a.xmax - a.xmin) * (a.ymax - a.ymin) + (b.xmax - b.xmin) * (b.ymax - b.ymin) - inter;
  return inter / uni;
}

}  // namespace

std::vector<std::vector<Decoded>> DecodeReference(const Tensor heatmaps[3],
                                                  const Tensor regressions[3],
                                                  const Tensor trackings[3], float threshold,
                                                  int source_width, int source_height) {
  const int classes = heatmaps[0].channels;
  std::vector<std::vector<Decoded>> result(classes);
  for (int c = 0; c < classes; ++c) {
    std::vector<Decoded> candidates;
    for (int s = 0; s < 3; ++s) {
      const Tensor& hm = heatmaps[s];
      int taken = 0;
      for (int i = 0; i < hm.height * hm.width && taken < 128; ++i) {
        const int row = i / hm.width, col = i % hm.width;
        const float score = hm.at(c, row, col);
        if (!(score >= threshold)) continue;
        ++taken;
        const float cx = col + 0.5f, cy = row + 0.5f;
        Decoded d;
        d.score = score;
        d.xmin = std::max((cx - SideDistance(regressions[s], 0, row, col)) / hm.width, 0.0f);
        d.ymin = std::max((cy - SideDistance(regressions[s], 1, row, col)) / hm.height, 0.0f);
        d.xmax = std::min((cx + SideDistance(regressions[s], 2, row, col)) / hm.width, 1.0f);
        d.ymax = std::min((cy + SideDistance(regressions[s], 3, row, col)) / hm.height, 1.0f);
        d.dx = trackings[s].at(0, row, col) / kInputSize;
        d.dy = trackings[s].at(1, row, col) / kInputSize;
        d.scale = s;
        d.row = row;
        d.col = col;
        candidates.push_back(d);
      }
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Decoded& a, const Decoded& b) { return a.score > b.score; });
    std::vector<bool> alive(candidates.size(), true);
    for (size_t i = 0; i < candidates.size(); ++i) {
      if (!alive[i]) continue;
      result[c].push_back(candidates[i]);
      for (size_t j = i + 1; j < candidates.size(); ++j) {
        if (alive[j] && Iou(candidates[i], candidates[j]) > 0.4f) alive[j] = false;
      }
    }
  }
  const float a_src = static_cast<float>(source_width) / static_cast<float>(source_height);
  const float sx = a_src > 1.0f ? 1.0f : 1.0f / a_src;
  const float sy = a_src > 1.0f ? a_src : 1.0f;
  for (auto& list : result) {
    for (Decoded& d : list) {
      d.xmin *= sx;
      d.xmax = std::min(d.xmax * sx, 1.0f);
      d.ymin *= sy;
      d.ymax = std::min(d.ymax * sy, 1.0f);
      d.dx *= sx;
      d.dy *= sy;
    }
  }
  return result;
}

}  // namespace sim_ai_test
}  // namespace mirvane
