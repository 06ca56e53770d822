// Whole-system runs on the host simulation: the system-daemon stand-in starts the daemon on a
// scene, mostly with the ideal network (exact boxes), and prints what it receives as JSON lines,
// read back here. Runs are on virtual time at fast pace unless a story needs the real clock. The
// test program has a /tmp of its own, so the fixed paths are safe.
#include <gtest/gtest.h>
#include <jansson.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#include <turbojpeg.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/run_setup.h"
#include "mirvane_sim.h"
#include "testing/artifacts.h"
#include "testing/child_process.h"
#include "testing/daemon_files.h"
#ifdef MIRVANE_E2E_FOOTAGE
#include <cmath>

#include "frame_source.h"
#include "video_writer.h"
#endif

namespace mirvane {
namespace e2e {
namespace {

using std::chrono::seconds;
using testing::ReadFileOrEmpty;
using testing::SetSetting;
using testing::ShellCommand;
using testing::Subprocess;
using testing::UnderEmulator;
using testing::WaitUntil;
using testing::WriteText;

constexpr char kDaemonOutput[] = "/tmp/log/mirvane.out";
// The stand-in, started at once; it restarts the daemon max_restarts times and ends after it.
std::vector<std::string> StandIn(int max_restarts = 0, const std::vector<std::string>& extra = {}) {
  WriteText(kDaemonOutput, "");
  std::vector<std::string> argv = {MIRVANE_SYSD_PATH,
                                   "--json",
                                   "--restart-command",
                                   ShellCommand({MIRVANE_DAEMON_COMMAND}),
                                   "--start",
                                   "--max-restarts",
                                   std::to_string(max_restarts),
                                   "--daemon-output",
                                   kDaemonOutput};
  argv.insert(argv.end(), extra.begin(), extra.end());
  return argv;
}

struct ObjectRecord {
  std::string class_name;
  int tracking_id = 0;
  int snapshot_id = 0;
  bool region = false;
  int fence = 0;  // the direction bits the stand-in decoded
  double box[4] = {0, 0, 0, 0};
};

struct EventRecord {
  double time = 0;  // when the stand-in received it (wall clock, seconds)
  uint64_t timestamp = 0;
  int count = 0;
  std::vector<ObjectRecord> objects;
};

struct NoteRecord {
  std::string text;
  size_t events_before = 0;
};

struct Transcript {
  std::vector<EventRecord> events;
  std::vector<NoteRecord> notes;

  int CountNotes(const std::string& text) const {
    return static_cast<int>(std::count_if(notes.begin(), notes.end(), [&](const NoteRecord& n) {
      return n.text.find(text) != std::string::npos;
    }));
  }
  const NoteRecord* FindNote(const std::string& text) const {
    for (const NoteRecord& note : notes) {
      if (note.text.find(text) != std::string::npos) return &note;
    }
    return nullptr;
  }
};

int Int(json_t* object, const char* key) {
  return static_cast<int>(json_integer_value(json_object_get(object, key)));
}

Transcript Read(const Subprocess& stand_in) {
  Transcript transcript;
  std::istringstream lines(stand_in.ReadOut());
  std::string line;
  while (std::getline(lines, line)) {
    json_t* record = json_loads(line.c_str(), 0, nullptr);
    if (record == nullptr) continue;  // a line still being written
    const std::string kind = json_string_value(json_object_get(record, "kind"));
    if (kind == "event") {
      EventRecord event;
      event.time = json_number_value(json_object_get(record, "time"));
      event.timestamp =
          static_cast<uint64_t>(json_integer_value(json_object_get(record, "timestamp")));
      event.count = Int(record, "count");
      json_t* objects = json_object_get(record, "objects");
      for (size_t i = 0; i < json_array_size(objects); ++i) {
        json_t* item = json_array_get(objects, i);
        ObjectRecord o;
        o.class_name = json_string_value(json_object_get(item, "class"));
        o.tracking_id = Int(item, "tracking_id");
        o.snapshot_id = Int(item, "snapshot_id");
        o.region = json_is_true(json_object_get(item, "region"));
        o.fence = Int(item, "fence");
        for (size_t k = 0; k < 4; ++k) {
          o.box[k] = json_number_value(json_array_get(json_object_get(item, "box"), k));
        }
        event.objects.push_back(o);
      }
      transcript.events.push_back(std::move(event));
    } else if (kind == "note") {
      transcript.notes.push_back(
          {json_string_value(json_object_get(record, "note")), transcript.events.size()});
    }
    json_decref(record);
  }
  return transcript;
}

bool WaitForEvents(const Subprocess& stand_in, size_t count) {
  return WaitUntil([&] { return Read(stand_in).events.size() >= count; }, seconds(30));
}

// Runs the stand-in until it ends by itself, after the daemon's last run.
Transcript RunToEnd(int max_restarts = 0, const std::vector<std::string>& extra = {}) {
  Subprocess stand_in(StandIn(max_restarts, extra));
  // Under a cross build's emulator the daemon runs about ten times slower.
  EXPECT_TRUE(stand_in.Wait(seconds(600))) << ReadFileOrEmpty(kDaemonOutput);
  EXPECT_EQ(stand_in.result().exit_code, 0) << stand_in.result().err;
  return Read(stand_in);
}

// The daemon's log lines that contain text.
std::vector<std::string> LogLines(const std::string& text) {
  return testing::LinesContaining(ReadFileOrEmpty(kDaemonOutput), text);
}

std::vector<int> RetryCounts() {
  std::vector<int> counts;
  for (const std::string& line : LogLines("Cannot read more frame, has retry ")) {
    counts.push_back(std::stoi(line.substr(line.find("has retry ") + 10)));
  }
  return counts;
}

std::set<int> TrackingIds(std::vector<EventRecord>::const_iterator begin,
                          std::vector<EventRecord>::const_iterator end) {
  std::set<int> ids;
  for (auto event = begin; event != end; ++event) {
    for (const ObjectRecord& object : event->objects) ids.insert(object.tracking_id);
  }
  return ids;
}

// The stories run natively only: under the emulator they would take minutes. What the target's
// build must show is covered by the byte comparison of a whole run (VirtualTime below).
constexpr char kNativeOnly[] = "a story for native runs only";

constexpr char kStandingPerson[] = R"({"name": "standing", "duration": 30, "objects": [
  {"id": 1, "class": "person", "keys": [[0, 0.45, 0.3, 0.52, 0.7], [30, 0.45, 0.3, 0.52, 0.7]]}]})";

// On the real clock at real-time pace: the path the camera takes (watchdog, live reload).
TEST(Daemon, ReloadsWithIdsFromZeroAndAStopSignalEndsItAfterThePassInProgress) {
  if (UnderEmulator()) GTEST_SKIP() << kNativeOnly;
  RunSetup setup;
  setup.scene = kStandingPerson;
  setup.clock = "real";
  setup.pace = "realtime";
  setup.model_args = {"--delay-ms", "400"};  // so that the stop signal lands inside a pass
  Prepare(setup);
  Subprocess stand_in(StandIn());
  ASSERT_TRUE(WaitForEvents(stand_in, 3)) << ReadFileOrEmpty(kDaemonOutput);
  EXPECT_EQ(LogLines("Reload config").size(), 1u);
  // The pipeline's lines name the daemon's own source file and the pipeline's function.
  for (const std::string& line : LogLines("Reload config")) {
    EXPECT_NE(line.find("] mirvane.cc:"), std::string::npos) << line;
    EXPECT_NE(line.find(":RunModelPipeline: "), std::string::npos) << line;
  }

  SetSetting("Custom.Dva.Threshold.Detection", "40");
  ASSERT_TRUE(WaitUntil([] { return LogLines("Reload config").size() == 2; }, seconds(10)));
  const size_t before = Read(stand_in).events.size();
  ASSERT_TRUE(WaitForEvents(stand_in, before + 3));
  stand_in.Signal(SIGTERM);
  ASSERT_TRUE(stand_in.Wait(seconds(15)));

  const Transcript t = Read(stand_in);
  EXPECT_EQ(TrackingIds(t.events.begin(), t.events.begin() + before), std::set<int>{0});
  EXPECT_EQ(TrackingIds(t.events.begin() + before, t.events.end()), std::set<int>{0})
      << "the new tracker counts from 0 again";
  const NoteRecord* stop = t.FindNote("stopping the daemon");
  ASSERT_NE(stop, nullptr);
  EXPECT_EQ(t.events.size(), stop->events_before + 1) << "the frame in progress is reported";
  EXPECT_EQ(t.CountNotes("daemon exited with code 0"), 1);
  EXPECT_TRUE(RetryCounts().empty());
  EXPECT_EQ(LogLines("Reload config").size(), 2u);
}

// Ground truth of the simulated video: per frame timestamp, the objects shown (pixel boxes).
struct TruthBox {
  int object_id = 0;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};
struct GroundTruth {
  std::map<std::string, long long> header;  // "width", "height", "frames"
  std::map<uint64_t, std::vector<TruthBox>> frames;
};

GroundTruth ReadGroundTruth() {
  GroundTruth truth;
  std::istringstream lines(ReadFileOrEmpty(kGroundTruth));
  std::string line;
  while (std::getline(lines, line)) {
    if (line[0] == '#') {
      for (const std::string key : {"width", "height", "frames"}) {
        const size_t at = line.find(key + "=");
        if (at != std::string::npos)
          truth.header[key] = std::stoll(line.substr(at + key.size() + 1));
      }
      continue;
    }
    unsigned long long count = 0, timestamp = 0, frame = 0;
    int class_id = 0;
    TruthBox box;
    if (std::sscanf(line.c_str(), "%llu,%llu,%llu,%d,%d,%lf,%lf,%lf,%lf", &count, &timestamp,
                    &frame, &box.object_id, &class_id, &box.x0, &box.y0, &box.x1, &box.y1) == 9) {
      truth.frames[timestamp].push_back(box);
    }
  }
  return truth;
}

// Intersection over union of a normalised event box and a pixel box.
double Overlap(const ObjectRecord& object, const TruthBox& truth, long long width,
               long long height) {
  const double x0 = object.box[0] * width, y0 = object.box[1] * height;
  const double x1 = object.box[2] * width, y1 = object.box[3] * height;
  const double iw = std::min(x1, truth.x1) - std::max(x0, truth.x0);
  const double ih = std::min(y1, truth.y1) - std::max(y0, truth.y0);
  if (iw <= 0 || ih <= 0) return 0;
  const double inter = iw * ih;
  return inter / ((x1 - x0) * (y1 - y0) + (truth.x1 - truth.x0) * (truth.y1 - truth.y0) - inter);
}

// An object is in plain view when no other object of the frame overlaps it: while two overlap,
// the network may see one box for both, which shows neither of them.
bool InPlainView(const TruthBox& box, const std::vector<TruthBox>& frame) {
  for (const TruthBox& o : frame) {
    if (o.object_id != box.object_id && box.x0 < o.x1 && o.x0 < box.x1 && box.y0 < o.y1 &&
        o.y0 < box.y1) {
      return false;
    }
  }
  return true;
}

struct Match {
  std::set<int> tracking_ids;
  int frames = 0;
};

// For each ground-truth object, the tracking ids of the event objects that show it (overlap of
// at least 0.5) while it is in plain view.
std::map<int, Match> MatchTracks(const std::vector<EventRecord>& events, const GroundTruth& truth) {
  std::map<int, Match> matches;
  for (const EventRecord& event : events) {
    const auto frame = truth.frames.find(event.timestamp);
    if (frame == truth.frames.end()) continue;
    for (const ObjectRecord& object : event.objects) {
      const TruthBox* best = nullptr;
      double best_overlap = 0.5;
      for (const TruthBox& box : frame->second) {
        const double overlap =
            Overlap(object, box, truth.header.at("width"), truth.header.at("height"));
        if (InPlainView(box, frame->second) && overlap >= best_overlap) {
          best = &box;
          best_overlap = overlap;
        }
      }
      if (best == nullptr) continue;
      Match& match = matches[best->object_id];
      match.tracking_ids.insert(object.tracking_id);
      ++match.frames;
    }
  }
  return matches;
}

// The size of a JPEG file's picture once decoded whole; 0 x 0 when it does not decode.
std::pair<int, int> JpegFileSize(const std::string& path) {
  const std::string bytes = ReadFileOrEmpty(path);
  auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  tjhandle handle = tjInitDecompress();
  int width = 0, height = 0, subsampling = 0, colourspace = 0;
  std::pair<int, int> size(0, 0);
  if (!bytes.empty() && tjDecompressHeader3(handle, data, bytes.size(), &width, &height,
                                            &subsampling, &colourspace) == 0) {
    std::vector<unsigned char> pixels(static_cast<size_t>(width) * height);
    if (tjDecompress2(handle, data, bytes.size(), pixels.data(), width, 0, height, TJPF_GRAY, 0) ==
        0) {
      size = {width, height};
    }
  }
  tjDestroy(handle);
  return size;
}

// The default scene, played twice: the scene's end makes every read fail, the fifth failure in a
// row stops the daemon, and the stand-in restarts it once. Failed reads injected at the start (4,
// one good frame, 4) must not stop it. The scene's two people who walk through each other
// (objects 4 and 5) keep their ids on both sides of the crossing.
TEST(DefaultScene, IdsStayStableSnapshotsAreReadableAndFiveFailedReadsEndEachRun) {
  if (UnderEmulator()) GTEST_SKIP() << kNativeOnly;
  RunSetup setup;
  setup.sim_extra = R"("faults": [
    {"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 1, "count": 4},
    {"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 6, "count": 4}])";
  Prepare(setup);
  const Transcript t = RunToEnd(1);

  const GroundTruth truth = ReadGroundTruth();
  ASSERT_EQ(truth.header, (std::map<std::string, long long>{
                              {"frames", 1000}, {"height", 1080}, {"width", 1920}}));
  const size_t frames = 1000;
  EXPECT_EQ(t.CountNotes("starting: "), 2);
  EXPECT_EQ(t.CountNotes("daemon exited with code 0"), 2);
  const std::vector<int> one_run = {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 4};
  std::vector<int> two_runs = one_run;
  two_runs.insert(two_runs.end(), one_run.begin(), one_run.end());
  EXPECT_EQ(RetryCounts(), two_runs);
  EXPECT_EQ(LogLines("Got max error count, restart daemon").size(), 2u);
  const NoteRecord* restart = t.FindNote("daemon exited with code 0");
  ASSERT_NE(restart, nullptr);
  ASSERT_EQ(restart->events_before, frames) << "one event per frame";
  ASSERT_EQ(t.events.size(), 2 * frames);
  EXPECT_EQ(t.events[frames].timestamp, t.events[0].timestamp);

  const std::vector<EventRecord> first(t.events.begin(), t.events.begin() + frames);
  const std::map<int, Match> matches = MatchTracks(first, truth);
  EXPECT_EQ(matches.size(), 9u) << "every object of the scene is seen";
  std::set<int> ids;
  for (const auto& m : matches) {
    EXPECT_EQ(m.second.tracking_ids.size(), 1u) << "object " << m.first;
    EXPECT_GT(m.second.frames, 50) << "object " << m.first;
    ids.insert(m.second.tracking_ids.begin(), m.second.tracking_ids.end());
  }
  EXPECT_EQ(ids.size(), matches.size()) << "no two objects share a tracking id";

  std::set<int> snapshot_ids;
  for (const EventRecord& event : t.events) {
    for (const ObjectRecord& object : event.objects) snapshot_ids.insert(object.snapshot_id);
  }
  EXPECT_EQ(snapshot_ids.count(0), 0u) << "every object has a snapshot";
  EXPECT_GE(snapshot_ids.size(), 9u);
  for (int id : snapshot_ids) {
    EXPECT_EQ(JpegFileSize("/tmp/zarn_ai_snapshot_" + std::to_string(id)), std::make_pair(160, 90))
        << "snapshot " << id;
  }
}

// A person walks left to right across the middle fence into the right half within the first
// second and stands there; a car crosses the fence right to left below them.
constexpr char kPersonAndCar[] = R"({"name": "rules", "duration": 6, "objects": [
  {"id": 1, "class": "person",
   "keys": [[0, 0.20, 0.3, 0.26, 0.7], [1, 0.62, 0.3, 0.68, 0.7], [6, 0.62, 0.3, 0.68, 0.7]]},
  {"id": 2, "class": "vehicle", "keys": [[1, 0.75, 0.75, 0.95, 0.95], [4, 0.05, 0.75, 0.25, 0.95]]}]})";

// On virtual time the dwell time is counted in frame timestamps and ends with the first frame
// strictly after it; on the real clock at real-time pace it is wall time, seen when the stand-in
// receives the events (a little slack for delivery).
TEST(Rules, RegionFlagAfterTheDwellTimeAndOneFenceEventInTheAllowedDirection) {
  if (UnderEmulator()) GTEST_SKIP() << kNativeOnly;
  constexpr double kDwellSeconds = 2;
  constexpr double kFrameSeconds = 0.04;
  struct Case {
    const char* clock;
    const char* pace;
    double earliest;  // bounds of the time from entering the region to the flag
    double latest;
  };
  for (const Case& c : {Case{"virtual", "fast", kDwellSeconds, kDwellSeconds + kFrameSeconds},
                        Case{"real", "realtime", kDwellSeconds - 0.2, kDwellSeconds + 1.0}}) {
    SCOPED_TRACE(c.clock);
    const bool virtual_time = std::string(c.clock) == "virtual";
    RunSetup setup;
    setup.scene = kPersonAndCar;
    setup.clock = c.clock;
    setup.pace = c.pace;
    setup.region = "0.5,0.0,1.0,0.0,1.0,1.0,0.5,1.0";
    setup.dwell_seconds = static_cast<int>(kDwellSeconds);
    setup.fence_directions = 1;
    Prepare(setup);
    const Transcript t = RunToEnd();

    double entered = -1, flagged = -1;
    std::vector<std::string> fence_events;
    for (const EventRecord& event : t.events) {
      const double when = virtual_time ? event.timestamp / 1e6 : event.time;
      for (const ObjectRecord& object : event.objects) {
        if (object.fence != 0)
          fence_events.push_back(object.class_name + std::to_string(object.fence));
        if (object.class_name != "person") continue;
        // The region test point of a person: the middle of the box, nine tenths down.
        const bool inside = (object.box[0] + object.box[2]) * 0.5 > 0.5;
        if (entered < 0 && inside) entered = when;
        if (object.region) {
          EXPECT_TRUE(inside);
          if (flagged < 0) flagged = when;
        } else {
          EXPECT_LT(flagged, 0) << "the flag stays up while the person stays";
        }
      }
    }
    EXPECT_EQ(fence_events, std::vector<std::string>{"person1"});
    ASSERT_GE(entered, 0);
    ASSERT_GE(flagged, 0);
    EXPECT_GT(flagged - entered, c.earliest);
    EXPECT_LE(flagged - entered, c.latest + 1e-6);
  }
}

TEST(Crowd, AnEventNeverCarriesMoreThan15Objects) {
  if (UnderEmulator()) GTEST_SKIP() << kNativeOnly;
  RunSetup setup;
  setup.scene = "crowd";
  Prepare(setup);
  const Transcript t = RunToEnd();
  ASSERT_FALSE(t.events.empty());
  size_t most = 0;
  for (const EventRecord& event : t.events) {
    EXPECT_EQ(event.count, static_cast<int>(event.objects.size()));
    most = std::max(most, event.objects.size());
  }
  EXPECT_EQ(most, 15u) << "the crowd fills events up to the limit and no further";
}

// What a whole run leaves behind: every event's payload as the stand-in received it, and the
// snapshots it kept, by file name ("<tracking id>-<timestamp>.jpg").
struct Recording {
  std::string payloads;
  std::map<std::string, std::string> snapshots;
};

Recording RecordRun(const std::string& dir) {
  for (int id = 1; id <= 150; ++id) unlink(("/tmp/zarn_ai_snapshot_" + std::to_string(id)).c_str());
  RunToEnd(0, {"--keep-snapshots", dir + "/snapshots", "--record-events", dir + "/events.bin"});
  Recording run;
  run.payloads = ReadFileOrEmpty(dir + "/events.bin");
  std::error_code failure;
  for (const auto& file : std::filesystem::directory_iterator(dir + "/snapshots", failure)) {
    run.snapshots[file.path().filename().string()] = ReadFileOrEmpty(file.path().string());
  }
  return run;
}

// The default scene, whole, with the network the build installs (misses, false boxes and jittered
// scores included), on virtual time at fast pace: two runs give the same events and snapshots,
// byte for byte. The run is left in the artifacts, so that scripts/test.sh also holds the native
// and the armhf build to the same bytes. The stand-in copies a snapshot when an event first names
// it; the daemon can run ahead of it only by what the socket buffers (about a hundred events),
// far fewer than the 150 snapshot files it reuses, so no copy catches a newer picture.
TEST(VirtualTime, TwoRunsOfAWholeSceneGiveTheSameEventsAndSnapshotsByteForByte) {
  constexpr size_t kFrames = 1000;
  constexpr size_t kPayloadBytes = 520;
  RunSetup setup;
  setup.ideal_model = false;
  Prepare(setup);
  const Recording first = RecordRun("/tmp/first");
  const Recording second = RecordRun("/tmp/second");

  ASSERT_EQ(first.payloads.size(), kFrames * kPayloadBytes) << "one event per frame";
  EXPECT_TRUE(first.payloads == second.payloads) << "the events differ";
  EXPECT_GT(first.snapshots.size(), 50u);
  std::vector<std::string> differing;
  for (const auto& snapshot : first.snapshots) {
    const auto other = second.snapshots.find(snapshot.first);
    if (other == second.snapshots.end() || other->second != snapshot.second) {
      differing.push_back(snapshot.first);
    }
  }
  EXPECT_EQ(differing, std::vector<std::string>{}) << "snapshots of the first run";
  EXPECT_EQ(first.snapshots.size(), second.snapshots.size());

  EXPECT_TRUE(testing::SaveArtifact("e2e/default_scene/events.bin", first.payloads));
  for (const auto& snapshot : first.snapshots) {
    EXPECT_TRUE(
        testing::SaveArtifact("e2e/default_scene/snapshots/" + snapshot.first, snapshot.second));
  }
}

#ifdef MIRVANE_E2E_FOOTAGE
// The tracks of each class, by tracking id, and the objects of each frame by timestamp.
struct TrackSummary {
  std::map<std::string, std::set<int>> ids_by_class;
  std::map<uint64_t, std::vector<ObjectRecord>> objects_by_time;
};

TrackSummary Summarise(const Transcript& t) {
  TrackSummary s;
  for (const EventRecord& event : t.events) {
    for (const ObjectRecord& object : event.objects) {
      s.ids_by_class[object.class_name].insert(object.tracking_id);
    }
    s.objects_by_time[event.timestamp] = event.objects;
  }
  return s;
}

// The largest distance of a box side from the nearest box of the same class among others.
double Deviation(const ObjectRecord& object, const std::vector<ObjectRecord>& others) {
  double best = 1.0;
  for (const ObjectRecord& other : others) {
    if (other.class_name != object.class_name) continue;
    double worst = 0;
    for (int k = 0; k < 4; ++k) worst = std::max(worst, std::fabs(other.box[k] - object.box[k]));
    best = std::min(best, worst);
  }
  return best;
}

TEST(Footage, AnH264FileOfAShippedSceneGivesTheScenesTracks) {
  constexpr int kFps = 10;
  std::string error;
  const auto scene = sim::MakeFrameSource("edges", 960, 540, kFps, &error);
  ASSERT_NE(scene, nullptr) << error;
  testing::VideoFormat format;
  format.width = 960;
  format.height = 540;
  format.fps = kFps;
  const std::string file = "/tmp/mirvane-sim/edges.mkv";
  WriteText(file, "");
  std::vector<sim::GroundTruthBox> drawn;
  ASSERT_TRUE(testing::WriteVideo(
      file, format, scene->FrameCount(),
      [&](int64_t index, const sim::Nv12Image& picture) { scene->Render(index, picture, &drawn); },
      &error))
      << error;

  RunSetup setup;
  setup.scene = "edges";
  setup.video_extra = ", \"fps\": " + std::to_string(kFps);
  Prepare(setup);
  const TrackSummary from_scene = Summarise(RunToEnd());
  setup.file = file;
  setup.video_extra = "";
  Prepare(setup);
  const TrackSummary from_file = Summarise(RunToEnd());

  ASSERT_FALSE(from_scene.ids_by_class.empty()) << "the scene gives tracks";
  for (const auto& entry : from_scene.ids_by_class) {
    const auto other = from_file.ids_by_class.find(entry.first);
    ASSERT_NE(other, from_file.ids_by_class.end()) << entry.first;
    EXPECT_EQ(other->second.size(), entry.second.size()) << entry.first << " tracks";
  }
  EXPECT_EQ(from_file.ids_by_class.size(), from_scene.ids_by_class.size());
  // Frame by frame the same objects, in nearly the same places: compression moves an edge by a
  // pixel or two of the 384-pixel network input, about half a percent of the picture.
  size_t frames = 0, differing = 0;
  for (const auto& entry : from_scene.objects_by_time) {
    const auto other = from_file.objects_by_time.find(entry.first);
    if (other == from_file.objects_by_time.end()) continue;
    ++frames;
    bool same = other->second.size() == entry.second.size();
    for (const ObjectRecord& object : entry.second) {
      same = same && Deviation(object, other->second) < 0.01;
    }
    differing += same ? 0 : 1;
  }
  EXPECT_GT(frames, from_scene.objects_by_time.size() * 9 / 10) << "the same timestamps";
  EXPECT_LE(differing, frames / 50) << "of " << frames << " frames";
}
#endif

}  // namespace
}  // namespace e2e
}  // namespace mirvane
