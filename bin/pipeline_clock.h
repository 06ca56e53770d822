// Where the pipeline thread's time comes from. Every age, dwell time and expiry of the analysis
// chain (track expiry, both rules, the snapshot-id cache) is measured on this clock, which
// RunModelPipeline hands to each of them.
//
// The build links exactly one definition: on the camera the steady clock
// (bin/pipeline_clock_steady.cc); on a PC the host simulation's clock
// (platform/sim/pipeline_clock_sim.cc), which is the steady clock too unless the simulation's
// settings put the run on virtual time, where now follows the timestamps of the frames read.
#ifndef MIRVANE_BIN_PIPELINE_CLOCK_H
#define MIRVANE_BIN_PIPELINE_CLOCK_H

#include "tracking/steady_now.h"

namespace mirvane {

// Now on the pipeline's clock. Called from the pipeline thread.
dva::SteadyTimePoint PipelineNow();

}  // namespace mirvane

#endif  // MIRVANE_BIN_PIPELINE_CLOCK_H
