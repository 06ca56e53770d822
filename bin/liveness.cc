#include "bin/liveness.h"

#include <atomic>
#include <chrono>

namespace mirvane {
namespace {

// Starts at the process start: the platform's start-up retries count against the limit too.
std::atomic<int64_t> g_last_progress_ns{MonotonicNowNs()};

}  // namespace

int64_t MonotonicNowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void MarkPipelineProgress() {
  g_last_progress_ns.store(MonotonicNowNs());
}

int64_t NsSinceProgress(int64_t now_ns) {
  return now_ns - g_last_progress_ns.load();
}

}  // namespace mirvane
