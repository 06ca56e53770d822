#include "bin/process_flags.h"

namespace mirvane {

std::atomic<int> g_running{1};
std::atomic<int> g_disable_watchdog{0};
std::atomic<unsigned char> g_reload_config{1};

}  // namespace mirvane
