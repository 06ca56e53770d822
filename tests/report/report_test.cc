// The visual report: what it picks from a run (frames, trigger spans, snapshot gallery, rules) and
// a small page made by mirvane-report on files in this test's private /tmp.
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "html_page.h"
#include "run_report.h"
#include "snapshot_keeper.h"
#include "testing/child_process.h"

namespace mirvane {
namespace report {
namespace {

using testing::ReadFileOrEmpty;

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

eval::ReportedObject Reported(int64_t id, int flags) {
  eval::ReportedObject object;
  object.tracking_id = id;
  object.class_name = "person";
  object.flags = flags;
  return object;
}

// Frames at 0.0, 0.1 ... s; objects[i] are the objects reported in frame i (none: not reported).
eval::AlignedRun RunOf(const std::vector<std::vector<eval::ReportedObject>>& objects) {
  eval::AlignedRun run;
  run.fps = 10;
  for (size_t i = 0; i < objects.size(); ++i) {
    eval::RunFrame frame;
    frame.time = 0.1 * static_cast<double>(i);
    frame.frame = static_cast<int64_t>(i);
    frame.reported = !objects[i].empty();
    frame.reported_objects = objects[i];
    run.frames.push_back(frame);
  }
  return run;
}

TEST(RunReport, SamplesTheFirstReportedFrameOfEachPeriod) {
  const auto r = Reported(1, 0);
  const eval::AlignedRun run = RunOf({{}, {r}, {r}, {}, {}, {r}, {r}, {r}, {}, {}, {}, {r}});
  std::vector<int64_t> picked;
  for (const SampledFrame& s : SampleFrames(run, 2.0)) picked.push_back(s.scene_frame);
  EXPECT_EQ(picked, (std::vector<int64_t>{1, 5, 11}));
  EXPECT_EQ(SampleFrames(run, 0).size(), 6u);  // every reported frame
}

TEST(RunReport, TimelineSpansEndAtAFrameWithoutTheFlagButNotAtAnAbsence) {
  const int kRegion = eval::kRegionFlag;
  const int kFence1 = eval::kFenceDirection1Flag;
  // Track 1 flagged in frames 0-1, absent in 2, flagged in 3, unflagged in 4, flagged in 5;
  // track 2 crosses the fence in frame 3.
  const eval::AlignedRun run = RunOf({{Reported(1, kRegion)},
                                      {Reported(1, kRegion)},
                                      {Reported(2, 0)},
                                      {Reported(1, kRegion), Reported(2, kFence1)},
                                      {Reported(1, 0)},
                                      {Reported(1, kRegion)}});
  const std::vector<TimelineRow> rows = BuildTimeline(run);
  ASSERT_EQ(rows.size(), 3u);
  ASSERT_EQ(rows[0].spans.size(), 2u);
  EXPECT_DOUBLE_EQ(rows[0].spans[0].from, 0.0);
  EXPECT_DOUBLE_EQ(rows[0].spans[0].to, 0.3);
  EXPECT_DOUBLE_EQ(rows[0].spans[1].from, 0.5);
  ASSERT_EQ(rows[1].spans.size(), 1u);
  EXPECT_EQ(rows[1].spans[0].tracking_id, 2);
  EXPECT_TRUE(rows[2].spans.empty());
}

TEST(RunReport, GalleryGroupsKeptSnapshotsByTrackInTimeOrder) {
  const eval::AlignedRun run = RunOf({{Reported(4, 0)}});
  const std::vector<GalleryTrack> gallery =
      BuildGallery(run, {"4-2000000.jpg", "4-900000.jpg", "12-5.jpg", "notes.txt", "x-1.jpg"}, "s");
  ASSERT_EQ(gallery.size(), 2u);
  EXPECT_EQ(gallery[0].tracking_id, 4);
  EXPECT_EQ(gallery[0].class_name, "person");
  EXPECT_EQ(gallery[0].images, (std::vector<std::string>{"s/4-900000.jpg", "s/4-2000000.jpg"}));
  EXPECT_EQ(gallery[1].tracking_id, 12);
}

TEST(RuleOverlay, ReadsRegionAndFenceFromObjectsOrStringsAndRejectsBadNumbers) {
  RuleOverlay overlay;
  std::string error;
  ASSERT_TRUE(ParseRuleOverlay(
      R"({"Custom":{"Dva":{"ObjectDetection":{"DetectionRegion":"0.5,0.5,0.9,0.5,0.9,0.9",
          "DetectionRegionType":1},
          "IntrusionDetection":"{\"FenceLine\":\"0.5,0,0.5,1\",\"FenceIntersectType\":2}"}}})",
      &overlay, &error))
      << error;
  ASSERT_EQ(overlay.region.size(), 1u);
  EXPECT_EQ(overlay.region[0].size(), 3u);
  EXPECT_EQ(overlay.region_type, 1);
  EXPECT_EQ(overlay.fence.size(), 2u);
  EXPECT_EQ(overlay.fence_directions, 2);
  EXPECT_FALSE(ParseRuleOverlay(
      R"({"Custom":{"Dva":{"IntrusionDetection":{"FenceLine":"0.5,x"}}}})", &overlay, &error));
  EXPECT_FALSE(ParseRuleOverlay(R"({"Dva":{}})", &overlay, &error));
}

TEST(HtmlPage, EscapesNamesFromTheFiles) {
  RunReport run;
  run.name = "<b>&\"";
  EXPECT_EQ(RenderPage({run}).find("<b>&\""), std::string::npos);
}

// Two frames of the "edges" scene with one person tracked as #7, flagged by the region rule in the
// second; one kept snapshot.
void WriteRun(const std::string& prefix) {
  std::string truth =
      "# scene=edges width=320 height=180 fps=5 frames=2\n"
      "count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1\n";
  std::string events;
  for (int f = 0; f < 2; ++f) {
    const std::string ts = std::to_string(1000000 + 200000 * f);
    truth += "1," + ts + "," + std::to_string(f) + ",1,1,32,36,64,108\n";
    events += "{\"kind\":\"event\",\"timestamp\":" + ts +
              ",\"objects\":[{\"class\":\"person\",\"tracking_id\":7,\"snapshot_id\":3,\"flags\":" +
              (f == 1 ? "1" : "0") + ",\"confidence\":0.9,\"box\":[0.1,0.2,0.2,0.6]}]}\n";
  }
  WriteFile(prefix + ".truth.csv", truth);
  WriteFile(prefix + ".events.jsonl", events);
}

TEST(ReportTool, MakesAPageWithFramesOverlaysGalleryTimelineAndMetrics) {
  WriteRun("/tmp/run1");
  // The stand-in keeps the daemon's snapshot once per new snapshot id of a track.
  WriteFile("/tmp/zarn_ai_snapshot_3", "picture");
  std::filesystem::create_directories("/tmp/run1.snapshots");
  sysd::SnapshotKeeper keeper("/tmp/zarn_ai_snapshot_", "/tmp/run1.snapshots");
  sysd::Event event;
  event.timestamp = 1000000;
  event.objects.resize(1);
  event.objects[0].tracking_id = 7;
  event.objects[0].snapshot_id = 3;
  EXPECT_EQ(keeper.Keep(event), "");
  event.timestamp = 1200000;
  EXPECT_EQ(keeper.Keep(event), "");  // the same picture again: not copied twice
  EXPECT_EQ(keeper.kept(), 1u);
  WriteFile("/tmp/settings.json",
            R"({"Custom":{"Dva":{"ObjectDetection":{"DetectionRegion":"0,0,0.5,0,0.5,1"},)"
            R"("IntrusionDetection":{"FenceLine":"0.7,0,0.7,1","FenceIntersectType":3}}}})");

  testing::Subprocess tool({MIRVANE_REPORT_PATH, "--out", "/tmp/report", "--settings",
                            "/tmp/settings.json", "--rate", "0", "--width", "160", "/tmp/run1"});
  ASSERT_TRUE(tool.Wait(std::chrono::seconds(60)));
  ASSERT_EQ(tool.result().exit_code, 0) << tool.result().err;
  const std::string page = ReadFileOrEmpty("/tmp/report/index.html");
  for (const char* part : {"<h2>run1 (scene edges", "class=\"region\"", "class=\"fence\"",
                           "#7 person R</text>", "class=\"truth\"", "run1/snapshots/7-1000000.jpg",
                           "region: 1 tracks", "fence direction 1: 0 tracks", "<td>1.000</td>"}) {
    EXPECT_NE(page.find(part), std::string::npos) << part;
  }
  for (const char* frame : {"/tmp/report/run1/frame-0.jpg", "/tmp/report/run1/frame-1.jpg"}) {
    const std::string jpeg = ReadFileOrEmpty(frame);
    tjhandle decoder = tjInitDecompress();
    int width = 0, height = 0, subsampling = 0, colourspace = 0;
    EXPECT_EQ(tjDecompressHeader3(decoder, reinterpret_cast<const unsigned char*>(jpeg.data()),
                                  jpeg.size(), &width, &height, &subsampling, &colourspace),
              0)
        << frame;
    tjDestroy(decoder);
    EXPECT_EQ(width, 160);
    EXPECT_EQ(height, 90);
  }
  EXPECT_EQ(ReadFileOrEmpty("/tmp/report/run1/snapshots/7-1000000.jpg"), "picture");

  testing::Subprocess missing({MIRVANE_REPORT_PATH, "--out", "/tmp/r2", "/tmp/no-such-run"});
  ASSERT_TRUE(missing.Wait(std::chrono::seconds(30)));
  EXPECT_EQ(missing.result().exit_code, 1);
  EXPECT_NE(missing.result().err.find("/tmp/no-such-run.truth.csv"), std::string::npos);
}

}  // namespace
}  // namespace report
}  // namespace mirvane
