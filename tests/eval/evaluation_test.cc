// A run end to end: aligning truth and events by timestamp, scoring, and both renderings.
#include <gtest/gtest.h>

#include <jansson.h>

#include <cmath>

#include "evaluation.h"
#include "json_input.h"

namespace mirvane {
namespace eval {
namespace {

constexpr uint64_t kStart = 1000000;
constexpr uint64_t kStep = 40000;  // 25 frames a second

TruthFrame TruthAt(int64_t frame, std::vector<TruthObject> objects) {
  TruthFrame t;
  t.frame = frame;
  t.timestamp = kStart + kStep * static_cast<uint64_t>(frame);
  t.time = static_cast<double>(frame) / 25.0;
  t.objects = std::move(objects);
  return t;
}

ReportedFrame ReportAt(int64_t frame, std::vector<ReportedObject> objects) {
  return ReportedFrame{kStart + kStep * static_cast<uint64_t>(frame), std::move(objects)};
}

ReportedObject Reported(int64_t track, const Box& box, const std::string& class_name = "person",
                        int flags = 0) {
  ReportedObject r;
  r.tracking_id = track;
  r.box = box;
  r.class_name = class_name;
  r.flags = flags;
  return r;
}

const Box kLeft{0.1, 0.1, 0.2, 0.4};
const Box kRight{0.6, 0.5, 0.9, 0.7};

// Two objects seen in frames 0-9 and tracked perfectly.
void PerfectRun(GroundTruth* truth, EventLog* events) {
  truth->fps = 25;
  for (int64_t f = 0; f < 10; ++f) {
    truth->frames.push_back(TruthAt(f, {{1, "person", kLeft}, {2, "vehicle", kRight}}));
    events->frames.push_back(
        ReportAt(f, {Reported(5, kLeft), Reported(6, kRight, "vehicle", f == 4 ? 4 : 0)}));
  }
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
  EXPECT_TRUE(run.frames[2].truth.empty());
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
  EventLog events;
  PerfectRun(&truth, &events);
  RunOptions options;
  options.class_name = "vehicle";
  const AlignedRun run = AlignRun(truth, events, options);
  ASSERT_EQ(run.frames[0].truth.size(), 1u);
  EXPECT_EQ(run.frames[0].truth[0].id, 2);
  ASSERT_EQ(run.frames[0].reported_objects.size(), 1u);
  EXPECT_EQ(run.frames[0].reported_objects[0].tracking_id, 6);
}

TEST(Evaluate, PerfectRunScoresOneEverywhere) {
  GroundTruth truth;
  EventLog events;
  PerfectRun(&truth, &events);
  Expectations expectations;
  ExpectedTrigger crossing;
  crossing.rule = RuleKind::kFence;
  crossing.object = 2;
  crossing.direction = 1;
  crossing.frame = 4;
  expectations.triggers.push_back(crossing);
  Evaluation e;
  std::string error;
  ASSERT_TRUE(Evaluate(truth, events, &expectations, EvaluationOptions(), &e, &error)) << error;
  EXPECT_EQ(e.frames, 10u);
  EXPECT_DOUBLE_EQ(e.clear.Mota(), 1.0);
  EXPECT_DOUBLE_EQ(e.clear.Motp(), 1.0);
  EXPECT_DOUBLE_EQ(e.identity.Idf1(), 1.0);
  EXPECT_DOUBLE_EQ(e.hota.mean.hota, 1.0);
  EXPECT_DOUBLE_EQ(e.hota.mean.det_a, 1.0);
  EXPECT_DOUBLE_EQ(e.hota.mean.ass_a, 1.0);
  EXPECT_DOUBLE_EQ(e.hota.mean.loc_a, 1.0);
  ASSERT_TRUE(e.has_rules);
  EXPECT_EQ(e.rules.fence.found, 1);
  EXPECT_DOUBLE_EQ(e.rules.fence.max_delay, 0.0);

  const std::string text = FormatText(e);
  EXPECT_NE(text.find("Run: 10 frames (truth 10, reported 10, both 10); 2 objects, 2 tracks"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("MOTA   1.000   MOTP   1.000"), std::string::npos) << text;
  EXPECT_NE(text.find("IDF1   1.000"), std::string::npos) << text;
  EXPECT_NE(text.find("HOTA   1.000   DetA   1.000   AssA     1.000   LocA        1.000"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("fence  object 2 direction 1 at 0.16 s: found, track #6 at 0.16 s"),
            std::string::npos)
      << text;
}

TEST(Evaluate, EmptyHypothesisRendersUndefinedRatiosAsNull) {
  GroundTruth truth;
  EventLog events;
  PerfectRun(&truth, &events);
  for (ReportedFrame& frame : events.frames) frame.objects.clear();
  Evaluation e;
  std::string error;
  ASSERT_TRUE(Evaluate(truth, events, nullptr, EvaluationOptions(), &e, &error));
  EXPECT_DOUBLE_EQ(e.clear.Mota(), 0.0);
  EXPECT_EQ(e.clear.misses, 20);
  EXPECT_DOUBLE_EQ(e.identity.Idf1(), 0.0);
  EXPECT_DOUBLE_EQ(e.hota.mean.hota, 0.0);
  EXPECT_FALSE(e.has_rules);

  const std::string text = FormatText(e);
  EXPECT_NE(text.find("MOTA   0.000   MOTP       -"), std::string::npos) << text;
  EXPECT_EQ(text.find("Rules"), std::string::npos);

  const JsonRef json = ParseJson(FormatJson(e), &error);
  ASSERT_TRUE(json_is_object(json.get())) << error;
  const json_t* clear = json_object_get(json.get(), "clear");
  EXPECT_DOUBLE_EQ(json_number_value(json_object_get(clear, "mota")), 0.0);
  EXPECT_TRUE(json_is_null(json_object_get(clear, "motp")));
  EXPECT_EQ(json_integer_value(json_object_get(clear, "misses")), 20);
  EXPECT_TRUE(json_is_null(json_object_get(json_object_get(json.get(), "identity"), "idp")));
  const json_t* alphas = json_object_get(json_object_get(json.get(), "hota"), "at_alpha");
  ASSERT_EQ(json_array_size(alphas), kHotaAlphaCount);
  EXPECT_EQ(json_integer_value(json_object_get(json_array_get(alphas, 0), "fn")), 20);
  EXPECT_EQ(json_object_get(json.get(), "rules"), nullptr);
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
