#include "bin/common_daemon_component.h"

#include <signal.h>

#include <cerrno>
#include <chrono>
#include <mutex>

#include "bin/liveness.h"
#include "bin/process_flags.h"
#include "common/log.h"
#include "sysapi.h"

namespace mirvane {
namespace {

const std::vector<int> kStopSignals = {SIGINT, SIGILL, SIGABRT, SIGFPE, SIGSEGV, SIGTERM};
const std::vector<int> kReleaseSignals = {SIGUSR2};

void UpdateWatchdog(const std::string& name, const std::string& restart_command) {
  // Failures are not acted on: the next update reconnects by itself.
  (void)sysapi_wdg_update(kSystemSocketPath, name.c_str(), restart_command.c_str(),
                          g_disable_watchdog.load() != 1);
}

}  // namespace

// Handlers only store to lock-free atomics: no logging, no exit, even for the fault signals.
void OnStopSignal(int) {
  g_running.store(0);
  g_disable_watchdog.store(0);
}

void OnReleaseSignal(int) {
  g_running.store(0);
  g_disable_watchdog.store(1);
}

void RunWatchdog(const std::string& name, const std::string& restart_command,
                 std::condition_variable& wake_up) {
  std::mutex mutex;
  std::unique_lock<std::mutex> lock(mutex);
  bool withheld = false;
  for (;;) {
    if (g_running.load() == 0) {
      UpdateWatchdog(name, restart_command);
      return;
    }
    // A stuck pipeline gets no "alive": the system daemon's heartbeat time-out restarts it.
    const int64_t stalled_ns = NsSinceProgress(MonotonicNowNs());
    if (PipelineAlive(stalled_ns)) {
      if (withheld) MIRVANE_LOG(kLogInfo, "Pipeline progresses again, heartbeats resume\n");
      withheld = false;
      UpdateWatchdog(name, restart_command);
    } else if (!withheld) {
      withheld = true;
      MIRVANE_LOG(kLogErr, "Pipeline made no progress for %lld s, heartbeats withheld\n",
                  static_cast<long long>(stalled_ns / 1000000000LL));
    }
    const auto deadline =
        std::chrono::system_clock::now() + std::chrono::nanoseconds(kWatchdogPeriodNs);
    while (g_running.load() != 0) {
      wake_up.wait_until(lock, deadline);
      if (std::chrono::system_clock::now() >= deadline) break;
    }
  }
}

CommonDaemonComponent::CommonDaemonComponent(const std::string& name,
                                             const std::string& restart_command)
    : name_(name),
      restart_command_(restart_command),
      watchdog_(RunWatchdog, name, restart_command, std::ref(wake_up_)) {
  SetupSignalHandler(kStopSignals, OnStopSignal);
  SetupSignalHandler(kReleaseSignals, OnReleaseSignal);
}

CommonDaemonComponent::~CommonDaemonComponent() {
  wake_up_.notify_all();
  watchdog_.join();
}

void CommonDaemonComponent::SetupSignalHandler(const std::vector<int>& signals,
                                               void (*handler)(int)) {
  for (int signum : signals) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: blocking calls interrupted by a stop signal return EINTR, and the sleeps
    // that must not be shortened resume themselves.
    action.sa_flags = 0;
    if (sigaction(signum, &action, nullptr) != 0) {
      const int error = errno;  // the level test may touch errno
      MIRVANE_LOG(kLogErr, "failed to setup stop handler for signal, signum = %d, errno = %d\n",
                  signum, error);
    }
  }
}

}  // namespace mirvane
