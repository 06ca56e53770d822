// The monotonic time source of the tracking code. Ages and expiries are measured on the steady
// clock; components take the source as a function so that tests can drive time by hand.
#ifndef MIRVANE_TRACKING_STEADY_NOW_H
#define MIRVANE_TRACKING_STEADY_NOW_H

#include <chrono>
#include <functional>

namespace mirvane {
namespace dva {

using SteadyTimePoint = std::chrono::steady_clock::time_point;

// Returns the current steady-clock time point.
using SteadyNow = std::function<SteadyTimePoint()>;

// The real clock: std::chrono::steady_clock::now.
inline SteadyNow RealSteadyNow() {
  return [] { return std::chrono::steady_clock::now(); };
}

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_TRACKING_STEADY_NOW_H
