// Users' own networks through their ONNX export: a generated export whose outputs are known
// exactly (cell maxima of the input planes, scaled by powers of two; see make_test_onnx.py) runs in
// the runtime, and every output the daemon reads back equals, bit for bit, the expected tensor
// quantised to the model's format. That proves the input planes and their order, the output
// layouts and the quantisation. Exports that do not fit are refused when the network opens.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fixed_point.h"
#include "model_file.h"
#include "runtime_harness.h"
#include "scene_drawing.h"

namespace mirvane {
namespace sim_ai_test {
namespace {

using sim::ai::ModelDescription;
using sim::ai::OutputKind;
using sim::ai::OutputPath;

std::vector<uint8_t> ReadExport(const std::string& variant) {
  const std::string path = std::string(MIRVANE_TEST_ONNX_DIR) + "/" + variant + ".onnx";
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << path;
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

ModelDescription OnnxModel(const std::string& variant) {
  ModelDescription model = IdealModel();
  model.name = sim::ai::kOnnxNetworkName;
  model.onnx = ReadExport(variant);
  return model;
}

// The largest sample of plane (0 Y, 1 U, 2 V) in the k x k cell at (row, col), over 255.
float CellMax(uint8_t* picture, int plane, int k, int row, int col) {
  const uint8_t* y = picture;
  const uint8_t* uv = picture + kPictureSize * kPictureSize;
  int best = 0;
  for (int r = row * k; r < (row + 1) * k; ++r) {
    for (int c = col * k; c < (col + 1) * k; ++c) {
      const int v = plane == 0 ? y[r * kPictureSize + c]
                               : uv[(r / 2) * kPictureSize + c / 2 * 2 + (plane - 1)];
      best = std::max(best, v);
    }
  }
  return static_cast<float>(best) / 255.0f;
}

// The generated export's output, computed here.
std::vector<float> Expected(const OutputPath& out, uint8_t* current, uint8_t* previous) {
  const int grid = static_cast<int>(out.width), k = 384 / grid;
  std::vector<float> tensor;
  for (uint32_t ch = 0; ch < out.channels; ++ch) {
    for (int row = 0; row < grid; ++row) {
      for (int col = 0; col < grid; ++col) {
        float heat[4] = {CellMax(current, 0, k, row, col), CellMax(current, 1, k, row, col),
                         CellMax(current, 2, k, row, col), CellMax(previous, 0, k, row, col)};
        switch (out.kind) {
          case OutputKind::kHeatmap:
            tensor.push_back(heat[ch]);
            break;
          case OutputKind::kRegression:
            tensor.push_back(heat[ch % 4] * 16.0f - 8.0f);
            break;
          case OutputKind::kTracking:
            tensor.push_back(heat[ch == 0 ? 0 : 3] * 64.0f - 32.0f);
            break;
        }
      }
    }
  }
  return tensor;
}

TEST(OnnxNetwork, EveryOutputIsTheExportsTensorQuantisedBitForBit) {
  const ModelDescription model = OnnxModel("good");
  RunningNetwork network(model);
  ASSERT_TRUE(network.ok());
  TestPicture current(1), previous(2);
  current.Draw(Box{1, 40, 60, 90, 200});
  current.Draw(Box{2, 200, 220, 340, 300});
  previous.Draw(Box{3, 100, 100, 160, 130});
  ASSERT_EQ(network.Run(current.data(), previous.data()), HD_OK);
  for (const OutputPath& out : model.outputs) {
    SCOPED_TRACE(out.path_id);
    sim::ai::FixedFormat format;
    ASSERT_TRUE(sim::ai::DecodeFixedFormat(out.format, &format));
    const std::vector<float> expected = Expected(out, current.data(), previous.data());
    std::vector<uint8_t> stored(expected.size() * format.bytes());
    sim::ai::QuantizeFixed(expected.data(), expected.size(), format, out.scale_ratio,
                           stored.data());
    std::vector<float> want(expected.size());
    sim::ai::FixedToFloat(stored.data(), stored.size() / format.bytes(), format, out.scale_ratio,
                          want.data());
    const Tensor got = network.Get(out.path_id);
    ASSERT_EQ(got.data.size(), want.size());
    EXPECT_EQ(got.channels, static_cast<int>(out.channels));
    size_t differing = 0;
    for (size_t i = 0; i < want.size(); ++i) differing += got.data[i] != want[i];
    EXPECT_EQ(differing, 0u);
  }
}

TEST(OnnxNetwork, AnExportThatDoesNotFitIsRefusedWhenTheNetworkOpens) {
  for (const char* variant : {"renamed-input", "wrong-shape", "missing-output"}) {
    SCOPED_TRACE(variant);
    RunningNetwork network(OnnxModel(variant));
    EXPECT_FALSE(network.ok());
  }
}

}  // namespace
}  // namespace sim_ai_test
}  // namespace mirvane
