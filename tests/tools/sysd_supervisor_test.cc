// When the stand-in restarts the daemon, and when it leaves it be.
#include "supervisor.h"

#include <gtest/gtest.h>

#include <sstream>

namespace mirvane {
namespace sysd {
namespace {

// Plays a script of events against a supervisor and returns what its polls decided: "S0" the
// child started at 0 s, "W1" / "w1" an alive / releasing heartbeat at 1 s, "C" the heartbeat
// connection closed, "X" the child exited, "P7" a poll at 7 s, answered "-", "kill" or
// "restart". The notes of all polls are appended to *notes.
std::string Play(Supervisor* s, const std::string& script, std::string* notes) {
  std::istringstream steps(script);
  std::string step;
  std::string decisions;
  while (steps >> step) {
    const double t = step.size() > 1 ? std::stod(step.substr(1)) : 0;
    const char kind = step[0];
    if (kind == 'S') s->OnChildStarted(t);
    if (kind == 'W' || kind == 'w') s->OnHeartbeat(kind == 'W', t);
    if (kind == 'C') s->OnHeartbeatConnectionClosed();
    if (kind == 'X') s->OnChildExited();
    if (kind != 'P') continue;
    const SupervisorDecision d = s->Poll(t);
    *notes += d.note + "\n";
    decisions += d.action == SupervisorAction::kRestart     ? " restart"
                 : d.action == SupervisorAction::kKillStale ? " kill"
                                                            : " -";
  }
  return decisions.substr(1);
}

TEST(Supervisor, RestartsAKilledOrHungDaemonOnceItsChildIsGone) {
  const struct {
    const char* name;
    bool restart_enabled;
    const char* script;
    const char* decisions;
    const char* note;  // in some poll's note
  } cases[] = {
      {"closed after an alive heartbeat", true, "S0 W1 W6 C P7 X P7.1 P7.2", "- restart -", "'W'"},
      {"released", true, "W1 w2 C P3 P100", "- -", "not restarting"},
      // Silence is fine for 15 s; the hung child is killed once, then restarted when gone.
      {"hung", true, "S0 W1 P16 P16.5 P17 X P17.5", "- kill - restart", ""},
      {"never beating", true, "S0 P15.5", "kill", ""},
      {"spaced restarts", true, "W0 C P0.1 W0.2 C P0.3 P1.2", "restart - restart", ""},
      {"without a command", false, "W0 C P1", "-", "no restart command"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Supervisor s(SupervisorConfig{c.restart_enabled, 15, 1});
    std::string notes;
    EXPECT_EQ(Play(&s, c.script, &notes), c.decisions);
    EXPECT_NE(notes.find(c.note), std::string::npos) << notes;
  }
}

}  // namespace
}  // namespace sysd
}  // namespace mirvane
