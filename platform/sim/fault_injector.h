// Fault injection from the simulation's settings: a platform call named in a rule fails with the
// rule's code on its Nth call for a count of calls, or at a seeded rate. Calls are counted per
// process and per function name, from 1, and counted again from 1 after a settings reload.
// Thread-safe: any thread may call FaultCode.
#ifndef MIRVANE_PLATFORM_SIM_FAULT_INJECTOR_H
#define MIRVANE_PLATFORM_SIM_FAULT_INJECTOR_H

namespace mirvane {
namespace sim {

// Counts one call of the named function; returns the injected error code, or 0.
int FaultCode(const char* call);

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_FAULT_INJECTOR_H
