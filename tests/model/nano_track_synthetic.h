// Hand-built NanoTrack network outputs for the decoder's tests and benchmarks: owned tensors in the
// network's layout, distance-bin logits that decode to chosen distances, and objects rendered the
// way a trained network answers them (a score blob around the centre cell, every blob cell
// regressing the same box).
//
// Plain values; not shared between threads.
#ifndef MIRVANE_TESTS_MODEL_NANO_TRACK_SYNTHETIC_H
#define MIRVANE_TESTS_MODEL_NANO_TRACK_SYNTHETIC_H

#include <array>
#include <cstdint>
#include <vector>

#include "model/nano_track_decoder.h"
#include "model/tensor_view.h"

namespace mirvane {
namespace testing_model {

// A float tensor of its own, channel-major like the network's outputs.
class OwnedTensor {
 public:
  OwnedTensor() = default;
  OwnedTensor(int height, int width, int channels, float fill);

  float& At(int channel, int row, int col);
  float At(int channel, int row, int col) const;
  int height() const { return height_; }
  int width() const { return width_; }
  int channels() const { return channels_; }
  TensorView View() const;

 private:
  int height_ = 0;
  int width_ = 0;
  int channels_ = 0;
  std::vector<float> data_;
};

// The nine tensors of one frame, each array in scale order.
struct OwnedOutputs {
  std::array<OwnedTensor, kNanoTrackScaleCount> heatmaps;
  std::array<OwnedTensor, kNanoTrackScaleCount> regressions;
  std::array<OwnedTensor, kNanoTrackScaleCount> trackings;

  NanoTrackOutputs Views() const;
};

// Square grids of the given sizes per scale: heatmaps at score 0, regressions at logit 0 (every
// side decodes to 3.5 cells), trackings at 0.
OwnedOutputs MakeBlankOutputs(int class_count, const std::array<int, kNanoTrackScaleCount>& grids);

using BinLogits = std::array<float, kRegressionBins>;

// Logits whose softmax puts all weight on one bin (the others underflow to exactly zero).
BinLogits OneHotLogits(int bin);
// Logits sharing the weight between the two bins around distance (0..7), so the expectation is
// the distance up to rounding.
BinLogits TwoBinLogits(float distance);
// A spread distribution: a discretised Gaussian of the given width centred on distance.
BinLogits GaussianLogits(float distance, float sigma);

// Distances of the four sides, in grid cells: left, top, right, bottom.
using SideDistances = std::array<float, kRegressionSides>;

// Writes one cell of one scale: the class's score, the sides' logits and the tracking offset (in
// input pixels).
void SetCell(OwnedOutputs* outputs, int scale, int class_index, int row, int col, float score,
             const std::array<BinLogits, kRegressionSides>& sides, float track_x = 0.0f,
             float track_y = 0.0f);

// One object as the network sees it, in input pixels.
struct SyntheticObject {
  int class_index;
  int scale;  // 0-based
  float x1, y1, x2, y2;
  float score;  // heatmap peak at the centre cell
  float track_x, track_y;
};

// The grid cell holding the object's centre.
struct Cell {
  int row;
  int col;
};
Cell CentreCell(const OwnedOutputs& outputs, const SyntheticObject& object);

// Side distances, in cells of the object's scale, from the centre of the given cell to the box.
SideDistances DistancesFromCell(const OwnedOutputs& outputs, const SyntheticObject& object,
                                Cell cell);

// Renders an object: the peak at the centre cell, lower scores on the 3x3 neighbourhood (a score
// already higher there is kept), every written cell regressing the object's box with spread
// distributions of width kBlobSigma and carrying its tracking offset.
constexpr float kBlobSigma = 0.6f;
void RenderObject(OwnedOutputs* outputs, const SyntheticObject& object);

// A frame of a busy scene: object_count objects over the three scales and all classes of a
// 48/24/12-cell, 4-class output, on a background of low scores and noisy regression logits.
// Deterministic for a seed.
struct SyntheticFrame {
  OwnedOutputs outputs;
  std::vector<SyntheticObject> objects;
};
SyntheticFrame MakeBusyFrame(int object_count, std::uint32_t seed);

}  // namespace testing_model
}  // namespace mirvane

#endif  // MIRVANE_TESTS_MODEL_NANO_TRACK_SYNTHETIC_H
