#include "host_network.h"

#include "reference_network.h"
#ifdef MIRVANE_SIM_HAVE_OPENCV
#include "motion_network.h"
#include "onnx_network.h"
#endif

namespace mirvane {
namespace sim {
namespace ai {

std::unique_ptr<HostNetwork> MakeHostNetwork(const ModelDescription& model, std::string* error) {
  if (model.name == kReferenceNetworkName) return std::make_unique<ReferenceNetwork>(model);
#ifdef MIRVANE_SIM_HAVE_OPENCV
  if (model.name == kMotionNetworkName) return std::make_unique<MotionNetwork>(model);
  if (model.name == kOnnxNetworkName) return OnnxNetwork::Create(model, error);
#endif
  *error = "this build of the runtime cannot run " + model.name + " (it has no OpenCV)";
  return nullptr;
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
