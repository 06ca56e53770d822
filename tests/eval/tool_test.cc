// The mirvane-eval program: command line, exit status and its two outputs, on files written
// into this test's private /tmp.
#include <gtest/gtest.h>

#include <jansson.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "json_input.h"
#include "testing/child_process.h"

namespace mirvane {
namespace eval {
namespace {

using testing::ChildResult;
using testing::Subprocess;

ChildResult RunTool(std::vector<std::string> args) {
  args.insert(args.begin(), MIRVANE_EVAL_PATH);
  Subprocess tool(args);
  EXPECT_TRUE(tool.Wait(std::chrono::seconds(30)));
  return tool.result();
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

// A person (object 1) in frames 0-3 at 25 frames a second in a 100 x 100 picture, tracked as
// #7 in frames 0-2 with an exact box, as #9 in frame 3 (an identity switch), with the region
// flagged from frame 2; plus a false report in frame 4, which has no truth rows.
void WriteScene() {
  std::string truth =
      "# scene=test width=100 height=100 fps=25 frames=5\n"
      "count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1\n";
  std::string events = "{\"kind\":\"connected\",\"client\":0}\n";
  for (int f = 0; f < 5; ++f) {
    const std::string ts = std::to_string(1000000 + 40000 * f);
    if (f < 4)
      truth += std::to_string(f + 1) + "," + ts + "," + std::to_string(f) + ",1,1,10,20,30,60\n";
    const int track = f < 3 ? 7 : 9;
    const std::string box = f < 4 ? "[0.1,0.2,0.3,0.6]" : "[0.7,0.7,0.8,0.8]";
    events += "{\"time\":1.5,\"kind\":\"event\",\"client\":0,\"timestamp\":" + ts +
              ",\"count\":1,\"objects\":[{\"class\":\"person\",\"class_code\":0,"
              "\"tracking_id\":" +
              std::to_string(track) +
              ",\"snapshot_id\":1,\"flags\":" + (f == 2 || f == 3 ? "1" : "0") +
              ",\"confidence\":0.9,\"box\":" + box + "}]}\n";
  }
  WriteFile("/tmp/truth.csv", truth);
  WriteFile("/tmp/events.jsonl", events);
  WriteFile("/tmp/expect.json", "{\"region\":{\"expect\":[{\"object\":1,\"frame\":1}]}}");
}

TEST(EvalTool, PrintsTheMetricsTable) {
  WriteScene();
  const ChildResult r = RunTool({"--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl",
                                 "--expect", "/tmp/expect.json"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  // 4 truth boxes, all matched, 1 switch, 1 false positive: MOTA = 1 - 2/4.
  EXPECT_NE(r.out.find("Run: 5 frames (truth 4, reported 5, both 4); 1 objects, 2 tracks"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("MOTA   0.500   MOTP   1.000   recall   1.000   precision   0.800"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("ID switches 1"), std::string::npos) << r.out;
  // IDTP 3 (#7 on object 1): IDF1 = 6 / (4 + 5).
  EXPECT_NE(r.out.find("IDF1   0.667"), std::string::npos) << r.out;
  // HOTA at every alpha: TP 4, FP 1: DetA 0.8. #7 shares 3 frames with the object over
  // 4 + 3 - 3, #9 shares 1 over 4 + 2 - 1: AssA (3 * 3/4 + 1 * 1/5) / 4 = 0.6125;
  // HOTA sqrt(0.8 * 0.6125) = 0.7.
  EXPECT_NE(r.out.find("HOTA   0.700   DetA   0.800   AssA     0.613"), std::string::npos)
      << r.out;
  // Expected at frame 1 (0.04 s), flagged by #7 at frame 2 (0.08 s); #9 triggers again.
  EXPECT_NE(r.out.find("region object 1 at 0.04 s: found, track #7 at 0.08 s (+0.04 s)"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("FALSE region: track #9 at 0.12 s (object 1): repeated"), std::string::npos)
      << r.out;
}

TEST(EvalTool, PrintsJsonOnRequest) {
  WriteScene();
  const ChildResult r = RunTool(
      {"--json", "--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl", "--iou", "0.9"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  std::string error;
  const JsonRef json = ParseJson(r.out, &error);
  ASSERT_TRUE(json_is_object(json.get())) << error << "\n" << r.out;
  EXPECT_DOUBLE_EQ(json_number_value(json_object_get(json.get(), "iou_threshold")), 0.9);
  const json_t* clear = json_object_get(json.get(), "clear");
  EXPECT_DOUBLE_EQ(json_number_value(json_object_get(clear, "mota")), 0.5);
  EXPECT_EQ(json_integer_value(json_object_get(clear, "switches")), 1);
  EXPECT_EQ(json_object_get(json.get(), "rules"), nullptr);
}

TEST(EvalTool, ScoresOneClassOnly) {
  WriteScene();
  const ChildResult r =
      RunTool({"--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl", "--class", "vehicle"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_NE(r.out.find("0 objects, 0 tracks; class vehicle"), std::string::npos) << r.out;
}

TEST(EvalTool, RejectsBadCommandLinesAndInputs) {
  WriteScene();
  ChildResult r = RunTool({"--truth", "/tmp/truth.csv"});
  EXPECT_EQ(r.exit_code, 2);
  EXPECT_NE(r.err.find("usage: mirvane-eval"), std::string::npos);
  EXPECT_EQ(RunTool({"--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl", "--iou", "1.5"})
                .exit_code,
            2);
  EXPECT_EQ(
      RunTool({"--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl", "--what"}).exit_code,
      2);

  r = RunTool({"--truth", "/tmp/none.csv", "--events", "/tmp/events.jsonl"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err, "mirvane-eval: /tmp/none.csv: cannot open /tmp/none.csv\n");

  WriteFile("/tmp/bad.json",
            "{\"fence\":{\"expect\":[{\"object\":1,\"frame\":99,"
            "\"direction\":1}]}}");
  r = RunTool(
      {"--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl", "--expect", "/tmp/bad.json"});
  EXPECT_EQ(r.exit_code, 0) << "frame 99 lies at 99 / 25 s";
  WriteFile("/tmp/bad.json", "{\"fence\":{\"expect\":[{\"object\":1,\"time\":1}]}}");
  r = RunTool(
      {"--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl", "--expect", "/tmp/bad.json"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "mirvane-eval: /tmp/bad.json: \"fence\": the expectation for object 1 needs "
            "a \"direction\" of 1 or 2\n");
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
