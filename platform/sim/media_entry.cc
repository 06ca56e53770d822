// The media module's entry points, found by name (see media_module.h). C linkage for their names
// only: caller and module are built together, so the C++ types they pass are the same.
#include <memory>
#include <string>
#include <vector>

#include "frame_source.h"
#include "host_network.h"
#include "motion_network.h"
#include "onnx_network.h"

namespace mirvane {
namespace sim {
std::unique_ptr<FrameSource> OpenVideoFile(const std::string& path, uint32_t width, uint32_t height,
                                           std::string* error);
}  // namespace sim
}  // namespace mirvane

extern "C" {

__attribute__((visibility("default"))) mirvane::sim::FrameSource* mirvane_media_open_video(
    const std::string* path, uint32_t width, uint32_t height, std::string* error) {
  return mirvane::sim::OpenVideoFile(*path, width, height, error).release();
}

__attribute__((visibility("default"))) mirvane::sim::ai::HostNetwork* mirvane_media_make_network(
    const mirvane::sim::ai::ModelDescription* model, std::string* error) {
  using namespace mirvane::sim::ai;
  if (model->name == kMotionNetworkName) return new MotionNetwork(*model);
  if (model->name == kOnnxNetworkName) return OnnxNetwork::Create(*model, error).release();
  *error = "the media module has no network " + model->name;
  return nullptr;
}

__attribute__((visibility("default"))) bool mirvane_media_check_onnx(
    const std::vector<uint8_t>* onnx, std::string* error) {
  return mirvane::sim::ai::CheckOnnxExport(*onnx, error);
}

}  // extern "C"
