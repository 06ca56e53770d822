// Restarting the simulated hardware after a settings reload (mirvane_sim_reload_settings).
#ifndef MIRVANE_PLATFORM_SIM_SIM_CONTROL_H
#define MIRVANE_PLATFORM_SIM_SIM_CONTROL_H

namespace mirvane {
namespace sim {

// Each returns the module to its state before first use, so that it starts again from the
// settings then in force; false (and nothing changes) while the user still holds its buffers.
bool StopVideoOutput();
bool StopEncoder();

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_SIM_CONTROL_H
