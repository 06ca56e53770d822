// Bodies of the daemon's two worker threads, started by main (all three in bin/mirvane.cc).
#ifndef MIRVANE_BIN_DAEMON_THREADS_H
#define MIRVANE_BIN_DAEMON_THREADS_H

namespace mirvane {

// The configuration thread: watches the parameter store and raises g_reload_config on a change;
// returns within about a second after g_running is cleared.
void RunConfigObserver();

// The pipeline thread: frame, model, tracker, rules, event; returns when g_running is cleared
// or the frame source has failed five times in a row.
void RunModelPipeline();

}  // namespace mirvane

#endif  // MIRVANE_BIN_DAEMON_THREADS_H
