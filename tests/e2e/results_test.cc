// What the system daemon receives from the whole chain on the host simulation: region and fence
// flags, snapshot files, the object limit of an event, and a daemon restarted after its scene.
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <set>
#include <string>

#include "e2e/e2e_support.h"

namespace mirvane {
namespace e2e {
namespace {

using std::chrono::seconds;

constexpr char kWholePicture[] = "0.0,0.0,1.0,0.0,1.0,1.0,0.0,1.0";
constexpr char kRightHalf[] = "0.5,0.0,1.0,0.0,1.0,1.0,0.5,1.0";
constexpr char kMiddleFence[] = "0.5,0.0,0.5,1.0";  // top to bottom: direction 1 is left to right

// A person walking into the right half within the first second and standing there until 6 s.
constexpr char kPersonStaying[] = R"({"name": "staying", "duration": 6, "objects": [
  {"id": 1, "class": "person",
   "keys": [[0, 0.20, 0.3, 0.26, 0.7], [1, 0.62, 0.3, 0.68, 0.7], [6, 0.62, 0.3, 0.68, 0.7]]}]})";

// A car crossing the middle of the picture from left to right.
constexpr char kCarCrossing[] = R"({"name": "crossing", "duration": 3, "objects": [
  {"id": 1, "class": "vehicle", "keys": [[0, 0.05, 0.5, 0.25, 0.7], [3, 0.75, 0.5, 0.95, 0.7]]}]})";

// A short scene with two people, for runs that only need the daemon to work.
constexpr char kTwoPeople[] = R"({"name": "short", "duration": 2, "objects": [
  {"id": 1, "class": "person", "keys": [[0, 0.1, 0.3, 0.16, 0.7], [2, 0.3, 0.3, 0.36, 0.7]]},
  {"id": 2, "class": "person", "keys": [[0, 0.6, 0.2, 0.65, 0.6], [2, 0.6, 0.2, 0.65, 0.6]]}]})";

// Runs the daemon on a scene until the scene is over and the stand-in has stopped.
Transcript RunScene(const std::string& scene, const std::string& pace, int restarts = 0) {
  WriteSimSettings(scene, pace);
  StandInRun run(restarts);
  EXPECT_TRUE(run.WaitForEnd(seconds(60))) << DaemonOutput();
  EXPECT_EQ(run.result().exit_code, 0) << run.result().err;
  return run.Read();
}

bool InRightHalf(const ObjectRecord& person) {
  // The region test point of a person: the middle of the box at nine tenths of its height.
  return (person.box[0] + person.box[2]) * 0.5 > 0.5;
}

TEST(RegionRule, APersonStayingInTheRegionIsFlaggedOnlyAfterTheDwellTime) {
  constexpr double kDwellSeconds = 2;
  UseIdealModel();
  LoadRules(kRightHalf, static_cast<int>(kDwellSeconds), kMiddleFence, 0);
  // The dwell time runs on the daemon's clock, so the scene plays in real time.
  const Transcript transcript = RunScene(WriteScene(kPersonStaying), "realtime");

  double entered = -1;
  double flagged = -1;
  int flagged_events = 0;
  for (const EventRecord& event : transcript.events) {
    ASSERT_LE(event.objects.size(), 1u);
    if (event.objects.empty()) continue;
    const ObjectRecord& person = event.objects[0];
    EXPECT_EQ(person.class_name, "person");
    if (entered < 0 && InRightHalf(person)) entered = event.time;
    if (person.region) {
      EXPECT_TRUE(InRightHalf(person));
      if (flagged < 0) flagged = event.time;
      ++flagged_events;
    } else {
      EXPECT_LT(flagged, 0) << "the flag stays up while the person stays";
    }
  }
  ASSERT_GE(entered, 0) << "the person entered the region";
  ASSERT_GE(flagged, 0) << "the person was flagged";
  // Times are when the stand-in received the events; a little slack for delivery.
  EXPECT_GT(flagged - entered, kDwellSeconds - 0.2);
  EXPECT_LT(flagged - entered, kDwellSeconds + 1.0);
  EXPECT_GT(flagged_events, 25) << "flagged for the rest of the scene";
}

// Events whose object carries fence bits, and those bits.
std::vector<int> FenceFlags(const Transcript& transcript) {
  std::vector<int> flags;
  for (const EventRecord& event : transcript.events) {
    for (const ObjectRecord& object : event.objects) {
      if (object.fence != 0) flags.push_back(object.flags);
    }
  }
  return flags;
}

TEST(FenceRule, ACarCrossingTheFenceIsFlaggedOnceInTheAllowedDirectionOnly) {
  UseIdealModel();
  const std::string scene = WriteScene(kCarCrossing);

  LoadRules(kWholePicture, 60, kMiddleFence, 1);
  const Transcript allowed = RunScene(scene, "fast");
  ASSERT_GT(allowed.events.size(), 50u);
  EXPECT_EQ(FenceFlags(allowed), std::vector<int>{4}) << "direction 1 is flag 4, in one event";

  LoadRules(kWholePicture, 60, kMiddleFence, 2);
  const Transcript other = RunScene(scene, "fast");
  ASSERT_GT(other.events.size(), 50u);
  EXPECT_TRUE(FenceFlags(other).empty());

  LoadRules(kWholePicture, 60, kMiddleFence, 3);
  EXPECT_EQ(FenceFlags(RunScene(scene, "fast")), std::vector<int>{4});
}

struct JpegSize {
  int width = 0;
  int height = 0;
};

// The size of the picture in a JPEG file, after decoding it whole; zero when it does not decode.
JpegSize DecodeJpegFile(const std::string& path) {
  const std::string bytes = testing::ReadFileOrEmpty(path);
  JpegSize size;
  tjhandle handle = tjInitDecompress();
  int subsampling = 0;
  int colourspace = 0;
  auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  int width = 0;
  int height = 0;
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

TEST(Snapshots, EverySnapshotIdInTheEventsNamesA160x90Jpeg) {
  UseIdealModel();
  LoadRules(kRightHalf, 1, kMiddleFence, 3);
  const Transcript transcript = RunScene("default", "fast");

  std::set<int> ids;
  size_t objects = 0;
  for (const EventRecord& event : transcript.events) {
    for (const ObjectRecord& object : event.objects) {
      ids.insert(object.snapshot_id);
      ++objects;
    }
  }
  ASSERT_GT(objects, 1000u);
  EXPECT_EQ(ids.count(0), 0u) << "every object has a snapshot";
  EXPECT_GE(ids.size(), 9u) << "one at least for each object of the scene";
  for (int id : ids) {
    const JpegSize size = DecodeJpegFile("/tmp/zarn_ai_snapshot_" + std::to_string(id));
    EXPECT_EQ(size.width, 160) << "snapshot " << id;
    EXPECT_EQ(size.height, 90) << "snapshot " << id;
  }
}

TEST(EventLimit, AnEventNeverCarriesMoreThan15Objects) {
  UseIdealModel();
  LoadRules(kRightHalf, 1, kMiddleFence, 3);
  const Transcript transcript = RunScene("crowd", "fast");

  ASSERT_FALSE(transcript.events.empty());
  size_t most = 0;
  for (const EventRecord& event : transcript.events) {
    EXPECT_EQ(event.count, static_cast<int>(event.objects.size()));
    most = std::max(most, event.objects.size());
  }
  EXPECT_EQ(most, 15u) << "the crowd fills events up to the limit and no further";
}

TEST(Restart, TheStandInRestartsTheDaemonAfterTheSceneEndsAndItRunsAgain) {
  UseIdealModel();
  LoadRules(kRightHalf, 1, kMiddleFence, 3);
  const Transcript transcript = RunScene(WriteScene(kTwoPeople), "fast", 1);

  EXPECT_EQ(CountNotes(transcript, "starting: "), 2);
  EXPECT_EQ(CountNotes(transcript, "daemon exited with code 0"), 2);
  EXPECT_EQ(DaemonLogLines("Got max error count, restart daemon").size(), 2u);
  EXPECT_EQ(DaemonLogLines("Reload config").size(), 2u);
  // Each run plays the whole scene: 50 frames, one event each, timestamps starting over.
  const NoteRecord* restart = FindNote(transcript, "daemon exited with code 0");
  ASSERT_NE(restart, nullptr);
  EXPECT_EQ(restart->events_before, 50u);
  ASSERT_EQ(transcript.events.size(), 100u);
  EXPECT_EQ(transcript.events[50].timestamp, transcript.events[0].timestamp);
  EXPECT_EQ(transcript.events[99].timestamp, transcript.events[49].timestamp);
}

}  // namespace
}  // namespace e2e
}  // namespace mirvane
