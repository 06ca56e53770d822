// Whether the pipeline makes progress, as the watchdog judges it before each heartbeat: the
// system daemon restarts a daemon whose heartbeats stop, so a pipeline stuck in a call that never
// returns must stop them, while the watchdog thread itself still runs.
//
// One process-wide time stamp on the real monotonic clock (not the frames' time): the pipeline
// thread marks it, the watchdog thread reads it. Lock-free; any thread may call these functions.
#ifndef MIRVANE_BIN_LIVENESS_H
#define MIRVANE_BIN_LIVENESS_H

#include <cstdint>

namespace mirvane {

// Longest time without progress for which the daemon still reports itself alive.
constexpr int64_t kStallLimitNs = 30LL * 1000000000LL;

// Now on the real monotonic clock, in nanoseconds.
int64_t MonotonicNowNs();

// Pipeline thread: a pass over a frame, or a failed read with its retry pause, has finished.
void MarkPipelineProgress();

// Nanoseconds from the last progress mark (before the first, from the process start) to now_ns.
int64_t NsSinceProgress(int64_t now_ns);

// Whether a pipeline whose last progress lies since_progress_ns back counts as alive.
inline bool PipelineAlive(int64_t since_progress_ns) {
  return since_progress_ns <= kStallLimitNs;
}

}  // namespace mirvane

#endif  // MIRVANE_BIN_LIVENESS_H
