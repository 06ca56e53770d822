// When the stand-in restarts the daemon, and when it leaves it be.
#include "supervisor.h"

#include <gtest/gtest.h>

namespace mirvane {
namespace sysd {
namespace {

SupervisorConfig WithRestart() { return SupervisorConfig{true, 15, 1}; }

TEST(Supervisor, RestartsAfterAFinalAliveHeartbeatOnceTheChildHasExited) {
  Supervisor s(WithRestart());
  s.OnChildStarted(0);
  s.OnHeartbeat(true, 1);
  s.OnHeartbeat(true, 6);
  s.OnHeartbeatConnectionClosed();
  SupervisorDecision d = s.Poll(7);
  EXPECT_EQ(d.action, SupervisorAction::kNone) << "the child is still stopping";
  EXPECT_NE(d.note.find("'W'"), std::string::npos);
  s.OnChildExited();
  EXPECT_EQ(s.Poll(7.1).action, SupervisorAction::kRestart);
  EXPECT_EQ(s.Poll(7.2).action, SupervisorAction::kNone) << "exactly one restart";
}

TEST(Supervisor, LeavesAReleasedDaemonAlone) {
  Supervisor s(WithRestart());
  s.OnHeartbeat(true, 1);
  s.OnHeartbeat(false, 2);
  s.OnHeartbeatConnectionClosed();
  SupervisorDecision d = s.Poll(3);
  EXPECT_EQ(d.action, SupervisorAction::kNone);
  EXPECT_NE(d.note.find("not restarting"), std::string::npos);
  EXPECT_EQ(s.Poll(100).action, SupervisorAction::kNone) << "no time-out after a release";
}

TEST(Supervisor, KillsAHungChildThenRestartsIt) {
  Supervisor s(WithRestart());
  s.OnChildStarted(0);
  s.OnHeartbeat(true, 1);
  EXPECT_EQ(s.Poll(16).action, SupervisorAction::kNone) << "15 s of silence is still fine";
  EXPECT_EQ(s.Poll(16.5).action, SupervisorAction::kKillStale);
  EXPECT_EQ(s.Poll(17).action, SupervisorAction::kNone) << "killed once";
  s.OnChildExited();
  EXPECT_EQ(s.Poll(17.5).action, SupervisorAction::kRestart);
}

TEST(Supervisor, ADaemonThatNeverBeatsCountsAsHung) {
  Supervisor s(WithRestart());
  s.OnChildStarted(0);
  EXPECT_EQ(s.Poll(15.5).action, SupervisorAction::kKillStale);
}

TEST(Supervisor, SpacesRestartsAndOnlyNotesWithoutACommand) {
  Supervisor s(WithRestart());
  s.OnHeartbeat(true, 0);
  s.OnHeartbeatConnectionClosed();
  EXPECT_EQ(s.Poll(0.1).action, SupervisorAction::kRestart);
  s.OnHeartbeat(true, 0.2);
  s.OnHeartbeatConnectionClosed();
  EXPECT_EQ(s.Poll(0.3).action, SupervisorAction::kNone);
  EXPECT_EQ(s.Poll(1.2).action, SupervisorAction::kRestart) << "one second after the last";

  Supervisor quiet(SupervisorConfig{false, 15, 1});
  quiet.OnHeartbeat(true, 0);
  quiet.OnHeartbeatConnectionClosed();
  const SupervisorDecision d = quiet.Poll(1);
  EXPECT_EQ(d.action, SupervisorAction::kNone);
  EXPECT_NE(d.note.find("no restart command"), std::string::npos);
}

}  // namespace
}  // namespace sysd
}  // namespace mirvane
