// The daemon under faults: every row of the matrix starts the daemon binary on the host simulation
// beside a test system daemon, brings about one fault (in the platform, the system daemon, the
// settings, the model files, the signals, planted links, a full /tmp, a second instance) and holds
// the daemon to the row's outcome: how it ends, what it logs, its last heartbeat, whether events
// went out, and that nothing outside /tmp was written. Each row runs as a test program of its own,
// so in a private /tmp of its own, side by side with the others.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "mirvane_sim.h"
#include "sysapi.h"
#include "testing/child_process.h"
#include "testing/daemon_files.h"
#include "testing/system_peer.h"

namespace mirvane {
namespace faults {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::LinesContaining;
using testing::ReadFileOrEmpty;
using testing::SetSetting;
using testing::Subprocess;
using testing::SystemPeer;
using testing::WaitUntil;
using testing::WriteText;

constexpr char kSystemSocket[] = "/tmp/ipc-system";
constexpr char kSimDir[] = "/tmp/mirvane-sim";
constexpr char kModel[] = "/tmp/mirvane-sim/model.bin";
constexpr char kIdTable[] = "/tmp/workspace/model/model_id.config";
constexpr char kBlockIdFile[] = "/tmp/mirvane_blkid";
// Outside /tmp, yet private to the test program: /etc is an overlay whose changes stay in it.
constexpr char kOutside[] = "/etc/mirvane-outside";
// Heartbeats come every 5 s; a wait for the next one allows two periods, so that a loaded machine
// does not fail a run that is merely slow.
constexpr seconds kHeartbeatWait(12);

// A person standing in the middle for three seconds (75 frames, delivered as fast as taken).
constexpr char kShortScene[] = R"({"name": "short", "duration": 3, "objects": [
  {"id": 1, "class": "person", "keys": [[0, 0.45, 0.3, 0.52, 0.7], [3, 0.45, 0.3, 0.52, 0.7]]}]})";

// ---- Setup ----

struct Setup {
  bool loop = false;                    // the scene plays on until the daemon is stopped
  std::string faults;                   // the simulation's fault rules (JSON array members)
  std::vector<std::string> model_args;  // a model of its own (mirvane-model write ...)
  bool system_daemon = true;
  testing::PeerReplier replier;  // bytes the system daemon sends back
  bool small_tmp = false;        // /tmp a tiny file system of its own (the row fills it)
  std::function<void()> plant;   // settings, files and links beyond the usual ones

  Setup& Loop() {
    loop = true;
    return *this;
  }
  Setup& Faults(const std::string& rules) {
    faults = rules;
    return *this;
  }
  Setup& ModelArgs(std::vector<std::string> args) {
    model_args = std::move(args);
    return *this;
  }
  Setup& NoSystemDaemon() {
    system_daemon = false;
    return *this;
  }
  Setup& Replier(testing::PeerReplier r) {
    replier = std::move(r);
    return *this;
  }
  Setup& SmallTmp() {
    small_tmp = true;
    return *this;
  }
  Setup& Plant(std::function<void()> p) {
    plant = std::move(p);
    return *this;
  }
};

// The simulation's settings: the scene, as fast as the daemon takes it, and the fault rules.
std::string SimSettings(const Setup& s, const std::string& scene_path) {
  return std::string("{\"video\": {\"scene\": \"") + scene_path +
         "\", \"pace\": \"fast\", \"loop\": " + (s.loop ? "true" : "false") +
         ", \"ground_truth\": \"\"}, \"faults\": [" + s.faults + "]}\n";
}

bool MountTmpfs(const char* path, const char* options) {
  mkdir(path, 01777);
  return mount("mirvane-fault-tmp", path, "tmpfs", MS_NOSUID | MS_NODEV, options) == 0;
}

// A /tmp of 1 MiB, with the simulation's state (device memory and all) on a file system of its
// own below it, and the test's captured output there too: filling /tmp then only starves the
// daemon's own files.
void MountSmallTmp() {
  ASSERT_TRUE(MountTmpfs("/tmp", "size=1m,mode=1777")) << std::strerror(errno);
  ASSERT_TRUE(MountTmpfs(kSimDir, "mode=1777")) << std::strerror(errno);
  const std::string captures = std::string(kSimDir) + "/captures";
  mkdir(captures.c_str(), 0755);
  testing::SetCaptureDirectory(captures);
}

void Prepare(const Setup& s) {
  if (s.small_tmp) MountSmallTmp();
  mkdir(kOutside, 0755);
  mkdir("/tmp/log", 0755);  // as on the camera, whose start-up scripts make it
  const std::string scene = std::string(kSimDir) + "/scene.json";
  WriteText(scene, kShortScene);
  WriteText(std::string(kSimDir) + "/sim.json", SimSettings(s, scene));
  mirvane_sim_reload_settings();

  if (s.model_args.empty()) {
    WriteText(kModel, ReadFileOrEmpty(MIRVANE_IDEAL_MODEL_FILE));
  } else {
    std::vector<std::string> argv = {MIRVANE_MODEL_TOOL_PATH, "write", "--ideal"};
    argv.insert(argv.end(), s.model_args.begin(), s.model_args.end());
    argv.push_back(kModel);
    Subprocess tool(argv);
    ASSERT_TRUE(tool.Wait(seconds(30)));
    ASSERT_EQ(tool.result().exit_code, 0) << tool.result().err;
  }
  WriteText(kIdTable, testing::ModelIdTable(kModel));
  SetSetting("Custom.Dva",
             R"({"Threshold": {"Detection": 35, "Tracking": 60},
                 "ObjectDetection": {"DetectionRegion": "0.0,0.0,1.0,0.0,1.0,1.0,0.0,1.0",
                   "DetectionRegionType": 0, "MinPeopleTriggerTimeSeconds": 1,
                   "MinVehicleTriggerTimeSeconds": 1, "MinTriggerObjectRatioPermille": 0,
                   "ClassIdFilter": 22},
                 "IntrusionDetection": {"FenceLine": "0.5,0.0,0.5,1.0", "FenceIntersectType": 3,
                   "MinTriggerObjectRatioPermille": 0, "ClassIdFilter": 22}})");
  if (s.plant) s.plant();
}

// A link at path to a file (or folder) outside /tmp, whose contents the daemon must never change.
void PlantLink(const std::string& path, const std::string& target_name, bool folder = false) {
  const std::string target = std::string(kOutside) + "/" + target_name;
  if (folder) {
    mkdir(target.c_str(), 0755);
    WriteText(target + "/kept", "outside, kept\n");
  } else {
    WriteText(target, "outside, kept\n");
  }
  WriteText(path + ".tmp", "");  // the folders on the way
  unlink((path + ".tmp").c_str());
  if (unlink(path.c_str()) != 0) rmdir(path.c_str());
  ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
}

// Every file below a folder with its contents (folders as "/").
std::map<std::string, std::string> Tree(const std::string& folder) {
  std::map<std::string, std::string> tree;
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return tree;
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string path = folder + "/" + name;
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      tree[path] = "/";
      for (const auto& item : Tree(path)) tree.insert(item);
    } else {
      tree[path] = ReadFileOrEmpty(path);
    }
  }
  closedir(dir);
  return tree;
}

// ---- The run ----

// The daemon (the latest started) and the system daemon of a row.
struct DaemonRun {
  std::unique_ptr<SystemPeer> peer;
  std::unique_ptr<Subprocess> daemon;

  void Start() { daemon = std::make_unique<Subprocess>(std::vector<std::string>{kDaemon}); }
  size_t Events() const { return peer ? peer->Count(SYSAPI_CMD_EVENT) : 0; }
  bool WaitForEvents(size_t count, seconds timeout = seconds(30)) const {
    return WaitUntil([&] { return Events() >= count; }, timeout);
  }
  std::string Output() const { return daemon->ReadOut(); }
  bool WaitForLog(const std::string& part, seconds timeout) const {
    return WaitUntil([&] { return Output().find(part) != std::string::npos; }, timeout);
  }
  static constexpr const char* kDaemon = MIRVANE_DAEMON_PATH;
};

using Driver = std::function<void(DaemonRun&)>;

// Lets the daemon run until it ends by itself (the scene's end makes every read fail).
void RunToEnd(DaemonRun& run) {
  run.Start();
  EXPECT_TRUE(run.daemon->Wait(seconds(60))) << run.Output();
}

// Sends signum once the daemon has reported `events` frames (or at once for 0).
Driver SignalAfterEvents(int signum, size_t events) {
  return [signum, events](DaemonRun& run) {
    run.Start();
    if (events > 0) {
      ASSERT_TRUE(run.WaitForEvents(events)) << run.Output();
    }
    run.daemon->Signal(signum);
    EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
  };
}

// Runs until a repeated error line has been dropped at least once, then stops the daemon: no more
// than 3 identical lines a second reach the log.
Driver ThrottlesRepeatedLine(const std::string& line) {
  return [line](DaemonRun& run) {
    const auto start = std::chrono::steady_clock::now();
    run.Start();
    EXPECT_TRUE(run.WaitForLog("identical lines dropped]", seconds(10))) << run.Output();
    run.daemon->Signal(SIGTERM);
    EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    const size_t written = LinesContaining(run.daemon->result().out, line).size();
    EXPECT_GE(written, 3u);
    // The run touches at most its whole seconds plus two partial ones.
    EXPECT_LE(written,
              3 * static_cast<size_t>(std::chrono::duration_cast<seconds>(elapsed).count() + 2));
  };
}

// ---- Expected outcome ----

struct Outcome {
  int exit_code = 0;  // -1 when it ends by a signal
  int term_signal = 0;
  std::vector<std::string> log;       // parts of lines its output holds
  std::vector<std::string> log_once;  // parts of lines it holds exactly once
  std::string final_heartbeat;        // the last heartbeat, "W" or "w"; empty: none promised
  bool events = true;                 // the system daemon received events

  Outcome& Exits(int code) {
    exit_code = code;
    return *this;
  }
  Outcome& Killed(int signum) {
    exit_code = -1;
    term_signal = signum;
    return *this;
  }
  Outcome& Logs(std::vector<std::string> parts) {
    log = std::move(parts);
    return *this;
  }
  Outcome& LogsOnce(std::vector<std::string> parts) {
    log_once = std::move(parts);
    return *this;
  }
  Outcome& FinalHeartbeat(const char* letter) {
    final_heartbeat = letter;
    return *this;
  }
  Outcome& NoEvents() {
    events = false;
    return *this;
  }
};

struct FaultCase {
  std::string name;
  Setup setup;
  Driver fault;
  Outcome expected;
};

std::ostream& operator<<(std::ostream& out, const FaultCase& c) {
  return out << c.name;
}

class FaultMatrix : public ::testing::TestWithParam<FaultCase> {};

TEST_P(FaultMatrix, DaemonMeetsTheExpectedOutcome) {
  const FaultCase& c = GetParam();
  if (c.setup.small_tmp && std::string(MIRVANE_BINARY_DIR).rfind("/tmp/", 0) == 0) {
    GTEST_SKIP() << "the build tree lives in /tmp, which this row replaces";
  }
  ASSERT_NO_FATAL_FAILURE(Prepare(c.setup));
  const std::map<std::string, std::string> outside = Tree(kOutside);
  DaemonRun run;
  if (c.setup.system_daemon) {
    run.peer = std::make_unique<SystemPeer>(kSystemSocket, c.setup.replier);
    ASSERT_TRUE(run.peer->listening());
  }
  c.fault(run);
  ASSERT_TRUE(run.daemon);
  ASSERT_TRUE(run.daemon->Wait(seconds(0))) << "still running:\n" << run.Output();
  const testing::ChildResult& result = run.daemon->result();
  const std::string output = result.out + result.err;

  const Outcome& e = c.expected;
  EXPECT_EQ(result.exit_code, e.exit_code) << output;
  EXPECT_EQ(result.term_signal, e.term_signal) << output;
  for (const std::string& part : e.log) {
    EXPECT_NE(output.find(part), std::string::npos) << "no line with \"" << part << "\":\n"
                                                    << output;
  }
  for (const std::string& part : e.log_once) {
    EXPECT_EQ(LinesContaining(output, part).size(), 1u) << part << ":\n" << output;
  }
  if (run.peer) {
    if (!e.final_heartbeat.empty()) {
      // The peer reads on its own thread: the daemon may have ended before its last heartbeat
      // was read.
      WaitUntil(
          [&] {
            const std::string h = run.peer->Heartbeats();
            return !h.empty() && h.substr(h.size() - 1) == e.final_heartbeat;
          },
          kHeartbeatWait);
      const std::string heartbeats = run.peer->Heartbeats();
      ASSERT_FALSE(heartbeats.empty());
      EXPECT_EQ(heartbeats.substr(heartbeats.size() - 1), e.final_heartbeat) << heartbeats;
    }
    EXPECT_EQ(run.Events() > 0, e.events) << run.Events() << " events";
  }
  EXPECT_EQ(Tree(kOutside), outside) << "a file outside /tmp was written";
}

std::string CaseName(const ::testing::TestParamInfo<FaultCase>& info) {
  return info.param.name;
}

#define FAULT_ROWS(group, ...)                 \
  INSTANTIATE_TEST_SUITE_P(group, FaultMatrix, \
                           ::testing::ValuesIn(std::vector<FaultCase>{__VA_ARGS__}), CaseName)

// ---- The system daemon ----

// The system daemon goes away mid-run and comes back: events and heartbeats reach the new one.
void KillAndRestartSystemDaemon(DaemonRun& run) {
  run.Start();
  ASSERT_TRUE(run.WaitForEvents(5)) << run.Output();
  run.peer.reset();
  std::this_thread::sleep_for(milliseconds(300));
  run.peer = std::make_unique<SystemPeer>(kSystemSocket);
  ASSERT_TRUE(run.WaitForEvents(5)) << run.Output();
  // The first heartbeat after the loss goes into the dead connection; the next one reconnects.
  EXPECT_TRUE(WaitUntil([&] { return !run.peer->Heartbeats().empty(); }, kHeartbeatWait));
  run.daemon->Signal(SIGTERM);
  EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
}

// The system daemon accepts connections but reads nothing: the event sends time out, the event
// connection is opened anew, and once the system daemon reads again it finds the heartbeats sent
// meanwhile and fresh events.
void StallSystemDaemon(DaemonRun& run) {
  run.Start();
  ASSERT_TRUE(run.WaitForEvents(3)) << run.Output();
  ASSERT_TRUE(WaitUntil([&] { return !run.peer->Heartbeats().empty(); }, kHeartbeatWait));
  run.peer->SetStalled(true);
  const size_t accepted = run.peer->Accepted();
  // One time-out of a full socket, and the connection opened again.
  EXPECT_TRUE(WaitUntil([&] { return run.peer->Accepted() > accepted; }, seconds(30)))
      << run.Output();
  // Long enough for a heartbeat to be due while stalled.
  std::this_thread::sleep_for(seconds(5));
  const std::string heartbeats_before = run.peer->Heartbeats();
  const size_t events_before = run.Events();
  run.peer->SetStalled(false);
  EXPECT_TRUE(WaitUntil([&] { return run.peer->Heartbeats().size() > heartbeats_before.size(); },
                        kHeartbeatWait))
      << "heartbeats go on while the system daemon stalls";
  EXPECT_TRUE(run.WaitForEvents(events_before + 10)) << "the daemon keeps processing";
  run.daemon->Signal(SIGTERM);
  EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
}

std::string Garbage(const testing::PeerMessage&) {
  return std::string("\xff\x00garbage\x7f", 10);
}

FAULT_ROWS(SystemDaemon,
           {"Absent", Setup().NoSystemDaemon(), RunToEnd,
            Outcome().Logs({"Got max error count, restart daemon"})},
           {"KilledMidRun", Setup().Loop(), KillAndRestartSystemDaemon,
            Outcome().FinalHeartbeat("W")},
           {"StalledNeverReads", Setup().Loop(), StallSystemDaemon,
            Outcome().FinalHeartbeat("W").Logs({"sysapi failed to send ev"})},
           {"SendsGarbageBack", Setup().Replier(Garbage), RunToEnd,
            Outcome().FinalHeartbeat("W").Logs({"Got max error count, restart daemon"})});

// ---- Settings ----

Setup WithSettings(std::vector<std::pair<std::string, std::string>> settings) {
  return Setup().Plant([settings] {
    for (const auto& s : settings) SetSetting(s.first, s.second);
  });
}

const std::string kHugeRegion = [] {
  std::string region = "\"";
  for (int i = 0; i < 100000; ++i) region += "0.1,0.2,";
  return region + "0.3,0.4\"";
}();

FAULT_ROWS(
    Settings,
    {"StoreNotJson",
     Setup().Plant([] { WriteText(std::string(kSimDir) + "/params.json", "{\"Custom\": {"); }),
     RunToEnd,
     Outcome().FinalHeartbeat("W").Logs({"Set threshold: detection[0.000000], tracking[0.000000]",
                                         "Fail to read json config", "Fail to parse json config"})},
    {"MalformedJsonText",
     WithSettings({{"Custom.Dva.ObjectDetection", R"("{\"DetectionRegion\": ")"}}), RunToEnd,
     Outcome().FinalHeartbeat("W").Logs({"Fail to read json config"})},
    {"WrongTypes",
     WithSettings({{"Custom.Dva.Threshold.Detection", "\"35\""},
                   {"Custom.Dva.ObjectDetection.MinPeopleTriggerTimeSeconds", "[1]"},
                   {"Custom.Dva.IntrusionDetection.FenceLine", "5"}}),
     RunToEnd,
     Outcome().FinalHeartbeat("W").Logs(
         {"Setting [Custom.Dva.Threshold.Detection] is not an integer, read as 0",
          "Set threshold: detection[0.000000], tracking[0.600000]",
          "Setting [MinPeopleTriggerTimeSeconds] is not an integer, read as 0",
          "Fail to parse json config"})},
    {"OutOfRangeIntegers",
     WithSettings({{"Custom.Dva.Threshold.Detection", "99999999999"},
                   {"Custom.Dva.ObjectDetection.MinPeopleTriggerTimeSeconds", "-4294967296"}}),
     RunToEnd,
     Outcome().FinalHeartbeat("W").Logs(
         {"Setting [Custom.Dva.Threshold.Detection] value 99999999999 out of range "
          "[-2147483648, 2147483647], ignored",
          "Setting [MinPeopleTriggerTimeSeconds] value -4294967296 out of range "
          "[-2147483648, 2147483647], ignored"})},
    {"HugeString", WithSettings({{"Custom.Dva.ObjectDetection.DetectionRegion", kHugeRegion}}),
     RunToEnd, Outcome().FinalHeartbeat("W")});

// ---- Model files ----

// The model id table naming a model file that plant makes.
Setup WithModelFile(const std::string& path, std::function<void()> make) {
  return Setup().Plant([path, make] {
    make();
    WriteText(kIdTable, testing::ModelIdTable(path));
  });
}

std::string IdealModel() {
  return ReadFileOrEmpty(MIRVANE_IDEAL_MODEL_FILE);
}

std::string RandomBytes(size_t size) {
  std::string bytes(size, '\0');
  uint32_t state = 12345;
  for (char& b : bytes) {
    state = state * 1103515245u + 12345u;
    b = static_cast<char>(state >> 24);
  }
  return bytes;
}

// The id table with one line changed.
Setup WithIdLine(const std::string& from, const std::string& to) {
  return Setup().Plant([from, to] {
    std::string table = testing::ModelIdTable(kModel);
    table.replace(table.find(from), from.size(), to);
    WriteText(kIdTable, table);
  });
}

constexpr char kAbsentModel[] = "/tmp/mirvane-sim/absent.bin";
constexpr char kFifoModel[] = "/tmp/mirvane-sim/model.fifo";

FAULT_ROWS(
    Model,
    {"Missing", WithModelFile(kAbsentModel, [] {}), RunToEnd,
     Outcome().Killed(SIGABRT).NoEvents().Logs({"get bin(/tmp/mirvane-sim/absent.bin) size fail",
                                                "ERR: load model fail: -24"})},
    {"Truncated",
     WithModelFile("/tmp/mirvane-sim/half.bin",
                   [] {
                     const std::string model = IdealModel();
                     WriteText("/tmp/mirvane-sim/half.bin", model.substr(0, model.size() / 2));
                   }),
     RunToEnd, Outcome().Killed(SIGABRT).NoEvents().Logs({"ERR: vendor_ai_net_open fail = -56"})},
    {"RandomBytes",
     WithModelFile("/tmp/mirvane-sim/random.bin",
                   [] { WriteText("/tmp/mirvane-sim/random.bin", RandomBytes(65536)); }),
     RunToEnd, Outcome().Killed(SIGABRT).NoEvents().Logs({"ERR: vendor_ai_net_open fail = -53"})},
    {"Fifo", WithModelFile(kFifoModel, [] { ASSERT_EQ(mkfifo(kFifoModel, 0644), 0); }), RunToEnd,
     Outcome().Killed(SIGABRT).NoEvents().Logs({"/tmp/mirvane-sim/model.fifo is not a regular file",
                                                "ERR: load model fail: -24"})},
    {"IdNotANumber", WithIdLine("kHm1Path=a0000084", "kHm1Path=zz"), RunToEnd,
     Outcome().FinalHeartbeat("W").Logs({"ERR: Read model config items fail: "})},
    // An id the network has no output for: every frame's inference fails alike, and the log
    // holds at most 3 identical lines a second.
    {"UnknownOutputId", WithIdLine("kHm1Path=a0000084", "kHm1Path=a0000999").Loop(),
     ThrottlesRepeatedLine("Get 2684357017 fail: -33"),
     Outcome().FinalHeartbeat("W").Logs({"Get 2684357017 fail: -33 [",
                                         " identical lines dropped]"})});

// ---- Frames, scaler and encoder ----

// The platform never gets its frame buffers back, so the pull waits for ever: heartbeats stop
// after 30 s without progress, and a stop signal ends the process without the stuck thread.
void BlockThePull(DaemonRun& run) {
  run.Start();
  ASSERT_TRUE(run.WaitForLog("heartbeats withheld", seconds(60))) << run.Output();
  // A heartbeat sent just before may still be on its way to the peer's reading thread.
  std::this_thread::sleep_for(milliseconds(500));
  const size_t heartbeats = run.peer->Heartbeats().size();
  std::this_thread::sleep_for(milliseconds(5500));  // one heartbeat period
  EXPECT_EQ(run.peer->Heartbeats().size(), heartbeats) << "no heartbeat while stuck";
  EXPECT_FALSE(ReadFileOrEmpty(kBlockIdFile).empty());
  run.daemon->Signal(SIGTERM);
  EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
  WaitUntil([&] { return run.peer->Heartbeats().size() > heartbeats; }, kHeartbeatWait);
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_EQ(run.peer->Heartbeats().size(), heartbeats + 1) << "one final heartbeat";
  EXPECT_EQ(access(kBlockIdFile, F_OK), -1) << "the block was released";
}

FAULT_ROWS(
    Frames,
    {"PullFailsFiveTimesInARow",
     Setup().Loop().Faults(R"({"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 10,
                                "count": 5})"),
     RunToEnd,
     Outcome().FinalHeartbeat("W").Logs({"has retry 0 times", "has retry 4 times",
                                         "Got max error count, restart daemon"})},
    {"ReleaseNeverReturnsBuffers",
     Setup().Loop().Faults(R"({"call": "hd_videoproc_release_out_buf", "code": -10, "nth": 1,
                                "count": 1000000000})"),
     BlockThePull,
     Outcome().FinalHeartbeat("W").Logs({"Pipeline made no progress for ", "heartbeats withheld",
                                         "Pipeline did not stop within 10 s, exiting without it",
                                         "released at exit"})},
    // The first frame's inference takes the first scaling; the second is the first snapshot's.
    {"SnapshotScalerFails",
     Setup().Faults(R"({"call": "hd_gfx_scale", "code": -10, "nth": 2, "count": 1})"), RunToEnd,
     Outcome().Killed(SIGABRT).NoEvents().Logs({"hd_gfx_scale fail=-10"})},
    {"ModelScalerFailsEveryFrame",
     Setup().Loop().Faults(R"({"call": "hd_gfx_scale", "code": -10, "rate": 1.0, "seed": 1})"),
     ThrottlesRepeatedLine("hd_gfx_scale fail= -10"),
     Outcome().FinalHeartbeat("W").Logs({"hd_gfx_scale fail= -10 [", " identical lines dropped]"})},
    {"EncoderPushFails",
     Setup().Faults(R"({"call": "hd_videoenc_push_in_buf", "code": -10, "nth": 1, "count": 1})"),
     RunToEnd, Outcome().Killed(SIGABRT).NoEvents().Logs({"hd_videoenc_push_in_buf fail=-10"})},
    // The bit stream stays taken, so the next snapshot's push is refused.
    {"EncoderReleaseFails",
     Setup().Loop().Faults(
         R"({"call": "hd_videoenc_release_out_buf", "code": -10, "nth": 1, "count": 1})"),
     RunToEnd,
     Outcome().Killed(SIGABRT).Logs({"hd_videoenc_release_out_buf fail (-10)",
                                     "hd_videoenc_push_in_buf fail="})});

// ---- Signals ----

// SIGKILL leaves the block taken and recorded; the next start releases it and takes it again.
void KillAndStartAgain(DaemonRun& run) {
  run.Start();
  ASSERT_TRUE(run.WaitForEvents(3)) << run.Output();
  run.daemon->Signal(SIGKILL);
  ASSERT_TRUE(run.daemon->Wait(seconds(15)));
  const std::string recorded = ReadFileOrEmpty(kBlockIdFile);
  EXPECT_FALSE(recorded.empty()) << "the killed daemon's block is on record";
  const size_t events = run.Events();
  run.Start();
  ASSERT_TRUE(run.WaitForEvents(events + 3)) << run.Output();
  EXPECT_EQ(ReadFileOrEmpty(kBlockIdFile), recorded);
  run.daemon->Signal(SIGTERM);
  EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
  EXPECT_EQ(access(kBlockIdFile, F_OK), -1);
}

// A model that takes 300 ms a frame, so that the signal lands inside a pass.
Setup SlowModel() {
  return Setup().Loop().ModelArgs({"--delay-ms", "300"});
}

FAULT_ROWS(
    Signals,
    {"KillThenRestartRecoversTheBlock", Setup().Loop(), KillAndStartAgain,
     Outcome().FinalHeartbeat("W").Logs(
         {"hd_common_mem_get_block fail, try release previous get."})},
    {"TermBeforeTheHandlers", Setup().Loop(), SignalAfterEvents(SIGTERM, 0),
     Outcome().Killed(SIGTERM).NoEvents()},
    {"TermMidFrame", SlowModel(), SignalAfterEvents(SIGTERM, 2), Outcome().FinalHeartbeat("W")},
    {"IntMidFrame", SlowModel(), SignalAfterEvents(SIGINT, 2), Outcome().FinalHeartbeat("W")},
    {"Usr2MidFrame", SlowModel(), SignalAfterEvents(SIGUSR2, 2), Outcome().FinalHeartbeat("w")});

// ---- Planted links ----

FAULT_ROWS(Links,
           {"BlockIdFile", Setup().Plant([] { PlantLink(kBlockIdFile, "blkid"); }), RunToEnd,
            Outcome().FinalHeartbeat("W")},
           {"DebugLog", Setup().Plant([] { PlantLink("/tmp/log/debug.log", "debug.log"); }),
            RunToEnd, Outcome().FinalHeartbeat("W")},
           {"LogFolder", Setup().Plant([] { PlantLink("/tmp/log", "log", true); }), RunToEnd,
            Outcome().FinalHeartbeat("W")},
           {"LockFile", Setup().Plant([] { PlantLink("/tmp/mirvane.lock", "lock"); }), RunToEnd,
            Outcome()
                .Exits(1)
                .NoEvents()
                .LogsOnce({"Cannot lock /tmp/mirvane.lock ("})
                .Logs({"), exiting"})});

// ---- A full /tmp ----

// Fills the file system of /tmp; returns the filler's path.
std::string FillTmp() {
  const std::string filler = "/tmp/filler";
  const int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  EXPECT_GE(fd, 0);
  const std::string chunk(4096, 'f');
  while (write(fd, chunk.data(), chunk.size()) > 0) {
  }
  close(fd);
  return filler;
}

// Starts the daemon and waits for its first events.
void StartAndWaitForEvents(DaemonRun& run) {
  const size_t events = run.Events();
  run.Start();
  EXPECT_TRUE(run.WaitForEvents(events + 3)) << run.Output();
}

void Stop(DaemonRun& run, int signum) {
  run.daemon->Signal(signum);
  EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
}

// In a full /tmp the daemon runs without its block on record (and leaves no partial record); a
// record that exists stays whole through a recovery in a full /tmp; once there is room again, a
// start after an unclean exit recovers the block through the record.
void RunInFullTmp(DaemonRun& run) {
  std::string filler = FillTmp();
  StartAndWaitForEvents(run);
  EXPECT_TRUE(run.WaitForLog(" not recorded", seconds(15))) << run.Output();
  EXPECT_EQ(access(kBlockIdFile, F_OK), -1) << "no record, not an empty one";
  Stop(run, SIGTERM);
  EXPECT_EQ(run.daemon->result().exit_code, 0) << run.daemon->result().out;
  DIR* tmp = opendir("/tmp");
  while (const dirent* entry = readdir(tmp)) {
    EXPECT_NE(std::string(entry->d_name).rfind("mirvane_blkid", 0), 0u)
        << "left behind: " << entry->d_name;
  }
  closedir(tmp);

  unlink(filler.c_str());
  StartAndWaitForEvents(run);
  Stop(run, SIGKILL);
  const std::string recorded = ReadFileOrEmpty(kBlockIdFile);
  ASSERT_FALSE(recorded.empty());

  filler = FillTmp();
  StartAndWaitForEvents(run);
  EXPECT_EQ(ReadFileOrEmpty(kBlockIdFile), recorded) << "never empty or partial";
  Stop(run, SIGKILL);

  unlink(filler.c_str());
  StartAndWaitForEvents(run);
  Stop(run, SIGTERM);
}

FAULT_ROWS(Space, {"FullTmp", Setup().Loop().SmallTmp(), RunInFullTmp,
                   Outcome().FinalHeartbeat("W").Logs(
                       {"hd_common_mem_get_block fail, try release previous get."})});

// ---- Two instances ----

// A second daemon beside a running one ends at once and leaves the first one's block and files.
void StartASecondInstance(DaemonRun& run) {
  run.Start();
  ASSERT_TRUE(run.WaitForEvents(3)) << run.Output();
  const std::string recorded = ReadFileOrEmpty(kBlockIdFile);
  const size_t heartbeats = run.peer->Heartbeats().size();
  Subprocess second({DaemonRun::kDaemon});
  ASSERT_TRUE(second.Wait(seconds(15)));
  EXPECT_EQ(second.result().exit_code, 1);
  EXPECT_EQ(LinesContaining(second.result().out,
                            "Another mirvane is running (/tmp/mirvane.lock is locked), exiting")
                .size(),
            1u)
      << second.result().out;
  EXPECT_EQ(LinesContaining(second.result().out, "[Mirvane]").size(), 1u) << second.result().out;
  EXPECT_EQ(ReadFileOrEmpty(kBlockIdFile), recorded);
  const size_t events = run.Events();
  EXPECT_TRUE(run.WaitForEvents(events + 10)) << "the first goes on";
  EXPECT_TRUE(
      WaitUntil([&] { return run.peer->Heartbeats().size() > heartbeats; }, kHeartbeatWait));
  EXPECT_EQ(ReadFileOrEmpty(kBlockIdFile), recorded);
  run.daemon->Signal(SIGTERM);
  EXPECT_TRUE(run.daemon->Wait(seconds(15))) << run.Output();
}

FAULT_ROWS(Instances, {"SecondOneExitsAtOnce", Setup().Loop(), StartASecondInstance,
                       Outcome().FinalHeartbeat("W")});

}  // namespace
}  // namespace faults
}  // namespace mirvane
