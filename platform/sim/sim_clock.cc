#include "sim_clock.h"

#include "sim_settings.h"

namespace mirvane {
namespace sim {

std::chrono::steady_clock::time_point PipelineTime() {
  if (CurrentSettings()->clock == Clock::kReal) return std::chrono::steady_clock::now();
  return std::chrono::steady_clock::time_point(std::chrono::microseconds(LatestFrameMicros()));
}

}  // namespace sim
}  // namespace mirvane
