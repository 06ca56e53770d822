// Entry point of the mirvane daemon. It takes no command line and reads no environment; it is
// started and restarted by the system daemon through its init script.
#include <cstdio>
#include <exception>
#include <string>
#include <thread>

#include "bin/common_daemon_component.h"
#include "bin/daemon_threads.h"
#include "common/log.h"

char app_name[] = "mirvane";

namespace {
constexpr const char* kRestartCommand = "/etc/rc.d/init.d/mirvane restart &";
}

int main() {
  // Standard output is read by whatever runs the daemon: hand it over line by line.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  try {
    mirvane::CommonDaemonComponent component{std::string(app_name), std::string(kRestartCommand)};
    std::thread config_thread(mirvane::RunConfigObserver);
    std::thread pipeline_thread(mirvane::RunModelPipeline);
    pipeline_thread.join();
    config_thread.join();
  } catch (const std::exception& e) {
    MIRVANE_LOG(mirvane::kLogErr, "%s\n", e.what());
    throw;
  }
  return 0;
}
