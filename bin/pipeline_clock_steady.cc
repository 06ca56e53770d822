// The pipeline's clock on the camera: the steady clock.
#include "bin/pipeline_clock.h"

namespace mirvane {

dva::SteadyTimePoint PipelineNow() {
  return std::chrono::steady_clock::now();
}

}  // namespace mirvane
