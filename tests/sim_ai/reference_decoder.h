// An independent decoder of the nine output tensors, written from the daemon's documented
// decoding: threshold scan per class and scale in raster order (at most 128 per map), softmax
// expectation of 8 bins per side, tracking offsets over the input size, per-class greedy NMS at
// IoU 0.4, letterbox undo. It also records the scale and cell each detection came from.
#ifndef MIRVANE_TESTS_SIM_AI_REFERENCE_DECODER_H
#define MIRVANE_TESTS_SIM_AI_REFERENCE_DECODER_H

#include <vector>

namespace mirvane {
namespace sim_ai_test {

struct Tensor {
  std::vector<float> data;
  int height = 0, width = 0, channels = 0;
  float at(int k, int y, int x) const { return data[(k * height + y) * width + x]; }
};

struct Decoded {
  float score, xmin, ymin, xmax, ymax, dx, dy;  // normalised to the source frame
  int scale, row, col;
};

// heatmaps, regressions, trackings: scales 1..3 each. Result per class (heatmap channel).
std::vector<std::vector<Decoded>> DecodeReference(const Tensor heatmaps[3],
                                                  const Tensor regressions[3],
                                                  const Tensor trackings[3], float threshold,
                                                  int source_width, int source_height);

}  // namespace sim_ai_test
}  // namespace mirvane

#endif  // MIRVANE_TESTS_SIM_AI_REFERENCE_DECODER_H
