// The daemon's process frame: installs the stop and release signal handlers and runs the watchdog
// thread that feeds the system daemon's watchdog every 5 s, with one final update when the process
// stops.
//
// Owns: copies of the daemon name and restart command, the condition variable that wakes the
// watchdog thread, and that thread (joined by the destructor, which therefore blocks until
// g_running has been cleared).
// Threads: constructed and destroyed on the main thread; exactly one instance per process.
#ifndef MIRVANE_BIN_COMMON_DAEMON_COMPONENT_H
#define MIRVANE_BIN_COMMON_DAEMON_COMPONENT_H

#include <condition_variable>
#include <string>
#include <thread>
#include <vector>

namespace mirvane {

// Where the watchdog updates go.
constexpr const char* kSystemSocketPath = "/tmp/ipc-system";
// Heartbeat period of the watchdog thread, in nanoseconds.
constexpr long long kWatchdogPeriodNs = 5000000000LL;

// Handler of the stop set (SIGINT, SIGILL, SIGABRT, SIGFPE, SIGSEGV, SIGTERM): clears g_running,
// then g_disable_watchdog.
void OnStopSignal(int signum);
// Handler of the release set (SIGUSR2): clears g_running, then sets g_disable_watchdog.
void OnReleaseSignal(int signum);

// Body of the watchdog thread: one update at start, then one every 5 s while g_running is set,
// then one final update whose alive flag is g_disable_watchdog != 1. An update falls due while the
// pipeline makes progress (bin/liveness.h); while it does not, the updates are withheld (logged
// once when they stop and once when they resume), but the final update is always sent.
void RunWatchdog(const std::string& name, const std::string& restart_command,
                 std::condition_variable& wake_up);

class CommonDaemonComponent {
 public:
  CommonDaemonComponent(const std::string& name, const std::string& restart_command);
  virtual ~CommonDaemonComponent();

  CommonDaemonComponent(const CommonDaemonComponent&) = delete;
  CommonDaemonComponent& operator=(const CommonDaemonComponent&) = delete;

  // Installs handler for each signal in order; a failing sigaction is logged and skipped.
  void SetupSignalHandler(const std::vector<int>& signals, void (*handler)(int));

 private:
  std::string name_;
  std::string restart_command_;
  std::condition_variable wake_up_;
  std::thread watchdog_;
};

}  // namespace mirvane

#endif  // MIRVANE_BIN_COMMON_DAEMON_COMPONENT_H
