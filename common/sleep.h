// A pause that signals do not shorten: the daemon's stop signals are handled by flags, and the
// pauses that matter (retries, settling) must last their whole time.
#ifndef MIRVANE_COMMON_SLEEP_H
#define MIRVANE_COMMON_SLEEP_H

namespace mirvane {

// Sleeps the whole duration, resuming with the remaining time after each interruption.
void SleepFully(long long nanoseconds);

}  // namespace mirvane

#endif  // MIRVANE_COMMON_SLEEP_H
