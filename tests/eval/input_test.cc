// Reading the inputs: ground truth as JSON lines and as the simulation's CSV, and the
// stand-in's JSON event lines (written here by the stand-in's own printer).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "events.h"
#include "printer.h"
#include "truth.h"

namespace mirvane {
namespace eval {
namespace {

void ExpectBox(const Box& box, double xmin, double ymin, double xmax, double ymax) {
  EXPECT_NEAR(box.xmin, xmin, 1e-9);
  EXPECT_NEAR(box.ymin, ymin, 1e-9);
  EXPECT_NEAR(box.xmax, xmax, 1e-9);
  EXPECT_NEAR(box.ymax, ymax, 1e-9);
}

GroundTruth ReadTruth(const std::string& text) {
  GroundTruth truth;
  std::string error;
  EXPECT_TRUE(TruthReaderFor(text)->Read(text, &truth, &error)) << error;
  return truth;
}

std::string TruthError(const std::string& text) {
  GroundTruth truth;
  std::string error;
  EXPECT_FALSE(TruthReaderFor(text)->Read(text, &truth, &error));
  return error;
}

TEST(JsonLinesTruth, ReadsFramesSortedWithNamesAndTimes) {
  const GroundTruth truth = ReadTruth(
      "{\"scene\":\"default\",\"fps\":25}\n"
      "{\"frame\":3,\"timestamp\":1120000,\"objects\":["
      "{\"id\":4,\"class\":2,\"box\":[0.5,0.5,0.75,0.625]}]}\n"
      "\n"
      "{\"frame\":2,\"timestamp\":1080000,\"objects\":[]}\n"
      "{\"frame\":4,\"timestamp\":1160000,\"time\":9.5,\"objects\":["
      "{\"id\":1,\"class\":\"person\",\"box\":[0,0.25,0.125,1]}]}\n");
  EXPECT_TRUE(truth.lists_empty_frames);
  EXPECT_DOUBLE_EQ(truth.fps, 25.0);
  ASSERT_EQ(truth.frames.size(), 3u);
  EXPECT_EQ(truth.frames[0].timestamp, 1080000u);
  EXPECT_TRUE(truth.frames[0].objects.empty());
  EXPECT_DOUBLE_EQ(truth.frames[0].time, 2 / 25.0);  // frame over rate
  EXPECT_EQ(truth.frames[1].frame, 3);
  ASSERT_EQ(truth.frames[1].objects.size(), 1u);
  EXPECT_EQ(truth.frames[1].objects[0].id, 4);
  EXPECT_EQ(truth.frames[1].objects[0].class_name, "vehicle");
  ExpectBox(truth.frames[1].objects[0].box, 0.5, 0.5, 0.75, 0.625);
  EXPECT_DOUBLE_EQ(truth.frames[2].time, 9.5);  // as given
}

TEST(JsonLinesTruth, MergesAFrameSplitOverLinesAndTimesFramesByTimestamp) {
  const GroundTruth truth = ReadTruth(
      "{\"timestamp\":500000,\"objects\":[{\"id\":1,\"class\":\"other\",\"box\":[0,0,1,1]}]}\n"
      "{\"timestamp\":700000,\"objects\":[]}\n"
      "{\"timestamp\":500000,\"objects\":[{\"id\":2,\"class\":\"other\",\"box\":[0,0,1,1]}]}\n");
  ASSERT_EQ(truth.frames.size(), 2u);
  EXPECT_EQ(truth.frames[0].objects.size(), 2u);
  EXPECT_EQ(truth.frames[0].frame, -1);
  EXPECT_DOUBLE_EQ(truth.frames[0].time, 0.0);
  EXPECT_DOUBLE_EQ(truth.frames[1].time, 0.2);
}

TEST(JsonLinesTruth, NamesTheLineOfAMalformedFrame) {
  EXPECT_EQ(TruthError("{\"timestamp\":1,\"objects\":[]}\n{\"timestamp\":-4,\"objects\":[]}"),
            "line 2: \"timestamp\" is not a non-negative integer");
  EXPECT_EQ(TruthError("{\"timestamp\":1,\"objects\":[{\"id\":1,\"class\":\"person\","
                       "\"box\":[1,2,3]}]}"),
            "line 1: object 1 without a \"box\" of four numbers");
  EXPECT_EQ(TruthError("{\"timestamp\":1,\"objects\":[{\"class\":\"person\"}]}"),
            "line 1: object without an integer \"id\"");
  EXPECT_EQ(TruthError("{\"timestamp\":1}"), "line 1: no \"objects\" array");
  EXPECT_NE(TruthError("{\"timestamp\":1,\n").find("line 1: "), std::string::npos);
}

// The header and rows exactly as the simulated video output writes them.
constexpr const char* kSimulationCsv =
    "# scene=default width=640 height=360 fps=25 frames=1000\n"
    "count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1\n"
    "1,1000000,0,6,3,32,280,77,324\n"
    "1,1000000,0,1,1,600,180,640,295\n"
    "3,1080000,2,6,3,32,280,77,324\n";

TEST(SimulationCsvTruth, NormalisesPixelBoxesAndTimesByFrameIndex) {
  const GroundTruth truth = ReadTruth(kSimulationCsv);
  EXPECT_FALSE(truth.lists_empty_frames);
  EXPECT_DOUBLE_EQ(truth.fps, 25.0);
  ASSERT_EQ(truth.frames.size(), 2u);
  ASSERT_EQ(truth.frames[0].objects.size(), 2u);
  const TruthObject& other = truth.frames[0].objects[0];
  EXPECT_EQ(other.id, 6);
  EXPECT_EQ(other.class_name, "other");
  ExpectBox(other.box, 32 / 640.0, 280 / 360.0, 77 / 640.0, 324 / 360.0);
  EXPECT_EQ(truth.frames[0].objects[1].class_name, "person");
  EXPECT_EQ(truth.frames[1].frame, 2);
  EXPECT_DOUBLE_EQ(truth.frames[1].time, 2 / 25.0);
}

TEST(SimulationCsvTruth, RejectsFilesItCannotNormaliseOrRead) {
  EXPECT_EQ(TruthError("count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1\n"),
            "line 1: no picture width and height in a \"#\" line before the columns");
  EXPECT_EQ(TruthError("# width=10 height=10\ntimestamp_us,object_id,class_id,x0,y0,x1\n"),
            "line 2: no column \"y1\"");
  EXPECT_EQ(TruthError("# width=10 height=10\ntimestamp_us,object_id,class_id,x0,y0,x1,y1\n"
                       "5,1,1,0,0,x,4\n"),
            "line 3: \"x1\" is not an integer");
}

TEST(TruthReaderFor, ChoosesByTheFirstCharacter) {
  EXPECT_NE(dynamic_cast<JsonLinesTruthReader*>(TruthReaderFor("  \n{\"a\":1}").get()), nullptr);
  EXPECT_NE(dynamic_cast<SimulationCsvTruthReader*>(TruthReaderFor("# x\n").get()), nullptr);
}

// What the stand-in prints for an event, through its own printer.
std::string PrintedEvent(const sysd::Event& event) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&buffer, &size);
  {
    sysd::Printer printer(out, /*json=*/true, /*color=*/false);
    printer.HeartbeatLine(0, sysd::Heartbeat{true, "mirvane", "restart"});
    printer.EventLine(0, event);
    printer.Summary("/tmp/snap_");
  }
  std::fclose(out);
  std::string text(buffer, size);
  std::free(buffer);
  return text;
}

TEST(EventLines, ReadsWhatTheStandInPrints) {
  sysd::Event event;
  event.timestamp = 123456789;
  sysd::EventObject person;
  person.class_code = 0;
  person.tracking_id = 17;
  person.snapshot_id = 3;
  person.flags = kRegionFlag | kFenceDirection1Flag;
  person.confidence = 0.75f;
  const float box[4] = {0.125f, 0.25f, 0.375f, 0.5f};
  std::copy(box, box + 4, person.box);
  event.objects.push_back(person);
  sysd::EventObject car = person;
  car.class_code = 1;
  car.tracking_id = 18;
  car.flags = kFenceDirection2Flag;
  event.objects.push_back(car);
  event.count = 2;

  EventLog log;
  std::string error;
  ASSERT_TRUE(ParseEventLines(PrintedEvent(event), &log, &error)) << error;
  EXPECT_EQ(log.skipped_lines, 2u);  // the heartbeat and the summary
  ASSERT_EQ(log.frames.size(), 1u);
  EXPECT_EQ(log.frames[0].timestamp, 123456789u);
  ASSERT_EQ(log.frames[0].objects.size(), 2u);
  const ReportedObject& p = log.frames[0].objects[0];
  EXPECT_EQ(p.tracking_id, 17);
  EXPECT_EQ(p.class_name, "person");
  EXPECT_EQ(p.snapshot_id, 3);
  EXPECT_TRUE(p.region());
  EXPECT_TRUE(p.fence(1));
  EXPECT_FALSE(p.fence(2));
  EXPECT_NEAR(p.confidence, 0.75, 1e-6);
  ExpectBox(p.box, 0.125, 0.25, 0.375, 0.5);
  const ReportedObject& c = log.frames[0].objects[1];
  EXPECT_EQ(c.class_name, "vehicle");
  EXPECT_FALSE(c.region());
  EXPECT_TRUE(c.fence(2));
}

TEST(EventLines, FallsBackToTheDecodedFlagsAndSkipsForeignLines) {
  EventLog log;
  std::string error;
  ASSERT_TRUE(ParseEventLines(
      "[Mirvane][Info] a log line\n"
      "{\"kind\":\"event\",\"timestamp\":5,\"objects\":[{\"tracking_id\":2,\"region\":true,"
      "\"fence\":3,\"box\":[0,0,0.5,0.5]}]}\n",
      &log, &error))
      << error;
  EXPECT_EQ(log.skipped_lines, 1u);
  ASSERT_EQ(log.frames.size(), 1u);
  const ReportedObject& o = log.frames[0].objects[0];
  EXPECT_TRUE(o.region() && o.fence(1) && o.fence(2));
}

TEST(EventLines, RejectsEventsWithoutTheirFields) {
  EventLog log;
  std::string error;
  EXPECT_FALSE(ParseEventLines("{\"kind\":\"event\",\"objects\":[]}", &log, &error));
  EXPECT_EQ(error, "line 1: event without an integer \"timestamp\"");
  EXPECT_FALSE(ParseEventLines(
      "\n{\"kind\":\"event\",\"timestamp\":1,\"objects\":[{\"tracking_id\":4}]}", &log, &error));
  EXPECT_EQ(error, "line 2: object #4 without a \"box\" of four numbers");
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
