#include "fault_injector.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mirvane_sim.h"
#include "sim_settings.h"

namespace mirvane {
namespace sim {
namespace {

// splitmix64: a small generator with the same sequence on every platform.
uint64_t NextRandom(uint64_t* state) {
  uint64_t z = (*state += 0x9e3779b97f4a7c15ULL);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

double NextUnit(uint64_t* state) {
  return static_cast<double>(NextRandom(state) >> 11) * 0x1.0p-53;
}

struct State {
  std::shared_ptr<const Settings> settings;  // the settings the counters belong to
  std::map<std::string, int64_t> calls;
  std::vector<uint64_t> random;  // one generator per rule
};

std::mutex g_mutex;
State g_state;

}  // namespace

int FaultCode(const char* call) {
  std::shared_ptr<const Settings> settings = CurrentSettings();
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_state.settings != settings) {
    g_state = State();
    g_state.settings = settings;
    for (const FaultRule& rule : settings->faults) g_state.random.push_back(rule.seed);
  }
  if (settings->faults.empty()) return 0;
  const int64_t n = ++g_state.calls[call];
  int code = 0;
  for (size_t i = 0; i < settings->faults.size(); ++i) {
    const FaultRule& rule = settings->faults[i];
    if (rule.call != call) continue;
    bool fails = rule.nth > 0 && n >= rule.nth && (rule.count < 0 || n < rule.nth + rule.count);
    // The generator advances on every call of the function, failing or not, so that the pattern
    // depends only on the seed and the call's number.
    if (rule.rate > 0.0 && NextUnit(&g_state.random[i]) < rule.rate) fails = true;
    if (fails && code == 0) code = rule.code;
  }
  return code;
}

}  // namespace sim
}  // namespace mirvane

// Here rather than with the other control calls: the network runtime reaches it through a weak
// reference, which does not pull a member out of the static library, and every platform call
// already pulls this one.
int mirvane_sim_fault(const char* call) {
  return call == nullptr ? 0 : mirvane::sim::FaultCode(call);
}
