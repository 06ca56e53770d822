// The object status manager and its decorators: trigger streaks per class, removal and expiry,
// crowds, both-present and the movement filters.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

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

using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using testing::Frame;
using testing::ManualClock;
using testing::Object;
using Bits = std::vector<bool>;

constexpr int64_t kPeopleSeconds = 2;
constexpr int64_t kVehicleSeconds = 4;
constexpr Box kInside{0.1f, 0.1f, 0.3f, 0.5f};
constexpr Box kOutside{0.6f, 0.1f, 0.8f, 0.5f};

// The managers keep a reference to their region.
const DetectionRegion& LeftHalf() {
  static const DetectionRegion region(DetectionRegion::kInclusion,
                                      {{{0.0f, 0.0f}, {0.5f, 0.0f}, {0.5f, 1.0f}, {0.0f, 1.0f}}});
  return region;
}

// A manager for classes 1 to 4 with the people and vehicle times above.
std::unique_ptr<IObjectStatusManager> Basic(ManualClock& clock,
                                            const DetectionRegion& region = LeftHalf()) {
  return std::make_unique<BasicObjectStatusManager>(10, kPeopleSeconds, kVehicleSeconds, 0x1e,
                                                    region, 0.0f, clock.Source());
}

// Runs one frame in the order the rule uses and returns whether each listed id is triggered.
Bits Step(IObjectStatusManager& manager, const TrackResult& frame,
          std::initializer_list<uint32_t> ids) {
  manager.Update(frame.objects);
  Bits answers;
  for (uint32_t id : ids) answers.push_back(manager.IsTriggered(id));
  manager.CollectRemovedIds(frame);
  return answers;
}

bool StepOne(IObjectStatusManager& manager, const TrackedObject& object) {
  return Step(manager, Frame({object}), {object.tracking_id})[0];
}

TEST(BasicObjectStatusManager, EachClassIsTriggeredOnlyStrictlyAfterItsTime) {
  const struct {
    int32_t class_id;
    int64_t seconds;
  } cases[] = {{1, kPeopleSeconds}, {2, kVehicleSeconds}, {3, 0}, {4, kVehicleSeconds}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.class_id);
    ManualClock clock;
    auto manager = Basic(clock);
    const TrackedObject object = Object(7, c.class_id, kInside);
    EXPECT_FALSE(StepOne(*manager, object));
    clock.Advance(seconds(c.seconds));
    EXPECT_FALSE(StepOne(*manager, object));
    clock.Advance(nanoseconds(1));
    EXPECT_TRUE(StepOne(*manager, object));
  }
}

TEST(BasicObjectStatusManager, OneFrameOutsideTheRegionRestartsTheStreak) {
  ManualClock clock;
  auto manager = Basic(clock);
  StepOne(*manager, Object(7, 1, kInside));
  clock.Advance(seconds(3));
  EXPECT_TRUE(StepOne(*manager, Object(7, 1, kInside)));
  EXPECT_FALSE(StepOne(*manager, Object(7, 1, kOutside)));
  EXPECT_FALSE(StepOne(*manager, Object(7, 1, kInside)));
  clock.Advance(seconds(2) + nanoseconds(1));
  EXPECT_TRUE(StepOne(*manager, Object(7, 1, kInside)));
}

// Which of the frame's objects (ids 1 and 2) are triggered once they stood for 5 s.
Bits TriggeredAfterFiveSeconds(const TrackResult& frame,
                               const DetectionRegion& region = LeftHalf()) {
  ManualClock clock;
  auto manager = Basic(clock, region);
  Step(*manager, frame, {});
  clock.Advance(seconds(5));
  return Step(*manager, frame, {1, 2});
}

TEST(BasicObjectStatusManager, PlacesEachClassByItsOwnPoint) {
  // People by the middle at nine tenths: x 0.45 is inside, 0.55 not.
  EXPECT_EQ(TriggeredAfterFiveSeconds(Frame({Object(1, 1, Box{0.3f, 0.1f, 0.6f, 0.5f}),
                                             Object(2, 1, Box{0.4f, 0.1f, 0.7f, 0.5f})})),
            (Bits{true, false}));
  // Class 2 needs a tenth of its box: sample columns from x 0.45 (inside) and from 0.51.
  EXPECT_EQ(TriggeredAfterFiveSeconds(Frame({Object(1, 2, Box{0.4f, 0.1f, 1.4f, 0.5f}),
                                             Object(2, 2, Box{0.46f, 0.1f, 1.46f, 0.5f})})),
            (Bits{true, false}));
  // Class 3 by the bottom centre, inside the lower part of the left half, where a person with the
  // same box is not (its point at nine tenths is above it).
  const DetectionRegion lower(DetectionRegion::kInclusion,
                              {{{0.0f, 0.6f}, {0.5f, 0.6f}, {0.5f, 1.0f}, {0.0f, 1.0f}}});
  const Box box{0.1f, 0.1f, 0.3f, 0.62f};
  EXPECT_EQ(TriggeredAfterFiveSeconds(Frame({Object(1, 3, box), Object(2, 1, box)}), lower),
            (Bits{true, false}));
}

TEST(BasicObjectStatusManager, ListsTrackerRemovedIdsAndExpiresAfterTenMinutes) {
  ManualClock clock;
  auto manager = Basic(clock);
  manager->Update(Frame({Object(1, 1, kInside)}).objects);
  EXPECT_EQ(manager->CollectRemovedIds(Frame({}, {1, 99})).size(), 2u);
  clock.Advance(seconds(10));
  EXPECT_FALSE(manager->IsTriggered(1));

  manager->Update(Frame({Object(2, 1, kInside)}).objects);
  clock.Advance(minutes(10));
  EXPECT_TRUE(manager->CollectRemovedIds(Frame({})).empty());
  clock.Advance(nanoseconds(1));
  EXPECT_EQ(manager->CollectRemovedIds(Frame({})), std::vector<uint32_t>{2});
  EXPECT_TRUE(manager->CollectRemovedIds(Frame({})).empty());
}

TEST(CrowdPeopleDetectedRule, TooFewPeopleAreNotTriggeredWhileVehiclesAre) {
  ManualClock clock;
  rule_decorator::CrowdPeopleDetectedRule crowd(Basic(clock), 3);
  const TrackedObject p1 = Object(1, 1, kInside), p2 = Object(2, 1, kInside),
                      p3 = Object(3, 1, kInside), car = Object(4, 2, kInside);
  Step(crowd, Frame({p1, p2, p3, car}), {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(crowd, Frame({p1, p2, car}), {1, 2, 4}), (Bits{false, false, true}));
  EXPECT_EQ(Step(crowd, Frame({p1, p2, p3, car}), {1, 2, 3, 4}), (Bits{true, true, true, true}));
}

TEST(OnlyBothPeopleVehicleDetectedRule, LonePersonWaitsForATriggeredVehicle) {
  ManualClock clock;
  rule_decorator::OnlyBothPeopleVehicleDetectedRule both(Basic(clock));
  const TrackedObject person = Object(1, 1, kInside), car = Object(4, 2, kInside),
                      far_car = Object(5, 2, kOutside);
  Step(both, Frame({person, far_car}), {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(both, Frame({person, far_car}), {1, 5}), (Bits{false, false}));
  Step(both, Frame({person, car}), {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(both, Frame({person, car}), {1, 4}), (Bits{true, true}));
  EXPECT_EQ(Step(both, Frame({car}), {4}), (Bits{false}));
}

TEST(OnlyMovedPeopleRule, StandingStillLosesTheTriggerMovingOrReturningRegainsIt) {
  ManualClock clock;
  rule_decorator::OnlyMovedPeopleRule rule(Basic(clock), std::make_unique<IouMoveJudge>(0.5f), 5,
                                           clock.Source());
  const TrackedObject still = Object(1, 1, kInside);
  StepOne(rule, still);
  clock.Advance(seconds(3));
  EXPECT_TRUE(StepOne(rule, still));  // first triggered frame: the box becomes the reference
  clock.Advance(seconds(5));
  EXPECT_TRUE(StepOne(rule, still));  // exactly 5 s
  clock.Advance(nanoseconds(1));
  EXPECT_FALSE(StepOne(rule, still));
  // Shifted by more than half its width: the overlap falls below 0.5.
  const TrackedObject moved = Object(1, 1, Box{0.25f, 0.1f, 0.45f, 0.5f});
  EXPECT_TRUE(StepOne(rule, moved));
  clock.Advance(seconds(6));
  EXPECT_FALSE(StepOne(rule, moved));
  // A removed id comes back as a new object: new streak, new reference box.
  EXPECT_EQ(rule.CollectRemovedIds(Frame({}, {1})), std::vector<uint32_t>{1});
  StepOne(rule, still);
  clock.Advance(seconds(3));
  EXPECT_TRUE(StepOne(rule, still));
}

TEST(OnlyMovedVehicleRule, ParkedVehicleLosesTheTriggerWhilePeopleKeepIt) {
  ManualClock clock;
  rule_decorator::OnlyMovedVehicleRule rule(Basic(clock), std::make_unique<IouMoveJudge>(0.5f), 5,
                                            clock.Source());
  const TrackResult frame = Frame({Object(1, 1, kInside), Object(2, 4, kInside)});
  Step(rule, frame, {});
  clock.Advance(seconds(5));
  EXPECT_EQ(Step(rule, frame, {1, 2}), (Bits{true, true}));
  clock.Advance(seconds(6));
  EXPECT_EQ(Step(rule, frame, {1, 2}), (Bits{true, false}));
}

TEST(IouMoveJudge, SlowDriftAddsUpAgainstTheLastReference) {
  IouMoveJudge judge(0.5f);
  auto at = [](float x) { return Object(1, 1, Box{x, 0.1f, x + 0.2f, 0.5f}); };
  judge.Update(at(0.1f));
  EXPECT_TRUE(judge.IsMoved(1));  // no reference yet
  // The reference stays at 0.1 until a shift of more than a third of the width.
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
