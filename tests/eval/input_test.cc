// Reading the inputs: JSON-lines ground truth (the CSV is read end to end in tool_test.cc), the
// stand-in's event lines as its own printer writes them, and each reader's word on bad input.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "events.h"
#include "printer.h"
#include "rules.h"
#include "truth.h"

namespace mirvane {
namespace eval {
namespace {

std::vector<double> Corners(const Box& box) {
  return {box.xmin, box.ymin, box.xmax, box.ymax};
}

GroundTruth ReadTruth(const std::string& text) {
  GroundTruth truth;
  std::string error;
  EXPECT_TRUE(TruthReaderFor(text)->Read(text, &truth, &error)) << error;
  return truth;
}

// Frames come sorted by timestamp, merged when split over lines; their time is given, or the
// frame index over the rate, or the time since the first timestamp.
TEST(JsonLinesTruth, ReadsFramesSortedWithNamesAndTimes) {
  const GroundTruth truth = ReadTruth(
      R"({"scene":"default","fps":25}
{"frame":3,"timestamp":1120000,"objects":[{"id":4,"class":2,"box":[0.5,0.5,0.75,0.625]}]}

{"frame":2,"timestamp":1080000,"objects":[]}
{"frame":4,"timestamp":1160000,"time":9.5,"objects":[{"id":1,"class":"person","box":[0,0.25,0.125,1]}]}
{"frame":3,"timestamp":1120000,"objects":[{"id":5,"class":"other","box":[0,0,1,1]}]}
)");
  EXPECT_TRUE(truth.lists_empty_frames);
  ASSERT_EQ(truth.frames.size(), 3u);
  EXPECT_EQ(truth.frames[0].timestamp, 1080000u);
  EXPECT_TRUE(truth.frames[0].objects.empty());
  EXPECT_DOUBLE_EQ(truth.frames[0].time, 2 / 25.0);
  EXPECT_EQ(truth.frames[1].frame, 3);
  ASSERT_EQ(truth.frames[1].objects.size(), 2u);
  EXPECT_EQ(truth.frames[1].objects[0].id, 4);
  EXPECT_EQ(truth.frames[1].objects[0].class_name, "vehicle");
  EXPECT_EQ(Corners(truth.frames[1].objects[0].box), (std::vector<double>{0.5, 0.5, 0.75, 0.625}));
  EXPECT_EQ(truth.frames[1].objects[1].id, 5);
  EXPECT_DOUBLE_EQ(truth.frames[2].time, 9.5);

  const GroundTruth unnumbered =
      ReadTruth("{\"timestamp\":500000,\"objects\":[]}\n{\"timestamp\":700000,\"objects\":[]}");
  EXPECT_EQ(unnumbered.frames[1].frame, -1);
  EXPECT_DOUBLE_EQ(unnumbered.frames[1].time, 0.2);
}

TEST(InputReaders, SayWhereAndWhatIsWrong) {
  enum Reader { kTruth, kEvents, kExpectations };
  const struct {
    Reader reader;
    const char* text;
    const char* error;  // its start
  } cases[] = {
      {kTruth, "{\"timestamp\":1,\"objects\":[]}\n{\"timestamp\":-4,\"objects\":[]}",
       "line 2: \"timestamp\" is not a non-negative integer"},
      {kTruth, R"({"timestamp":1,"objects":[{"id":1,"class":"person","box":[1,2,3]}]})",
       "line 1: object 1 without a \"box\" of four numbers"},
      {kTruth, R"({"timestamp":1,"objects":[{"class":"person"}]})",
       "line 1: object without an integer \"id\""},
      {kTruth, R"({"timestamp":1})", "line 1: no \"objects\" array"},
      {kTruth, "{\"timestamp\":1,\n", "line 1: "},
      {kTruth, "count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1\n",
       "line 1: no picture width and height in a \"#\" line before the columns"},
      {kTruth, "# width=10 height=10\ntimestamp_us,object_id,class_id,x0,y0,x1\n",
       "line 2: no column \"y1\""},
      {kTruth, "# width=10 height=10\ntimestamp_us,object_id,class_id,x0,y0,x1,y1\n5,1,1,0,0,x,4\n",
       "line 3: \"x1\" is not an integer"},
      {kEvents, R"({"kind":"event","objects":[]})",
       "line 1: event without an integer \"timestamp\""},
      {kEvents, "\n{\"kind\":\"event\",\"timestamp\":1,\"objects\":[{\"tracking_id\":4}]}",
       "line 2: object #4 without a \"box\" of four numbers"},
      {kExpectations, R"({"fence":{"expect":[{"object":3,"time":1}]}})",
       "\"fence\": the expectation for object 3 needs a \"direction\" of 1 or 2"},
      {kExpectations, R"({"region":{"expect":[{"object":3,"time":1,"frame":2}]}})",
       "\"region\": the expectation for object 3 needs either a \"time\" or a \"frame\""},
      {kExpectations, R"({"region":{"expect":[{"time":1}]}})",
       "\"region\": an expectation without an integer \"object\""},
      {kExpectations, R"({"region":{"early_seconds":-1,"expect":[]}})",
       "\"region\": \"early_seconds\" is not a non-negative number"},
      {kExpectations, R"({"region":[]})", "\"region\": not an object with an \"expect\" array"},
      {kExpectations, "[]", "the expectations are not a JSON object"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::string error;
    GroundTruth truth;
    EventLog log;
    Expectations expectations;
    EXPECT_FALSE(c.reader == kTruth    ? TruthReaderFor(c.text)->Read(c.text, &truth, &error)
                 : c.reader == kEvents ? ParseEventLines(c.text, &log, &error)
                                       : ParseExpectations(c.text, &expectations, &error));
    EXPECT_EQ(error.substr(0, std::string(c.error).size()), c.error) << error;
  }
}

// Event lines without "flags" fall back to the decoded "region" and "fence" fields.
TEST(EventLines, ReadsWhatTheStandInPrintsAndSkipsForeignLines) {
  // Single-precision values print as sent (0.62, not 0.620000005).
  const sysd::EventObject person{
      0, 17, 3, kRegionFlag | kFenceDirection1Flag, 0.85f, {0.62f, 0.25f, 0.375f, 1.0f}};
  const sysd::EventObject car{1, 18, 3, kFenceDirection2Flag, 0.75f, {0, 0, 1, 1}};
  char* buffer = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&buffer, &size);
  {  // what the stand-in prints for a heartbeat, an event and its summary
    sysd::Printer printer(out, /*json=*/true, /*color=*/false);
    printer.HeartbeatLine(0, sysd::Heartbeat{true, "mirvane", "restart"});
    printer.EventLine(0, sysd::Event{129, 123456789, 2, {person, car}});
    printer.Summary("/tmp/snap_");
  }
  std::fclose(out);
  const std::string printed(buffer, size);
  std::free(buffer);
  EventLog log;
  std::string error;
  ASSERT_TRUE(ParseEventLines(
      printed + "[Mirvane][Info] a log line\n" +
          R"({"kind":"event","timestamp":5,"objects":[{"tracking_id":2,"region":true,"fence":3,)"
          R"("box":[0,0,0.5,0.5]}]})",
      &log, &error))
      << error;
  EXPECT_EQ(log.skipped_lines, 3u);  // the heartbeat, the summary and the log line
  ASSERT_EQ(log.frames.size(), 2u);
  EXPECT_EQ(log.frames[0].timestamp, 123456789u);
  ASSERT_EQ(log.frames[0].objects.size(), 2u);
  const ReportedObject& p = log.frames[0].objects[0];
  EXPECT_EQ(p.tracking_id, 17);
  EXPECT_EQ(p.class_name, "person");
  EXPECT_EQ(p.snapshot_id, 3);
  EXPECT_TRUE(p.region() && p.fence(1) && !p.fence(2));
  EXPECT_EQ(p.confidence, 0.85);
  EXPECT_EQ(Corners(p.box), (std::vector<double>{0.62, 0.25, 0.375, 1.0}));
  const ReportedObject& c = log.frames[0].objects[1];
  EXPECT_EQ(c.class_name, "vehicle");
  EXPECT_TRUE(!c.region() && !c.fence(1) && c.fence(2));
  const ReportedObject& o = log.frames[1].objects.at(0);
  EXPECT_TRUE(o.region() && o.fence(1) && o.fence(2));
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
