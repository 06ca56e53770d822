// Aligning truth and events by timestamp, and keeping one class. (The scores and their
// renderings are checked end to end in tool_test.cc.)
#include "evaluation.h"

#include <gtest/gtest.h>

namespace mirvane {
namespace eval {
namespace {

constexpr uint64_t kStart = 1000000;
constexpr uint64_t kStep = 40000;  // 25 frames a second
const Box kLeft{0.1, 0.1, 0.2, 0.4};
const Box kRight{0.6, 0.5, 0.9, 0.7};

TruthFrame TruthAt(int64_t frame, std::vector<TruthObject> objects) {
  const uint64_t timestamp = kStart + kStep * static_cast<uint64_t>(frame);
  return TruthFrame{timestamp, frame, static_cast<double>(frame) / 25.0, std::move(objects)};
}

ReportedFrame ReportAt(int64_t frame, std::vector<ReportedObject> objects) {
  return ReportedFrame{kStart + kStep * static_cast<uint64_t>(frame), std::move(objects)};
}

ReportedObject Reported(int64_t track, const Box& box, const char* class_name = "person") {
  return ReportedObject{track, class_name, 0, 0, 0, box};
}

TEST(AlignRun, TakesTheUnionOfTruthAndReportedFrames) {
  GroundTruth truth;
  truth.frames = {TruthAt(0, {{1, "person", kLeft}}), TruthAt(1, {{1, "person", kLeft}})};
  EventLog events;
  events.frames = {ReportAt(1, {Reported(5, kLeft)}), ReportAt(3, {Reported(5, kRight)}),
                   ReportAt(1, {})};  // a repeated timestamp: the first report counts
  const AlignedRun run = AlignRun(truth, events, RunOptions());
  ASSERT_EQ(run.frames.size(), 3u);
  EXPECT_EQ(run.truth_frames, 2u);
  EXPECT_EQ(run.reported_frames, 2u);
  EXPECT_EQ(run.matched_frames, 1u);
  EXPECT_EQ(run.unknown_frames, 0u);  // the truth leaves out empty frames
  EXPECT_FALSE(run.frames[0].reported);
  EXPECT_EQ(run.frames[1].reported_objects.size(), 1u);
  EXPECT_FALSE(run.frames[2].in_truth);
  EXPECT_NEAR(run.frames[2].time, 3 / 25.0, 1e-9);  // from the last listed frame

  truth.lists_empty_frames = true;
  EXPECT_EQ(AlignRun(truth, events, RunOptions()).unknown_frames, 1u);

  // Unreported truth is missed, unlisted reports are false.
  const ClearMot m = ComputeClearMot(ToSequence(run), 0.5);
  EXPECT_EQ(m.matches, 1);
  EXPECT_EQ(m.misses, 1);
  EXPECT_EQ(m.false_positives, 1);
}

TEST(AlignRun, KeepsOnlyTheChosenClass) {
  GroundTruth truth;
  truth.frames = {TruthAt(0, {{1, "person", kLeft}, {2, "vehicle", kRight}})};
  EventLog events;
  events.frames = {ReportAt(0, {Reported(5, kLeft), Reported(6, kRight, "vehicle")})};
  RunOptions options;
  options.class_name = "vehicle";
  const AlignedRun run = AlignRun(truth, events, options);
  ASSERT_EQ(run.frames[0].truth.size(), 1u);
  EXPECT_EQ(run.frames[0].truth[0].id, 2);
  ASSERT_EQ(run.frames[0].reported_objects.size(), 1u);
  EXPECT_EQ(run.frames[0].reported_objects[0].tracking_id, 6);
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
