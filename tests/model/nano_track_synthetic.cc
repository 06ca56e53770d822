#include "model/nano_track_synthetic.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>

namespace mirvane {
namespace testing_model {
namespace {

// Far enough below the peak that exp() of the difference is exactly zero in single precision.
constexpr float kSilentLogit = -1000.0f;
// Width of the score blob around an object's centre cell, in cells.
constexpr float kScoreSigma = 0.8f;

std::size_t Index(int channel, int row, int col, int height, int width) {
  return (static_cast<std::size_t>(channel) * static_cast<std::size_t>(height) +
          static_cast<std::size_t>(row)) *
             static_cast<std::size_t>(width) +
         static_cast<std::size_t>(col);
}

}  // namespace

OwnedTensor::OwnedTensor(int height, int width, int channels, float fill)
    : height_(height),
      width_(width),
      channels_(channels),
      data_(static_cast<std::size_t>(height) * static_cast<std::size_t>(width) *
                static_cast<std::size_t>(channels),
            fill) {}

float& OwnedTensor::At(int channel, int row, int col) {
  return data_.at(Index(channel, row, col, height_, width_));
}

float OwnedTensor::At(int channel, int row, int col) const {
  return data_.at(Index(channel, row, col, height_, width_));
}

TensorView OwnedTensor::View() const {
  TensorView view;
  view.data = data_.data();
  view.height = height_;
  view.width = width_;
  view.channels = channels_;
  return view;
}

NanoTrackOutputs OwnedOutputs::Views() const {
  NanoTrackOutputs views;
  for (std::size_t s = 0; s < heatmaps.size(); ++s) {
    views.heatmaps[s] = heatmaps[s].View();
    views.regressions[s] = regressions[s].View();
    views.trackings[s] = trackings[s].View();
  }
  return views;
}

OwnedOutputs MakeBlankOutputs(int class_count, const std::array<int, kNanoTrackScaleCount>& grids) {
  OwnedOutputs outputs;
  for (std::size_t s = 0; s < grids.size(); ++s) {
    outputs.heatmaps[s] = OwnedTensor(grids[s], grids[s], class_count, 0.0f);
    outputs.regressions[s] = OwnedTensor(grids[s], grids[s], kRegressionChannels, 0.0f);
    outputs.trackings[s] = OwnedTensor(grids[s], grids[s], kTrackingChannels, 0.0f);
  }
  return outputs;
}

BinLogits OneHotLogits(int bin) {
  BinLogits logits;
  logits.fill(kSilentLogit);
  logits[static_cast<std::size_t>(bin)] = 0.0f;
  return logits;
}

BinLogits TwoBinLogits(float distance) {
  const int low = static_cast<int>(std::floor(distance));
  const float high_weight = distance - static_cast<float>(low);
  if (low >= kRegressionBins - 1 || high_weight == 0.0f) {
    return OneHotLogits(std::min(low, kRegressionBins - 1));
  }
  BinLogits logits;
  logits.fill(kSilentLogit);
  logits[static_cast<std::size_t>(low)] = std::log(1.0f - high_weight);
  logits[static_cast<std::size_t>(low + 1)] = std::log(high_weight);
  return logits;
}

BinLogits GaussianLogits(float distance, float sigma) {
  BinLogits logits;
  for (int j = 0; j < kRegressionBins; ++j) {
    const float offset = static_cast<float>(j) - distance;
    logits[static_cast<std::size_t>(j)] = -offset * offset / (2.0f * sigma * sigma);
  }
  return logits;
}

void SetCell(OwnedOutputs* outputs, int scale, int class_index, int row, int col, float score,
             const std::array<BinLogits, kRegressionSides>& sides, float track_x, float track_y) {
  const std::size_t s = static_cast<std::size_t>(scale);
  outputs->heatmaps[s].At(class_index, row, col) = score;
  for (int k = 0; k < kRegressionSides; ++k) {
    for (int j = 0; j < kRegressionBins; ++j) {
      outputs->regressions[s].At(k * kRegressionBins + j, row, col) =
          sides[static_cast<std::size_t>(k)][static_cast<std::size_t>(j)];
    }
  }
  outputs->trackings[s].At(0, row, col) = track_x;
  outputs->trackings[s].At(1, row, col) = track_y;
}

namespace {

float Stride(const OwnedOutputs& outputs, const SyntheticObject& object) {
  return static_cast<float>(kNanoTrackInputWidth) /
         static_cast<float>(outputs.heatmaps[static_cast<std::size_t>(object.scale)].width());
}

}  // namespace

Cell CentreCell(const OwnedOutputs& outputs, const SyntheticObject& object) {
  const float stride = Stride(outputs, object);
  return Cell{static_cast<int>(std::floor((object.y1 + object.y2) / 2.0f / stride)),
              static_cast<int>(std::floor((object.x1 + object.x2) / 2.0f / stride))};
}

SideDistances DistancesFromCell(const OwnedOutputs& outputs, const SyntheticObject& object,
                                Cell cell) {
  const float stride = Stride(outputs, object);
  const float cx = static_cast<float>(cell.col) + 0.5f;
  const float cy = static_cast<float>(cell.row) + 0.5f;
  auto clip = [](float d) { return std::min(std::max(d, 0.0f), 7.0f); };
  return SideDistances{clip(cx - object.x1 / stride), clip(cy - object.y1 / stride),
                       clip(object.x2 / stride - cx), clip(object.y2 / stride - cy)};
}

void RenderObject(OwnedOutputs* outputs, const SyntheticObject& object) {
  const Cell centre = CentreCell(*outputs, object);
  const OwnedTensor& heatmap = outputs->heatmaps[static_cast<std::size_t>(object.scale)];
  for (int dy = -1; dy <= 1; ++dy) {
    for (int dx = -1; dx <= 1; ++dx) {
      const Cell cell{centre.row + dy, centre.col + dx};
      if (cell.row < 0 || cell.col < 0 || cell.row >= heatmap.height() ||
          cell.col >= heatmap.width()) {
        continue;
      }
      const float score = object.score * std::exp(-static_cast<float>(dx * dx + dy * dy) /
                                                  (2.0f * kScoreSigma * kScoreSigma));
      if (heatmap.At(object.class_index, cell.row, cell.col) >= score) {
        continue;
      }
      const SideDistances distances = DistancesFromCell(*outputs, object, cell);
      std::array<BinLogits, kRegressionSides> sides;
      for (std::size_t k = 0; k < sides.size(); ++k) {
        sides[k] = GaussianLogits(distances[k], kBlobSigma);
      }
      SetCell(outputs, object.scale, object.class_index, cell.row, cell.col, score, sides,
              object.track_x, object.track_y);
    }
  }
}

SyntheticFrame MakeBusyFrame(int object_count, std::uint32_t seed) {
  constexpr int kClasses = 4;
  // The picture of a 1920x1080 source fills the top 216 rows of the input.
  constexpr float kPictureWidth = 384.0f;
  constexpr float kPictureHeight = 216.0f;
  // Object sizes (input pixels) each scale answers for.
  constexpr std::array<std::array<float, 2>, kNanoTrackScaleCount> kSizes = {
      {{{16.0f, 56.0f}}, {{48.0f, 112.0f}}, {{96.0f, 200.0f}}}};

  SyntheticFrame frame;
  frame.outputs = MakeBlankOutputs(kClasses, {48, 24, 12});
  std::mt19937 random(seed);
  auto uniform = [&random](float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
  };
  // Background: scores well below any threshold in use, regression logits without a clear peak,
  // small tracking offsets.
  for (std::size_t s = 0; s < frame.outputs.heatmaps.size(); ++s) {
    OwnedTensor& heatmap = frame.outputs.heatmaps[s];
    for (int row = 0; row < heatmap.height(); ++row) {
      for (int col = 0; col < heatmap.width(); ++col) {
        for (int c = 0; c < kClasses; ++c) {
          heatmap.At(c, row, col) = uniform(0.0f, 0.05f);
        }
        for (int k = 0; k < kRegressionChannels; ++k) {
          frame.outputs.regressions[s].At(k, row, col) = uniform(-2.0f, 2.0f);
        }
        for (int k = 0; k < kTrackingChannels; ++k) {
          frame.outputs.trackings[s].At(k, row, col) = uniform(-1.0f, 1.0f);
        }
      }
    }
  }
  for (int n = 0; n < object_count; ++n) {
    SyntheticObject object;
    object.class_index = n % kClasses;
    object.scale = n % kNanoTrackScaleCount;
    const std::array<float, 2>& size = kSizes[static_cast<std::size_t>(object.scale)];
    const float width = uniform(size[0], size[1]);
    const float height = std::min(uniform(size[0], size[1]), kPictureHeight);
    object.x1 = uniform(0.0f, kPictureWidth - width);
    object.y1 = uniform(0.0f, kPictureHeight - height);
    object.x2 = object.x1 + width;
    object.y2 = object.y1 + height;
    object.score = uniform(0.5f, 0.95f);
    object.track_x = uniform(-12.0f, 12.0f);
    object.track_y = uniform(-12.0f, 12.0f);
    RenderObject(&frame.outputs, object);
    frame.objects.push_back(object);
  }
  return frame;
}

}  // namespace testing_model
}  // namespace mirvane
