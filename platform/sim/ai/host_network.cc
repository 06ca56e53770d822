#include "host_network.h"

#include "media_module.h"
#include "reference_network.h"

namespace mirvane {
namespace sim {
namespace ai {

std::unique_ptr<HostNetwork> MakeHostNetwork(const ModelDescription& model, std::string* error) {
  if (model.name == kReferenceNetworkName) return std::make_unique<ReferenceNetwork>(model);
  // The networks for real footage run with OpenCV, in the media module.
  using Make = HostNetwork* (*)(const ModelDescription*, std::string*);
  std::string why;
  auto make = reinterpret_cast<Make>(MediaFunction("mirvane_media_make_network", &why));
  if (make == nullptr) {
    *error = "cannot run " + model.name + ": " + why;
    return nullptr;
  }
  return std::unique_ptr<HostNetwork>(make(&model, error));
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
