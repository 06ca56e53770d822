#include <time.h>

#include "bin/daemon_threads.h"
#include "bin/process_flags.h"

namespace mirvane {

// Until the parameter store is watched, the configuration thread only waits for the stop.
void RunConfigObserver() {
  const struct timespec pause = {0, 100 * 1000 * 1000};
  while (g_running.load() != 0) nanosleep(&pause, nullptr);
}

}  // namespace mirvane
