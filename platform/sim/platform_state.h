// Which platform modules this process has brought up (hd_common_init, hd_common_mem_init,
// hd_gfx_init), as the other simulated modules check them. Process-wide flags; thread-safe.
#ifndef MIRVANE_PLATFORM_SIM_PLATFORM_STATE_H
#define MIRVANE_PLATFORM_SIM_PLATFORM_STATE_H

namespace mirvane {
namespace sim {

bool CommonReady();
bool MemReady();
bool GfxReady();

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_PLATFORM_STATE_H
