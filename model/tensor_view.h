// A read-only view of one network output tensor as the model hands it to the decoder: 32-bit
// floats with height H (grid rows), width W (grid columns) and channel count C, channel-major:
// element (channel k, row y, column x) is at k*H*W + y*W + x.
//
// Owns nothing: the float array belongs to whoever produced the tensor and must outlive the
// view. A view has no state of its own; any thread that may read the array may use it.
#ifndef MIRVANE_MODEL_TENSOR_VIEW_H
#define MIRVANE_MODEL_TENSOR_VIEW_H

#include <cstddef>

namespace mirvane {

struct TensorView {
  const float* data = nullptr;
  int height = 0;
  int width = 0;
  int channels = 0;

  // Elements of one channel: height * width.
  std::size_t PlaneSize() const {
    return static_cast<std::size_t>(height) * static_cast<std::size_t>(width);
  }
  // First element of channel k; the channel's cells follow in raster order (row * width + col).
  const float* Channel(int k) const { return data + static_cast<std::size_t>(k) * PlaneSize(); }
};

}  // namespace mirvane

#endif  // MIRVANE_MODEL_TENSOR_VIEW_H
