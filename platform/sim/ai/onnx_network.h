// A user's own detection network, from its float ONNX export, run with OpenCV's DNN module.
//
// The export takes two inputs and gives nine outputs, by name:
//   "current", "previous"  float 1x3x384x384 (NCHW): the input pictures' Y, U and V planes, each
//                          sample divided by 255 (0..1); chroma is repeated over its 2x2 pixels
//   "heatmap0".."heatmap2"        float 1x4xGxG: class scores 0..1 (sigmoid applied)
//   "regression0".."regression2"  float 1x32xGxG: the 8-bin logits of the sides, side-major
//   "tracking0".."tracking2"      float 1x2xGxG: displacement back to the previous picture, in
//                                 input pixels
// with G 48, 24, 12 for scales 0, 1, 2 (strides 8, 16, 32). Each output tensor is quantised to the
// model file's fixed-point format of that output (nearest value, saturating), as the accelerator
// stores its results.
//
// Owns the loaded network and its input blobs; one thread at a time. Built only with OpenCV.
#ifndef MIRVANE_PLATFORM_SIM_AI_ONNX_NETWORK_H
#define MIRVANE_PLATFORM_SIM_AI_ONNX_NETWORK_H

#include <memory>
#include <string>
#include <vector>

#include "host_network.h"

namespace mirvane {
namespace sim {
namespace ai {

class OnnxNetwork : public HostNetwork {
 public:
  // Null with a reason when the export does not load or does not fit the tensors above.
  static std::unique_ptr<OnnxNetwork> Create(const ModelDescription& model, std::string* error);
  ~OnnxNetwork() override;
  OnnxNetwork(const OnnxNetwork&) = delete;
  OnnxNetwork& operator=(const OnnxNetwork&) = delete;

  void Run(const Nv12Picture& current, const Nv12Picture& previous) override;
  const std::vector<float>& output(size_t i) const override { return outputs_[i]; }

 private:
  struct Engine;
  OnnxNetwork(const ModelDescription& model, std::unique_ptr<Engine> engine);

  ModelDescription model_;
  std::unique_ptr<Engine> engine_;
  std::vector<std::vector<float>> outputs_;
};

// The name of an output of the export ("heatmap0" .. "tracking2").
std::string OnnxOutputName(const OutputPath& output);

// Loads an export and runs it once on blank pictures to check its inputs and outputs against the
// tensors above; false with a message naming what does not fit.
bool CheckOnnxExport(const std::vector<uint8_t>& onnx, std::string* error);

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_ONNX_NETWORK_H
