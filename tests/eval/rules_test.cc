// Rule accuracy: which reported triggers count, who they belong to, and how expectations take
// them.
#include <gtest/gtest.h>

#include <cmath>

#include "rules.h"

namespace mirvane {
namespace eval {
namespace {

// Frames ten per second; objects in columns ten units apart (see the metric fixtures).
class RunBuilder {
 public:
  RunBuilder& Frame() {
    RunFrame frame;
    frame.frame = static_cast<int64_t>(run_.frames.size());
    frame.time = 0.1 * static_cast<double>(frame.frame);
    frame.timestamp = 1000000 + 100000 * static_cast<uint64_t>(frame.frame);
    frame.in_truth = frame.reported = true;
    run_.frames.push_back(frame);
    return *this;
  }
  RunBuilder& Truth(int64_t id, int column) {
    run_.frames.back().truth.push_back({id, "person", Cell(column)});
    return *this;
  }
  RunBuilder& Report(int64_t track, int column, int flags = 0) {
    ReportedObject object;
    object.tracking_id = track;
    object.class_name = "person";
    object.flags = flags;
    object.box = Cell(column);
    run_.frames.back().reported_objects.push_back(object);
    return *this;
  }
  const AlignedRun& run() const { return run_; }

 private:
  static Box Cell(int column) { return Box{10.0 * column, 0, 10.0 * column + 1, 1}; }
  AlignedRun run_;
};

RuleAccuracy Evaluate(const RunBuilder& builder, const Expectations& expectations) {
  RuleAccuracy accuracy;
  std::string error;
  const Sequence sequence = ToSequence(builder.run());
  EXPECT_TRUE(
      EvaluateRules(builder.run(), MatchFrames(sequence, 0.5), expectations, &accuracy, &error))
      << error;
  return accuracy;
}

ExpectedTrigger Expect(RuleKind rule, int64_t object, double time, int direction = 0) {
  ExpectedTrigger expected;
  expected.rule = rule;
  expected.object = object;
  expected.time = time;
  expected.direction = direction;
  return expected;
}

TEST(CollectTriggers, RegionTriggersWhenTheFlagTurnsOnFenceOnEveryFlag) {
  // Track 10 flags the region in frames 1-2 and 4 (it is absent in frame 3: still on), then
  // off in 5 and on in 6; the fence flag 6 means both directions at once.
  const int kFlags[] = {0, 1, 1, -1, 1, 0, 1};
  RunBuilder b;
  for (int flags : kFlags) {
    b.Frame().Truth(1, 0);
    if (flags >= 0) b.Report(10, 0, flags);
  }
  b.Frame().Report(10, 0, kFenceDirection1Flag | kFenceDirection2Flag);
  const Sequence sequence = ToSequence(b.run());
  const auto triggers = CollectTriggers(b.run(), MatchFrames(sequence, 0.5));
  ASSERT_EQ(triggers.size(), 4u);
  EXPECT_EQ(triggers[0].rule, RuleKind::kRegion);
  EXPECT_EQ(triggers[0].run_frame, 1u);
  EXPECT_EQ(triggers[0].timestamp, 1100000u);
  EXPECT_EQ(triggers[0].object, 1);
  EXPECT_EQ(triggers[1].run_frame, 6u);
  EXPECT_EQ(triggers[2].rule, RuleKind::kFence);
  EXPECT_EQ(triggers[2].direction, 1);
  EXPECT_EQ(triggers[3].direction, 2);
  // Frame 7 has no truth: the track's usual object takes the crossing.
  EXPECT_EQ(triggers[3].object, 1);
}

TEST(CollectTriggers, BelongsToTheFrameMatchBeforeTheTracksUsualObject) {
  // Track 10 follows object 1 for two frames, then sits on object 2 when it flags.
  RunBuilder b;
  b.Frame().Truth(1, 0).Truth(2, 1).Report(10, 0);
  b.Frame().Truth(1, 0).Truth(2, 1).Report(10, 0);
  b.Frame().Truth(1, 0).Truth(2, 1).Report(10, 1, kRegionFlag);
  b.Frame().Report(20, 5, kRegionFlag);  // never on any object
  const Sequence sequence = ToSequence(b.run());
  const auto triggers = CollectTriggers(b.run(), MatchFrames(sequence, 0.5));
  ASSERT_EQ(triggers.size(), 2u);
  EXPECT_EQ(triggers[0].object, 2);
  EXPECT_EQ(triggers[1].object, kNoObject);
}

TEST(EvaluateRules, FindsRegionTriggersWithTheirDelay) {
  // Object 1 stands in the region; its track flags from frame 12 (1.2 s). Expected from 1.0 s.
  RunBuilder b;
  for (int f = 0; f < 20; ++f) b.Frame().Truth(1, 0).Report(10, 0, f >= 12 ? kRegionFlag : 0);
  Expectations e;
  e.triggers.push_back(Expect(RuleKind::kRegion, 1, 1.0));
  const RuleAccuracy a = Evaluate(b, e);
  ASSERT_EQ(a.outcomes.size(), 1u);
  EXPECT_TRUE(a.outcomes[0].found);
  EXPECT_EQ(a.outcomes[0].trigger.tracking_id, 10);
  EXPECT_NEAR(a.outcomes[0].delay_seconds, 0.2, 1e-9);
  EXPECT_EQ(a.region.expected, 1);
  EXPECT_EQ(a.region.found, 1);
  EXPECT_EQ(a.region.missed, 0);
  EXPECT_EQ(a.region.false_triggers, 0);
  EXPECT_NEAR(a.region.mean_delay, 0.2, 1e-9);
  EXPECT_NEAR(a.region.max_delay, 0.2, 1e-9);
  EXPECT_EQ(a.fence.expected, 0);
  EXPECT_TRUE(std::isnan(a.fence.mean_delay));
}

TEST(EvaluateRules, CountsATriggerOfANewTrackOnTheSameObjectAsRepeated) {
  // An identity switch at frame 10 makes the new track trigger the region again.
  RunBuilder b;
  for (int f = 0; f < 15; ++f) {
    b.Frame().Truth(1, 0).Report(f < 10 ? 10 : 11, 0, f == 5 || f >= 12 ? kRegionFlag : 0);
  }
  Expectations e;
  e.triggers.push_back(Expect(RuleKind::kRegion, 1, 0.5));
  const RuleAccuracy a = Evaluate(b, e);
  EXPECT_EQ(a.region.found, 1);
  EXPECT_NEAR(a.outcomes[0].delay_seconds, 0.0, 1e-9);
  ASSERT_EQ(a.false_triggers.size(), 1u);
  EXPECT_EQ(a.false_triggers[0].trigger.tracking_id, 11);
  EXPECT_EQ(a.false_triggers[0].reason, "repeated");
  EXPECT_EQ(a.region.false_triggers, 1);
}

TEST(EvaluateRules, TriggersOutsideTheWindowMissAndCountFalse) {
  // Region flagged from 0.2 s while expected from 2.0 s (early by more than 1 s); a fence
  // crossing 2.5 s after it was expected (late by more than 2 s).
  RunBuilder b;
  for (int f = 0; f < 40; ++f) {
    b.Frame().Truth(1, 0).Truth(2, 1).Report(10, 0, f >= 2 ? kRegionFlag : 0);
    b.Report(20, 1, f == 35 ? kFenceDirection1Flag : 0);
  }
  Expectations e;
  e.triggers.push_back(Expect(RuleKind::kRegion, 1, 2.0));
  e.triggers.push_back(Expect(RuleKind::kFence, 2, 1.0, 1));
  const RuleAccuracy a = Evaluate(b, e);
  EXPECT_EQ(a.region.missed, 1);
  EXPECT_EQ(a.region.false_triggers, 1);
  EXPECT_EQ(a.fence.missed, 1);
  EXPECT_EQ(a.fence.false_triggers, 1);
  ASSERT_EQ(a.false_triggers.size(), 2u);
  EXPECT_EQ(a.false_triggers[0].reason, "outside the expected window");
  EXPECT_EQ(a.false_triggers[1].reason, "outside the expected window");

  e.region.early_seconds = 2.0;
  e.fence.late_seconds = 3.0;
  const RuleAccuracy wider = Evaluate(b, e);
  EXPECT_EQ(wider.region.found, 1);
  EXPECT_NEAR(wider.outcomes[1].delay_seconds, -1.8, 1e-9);  // by expected time: fence first
  EXPECT_EQ(wider.fence.found, 1);
  EXPECT_NEAR(wider.fence.max_delay, 2.5, 1e-9);
  EXPECT_TRUE(wider.false_triggers.empty());
}

TEST(EvaluateRules, MatchesFenceDirections) {
  RunBuilder b;
  for (int f = 0; f < 10; ++f) {
    b.Frame().Truth(1, 0).Truth(2, 1).Report(10, 0, f == 3 ? kFenceDirection2Flag : 0);
    b.Report(20, 1, f == 4 ? kFenceDirection1Flag : 0);
  }
  b.Frame().Report(30, 7, kFenceDirection1Flag);
  Expectations e;
  e.triggers.push_back(Expect(RuleKind::kFence, 1, 0.3, 1));
  e.triggers.push_back(Expect(RuleKind::kFence, 2, 0.3, 1));
  const RuleAccuracy a = Evaluate(b, e);
  EXPECT_EQ(a.fence.expected, 2);
  EXPECT_EQ(a.fence.found, 1);
  EXPECT_EQ(a.fence.missed, 1);
  EXPECT_EQ(a.fence.false_triggers, 2);
  EXPECT_FALSE(a.outcomes[0].found);  // object 1 crossed the other way
  EXPECT_TRUE(a.outcomes[1].found);
  EXPECT_NEAR(a.outcomes[1].delay_seconds, 0.1, 1e-9);
  ASSERT_EQ(a.false_triggers.size(), 2u);
  EXPECT_EQ(a.false_triggers[0].reason, "object 1 has no such expectation");
  EXPECT_EQ(a.false_triggers[1].reason, "no true object there");
}

TEST(EvaluateRules, PlacesExpectationsGivenByFrame) {
  RunBuilder b;
  for (int f = 0; f < 10; ++f) b.Frame().Truth(1, 0).Report(10, 0, f >= 6 ? kRegionFlag : 0);
  Expectations e;
  ExpectedTrigger by_frame = Expect(RuleKind::kRegion, 1, NAN);
  by_frame.frame = 5;
  e.triggers.push_back(by_frame);
  const RuleAccuracy a = Evaluate(b, e);
  ASSERT_TRUE(a.outcomes[0].found);
  EXPECT_NEAR(a.outcomes[0].expected.time, 0.5, 1e-9);
  EXPECT_NEAR(a.outcomes[0].delay_seconds, 0.1, 1e-9);

  e.triggers[0].frame = 50;  // past the run and no frame rate to place it
  RuleAccuracy accuracy;
  std::string error;
  EXPECT_FALSE(EvaluateRules(b.run(), {}, e, &accuracy, &error));
  EXPECT_EQ(error,
            "the region expectation for object 1 names frame 50, which the ground truth "
            "does not list");
}

TEST(ParseExpectations, ReadsRulesWindowsAndSceneFiles) {
  Expectations e;
  std::string error;
  ASSERT_TRUE(ParseExpectations(
      "{\"name\":\"default\",\"expected_triggers\":{"
      "\"region\":{\"early_seconds\":0.25,\"expect\":[{\"object\":1,\"time\":9.5},"
      "{\"object\":2,\"frame\":240}]},"
      "\"fence\":{\"late_seconds\":4,\"expect\":[{\"object\":7,\"direction\":2,\"time\":16}]}}}",
      &e, &error))
      << error;
  ASSERT_EQ(e.triggers.size(), 3u);
  EXPECT_EQ(e.triggers[0].rule, RuleKind::kRegion);
  EXPECT_DOUBLE_EQ(e.triggers[0].time, 9.5);
  EXPECT_EQ(e.triggers[1].frame, 240);
  EXPECT_TRUE(std::isnan(e.triggers[1].time));
  EXPECT_EQ(e.triggers[2].rule, RuleKind::kFence);
  EXPECT_EQ(e.triggers[2].direction, 2);
  EXPECT_DOUBLE_EQ(e.region.early_seconds, 0.25);
  EXPECT_TRUE(std::isinf(e.region.late_seconds));  // default
  EXPECT_DOUBLE_EQ(e.fence.early_seconds, 0.5);    // default
  EXPECT_DOUBLE_EQ(e.fence.late_seconds, 4.0);
}

TEST(ParseExpectations, ExplainsWhatIsWrong) {
  Expectations e;
  std::string error;
  EXPECT_FALSE(
      ParseExpectations("{\"fence\":{\"expect\":[{\"object\":3,\"time\":1}]}}", &e, &error));
  EXPECT_EQ(error, "\"fence\": the expectation for object 3 needs a \"direction\" of 1 or 2");
  EXPECT_FALSE(ParseExpectations(
      "{\"region\":{\"expect\":[{\"object\":3,\"time\":1,\"frame\":2}]}}", &e, &error));
  EXPECT_EQ(error,
            "\"region\": the expectation for object 3 needs either a \"time\" or a "
            "\"frame\"");
  EXPECT_FALSE(ParseExpectations("{\"region\":{\"early_seconds\":-1,\"expect\":[]}}", &e, &error));
  EXPECT_EQ(error, "\"region\": \"early_seconds\" is not a non-negative number");
  EXPECT_FALSE(ParseExpectations("{\"region\":[]}", &e, &error));
  EXPECT_EQ(error, "\"region\": not an object with an \"expect\" array");
  EXPECT_FALSE(ParseExpectations("[]", &e, &error));
  EXPECT_FALSE(ParseExpectations("{", &e, &error));
}

}  // namespace
}  // namespace eval
}  // namespace mirvane
