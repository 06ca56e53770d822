// The daemon's pipeline clock on the host simulation: the steady clock, or virtual time that
// follows the frames, as the simulation's settings say ("clock": "real" or "virtual").
#include "bin/pipeline_clock.h"
#include "sim_clock.h"

namespace mirvane {

dva::SteadyTimePoint PipelineNow() {
  return sim::PipelineTime();
}

}  // namespace mirvane
