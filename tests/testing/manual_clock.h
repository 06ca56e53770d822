// A steady-clock source that tests move by hand, so that ages and expiries are tested without
// sleeping. The source handed out reads the clock object, which must outlive its users.
#ifndef MIRVANE_TESTS_TESTING_MANUAL_CLOCK_H
#define MIRVANE_TESTS_TESTING_MANUAL_CLOCK_H

#include <chrono>

#include "tracking/steady_now.h"

namespace mirvane {
namespace testing {

class ManualClock {
 public:
  dva::SteadyNow Source() {
    return [this] { return now_; };
  }
  dva::SteadyTimePoint Now() const { return now_; }
  void Advance(std::chrono::nanoseconds step) { now_ += step; }

 private:
  // Far from the clock's epoch, like a real steady clock after boot.
  dva::SteadyTimePoint now_ = dva::SteadyTimePoint(std::chrono::hours(1000));
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_MANUAL_CLOCK_H
