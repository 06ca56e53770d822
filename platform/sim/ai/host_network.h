// A network the host runtime runs in place of the accelerator: from the current and the previous
// input picture it writes the model's output tensors as floats holding values of each output's
// fixed-point format. The runtime quantises them into the work buffer. One thread at a time.
#ifndef MIRVANE_PLATFORM_SIM_AI_HOST_NETWORK_H
#define MIRVANE_PLATFORM_SIM_AI_HOST_NETWORK_H

#include <memory>
#include <string>
#include <vector>

#include "model_file.h"
#include "object_finder.h"

namespace mirvane {
namespace sim {
namespace ai {

class HostNetwork {
 public:
  virtual ~HostNetwork() = default;
  // One run; the outputs hold its tensors until the next run.
  virtual void Run(const Nv12Picture& current, const Nv12Picture& previous) = 0;
  // Tensor of model output i (in the model's order).
  virtual const std::vector<float>& output(size_t i) const = 0;
};

// The network the model names (model must have passed ParseModel); nullptr with a reason when this
// build cannot run it.
std::unique_ptr<HostNetwork> MakeHostNetwork(const ModelDescription& model, std::string* error);

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_HOST_NETWORK_H
