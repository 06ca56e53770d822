// The system-daemon stand-in: serves the command socket like the camera's system daemon, prints
// what arrives, answers the request/reply commands, and supervises a daemon it may start itself.
//
// Owns: the listening socket (removed at the end), the client connections, the libev default loop,
// the event record file when asked for one and, when it started one, the daemon's child process
// (stopped with SIGTERM when the stand-in stops). Single-threaded: everything runs in RunStandIn's
// event loop.
#ifndef MIRVANE_TOOLS_SYSD_STAND_IN_H
#define MIRVANE_TOOLS_SYSD_STAND_IN_H

#include <string>

namespace mirvane {
namespace sysd {

struct StandInOptions {
  std::string socket_path = "/tmp/ipc-system";
  bool json = false;
  bool color = false;
  std::string restart_command;  // run with /bin/sh -c; empty: supervise without restarting
  bool start = false;           // run the restart command once at start
  double heartbeat_timeout_s = 15;
  double duration_s = 0;  // stop after this long; 0: until SIGINT or SIGTERM
  int max_restarts = -1;  // stop once the daemon has ended after this many restarts; -1: never
  int max_clients = 64;
  std::string daemon_output;  // file that takes the started daemon's output; empty: ours
  std::string snapshot_prefix = "/tmp/zarn_ai_snapshot_";
  std::string keep_snapshots;  // directory that takes copies of the snapshots; empty: none
  std::string record_events;   // file that takes every event's payload as received; empty: none
};

// Runs until stopped; returns the process exit code (0, or 1 when the socket cannot be served or
// the event record cannot be written).
int RunStandIn(const StandInOptions& options);

}  // namespace sysd
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_SYSD_STAND_IN_H
