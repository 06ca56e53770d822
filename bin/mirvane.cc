// Entry point of the mirvane daemon. It takes no command line and reads no environment; it is
// started and restarted by the system daemon through its init script.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "bin/common_daemon_component.h"
#include "bin/daemon_threads.h"
#include "bin/instance_lock.h"
#include "bin/liveness.h"
#include "bin/process_flags.h"
#include "common/log.h"
#include "nvt/hd_wrapper.h"

char app_name[] = "mirvane";

namespace {

constexpr const char* kRestartCommand = "/etc/rc.d/init.d/mirvane restart &";
// How long a stopping process waits for the pipeline thread: a thread stuck in a platform call
// must not keep a stopped daemon (and its lock) alive. With the final heartbeat's bounded send
// after it, the process is gone within 15 s of the stop signal.
constexpr int kStopGraceSeconds = 10;
constexpr std::chrono::milliseconds kStopPollPeriod{100};

// Waits for the pipeline thread's end. False when g_running has been clear for kStopGraceSeconds
// and the thread still has not ended. (Signal handlers cannot wake a waiter, so the flag is
// polled.)
bool AwaitPipeline(const std::future<void>& ended) {
  int64_t stop_seen_ns = 0;
  while (ended.wait_for(kStopPollPeriod) != std::future_status::ready) {
    if (mirvane::g_running.load() != 0) continue;
    const int64_t now = mirvane::MonotonicNowNs();
    if (stop_seen_ns == 0) stop_seen_ns = now;
    if (now - stop_seen_ns >= kStopGraceSeconds * 1000000000LL) return false;
  }
  return true;
}

}  // namespace

int main() {
  // Standard output is read by whatever runs the daemon: hand it over line by line.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const mirvane::InstanceLock lock(mirvane::kInstanceLockPath);
  if (lock.state() == mirvane::InstanceLock::State::kHeldByAnother) {
    MIRVANE_LOG(mirvane::kLogErr, "Another mirvane is running (%s is locked), exiting\n",
                mirvane::kInstanceLockPath);
    return 1;
  }
  if (lock.state() == mirvane::InstanceLock::State::kFailed) {
    MIRVANE_LOG(mirvane::kLogErr, "Cannot lock %s (%s), exiting\n", mirvane::kInstanceLockPath,
                std::strerror(lock.error()));
    return 1;
  }
  try {
    std::optional<mirvane::CommonDaemonComponent> component;
    component.emplace(std::string(app_name), std::string(kRestartCommand));
    std::thread config_thread(mirvane::RunConfigObserver);
    std::promise<void> pipeline_ended;
    std::future<void> ended = pipeline_ended.get_future();
    // An exception out of the pipeline still ends the process through the runtime's termination.
    std::thread pipeline_thread([&pipeline_ended] {
      mirvane::RunModelPipeline();
      pipeline_ended.set_value();
    });
    if (!AwaitPipeline(ended)) {
      MIRVANE_LOG(mirvane::kLogErr, "Pipeline did not stop within %d s, exiting without it\n",
                  kStopGraceSeconds);
      pipeline_thread.detach();
      config_thread.join();
      component.reset();  // the final heartbeat
      mirvane::ReleaseOwnedBlockAtExit();
      std::fflush(stdout);
      // No destructors or exit handlers: the pipeline thread may still be inside them.
      _exit(0);
    }
    pipeline_thread.join();
    config_thread.join();
  } catch (const std::exception& e) {
    MIRVANE_LOG(mirvane::kLogErr, "%s\n", e.what());
    throw;
  }
  return 0;
}
