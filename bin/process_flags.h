// The three process-wide flags through which the daemon's threads learn that the process is
// stopping or that its settings changed. They are the only state shared between threads; each is
// a lock-free atomic word that signal handlers may write and that every reader reloads on every
// test. Nothing else is guarded by them.
#ifndef MIRVANE_BIN_PROCESS_FLAGS_H
#define MIRVANE_BIN_PROCESS_FLAGS_H

#include <atomic>

namespace mirvane {

// 1 while the daemon runs; cleared by the stop signals and by the pipeline when it gives up.
extern std::atomic<int> g_running;
// Set by SIGUSR2, cleared by the other stop signals: the last handled signal decides whether the
// final heartbeat says "alive" (restart me) or not.
extern std::atomic<int> g_disable_watchdog;
// Set by the configuration thread on a settings change, cleared by the pipeline just before it
// re-reads all settings. Starts set, so that the first pass loads the settings.
extern std::atomic<unsigned char> g_reload_config;

static_assert(std::atomic<int>::is_always_lock_free, "flags must be usable from signal handlers");
static_assert(std::atomic<unsigned char>::is_always_lock_free,
              "flags must be usable from signal handlers");

}  // namespace mirvane

#endif  // MIRVANE_BIN_PROCESS_FLAGS_H
