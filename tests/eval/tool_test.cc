// The mirvane-eval program end to end: command line, exit status and its two outputs, on files
// written into this test's private /tmp.
#include <gtest/gtest.h>
#include <jansson.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "json_input.h"
#include "testing/child_process.h"

namespace mirvane {
namespace eval {
namespace {

using testing::ChildResult;

ChildResult RunTool(std::vector<std::string> args) {
  args.insert(args.begin(), MIRVANE_EVAL_PATH);
  testing::Subprocess tool(args);
  EXPECT_TRUE(tool.Wait(std::chrono::seconds(30)));
  return tool.result();
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

// A person (object 1) in frames 0-3 at 25 frames a second in a 200 x 100 picture, tracked as
// #7 in frames 0-2 with an exact box, as #9 in frame 3 (an identity switch), with the region
// flagged from frame 2; plus a false report with a crossing in frame 4, which has no truth rows,
// and a second report of frame 1 (ignored). The region is expected from frame 1, a crossing the
// other way at frame 2.
void WriteScene() {
  std::string truth =
      "# scene=test width=200 height=100 fps=25 frames=5\n"
      "count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1\n";
  std::string events = "{\"kind\":\"connected\",\"client\":0}\n";
  const int kFrame[] = {0, 1, 2, 3, 4, 1}, kTrack[] = {7, 7, 7, 9, 9, 8},
            kFlags[] = {0, 0, 1, 1, 4, 0};
  char line[256];
  for (int i = 0; i < 6; ++i) {
    const int timestamp = 1000000 + 40000 * kFrame[i];
    std::snprintf(line, sizeof line, "%d,%d,%d,1,1,20,20,60,60\n", i + 1, timestamp, i);
    if (i < 4) truth += line;
    std::snprintf(line, sizeof line,
                  R"({"kind":"event","timestamp":%d,"objects":[{"class":"person","tracking_id":%d,)"
                  R"("flags":%d,"box":%s}]})"
                  "\n",
                  timestamp, kTrack[i], kFlags[i],
                  i < 4 ? "[0.1,0.2,0.3,0.6]" : "[0.7,0.7,0.8,0.8]");
    events += line;
  }
  WriteFile("/tmp/truth.csv", truth);
  WriteFile("/tmp/events.jsonl", events);
  WriteFile("/tmp/expect.json",
            R"({"region":{"expect":[{"object":1,"frame":1}]},
                "fence":{"expect":[{"object":1,"direction":2,"frame":2}]}})");
}

std::vector<std::string> Inputs(std::vector<std::string> more) {
  more.insert(more.begin(), {"--truth", "/tmp/truth.csv", "--events", "/tmp/events.jsonl"});
  return more;
}

// 4 truth boxes all matched, 1 switch, 1 false positive: MOTA 1 - 2/4. IDTP 3 (#7 on object 1)
// of 4 true and 5 reported boxes. HOTA at every alpha: TP 4, FP 1: DetA 0.8; #7 shares 3 frames
// with the object over 4 + 3 - 3, #9 1 over 4 + 2 - 1: AssA (3 * 3/4 + 1/5) / 4 = 0.6125, HOTA
// sqrt(0.8 * 0.6125) = 0.7. The region flag of #7 comes 0.04 s late, #9 flags it again; its
// crossing in the unlisted frame is timed after the last listed one and owned by object 1.
TEST(EvalTool, PrintsTheMetricsAndRulesTable) {
  WriteScene();
  const ChildResult r = RunTool(Inputs({"--expect", "/tmp/expect.json"}));
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out,
            R"(Run: 5 frames (truth 4, reported 5, both 4); 1 objects, 2 tracks
CLEAR MOT (IoU >= 0.50)
  MOTA   0.500   MOTP   1.000   recall   1.000   precision   0.800
  matches 4   misses 0   false positives 1   ID switches 1   fragmentations 0
  mostly tracked 1   partially tracked 0   mostly lost 0
Identity (IoU >= 0.50)
  IDF1   0.667   IDP    0.600   IDR      0.750   (IDTP 3, IDFP 2, IDFN 1)
HOTA (mean over alpha 0.05 .. 0.95)
  HOTA   0.700   DetA   0.800   AssA     0.613   LocA        1.000
  DetRe  1.000   DetPr  0.800   AssRe    0.625   AssPr       0.875
Rules
  rule    expected  found  missed  false  mean delay  max delay
  region         1      1       0      1     +0.04 s    +0.04 s
  fence          1      0       1      1           -          -
  region object 1 at 0.04 s: found, track #7 at 0.08 s (+0.04 s)
  fence  object 1 direction 2 at 0.08 s: MISSED
  FALSE region: track #9 at 0.12 s (object 1): repeated
  FALSE fence direction 1: track #9 at 0.16 s (object 1): object 1 has no such expectation
)");
}

const json_t* At(const json_t* json, const char* first, const char* second) {
  return json_object_get(json_object_get(json, first), second);
}

TEST(EvalTool, PrintsJsonWithUndefinedRatiosAsNull) {
  WriteScene();
  ChildResult r = RunTool(Inputs({"--json", "--iou", "0.9", "--expect", "/tmp/expect.json"}));
  ASSERT_EQ(r.exit_code, 0) << r.err;
  std::string error;
  JsonRef json = ParseJson(r.out, &error);
  ASSERT_TRUE(json_is_object(json.get())) << error << "\n" << r.out;
  EXPECT_DOUBLE_EQ(json_number_value(json_object_get(json.get(), "iou_threshold")), 0.9);
  EXPECT_DOUBLE_EQ(json_number_value(At(json.get(), "clear", "mota")), 0.5);
  EXPECT_EQ(json_integer_value(At(json.get(), "clear", "switches")), 1);
  EXPECT_EQ(json_integer_value(json_object_get(At(json.get(), "rules", "region"), "found")), 1);

  r = RunTool(Inputs({"--json", "--class", "vehicle"}));
  ASSERT_EQ(r.exit_code, 0) << r.err;
  json = ParseJson(r.out, &error);
  ASSERT_TRUE(json_is_object(json.get())) << error << "\n" << r.out;
  EXPECT_STREQ(json_string_value(json_object_get(json.get(), "class")), "vehicle");
  EXPECT_EQ(json_integer_value(At(json.get(), "clear", "objects")), 0);
  EXPECT_EQ(json_integer_value(At(json.get(), "clear", "tracks")), 0);
  EXPECT_TRUE(json_is_null(At(json.get(), "clear", "mota")));
  EXPECT_TRUE(json_is_null(At(json.get(), "identity", "idp")));
  EXPECT_EQ(json_array_size(At(json.get(), "hota", "at_alpha")), 19u);
  EXPECT_EQ(json_object_get(json.get(), "rules"), nullptr);
}

TEST(EvalTool, RejectsBadCommandLinesAndInputs) {
  WriteScene();
  WriteFile("/tmp/late.json", R"({"fence":{"expect":[{"object":1,"frame":99,"direction":1}]}})");
  WriteFile("/tmp/bad.json", R"({"fence":{"expect":[{"object":1,"time":1}]}})");
  const struct {
    std::vector<std::string> args;
    int exit_code;
    std::string err;  // the start of standard error
  } cases[] = {
      {{"--truth", "/tmp/truth.csv"}, 2, "usage: mirvane-eval"},
      {Inputs({"--iou", "1.5"}), 2, ""},
      {Inputs({"--what"}), 2, ""},
      {{"--truth", "/tmp/none.csv", "--events", "/tmp/events.jsonl"},
       1,
       "mirvane-eval: /tmp/none.csv: cannot open /tmp/none.csv\n"},
      // The truth's frame rate places a frame it does not list.
      {Inputs({"--expect", "/tmp/late.json"}), 0, ""},
      {Inputs({"--expect", "/tmp/bad.json"}), 1,
       "mirvane-eval: /tmp/bad.json: \"fence\": the expectation for object 1 needs a "
       "\"direction\" of 1 or 2\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args.back());
    const ChildResult r = RunTool(c.args);
    EXPECT_EQ(r.exit_code, c.exit_code) << r.err;
    EXPECT_EQ(r.err.substr(0, c.err.size()), c.err);
  }
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
