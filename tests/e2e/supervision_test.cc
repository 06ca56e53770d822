// The supervision loop through the installed init script: the build's staging tree is shown at
// its real paths (the daemon under the install prefix, the script under /etc/rc.d/init.d) in a
// private namespace with its own /tmp and /var/run, and the system-daemon stand-in runs the
// restart command that the daemon's heartbeats carry. The daemon runs on the host simulation.
#include <dirent.h>
#include <gtest/gtest.h>
#include <jansson.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/run_setup.h"
#include "testing/child_process.h"
#include "testing/test_namespace.h"

namespace mirvane {
namespace e2e {
namespace {

using std::chrono::seconds;
using testing::ChildResult;
using testing::ReadFileOrEmpty;
using testing::Subprocess;
using testing::WaitUntil;

constexpr char kScript[] = "/etc/rc.d/init.d/mirvane";
constexpr char kRestartCommand[] = "/etc/rc.d/init.d/mirvane restart &";
constexpr char kPidFile[] = "/var/run/mirvane.pid";
constexpr char kDaemonOutput[] = "/tmp/log/mirvane.out";
constexpr char kScriptOutput[] = "/tmp/log/restarts.out";  // the restart commands' own output
constexpr char kRecoveryLine[] = "hd_common_mem_get_block fail, try release previous get.";

// A person standing in the middle: one second of video, at the camera's pace or as fast as read.
constexpr char kShortScene[] = R"({"name": "short", "duration": 1, "objects": [
  {"id": 1, "class": "person", "keys": [[0, 0.45, 0.3, 0.52, 0.7], [1, 0.45, 0.3, 0.52, 0.7]]}]})";

// The short scene, either played once as fast as the daemon reads, which then ends with the
// scene, or looped at the camera's pace, so that the daemon runs until stopped.
void PrepareScene(bool endless) {
  RunSetup setup;
  setup.scene = kShortScene;
  setup.pace = endless ? "realtime" : "fast";
  setup.loop = endless;
  Prepare(setup);
}

// The shells the script must run under: the system's sh (through its #! line) and BusyBox's.
struct Shell {
  const char* name;
  std::vector<std::string> prefix;
};
const std::vector<Shell>& Shells() {
  static const std::vector<Shell> shells = {{"sh", {}},
                                            {"busybox sh", {MIRVANE_BUSYBOX_PATH, "sh"}}};
  return shells;
}

ChildResult RunScript(const Shell& shell, const std::string& action) {
  std::vector<std::string> argv = shell.prefix;
  argv.push_back(kScript);
  argv.push_back(action);
  Subprocess script(argv);
  EXPECT_TRUE(script.Wait(seconds(60))) << shell.name << " " << action << " did not end";
  return script.result();
}

std::string ReadLink(const std::string& path) {
  char target[4096];
  const ssize_t n = readlink(path.c_str(), target, sizeof(target) - 1);
  return n < 0 ? std::string() : std::string(target, static_cast<size_t>(n));
}

// The live daemons of this namespace (other runs side by side show the same paths).
std::set<pid_t> Daemons() {
  std::set<pid_t> pids;
  const std::string own_namespace = ReadLink("/proc/self/ns/mnt");
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return pids;
  while (dirent* entry = readdir(proc)) {
    const std::string dir = std::string("/proc/") + entry->d_name;
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    if (ReadLink(dir + "/exe") == MIRVANE_INSTALLED_DAEMON &&
        ReadLink(dir + "/ns/mnt") == own_namespace) {
      pids.insert(static_cast<pid_t>(std::atoi(entry->d_name)));
    }
  }
  closedir(proc);
  return pids;
}

pid_t PidFromFile() {
  return static_cast<pid_t>(std::atoi(ReadFileOrEmpty(kPidFile).c_str()));
}

// One line of the stand-in's JSON output.
struct Record {
  std::string kind;  // "heartbeat", "note", "connected", ...
  int client = -1;
  bool alive = false;
  std::string note;
};

std::vector<Record> ReadRecords(const Subprocess& stand_in) {
  std::vector<Record> records;
  std::istringstream lines(stand_in.ReadOut());
  std::string line;
  while (std::getline(lines, line)) {
    json_t* object = json_loads(line.c_str(), 0, nullptr);
    if (object == nullptr) continue;  // a line still being written
    Record r;
    r.kind = json_string_value(json_object_get(object, "kind"));
    if (json_t* client = json_object_get(object, "client")) {
      r.client = static_cast<int>(json_integer_value(client));
    }
    r.alive = json_is_true(json_object_get(object, "alive"));
    if (json_t* note = json_object_get(object, "note")) r.note = json_string_value(note);
    records.push_back(r);
    json_decref(object);
  }
  return records;
}

int CountNotes(const std::vector<Record>& records, const std::string& text) {
  int count = 0;
  for (const Record& r : records) count += r.note.find(text) != std::string::npos ? 1 : 0;
  return count;
}

// The connections that carried heartbeats, in the order of their first one.
std::vector<int> HeartbeatClients(const std::vector<Record>& records) {
  std::vector<int> clients;
  for (const Record& r : records) {
    if (r.kind == "heartbeat" && (clients.empty() || clients.back() != r.client)) {
      clients.push_back(r.client);
    }
  }
  return clients;
}

// For each run the stand-in started ("starting: ..."), whether a heartbeat of a connection not
// seen before followed it: a new daemon took over the watchdog.
std::vector<bool> HeartbeatsResumedAfterEachStart(const std::vector<Record>& records) {
  std::vector<bool> resumed;
  std::set<int> seen;
  for (const Record& r : records) {
    if (r.note.rfind("starting: ", 0) == 0) resumed.push_back(false);
    if (r.kind == "heartbeat" && seen.insert(r.client).second && !resumed.empty()) {
      resumed.back() = true;
    }
  }
  return resumed;
}

std::vector<std::string> StandInArgs(double heartbeat_timeout_s, int max_restarts) {
  return {MIRVANE_SYSD_PATH,
          "--json",
          "--restart-command",
          kRestartCommand,
          "--start",
          "--daemon-output",
          kScriptOutput,
          "--heartbeat-timeout",
          std::to_string(heartbeat_timeout_s),
          "--max-restarts",
          std::to_string(max_restarts)};
}

// Waits until the n-th daemon that the stand-in started sends heartbeats and its pid is in the pid
// file.
bool WaitForDaemon(const Subprocess& stand_in, size_t n) {
  return WaitUntil(
      [&] {
        return HeartbeatClients(ReadRecords(stand_in)).size() == n &&
               Daemons() == std::set<pid_t>{PidFromFile()};
      },
      seconds(30));
}

// What a failed wait shows: the stand-in's output without its event records (one a frame, they
// would bury the rest), the outputs of the script and the daemon, and the state the waits look at.
std::string Diagnostics(const Subprocess& stand_in) {
  std::istringstream lines(stand_in.ReadOut());
  std::string stand_in_output;
  std::string line;
  int events = 0;
  while (std::getline(lines, line)) {
    if (line.find("\"kind\":\"event\"") != std::string::npos) {
      ++events;
    } else {
      stand_in_output += line + "\n";
    }
  }
  std::string daemons;
  for (pid_t pid : Daemons()) daemons += " " + std::to_string(pid);
  return "stand-in (" + std::to_string(events) + " event records left out):\n" + stand_in_output +
         "script:\n" + ReadFileOrEmpty(kScriptOutput) + "daemon:\n" +
         ReadFileOrEmpty(kDaemonOutput) + "pid file: '" + ReadFileOrEmpty(kPidFile) +
         "', daemons:" + daemons + ", block-id file: '" + ReadFileOrEmpty("/tmp/mirvane_blkid") +
         "'\n";
}

TEST(InitScript, StartTwiceStopTwiceStatusAndAStalePidFileUnderEveryShell) {
  PrepareScene(/*endless=*/true);
  for (const Shell& shell : Shells()) {
    SCOPED_TRACE(shell.name);
    ChildResult r = RunScript(shell, "stop");
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out + r.err, "") << "stopping a stopped daemon is quiet";
    EXPECT_EQ(RunScript(shell, "status").exit_code, 3);

    r = RunScript(shell, "start");
    ASSERT_EQ(r.exit_code, 0) << r.out << r.err << ReadFileOrEmpty(kDaemonOutput);
    const std::set<pid_t> first = Daemons();
    EXPECT_EQ(first, std::set<pid_t>{PidFromFile()});
    r = RunScript(shell, "start");
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.out.find("already running"), std::string::npos) << r.out;
    EXPECT_EQ(Daemons(), first) << "a second start leaves the one daemon";
    EXPECT_EQ(RunScript(shell, "status").exit_code, 0);

    r = RunScript(shell, "stop");
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(Daemons().empty());
    EXPECT_EQ(RunScript(shell, "status").exit_code, 3);
    r = RunScript(shell, "stop");
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out + r.err, "");

    // A pid file left by a crash, its pid now another program's: never signalled, replaced.
    Subprocess other({"/bin/sleep", "60"});
    WriteText(kPidFile, std::to_string(other.pid()) + "\n");
    EXPECT_EQ(RunScript(shell, "status").exit_code, 1);
    EXPECT_EQ(RunScript(shell, "stop").exit_code, 0);
    EXPECT_EQ(RunScript(shell, "start").exit_code, 0);
    EXPECT_FALSE(other.Wait(std::chrono::milliseconds(0))) << "the other program still runs";
    EXPECT_EQ(Daemons(), std::set<pid_t>{PidFromFile()});
    EXPECT_NE(PidFromFile(), other.pid());
    EXPECT_EQ(RunScript(shell, "stop").exit_code, 0);
    EXPECT_TRUE(Daemons().empty());
  }
  EXPECT_EQ(RunScript(Shells()[0], "bogus").exit_code, 2);
}

// A link planted at the log folder: the daemon starts and runs, and neither the script nor the
// daemon writes anything through it.
TEST(InitScript, NeverWritesThroughALinkPlantedAtTheLogFolder) {
  PrepareScene(/*endless=*/true);
  rename("/tmp/log", "/tmp/log.before");
  ASSERT_EQ(mkdir("/tmp/elsewhere", 0755), 0);
  ASSERT_EQ(symlink("/tmp/elsewhere", "/tmp/log"), 0);
  const ChildResult r = RunScript(Shells()[0], "start");
  EXPECT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_NE(r.err.find("/tmp/log is not a directory of its own"), std::string::npos) << r.err;
  EXPECT_EQ(Daemons(), std::set<pid_t>{PidFromFile()});
  EXPECT_EQ(RunScript(Shells()[0], "stop").exit_code, 0);
  EXPECT_TRUE(Daemons().empty());
  DIR* dir = opendir("/tmp/elsewhere");
  ASSERT_NE(dir, nullptr);
  while (const dirent* entry = readdir(dir)) {
    EXPECT_TRUE(entry->d_name[0] == '.') << "written through the link: " << entry->d_name;
  }
  closedir(dir);
  unlink("/tmp/log");
  rename("/tmp/log.before", "/tmp/log");
}

// The scene ends, five failed reads end the daemon with an alive heartbeat, the stand-in runs the
// restart command, the script starts a new daemon: twice over.
TEST(Supervision, ADaemonThatEndsByItselfIsRestartedThroughTheScript) {
  PrepareScene(/*endless=*/false);
  Subprocess stand_in(StandInArgs(15, 2));
  ASSERT_TRUE(stand_in.Wait(seconds(120))) << Diagnostics(stand_in);

  const std::vector<Record> records = ReadRecords(stand_in);
  EXPECT_EQ(CountNotes(records, "daemon stopped after an alive heartbeat ('W')"), 3)
      << Diagnostics(stand_in);
  EXPECT_EQ(HeartbeatsResumedAfterEachStart(records), std::vector<bool>(3, true));
  EXPECT_EQ(HeartbeatClients(records).size(), 3u);
  EXPECT_TRUE(Daemons().empty());
}

TEST(Supervision, AHungDaemonIsKilledAndRestartedAndTheNewOneRecoversTheBlock) {
  PrepareScene(/*endless=*/true);
  setenv("MIRVANE_STOP_SECONDS", "2", 1);  // for the script that the stand-in runs
  Subprocess stand_in(StandInArgs(7, 1));
  ASSERT_TRUE(WaitForDaemon(stand_in, 1)) << Diagnostics(stand_in);
  const pid_t hung = PidFromFile();
  ASSERT_EQ(Daemons(), std::set<pid_t>{hung});
  // Heartbeats start before the pipeline takes its block: hang it once frames are reported, when
  // the block is on record.
  ASSERT_TRUE(WaitUntil(
      [&] {
        for (const Record& r : ReadRecords(stand_in)) {
          if (r.kind == "event") return true;
        }
        return false;
      },
      seconds(30)))
      << Diagnostics(stand_in);
  ASSERT_NE(ReadFileOrEmpty("/tmp/mirvane_blkid"), "") << Diagnostics(stand_in);
  kill(hung, SIGSTOP);

  ASSERT_TRUE(WaitForDaemon(stand_in, 2)) << Diagnostics(stand_in);
  const std::vector<Record> records = ReadRecords(stand_in);
  EXPECT_EQ(CountNotes(records, "daemon counts as hung"), 1);
  EXPECT_EQ(HeartbeatsResumedAfterEachStart(records), std::vector<bool>(2, true));
  const std::set<pid_t> now = Daemons();
  EXPECT_EQ(now, std::set<pid_t>{PidFromFile()});
  EXPECT_EQ(now.count(hung), 0u) << "the hung daemon was killed";
  EXPECT_NE(ReadFileOrEmpty(kScriptOutput).find("killing it"), std::string::npos)
      << Diagnostics(stand_in);
  // Heartbeats start before the pipeline has taken its block: the line may still be on its way.
  EXPECT_TRUE(WaitUntil(
      [] { return ReadFileOrEmpty(kDaemonOutput).find(kRecoveryLine) != std::string::npos; },
      seconds(30)))
      << Diagnostics(stand_in);

  EXPECT_EQ(RunScript(Shells()[0], "stop").exit_code, 0);
  EXPECT_TRUE(Daemons().empty());
  unsetenv("MIRVANE_STOP_SECONDS");
}

TEST(Supervision, NobodyRestartsADaemonThatReleasedItsWatchdog) {
  PrepareScene(/*endless=*/true);
  Subprocess stand_in(StandInArgs(15, 1));
  ASSERT_TRUE(WaitForDaemon(stand_in, 1)) << Diagnostics(stand_in);
  kill(PidFromFile(), SIGUSR2);
  ASSERT_TRUE(WaitUntil(
      [&] { return CountNotes(ReadRecords(stand_in), "released its watchdog ('w')") == 1; },
      seconds(30)))
      << Diagnostics(stand_in);
  // Well past the stand-in's shortest interval between restarts.
  sleep(3);
  EXPECT_EQ(CountNotes(ReadRecords(stand_in), "starting: "), 1) << Diagnostics(stand_in);
  EXPECT_TRUE(Daemons().empty());
  EXPECT_EQ(RunScript(Shells()[0], "status").exit_code, 1) << "the pid file remains";
}

}  // namespace
}  // namespace e2e
}  // namespace mirvane

// Runs the tests with the staging tree shown over the install prefix and /etc, and empty /tmp and
// /var/run of their own; daemons that a failed test left behind are killed at the end.
int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  mirvane::hostns::NamespaceOptions options;
  options.overlays = {{MIRVANE_INSTALL_PREFIX, MIRVANE_STAGING_DIR MIRVANE_INSTALL_PREFIX},
                      {"/etc", MIRVANE_STAGING_DIR "/etc"}};
  options.empty_dirs = {"/var/run"};
  if (!mirvane::testing::EnterTestNamespace(options)) return 1;
  const int status = RUN_ALL_TESTS();
  for (pid_t pid : mirvane::e2e::Daemons()) kill(pid, SIGKILL);
  return status;
}
