// The pipeline loop seen from outside: the daemon on the host simulation, started by the
// system-daemon stand-in, with its log and its events read back.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "e2e/e2e_support.h"

namespace mirvane {
namespace e2e {
namespace {

using std::chrono::seconds;

// One person standing in the middle of the picture for the whole scene.
constexpr char kStandingPerson[] = R"({"name": "standing", "duration": %d, "objects": [
  {"id": 1, "class": "person", "keys": [[0, 0.45, 0.3, 0.52, 0.7], [%d, 0.45, 0.3, 0.52, 0.7]]}]})";

std::string StandingPersonScene(int seconds_long) {
  char text[512];
  std::snprintf(text, sizeof(text), kStandingPerson, seconds_long, seconds_long);
  return WriteScene(text);
}

void SetUpRun(const std::string& pace, const std::string& extra_sim = "",
              const std::vector<std::string>& model = {}) {
  WriteSimSettings(StandingPersonScene(30), pace, extra_sim);
  UseIdealModel(model);
  LoadRules("0.0,0.0,1.0,0.0,1.0,1.0,0.0,1.0", 1, "0.9,0.0,0.9,1.0", 3);
}

std::vector<int> RetryCounts() {
  std::vector<int> counts;
  for (const std::string& line : DaemonLogLines("Cannot read more frame, has retry ")) {
    const size_t at = line.find("has retry ") + 10;
    counts.push_back(std::stoi(line.substr(at)));
  }
  return counts;
}

std::set<int> TrackingIds(const std::vector<EventRecord>& events) {
  std::set<int> ids;
  for (const EventRecord& event : events) {
    for (const ObjectRecord& object : event.objects) ids.insert(object.tracking_id);
  }
  return ids;
}

size_t Reloads() {
  return DaemonLogLines("Reload config").size();
}

TEST(PipelineLoop, ReloadsAtStartAndAfterASettingsChangeWithIdsFromZeroAgain) {
  SetUpRun("realtime");
  StandInRun run;
  ASSERT_TRUE(run.WaitForEvents(10, seconds(30))) << DaemonOutput();
  EXPECT_EQ(Reloads(), 1u);
  EXPECT_EQ(TrackingIds(run.Read().events), std::set<int>{0});

  SetSetting("Custom.Dva.Threshold.Detection", "40");
  ASSERT_TRUE(testing::WaitUntil([] { return Reloads() == 2; }, seconds(10))) << DaemonOutput();
  const size_t before = run.Read().events.size();
  ASSERT_TRUE(run.WaitForEvents(before + 10, seconds(10)));
  const Transcript transcript = run.Read();
  const std::vector<EventRecord> after(transcript.events.begin() + before, transcript.events.end());
  EXPECT_EQ(TrackingIds(after), std::set<int>{0}) << "the new tracker counts from 0 again";

  run.Stop();
  ASSERT_TRUE(run.WaitForEnd(seconds(15)));
  EXPECT_EQ(CountNotes(run.Read(), "daemon exited with code 0"), 1);
  EXPECT_EQ(Reloads(), 2u);
}

TEST(PipelineLoop, FiveFailedReadsInARowStopTheDaemon) {
  SetUpRun(
      "fast",
      R"("faults": [{"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 1, "count": 5}])");
  StandInRun run;
  ASSERT_TRUE(run.WaitForEnd(seconds(30))) << DaemonOutput();

  EXPECT_EQ(RetryCounts(), (std::vector<int>{0, 1, 2, 3, 4}));
  const std::string log = DaemonOutput();
  const size_t reload = log.find("Reload config");
  const size_t first_retry = log.find("Cannot read more frame");
  const size_t stop = log.find("Got max error count, restart daemon");
  ASSERT_NE(stop, std::string::npos) << log;
  EXPECT_LT(reload, first_retry) << "the first pass reloads before it reads";
  EXPECT_LT(log.rfind("Cannot read more frame"), stop);
  const Transcript transcript = run.Read();
  EXPECT_TRUE(transcript.events.empty());
  EXPECT_EQ(CountNotes(transcript, "daemon exited with code 0"), 1);
}

TEST(PipelineLoop, AGoodFrameBetweenFailedReadsStartsTheCountAgain) {
  SetUpRun("fast", R"("faults": [
    {"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 1, "count": 4},
    {"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 6, "count": 4}])");
  StandInRun run;
  ASSERT_TRUE(run.WaitForEvents(20, seconds(30))) << DaemonOutput();

  EXPECT_EQ(RetryCounts(), (std::vector<int>{0, 1, 2, 3, 0, 1, 2, 3}));
  EXPECT_TRUE(DaemonLogLines("Got max error count").empty());
  // The single good frame between the two runs of failures was processed and reported.
  const Transcript transcript = run.Read();
  ASSERT_GE(transcript.events.size(), 2u);
  EXPECT_EQ(transcript.events[0].count, 1);
  run.Stop();
  ASSERT_TRUE(run.WaitForEnd(seconds(15)));
  EXPECT_EQ(CountNotes(run.Read(), "daemon exited with code 0"), 1);
}

TEST(PipelineLoop, AStopSignalEndsTheLoopAfterThePassInProgress) {
  // Each pass spends 400 ms in the network, so the signal lands inside one.
  SetUpRun("fast", "", {"--delay-ms", "400"});
  StandInRun run;
  ASSERT_TRUE(run.WaitForEvents(3, seconds(30))) << DaemonOutput();
  run.Stop();
  ASSERT_TRUE(run.WaitForEnd(seconds(15)));

  const Transcript transcript = run.Read();
  const NoteRecord* stop = FindNote(transcript, "stopping the daemon");
  ASSERT_NE(stop, nullptr);
  EXPECT_EQ(CountNotes(transcript, "daemon exited with code 0"), 1);
  EXPECT_TRUE(RetryCounts().empty());
  EXPECT_EQ(Reloads(), 1u);
  // The frame in progress when the signal came was finished and reported; no later one was read.
  EXPECT_EQ(transcript.events.size(), stop->events_before + 1);
}

}  // namespace
}  // namespace e2e
}  // namespace mirvane
