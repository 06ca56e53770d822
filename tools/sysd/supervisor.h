// The stand-in's watchdog logic: decides when the supervised daemon must be started again, the
// way the camera's system daemon does. Pure state machine over heartbeats, connection ends and
// child exits; the caller feeds it times in seconds and carries out its decisions.
//
// Rules: after the connection that carried the heartbeats closes, the last heartbeat decides:
// 'W' (alive) asks for a restart, 'w' (released) does not. Heartbeats that stop for longer than
// the time-out while the connection stays open also ask for a restart (the stale daemon is killed
// first when it is our child). A restart waits until the previous child has exited.
// Threads: one thread, the stand-in's event loop.
#ifndef MIRVANE_TOOLS_SYSD_SUPERVISOR_H
#define MIRVANE_TOOLS_SYSD_SUPERVISOR_H

#include <string>

namespace mirvane {
namespace sysd {

struct SupervisorConfig {
  bool restart_enabled = false;     // a restart command was given
  double heartbeat_timeout_s = 15;  // silence after which the daemon counts as hung
  double min_restart_interval_s = 1;
};

enum class SupervisorAction { kNone, kKillStale, kRestart };

struct SupervisorDecision {
  SupervisorAction action = SupervisorAction::kNone;
  std::string note;  // what happened, for the output; empty when nothing did
};

class Supervisor {
 public:
  explicit Supervisor(const SupervisorConfig& config) : config_(config) {}

  void OnHeartbeat(bool alive, double now);
  void OnHeartbeatConnectionClosed();
  void OnChildStarted(double now);
  void OnChildExited();
  // Called after each of the above and from a periodic timer.
  SupervisorDecision Poll(double now);

  bool child_running() const { return child_running_; }

 private:
  SupervisorConfig config_;
  bool watching_ = false;  // a daemon is expected to send heartbeats
  bool beat_seen_ = false;
  bool last_alive_ = false;
  bool closed_ = false;
  bool child_running_ = false;
  bool kill_sent_ = false;
  bool restart_pending_ = false;
  bool hung_ = false;
  double pending_since_ = 0;
  double last_beat_ = 0;
  double last_restart_ = -1e9;
};

}  // namespace sysd
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_SYSD_SUPERVISOR_H
