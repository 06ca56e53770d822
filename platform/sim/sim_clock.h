// Virtual time of the host simulation. With "clock": "virtual" in the settings the daemon's
// pipeline clock (pipeline_clock_sim.cc) reads this instead of the steady clock, so that ages,
// dwell times and expiries follow the frames, not the machine's speed.
#ifndef MIRVANE_PLATFORM_SIM_SIM_CLOCK_H
#define MIRVANE_PLATFORM_SIM_SIM_CLOCK_H

#include <chrono>
#include <cstdint>

namespace mirvane {
namespace sim {

// The timestamp (microseconds) of the latest frame the video output handed out; 0 before the
// first. Any thread.
int64_t LatestFrameMicros();

// Now on the simulation's clock: with the real clock, the steady clock; on virtual time, the
// steady clock's epoch plus the latest frame's timestamp. Any thread.
std::chrono::steady_clock::time_point PipelineTime();

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_SIM_CLOCK_H
