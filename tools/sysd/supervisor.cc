#include "supervisor.h"

#include <cstdio>

namespace mirvane {
namespace sysd {

void Supervisor::OnHeartbeat(bool alive, double now) {
  watching_ = true;
  beat_seen_ = true;
  last_alive_ = alive;
  closed_ = false;
  last_beat_ = now;
}

void Supervisor::OnHeartbeatConnectionClosed() {
  if (beat_seen_) closed_ = true;
}

void Supervisor::OnChildStarted(double now) {
  child_running_ = true;
  kill_sent_ = false;
  watching_ = true;
  beat_seen_ = false;
  closed_ = false;
  last_beat_ = now;  // a daemon that never sends a heartbeat times out like a hung one
}

void Supervisor::OnChildExited() {
  child_running_ = false;
}

SupervisorDecision Supervisor::Poll(double now) {
  SupervisorDecision decision;
  if (!restart_pending_) {
    if (!watching_) return decision;
    if (closed_) {
      watching_ = false;
      if (!last_alive_) {
        decision.note = "daemon released its watchdog ('w'): not restarting";
        return decision;
      }
      decision.note = "daemon stopped after an alive heartbeat ('W')";
    } else if (now - last_beat_ > config_.heartbeat_timeout_s) {
      watching_ = false;
      hung_ = true;
      char note[96];
      std::snprintf(note, sizeof(note), "no heartbeat for %.0f s: daemon counts as hung",
                    now - last_beat_);
      decision.note = note;
    } else {
      return decision;
    }
    if (!config_.restart_enabled) {
      hung_ = false;
      decision.note += " (no restart command configured)";
      return decision;
    }
    restart_pending_ = true;
    pending_since_ = now;
  }
  if (child_running_) {
    // A hung child is killed at once; one that stops by itself is given the time-out to exit.
    if (!kill_sent_ && (hung_ || now - pending_since_ > config_.heartbeat_timeout_s)) {
      kill_sent_ = true;
      decision.action = SupervisorAction::kKillStale;
    }
    return decision;
  }
  if (now - last_restart_ < config_.min_restart_interval_s) return decision;
  restart_pending_ = false;
  hung_ = false;
  last_restart_ = now;
  decision.action = SupervisorAction::kRestart;
  return decision;
}

}  // namespace sysd
}  // namespace mirvane
