// The object status manager and its decorators: trigger streaks per class, removal and expiry,
// crowds, both-present and the movement filters.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "common/detection_region.h"
#include "rules/rule_test_support.h"
#include "testing/manual_clock.h"
#include "tracking/move_judge.h"
#include "tracking/object_status_manager.h"
#include "tracking/rule_decorator.h"

namespace mirvane {
namespace dva {
namespace object_detect_result {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::Frame;
using testing::ManualClock;
using testing::Object;

constexpr uint32_t kAllClasses = 0x1e;  // classes 1 to 4
constexpr int64_t kPeopleSeconds = 2;
constexpr int64_t kVehicleSeconds = 4;

// The left half of the frame.
DetectionRegion LeftHalf() {
  return DetectionRegion(DetectionRegion::kInclusion,
                         {{{0.0f, 0.0f}, {0.5f, 0.0f}, {0.5f, 1.0f}, {0.0f, 1.0f}}});
}

constexpr Box kInside{0.1f, 0.1f, 0.3f, 0.5f};
constexpr Box kOutside{0.6f, 0.1f, 0.8f, 0.5f};

std::unique_ptr<IObjectStatusManager> Basic(const DetectionRegion& region, ManualClock& clock,
                                            uint32_t class_mask = kAllClasses,
                                            float min_area = 0.0f) {
  return std::make_unique<BasicObjectStatusManager>(10, kPeopleSeconds, kVehicleSeconds, class_mask,
                                                    region, min_area, clock.Source());
}

// Runs one frame in the order the rule uses and returns whether each listed id is triggered.
std::vector<bool> Step(IObjectStatusManager& manager, const TrackResult& frame,
                       std::initializer_list<uint32_t> ids) {
  manager.Update(frame.objects);
  std::vector<bool> answers;
  for (uint32_t id : ids) answers.push_back(manager.IsTriggered(id));
  manager.CollectRemovedIds(frame);
  return answers;
}

bool StepOne(IObjectStatusManager& manager, const TrackedObject& object) {
  return Step(manager, Frame({object}), {object.tracking_id})[0];
}

TEST(BasicObjectStatusManager, PersonIsTriggeredOnlyStrictlyAfterThePeopleTime) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto manager = Basic(region, clock);
  const TrackedObject person = Object(7, 1, kInside);

  EXPECT_FALSE(StepOne(*manager, person));
  clock.Advance(seconds(kPeopleSeconds));
  EXPECT_FALSE(StepOne(*manager, person));  // exactly the people time: not yet
  clock.Advance(nanoseconds(1));
  EXPECT_TRUE(StepOne(*manager, person));
}

TEST(BasicObjectStatusManager, OneFrameOutsideTheRegionRestartsTheStreak) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto manager = Basic(region, clock);

  StepOne(*manager, Object(7, 1, kInside));
  clock.Advance(seconds(3));
  EXPECT_TRUE(StepOne(*manager, Object(7, 1, kInside)));
  EXPECT_FALSE(StepOne(*manager, Object(7, 1, kOutside)));
  EXPECT_FALSE(StepOne(*manager, Object(7, 1, kInside)));  // a new streak starts here
  clock.Advance(seconds(2) + nanoseconds(1));
  EXPECT_TRUE(StepOne(*manager, Object(7, 1, kInside)));
}

TEST(BasicObjectStatusManager, PersonIsPlacedByTheMiddleAtNineTenthsOfItsHeight) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto manager = Basic(region, clock);
  // Straddles the border: the middle is at x 0.45 (inside) for one box and 0.55 for the other.
  const TrackedObject in = Object(1, 1, Box{0.3f, 0.1f, 0.6f, 0.5f});
  const TrackedObject out = Object(2, 1, Box{0.4f, 0.1f, 0.7f, 0.5f});
  Step(*manager, Frame({in, out}), {});
  clock.Advance(seconds(3));
  EXPECT_EQ(Step(*manager, Frame({in, out}), {1, 2}), (std::vector<bool>{true, false}));
}

TEST(BasicObjectStatusManager, OtherClassHasNoTriggerTimeAndIsPlacedByTheBottomCentre) {
  // A region holding only the lower half of the left half.
  const DetectionRegion region(DetectionRegion::kInclusion,
                               {{{0.0f, 0.6f}, {0.5f, 0.6f}, {0.5f, 1.0f}, {0.0f, 1.0f}}});
  ManualClock clock;
  auto manager = Basic(region, clock);
  // Box from y 0.1 to 0.62: its bottom centre is in the region, its point at nine tenths is not.
  const TrackedObject other = Object(3, 3, Box{0.1f, 0.1f, 0.3f, 0.62f});

  EXPECT_FALSE(StepOne(*manager, other));  // not within the same instant
  clock.Advance(nanoseconds(1));
  EXPECT_TRUE(StepOne(*manager, other));
  // A person with the same box is placed by its point at nine tenths, outside.
  const TrackedObject person = Object(4, 1, Box{0.1f, 0.1f, 0.3f, 0.62f});
  StepOne(*manager, person);
  clock.Advance(seconds(3));
  EXPECT_FALSE(StepOne(*manager, person));
}

TEST(BasicObjectStatusManager, ClassFourTakesTheVehicleTimeAndTheBottomCentre) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto manager = Basic(region, clock);
  const TrackedObject truck = Object(5, 4, kInside);
  StepOne(*manager, truck);
  clock.Advance(seconds(kVehicleSeconds));
  EXPECT_FALSE(StepOne(*manager, truck));
  clock.Advance(nanoseconds(1));
  EXPECT_TRUE(StepOne(*manager, truck));
}

TEST(BasicObjectStatusManager, ClassTwoNeedsATenthOfItsBoxInsideTheRegion) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto manager = Basic(region, clock);
  // Box from x 0.4 to 1.4: sample columns at 0.45 (inside) and beyond, so a tenth is inside.
  const TrackedObject tenth_in = Object(1, 2, Box{0.4f, 0.1f, 1.4f, 0.5f});
  // Box from x 0.46 to 1.46: its first sample column is at 0.51, none inside.
  const TrackedObject none_in = Object(2, 2, Box{0.46f, 0.1f, 1.46f, 0.5f});
  Step(*manager, Frame({tenth_in, none_in}), {});
  clock.Advance(seconds(kVehicleSeconds + 1));
  EXPECT_EQ(Step(*manager, Frame({tenth_in, none_in}), {1, 2}), (std::vector<bool>{true, false}));
}

TEST(BasicObjectStatusManager, ListsTrackerRemovedIdsEvenWithoutAStatus) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto manager = Basic(region, clock);
  manager->Update(Frame({Object(1, 1, kInside)}).objects);
  EXPECT_EQ(manager->CollectRemovedIds(Frame({}, {1, 99})).size(), 2u);
  clock.Advance(seconds(10));
  EXPECT_FALSE(manager->IsTriggered(1));  // the status is gone
}

TEST(BasicObjectStatusManager, ExpiresAnIdNotUpdatedForStrictlyMoreThanTenMinutes) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto manager = Basic(region, clock);
  manager->Update(Frame({Object(1, 1, kInside)}).objects);
  clock.Advance(minutes(10));
  EXPECT_TRUE(manager->CollectRemovedIds(Frame({})).empty());
  clock.Advance(nanoseconds(1));
  EXPECT_EQ(manager->CollectRemovedIds(Frame({})), std::vector<uint32_t>{1});
  EXPECT_TRUE(manager->CollectRemovedIds(Frame({})).empty());
}

// Three people and a car, all standing in the region long enough to be triggered.
struct CrowdScene {
  TrackedObject p1 = Object(1, 1, kInside);
  TrackedObject p2 = Object(2, 1, kInside);
  TrackedObject p3 = Object(3, 1, kInside);
  TrackedObject car = Object(4, 2, kInside);
};

TEST(CrowdPeopleDetectedRule, TooFewPeopleAreNotTriggeredWhileVehiclesAre) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  rule_decorator::CrowdPeopleDetectedRule crowd(Basic(region, clock), 3);
  CrowdScene s;
  Step(crowd, Frame({s.p1, s.p2, s.p3, s.car}), {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(crowd, Frame({s.p1, s.p2, s.car}), {1, 2, 4}),
            (std::vector<bool>{false, false, true}));
  EXPECT_EQ(Step(crowd, Frame({s.p1, s.p2, s.p3, s.car}), {1, 2, 3, 4}),
            (std::vector<bool>{true, true, true, true}));
}

TEST(OnlyBothPeopleVehicleDetectedRule, LonePersonWaitsForATriggeredVehicle) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  rule_decorator::OnlyBothPeopleVehicleDetectedRule both(Basic(region, clock));
  CrowdScene s;
  const TrackedObject far_car = Object(5, 2, kOutside);
  Step(both, Frame({s.p1, far_car}), {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(both, Frame({s.p1, far_car}), {1, 5}), (std::vector<bool>{false, false}));
  Step(both, Frame({s.p1, s.car}), {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(both, Frame({s.p1, s.car}), {1, 4}), (std::vector<bool>{true, true}));
  EXPECT_EQ(Step(both, Frame({s.car}), {4}), (std::vector<bool>{false}));
}

std::unique_ptr<IObjectStatusManager> MovedPeople(const DetectionRegion& region,
                                                  ManualClock& clock) {
  return std::make_unique<rule_decorator::OnlyMovedPeopleRule>(
      Basic(region, clock), std::make_unique<IouMoveJudge>(0.5f), 5, clock.Source());
}

TEST(OnlyMovedPeopleRule, PersonStandingStillLosesTheTriggerAndRegainsItByMoving) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto rule = MovedPeople(region, clock);
  const TrackedObject still = Object(1, 1, kInside);
  StepOne(*rule, still);
  clock.Advance(seconds(3));
  EXPECT_TRUE(StepOne(*rule, still));  // first triggered frame: the box becomes the reference
  clock.Advance(seconds(1));
  EXPECT_TRUE(StepOne(*rule, still));  // still, but moved within the last 5 s
  clock.Advance(seconds(4));
  EXPECT_TRUE(StepOne(*rule, still));  // exactly 5 s
  clock.Advance(nanoseconds(1));
  EXPECT_FALSE(StepOne(*rule, still));
  // Shifted by more than half its width: the overlap falls below 0.5.
  EXPECT_TRUE(StepOne(*rule, Object(1, 1, Box{0.25f, 0.1f, 0.45f, 0.5f})));
}

TEST(OnlyMovedVehicleRule, ParkedVehicleLosesTheTriggerWhilePeopleKeepIt) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  rule_decorator::OnlyMovedVehicleRule rule(
      Basic(region, clock), std::make_unique<IouMoveJudge>(0.5f), 5, clock.Source());
  const TrackedObject car = Object(2, 4, kInside);
  const TrackedObject person = Object(1, 1, kInside);
  Step(rule, Frame({person, car}), {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(rule, Frame({person, car}), {1, 2}), (std::vector<bool>{true, true}));
  clock.Advance(seconds(6));
  EXPECT_EQ(Step(rule, Frame({person, car}), {1, 2}), (std::vector<bool>{true, false}));
}

TEST(OnlyMovedPeopleRule, ForgetsRemovedIds) {
  const DetectionRegion region = LeftHalf();
  ManualClock clock;
  auto rule = MovedPeople(region, clock);
  const TrackedObject still = Object(1, 1, kInside);
  StepOne(*rule, still);
  clock.Advance(seconds(3));
  StepOne(*rule, still);
  clock.Advance(seconds(6));
  EXPECT_FALSE(StepOne(*rule, still));
  EXPECT_EQ(rule->CollectRemovedIds(Frame({}, {1})), std::vector<uint32_t>{1});
  // The id comes back as a new object: new streak, new reference box.
  StepOne(*rule, still);
  clock.Advance(seconds(3));
  EXPECT_TRUE(StepOne(*rule, still));
}

TEST(IouMoveJudge, SlowDriftAddsUpAgainstTheLastReference) {
  IouMoveJudge judge(0.5f);
  const float width = 0.2f;
  auto at = [&](float x) { return Object(1, 1, Box{x, 0.1f, x + width, 0.5f}); };
  judge.Update(at(0.1f));
  EXPECT_TRUE(judge.IsMoved(1));  // no reference yet
  // Steps of 0.04 each overlap the previous box by far more than half, but the reference stays
  // at 0.1 until the overlap with it drops below 0.5 (a shift of more than a third of the width).
  judge.Update(at(0.14f));
  EXPECT_FALSE(judge.IsMoved(1));
  judge.Update(at(0.18f));
  EXPECT_TRUE(judge.IsMoved(1));
  judge.Update(at(0.22f));
  EXPECT_FALSE(judge.IsMoved(1));
  judge.Remove(1);
  EXPECT_FALSE(judge.IsMoved(1));
  judge.Update(at(0.22f));
  EXPECT_TRUE(judge.IsMoved(1));
}

}  // namespace
}  // namespace object_detect_result
}  // namespace dva
}  // namespace mirvane
