#include "onnx_network.h"

#include <cstdio>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

namespace mirvane {
namespace sim {
namespace ai {

namespace {

constexpr int kInputSize = 384;
const char* const kInputNames[2] = {"current", "previous"};

std::string ShapeText(const cv::Mat& m) {
  std::string text;
  for (int d = 0; d < m.dims; ++d) text += (d ? "x" : "") + std::to_string(m.size[d]);
  return text.empty() ? "empty" : text;
}

// The picture as the export's input: Y, U, V planes over 255.
void FillBlob(const Nv12Picture& p, cv::Mat* blob) {
  const int sizes[4] = {1, 3, kInputSize, kInputSize};
  blob->create(4, sizes, CV_32F);
  float* y_plane = blob->ptr<float>();
  float* u_plane = y_plane + kInputSize * kInputSize;
  float* v_plane = u_plane + kInputSize * kInputSize;
  for (int row = 0; row < kInputSize; ++row) {
    const uint8_t* y = p.y + static_cast<size_t>(row) * p.stride;
    const uint8_t* uv = p.uv + static_cast<size_t>(row / 2) * p.stride;
    for (int col = 0; col < kInputSize; ++col) {
      const size_t at = static_cast<size_t>(row) * kInputSize + col;
      y_plane[at] = static_cast<float>(y[col]) / 255.0f;
      u_plane[at] = static_cast<float>(uv[col / 2 * 2]) / 255.0f;
      v_plane[at] = static_cast<float>(uv[col / 2 * 2 + 1]) / 255.0f;
    }
  }
}

}  // namespace

struct OnnxNetwork::Engine {
  cv::dnn::Net net;
  std::vector<cv::String> output_names;
  std::vector<cv::Mat> outputs;
  cv::Mat inputs[2];

  // Loads the export and runs it once on blank inputs, checking every tensor against outputs.
  bool Load(const std::vector<uint8_t>& onnx, const std::vector<OutputPath>& paths,
            std::string* error) {
    try {
      net = cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(onnx.data()), onnx.size());
    } catch (const cv::Exception& e) {
      *error = "the ONNX export does not load: " + e.msg;
      return false;
    }
    if (net.empty()) {
      *error = "the ONNX export holds no network";
      return false;
    }
    net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
    net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
    for (const OutputPath& path : paths) {
      const std::string name = OnnxOutputName(path);
      if (net.getLayerId(name) < 0) {
        *error = "the export has no output \"" + name + "\"";
        return false;
      }
      output_names.push_back(name);
    }
    std::vector<uint8_t> blank(kInputSize * kInputSize * 3 / 2, 128);
    Nv12Picture picture{blank.data(), blank.data() + kInputSize * kInputSize, kInputSize,
                        kInputSize, kInputSize};
    if (!Forward(picture, picture, error)) return false;
    for (size_t i = 0; i < paths.size(); ++i) {
      const cv::Mat& out = outputs[i];
      const OutputPath& p = paths[i];
      const int want[4] = {1, static_cast<int>(p.channels), static_cast<int>(p.height),
                           static_cast<int>(p.width)};
      bool fits = out.dims == 4 && out.type() == CV_32F;
      for (int d = 0; fits && d < 4; ++d) fits = out.size[d] == want[d];
      if (!fits) {
        *error = "output \"" + output_names[i] + "\" is " + ShapeText(out) +
                 (out.type() == CV_32F ? "" : " (not float)") + ", the runtime needs 1x" +
                 std::to_string(want[1]) + "x" + std::to_string(want[2]) + "x" +
                 std::to_string(want[3]) + " float";
        return false;
      }
    }
    return true;
  }

  bool Forward(const Nv12Picture& current, const Nv12Picture& previous, std::string* error) {
    FillBlob(current, &inputs[0]);
    FillBlob(previous, &inputs[1]);
    for (int i = 0; i < 2; ++i) {
      try {
        net.setInput(inputs[i], kInputNames[i]);
      } catch (const cv::Exception&) {
        *error = std::string("the export has no input \"") + kInputNames[i] +
                 "\" (it needs \"current\" and \"previous\", float 1x3x384x384)";
        return false;
      }
    }
    try {
      net.forward(outputs, output_names);
    } catch (const cv::Exception& e) {
      *error = "the export does not run on two float 1x3x384x384 inputs: " + e.msg;
      return false;
    }
    return true;
  }
};

std::string OnnxOutputName(const OutputPath& output) {
  const char* kind = output.kind == OutputKind::kHeatmap      ? "heatmap"
                     : output.kind == OutputKind::kRegression ? "regression"
                                                              : "tracking";
  return kind + std::to_string(output.scale);
}

std::unique_ptr<OnnxNetwork> OnnxNetwork::Create(const ModelDescription& model,
                                                 std::string* error) {
  auto engine = std::make_unique<Engine>();
  if (!engine->Load(model.onnx, model.outputs, error)) return nullptr;
  return std::unique_ptr<OnnxNetwork>(new OnnxNetwork(model, std::move(engine)));
}

OnnxNetwork::OnnxNetwork(const ModelDescription& model, std::unique_ptr<Engine> engine)
    : model_(model), engine_(std::move(engine)), outputs_(model.outputs.size()) {}

OnnxNetwork::~OnnxNetwork() = default;

void OnnxNetwork::Run(const Nv12Picture& current, const Nv12Picture& previous) {
  std::string error;
  if (!engine_->Forward(current, previous, &error)) {  // checked at load; reported, outputs zero
    std::fprintf(stderr, "vendor_ai: %s\n", error.c_str());
    for (size_t i = 0; i < outputs_.size(); ++i) {
      const OutputPath& p = model_.outputs[i];
      outputs_[i].assign(static_cast<size_t>(p.channels) * p.height * p.width, 0.0f);
    }
    return;
  }
  for (size_t i = 0; i < outputs_.size(); ++i) {
    const cv::Mat& out = engine_->outputs[i];
    const float* data = out.ptr<float>();
    outputs_[i].assign(data, data + out.total());
  }
}

bool CheckOnnxExport(const std::vector<uint8_t>& onnx, std::string* error) {
  ModelDescription model = DefaultModel();
  model.name = kOnnxNetworkName;
  model.onnx = onnx;
  return OnnxNetwork::Create(model, error) != nullptr;
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
