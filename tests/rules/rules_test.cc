// The rules: the object status manager and its decorators (trigger streaks, removal and expiry,
// crowds, both-present, movement filters), the people and vehicle rule (settings, the chain it
// builds, Apply) and the intrusion rule (settings, pending crossings, direction, class and size).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include "bin/rule/intrusion.h"
#include "bin/rule/json_settings.h"
#include "bin/rule/people_vehicle.h"
#include "bin/tracked_object.h"
#include "common/detection_region.h"
#include "common/geometry.h"
#include "common/object_class.h"
#include "testing/log_capture.h"
#include "testing/manual_clock.h"
#include "tracking/move_judge.h"
#include "tracking/object_status_manager.h"
#include "tracking/rule_decorator.h"

namespace mirvane {
namespace {

using namespace dva;                        // NOLINT: geometry, regions, move judges
using namespace dva::object_detect_result;  // NOLINT: the status managers
using namespace rule;                       // NOLINT: the two rules
using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;
using testing::ManualClock;
using ::testing::Not;
using Bits = std::vector<bool>;
namespace decorator = rule_decorator;

TrackedObject Object(uint32_t tracking_id, int32_t class_id, dva::Box box) {
  TrackedObject object;
  object.score = 0.9f;
  object.xmin = box.xmin;
  object.ymin = box.ymin;
  object.xmax = box.xmax;
  object.ymax = box.ymax;
  object.class_id = class_id;
  object.tracking_id = tracking_id;
  return object;
}

// A frame with four class lists (class ids 1 to 4); each object goes to the list of its class.
TrackResult Frame(std::initializer_list<TrackedObject> objects,
                  std::initializer_list<uint32_t> removed = {}) {
  TrackResult result;
  result.objects.resize(4);
  result.removed_ids.resize(4);
  for (const TrackedObject& object : objects)
    result.objects[ClassIndex(object.class_id)].push_back(object);
  result.removed_ids[0] = std::unordered_set<uint32_t>(removed);
  return result;
}

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
  } cases[] = {{kClassPerson, kPeopleSeconds},
               {kClassVehicle, kVehicleSeconds},
               {kClassOther, 0},
               {kClassVehicle2, kVehicleSeconds}};
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

JsonRef Json(const std::string& text) {
  JsonRef json(json_loads(text.c_str(), JSON_DECODE_ANY, nullptr));
  if (!json) ADD_FAILURE() << "bad test JSON: " << text;
  return json;
}

PeopleVeichileSettings Parse(const std::string& text) {
  return ParsePeopleVeichileSettings(Json(text).get());
}

// The log lines that body writes.
std::string LogOf(const std::function<void()>& body) {
  const testing::LogCapture log;
  body();
  return log.Text();
}

// The log lines that parsing the text writes.
std::string ParseLog(const std::string& text) {
  return LogOf([&] { Parse(text); });
}

// The left half of the frame as region text, type 0.
constexpr const char* kLeftHalf = R"("DetectionRegion": "0,0,0.5,0,0.5,1,0,1")";

std::string Config(const std::string& keys) {
  return std::string("{") + kLeftHalf + ", " + keys + "}";
}

TEST(PeopleVeichileSettings, ReadsEveryKey) {
  const PeopleVeichileSettings s = Parse(R"({
    "MinPeopleTriggerTimeSeconds": 3, "MinVehicleTriggerTimeSeconds": 7,
    "MinTriggerObjectRatioPermille": 15, "ClassIdFilter": 20,
    "TriggeredOnlyBothPeopleVehicle": true, "TriggeredOnlyMovedPeople": true,
    "TriggeredOnlyMovedVehicle": false, "CrowdPeopleThreshold": 4,
    "DetectionRegion": "0.1,0.1,0.5,0.1,0.5,0.5", "DetectionRegionType": 1})");
  EXPECT_EQ(std::vector<int>({s.min_people_trigger_seconds, s.min_vehicle_trigger_seconds,
                              static_cast<int>(s.class_id_filter), s.crowd_people_threshold}),
            std::vector<int>({3, 7, 20, 4}));
  EXPECT_FLOAT_EQ(s.min_object_ratio, 0.015f);
  EXPECT_EQ(
      std::vector<bool>({s.only_both_people_vehicle, s.only_moved_people, s.only_moved_vehicle}),
      std::vector<bool>({true, true, false}));
  EXPECT_EQ(s.detection_region.type(), dva::DetectionRegion::kExclusion);
  ASSERT_EQ(s.detection_region.polygons().size(), 1u);
  EXPECT_EQ(s.detection_region.polygons()[0].size(), 3u);
}

TEST(PeopleVeichileSettings, OnlyTheLiteralTrueSwitchesOnAndOtherTypesReadAsZero) {
  const PeopleVeichileSettings s = Parse(
      R"({"TriggeredOnlyMovedPeople": 1, "TriggeredOnlyMovedVehicle": "true",
          "MinPeopleTriggerTimeSeconds": "5", "ClassIdFilter": 2.0})");
  EXPECT_FALSE(s.only_moved_people);
  EXPECT_FALSE(s.only_moved_vehicle);
  EXPECT_EQ(s.min_people_trigger_seconds, 0);
  EXPECT_EQ(s.class_id_filter, 0u);
}

TEST(PeopleVeichileSettings, BadTypeUnknownKeyAndNonObjectsAreLoggedAndGiveDefaults) {
  const std::string bad_type =
      R"({"DetectionRegionType": 5, "DetectionRegion": "0.1,0.1,0.5,0.1"})";
  EXPECT_EQ(Parse(bad_type).detection_region.type(), dva::DetectionRegion::kInclusion);
  EXPECT_EQ(Parse(R"({"Sensitivity": 3, "CrowdPeopleThreshold": 2})").crowd_people_threshold, 2);
  EXPECT_EQ(ParsePeopleVeichileSettings(nullptr).class_id_filter, 0u);
  EXPECT_EQ(Parse(R"("{\"ClassIdFilter\": 6}")").class_id_filter, 6u);  // JSON text in a string
  const std::string log = ParseLog(bad_type) + ParseLog(R"({"Sensitivity": 3})");
  EXPECT_THAT(log, HasSubstr("[Err] people_vehicle.cc"));
  EXPECT_THAT(log, HasSubstr(":GetRegionType: Invalid region type [5]\n"));
  EXPECT_THAT(log, HasSubstr("Invalid config key[Sensitivity]\n"));
  EXPECT_THAT(ParseLog(R"({"CrowdPeopleThreshold": 2, "DetectionRegionType": 0})"),
              Not(HasSubstr("Invalid config key")));
  EXPECT_THAT(LogOf([] { ParsePeopleVeichileSettings(nullptr); }),
              HasSubstr("Fail to read json config\n"));
  for (const char* text : {R"("{not json")", "[1, 2]"}) {
    EXPECT_THAT(ParseLog(text), HasSubstr("Fail to read json config\n")) << text;
  }
}

TEST(RuleSettings, ACoordinateThatIsNoFloatThrowsAfterALineNamingTheSetting) {
  EXPECT_THAT([] { Parse(R"({"DetectionRegion": "0.1,0.1,zero,0.5"})"); },
              ::testing::ThrowsMessage<std::invalid_argument>(HasSubstr("stof")));
  EXPECT_THAT([] { ParseIntrusionSettings(Json(R"({"FenceLine": "0.5,0.1,half,0.9"})").get()); },
              ::testing::ThrowsMessage<std::invalid_argument>(HasSubstr("stof")));
  const std::string log = LogOf([] {
    try {
      ParseIntrusionSettings(Json(R"({"FenceLine": "0.5,half"})").get());
    } catch (const std::invalid_argument&) {
    }
  });
  EXPECT_THAT(log, HasSubstr("Setting [FenceLine] holds a coordinate that is no number: "
                             "\"0.5,half\"\n"));
}

// Which decorators the chain holds, outermost first, ending with the basic manager.
std::vector<std::string> ChainNames(const dva::object_detect_result::IObjectStatusManager& m) {
  std::vector<std::string> names;
  const auto* current = &m;
  for (;;) {
    if (dynamic_cast<const decorator::OnlyBothPeopleVehicleDetectedRule*>(current)) {
      names.push_back("both");
    } else if (dynamic_cast<const decorator::CrowdPeopleDetectedRule*>(current)) {
      names.push_back("crowd");
    } else if (dynamic_cast<const decorator::OnlyMovedVehicleRule*>(current)) {
      names.push_back("moved vehicle");
    } else if (dynamic_cast<const decorator::OnlyMovedPeopleRule*>(current)) {
      names.push_back("moved people");
    } else if (dynamic_cast<const dva::object_detect_result::BasicObjectStatusManager*>(current)) {
      names.push_back("basic");
      return names;
    } else {
      ADD_FAILURE() << "unknown manager in the chain";
      return names;
    }
    current = &static_cast<const decorator::Base*>(current)->wrapped();
  }
}

TEST(ResetObjectStatusManger, AllFourSwitchesBuildTheChainInsideOutInOrder) {
  const std::string text = R"({"TriggeredOnlyBothPeopleVehicle": true, "CrowdPeopleThreshold": 2,
      "TriggeredOnlyMovedVehicle": true, "TriggeredOnlyMovedPeople": true})";
  PeopleVeichile rule(Parse(text));
  EXPECT_EQ(ChainNames(rule.object_status_manager()),
            (std::vector<std::string>{"both", "crowd", "moved vehicle", "moved people", "basic"}));
  const std::string log = LogOf([&] { PeopleVeichile again(Parse(text)); });
  const size_t people = log.find("Add triggered_only_moved_people.\n");
  const size_t vehicle = log.find("Add triggered_only_moved_vehicle.\n");
  const size_t crowd = log.find("Add crowd_people_threshold.\n");
  const size_t both = log.find("Add triggered_only_both_people_vehicle.\n");
  ASSERT_NE(both, std::string::npos) << log;
  EXPECT_LT(people, vehicle);
  EXPECT_LT(vehicle, crowd);
  EXPECT_LT(crowd, both);
  EXPECT_THAT(log, HasSubstr("[Info]"));
  // A crowd threshold of 1 adds its decorator, 0 leaves it out.
  for (int threshold : {1, 0}) {
    const std::string keys = "{\"CrowdPeopleThreshold\": " + std::to_string(threshold) + "}";
    EXPECT_EQ(ChainNames(PeopleVeichile(Parse(keys)).object_status_manager()).size(),
              threshold + 1u);
  }
}

TEST(PeopleVeichileApply, AnswersPerObjectInTheShapeOfTheClassLists) {
  ManualClock clock;
  PeopleVeichile rule(Parse(Config(R"("ClassIdFilter": 30, "MinPeopleTriggerTimeSeconds": 1,
                                      "MinVehicleTriggerTimeSeconds": 3)")),
                      clock.Source());
  const TrackResult frame = Frame({Object(1, 1, kInside), Object(2, 1, kOutside),
                                   Object(3, 2, kInside), Object(4, 3, kInside)});
  rule.Apply(frame);
  clock.Advance(seconds(2));
  EXPECT_EQ(rule.Apply(frame),
            (std::vector<std::vector<bool>>{{true, false}, {false}, {true}, {}}));
}

TEST(PeopleVeichileApply, ClassAndSizeFiltersHoldObjectsBack) {
  const TrackResult frame = Frame({Object(1, 1, kInside), Object(2, 1, {0.1f, 0.1f, 0.2f, 0.2f}),
                                   Object(3, 2, kInside), Object(4, 3, kInside)});
  // "ClassIdFilter" 0 admits nothing; at 15 permille the 0.01 box is too small, the 0.08 one not.
  const struct {
    const char* keys;
    std::vector<std::vector<bool>> expected;
  } cases[] = {
      {R"("ClassIdFilter": 0)", {{false, false}, {false}, {false}, {}}},
      {R"("ClassIdFilter": 2, "MinTriggerObjectRatioPermille": 15)",
       {{true, false}, {false}, {false}, {}}},
  };
  for (const auto& c : cases) {
    ManualClock clock;
    PeopleVeichile rule(Parse(Config(c.keys)), clock.Source());
    rule.Apply(frame);
    clock.Advance(seconds(60));
    EXPECT_EQ(rule.Apply(frame), c.expected) << c.keys;
  }
}

TEST(PeopleVeichileApply, RemovedIdAndResetStartAfresh) {
  ManualClock clock;
  PeopleVeichile rule(Parse(Config(R"("ClassIdFilter": 2, "MinPeopleTriggerTimeSeconds": 1)")),
                      clock.Source());
  const TrackedObject person = Object(1, 1, kInside);
  rule.Apply(Frame({person}));
  clock.Advance(seconds(2));
  EXPECT_TRUE(rule.Apply(Frame({person}, /*removed=*/{1}))[0][0]);
  EXPECT_FALSE(rule.Apply(Frame({person}))[0][0]);  // a new streak
  clock.Advance(seconds(2));
  EXPECT_TRUE(rule.Apply(Frame({person}))[0][0]);
  rule.ResetObjectStatusManger();
  EXPECT_FALSE(rule.Apply(Frame({person}))[0][0]);
}

IntrusionSettings ParseFence(const std::string& text) {
  return ParseIntrusionSettings(Json(text).get());
}

// A box of 0.125 x 0.16 whose test point (middle, nine tenths down) is at p; the half width is
// exact in binary, so that a point on the fence line is exactly on it.
dva::Box BoxAt(dva::Point p) {
  return dva::Box{p.x - 0.0625f, p.y - 0.144f, p.x + 0.0625f, p.y + 0.016f};
}

// A vertical fence drawn downwards at x 0.5 from y 0.1 to 0.9: moving to larger x crosses it left
// to right (direction 1), back is direction 2.
constexpr const char* kVerticalFence = "0.5,0.1,0.5,0.9";

Intrusion FenceRule(const std::string& keys, const std::string& fence = kVerticalFence) {
  return Intrusion(ParseFence("{\"FenceLine\": \"" + fence + "\", " + keys + "}"));
}

// Test points along the line y = 0.5.
std::vector<dva::Point> Xs(std::initializer_list<float> xs) {
  std::vector<dva::Point> points;
  for (float x : xs) points.push_back(dva::Point{x, 0.5f});
  return points;
}

// Walks one object (its tracking id is its class id) through the test points and returns the
// rule's answer in each frame.
std::vector<int> Walk(Intrusion& rule, const std::vector<dva::Point>& points,
                      int32_t class_id = 1) {
  std::vector<int> answers;
  for (const dva::Point& p : points) {
    answers.push_back(
        rule.Apply(Frame({Object(class_id, class_id, BoxAt(p))}))[ClassIndex(class_id)][0]);
  }
  return answers;
}

TEST(IntrusionSettings, ReadsTheFenceAndTheFilters) {
  const IntrusionSettings s = ParseFence(R"({"FenceLine": "0.1,0.2,0.3,0.4,0.5,0.6,0.7",
      "FenceIntersectType": 3, "MinTriggerObjectRatioPermille": 20, "ClassIdFilter": 2})");
  EXPECT_EQ(s.fence.points().size(), 3u);  // the unpaired 0.7 is dropped
  EXPECT_EQ(s.fence.boundaries().size(), 2u);
  EXPECT_EQ(s.fence.intersect_type(), 3);
  EXPECT_FLOAT_EQ(s.min_object_ratio, 0.02f);
  EXPECT_EQ(s.class_id_filter, 2u);
}

TEST(IntrusionSettings, UnsupportedTypeUnknownKeyAndUnreadableValuesAreLogged) {
  EXPECT_EQ(ParseFence(R"({"FenceIntersectType": 4})").fence.intersect_type(), 0);
  const std::string log = LogOf([] {
    for (const char* text :
         {R"({"FenceIntersectType": 4})", R"({"FenceColour": 1})", "7", R"({"FenceLine": 5})"}) {
      ParseFence(text);
    }
  });
  EXPECT_THAT(log, HasSubstr("[Err] intrusion.cc"));
  EXPECT_THAT(log, HasSubstr("Not support fence intersect type [4]\n"));
  EXPECT_THAT(log, HasSubstr("Invalid config key[FenceColour]\n"));
  const std::string parse_failure = "Fail to parse json config\n";
  EXPECT_NE(log.find(parse_failure), log.rfind(parse_failure)) << log;  // logged twice
}

// Integers that do not fit the field they are read into are not cut to its width (2^32 + 1 would
// read as 1): they count as invalid, with one line naming the key and the whole value.
TEST(RuleSettings, IntegersOutsideTheirFieldAreRejectedByNameNotCut) {
  constexpr const char* kTwoPow32Plus1 = "4294967297";
  const std::string region = std::string(R"({"DetectionRegionType": )") + kTwoPow32Plus1 +
                             R"(, "DetectionRegion": "0.1,0.1,0.5,0.1,0.5,0.5"})";
  EXPECT_EQ(Parse(region).detection_region.type(), dva::DetectionRegion::kInclusion);
  const PeopleVeichileSettings people = Parse(
      R"({"MinPeopleTriggerTimeSeconds": 4294967299, "MinVehicleTriggerTimeSeconds": -2147483649,
                "CrowdPeopleThreshold": 9223372036854775807, "MinTriggerObjectRatioPermille": 4294968296,
                "ClassIdFilter": 4294967295})");
  EXPECT_EQ(
      std::vector<int64_t>({people.min_people_trigger_seconds, people.min_vehicle_trigger_seconds,
                            people.crowd_people_threshold}),
      std::vector<int64_t>({0, 0, 0}));
  EXPECT_FLOAT_EQ(people.min_object_ratio, PeopleVeichileSettings().min_object_ratio);
  EXPECT_EQ(people.class_id_filter, 0xFFFFFFFFu) << "a mask may use all 32 bits";
  EXPECT_EQ(Parse(R"({"ClassIdFilter": 4294967296})").class_id_filter, 0u);
  const IntrusionSettings fence = ParseFence(std::string(R"({"FenceIntersectType": )") +
                                             kTwoPow32Plus1 + R"(, "ClassIdFilter": -1})");
  EXPECT_EQ(fence.fence.intersect_type(), 0);
  EXPECT_EQ(fence.class_id_filter, 0xFFFFFFFFu);

  const std::string log = LogOf([&] {
    Parse(region);
    ParseFence(std::string(R"({"FenceIntersectType": )") + kTwoPow32Plus1 + "}");
  });
  EXPECT_THAT(log, HasSubstr("Setting [DetectionRegionType] value 4294967297 out of range "
                             "[-2147483648, 2147483647], ignored\n"));
  EXPECT_THAT(log, HasSubstr("Setting [FenceIntersectType] value 4294967297 out of range"));
  EXPECT_THAT(log, Not(HasSubstr("type [1]"))) << "never reported as the cut value";
}

// A value of another JSON type reads as 0, as it always has, but no longer without a word.
TEST(RuleSettings, ValuesOfAnotherTypeReadAsZeroWithALineNamingTheKey) {
  PeopleVeichileSettings people;
  const std::string log = LogOf([&] {
    people = Parse(R"({"MinPeopleTriggerTimeSeconds": "3", "CrowdPeopleThreshold": 2.5,
                      "MinVehicleTriggerTimeSeconds": 4})");
  });
  EXPECT_EQ(people.min_people_trigger_seconds, 0);
  EXPECT_EQ(people.crowd_people_threshold, 0);
  EXPECT_EQ(people.min_vehicle_trigger_seconds, 4);
  EXPECT_THAT(log,
              HasSubstr("Setting [MinPeopleTriggerTimeSeconds] is not an integer, read as 0\n"));
  EXPECT_THAT(log, HasSubstr("Setting [CrowdPeopleThreshold] is not an integer, read as 0\n"));
  EXPECT_THAT(log, Not(HasSubstr("[MinVehicleTriggerTimeSeconds]")));
}

TEST(IntrusionApply, WalksThroughFences) {
  const struct {
    const char* what;
    const char* keys;  // type 1: left to right only, 3: both; filter 2: class 1, 4: class 2
    std::vector<dva::Point> points;
    std::vector<int> expected;
    int32_t class_id = 1;
    const char* fence = kVerticalFence;
  } cases[] = {
      // clang-format off
      {"crossing reported in exactly one frame", R"("FenceIntersectType": 1, "ClassIdFilter": 2)",
       Xs({0.4f, 0.45f, 0.6f, 0.7f, 0.8f}), {0, 0, 1, 0, 0}},
      {"pending until more than 0.01 past the line", R"("FenceIntersectType": 1, "ClassIdFilter": 2)",
       Xs({0.4f, 0.505f, 0.505f, 0.509f, 0.52f, 0.53f}), {0, 0, 0, 0, 1, 0}},
      {"newer crossing replaces the pending one", R"("FenceIntersectType": 3, "ClassIdFilter": 2)",
       Xs({0.4f, 0.505f, 0.45f}), {0, 0, 2}},
      {"onto the fence and back never triggers", R"("FenceIntersectType": 3, "ClassIdFilter": 2)",
       Xs({0.4f, 0.5f, 0.4f, 0.5f, 0.3f}), {0, 0, 0, 0, 0}},
      {"wrong direction gives 0", R"("FenceIntersectType": 1, "ClassIdFilter": 2)",
       Xs({0.6f, 0.4f, 0.6f}), {0, 0, 1}},
      {"both directions report either", R"("FenceIntersectType": 3, "ClassIdFilter": 2)",
       Xs({0.6f, 0.4f, 0.6f}), {0, 2, 1}},
      // Just over the line near its lower end, down past the end, back to the left there
      // (dropping the pending crossing) and right again below the fence, crossing nothing.
      {"pending crossing dropped around the end", R"("FenceIntersectType": 1, "ClassIdFilter": 2)",
       {{0.4f, 0.85f}, {0.505f, 0.85f}, {0.505f, 0.95f}, {0.45f, 0.95f}, {0.6f, 0.95f}},
       {0, 0, 0, 0, 0}},
      {"class outside the filter gives 0", R"("FenceIntersectType": 3, "ClassIdFilter": 4)",
       Xs({0.4f, 0.6f}), {0, 0}},
      {"class inside the filter", R"("FenceIntersectType": 3, "ClassIdFilter": 4)",
       Xs({0.4f, 0.6f}), {0, 1}, 2},
      {"one-point fence never triggers", R"("FenceIntersectType": 3, "ClassIdFilter": 2)",
       Xs({0.4f, 0.6f, 0.4f}), {0, 0, 0}, 1, "0.5,0.5"},
      // A "V" open to the top: the step crosses one arm left to right, the other right to left.
      {"a step across two segments reports both directions at once",
       R"("FenceIntersectType": 3, "ClassIdFilter": 2)", Xs({0.1f, 0.9f}), {0, 3}, 1,
       "0.2,0.1,0.5,0.9,0.8,0.1"},
      // clang-format on
  };
  for (const auto& c : cases) {
    Intrusion rule = FenceRule(c.keys, c.fence);
    EXPECT_EQ(Walk(rule, c.points, c.class_id), c.expected) << c.what;
  }
}

TEST(IntrusionApply, BoxBelowTheRatioGivesZeroWhileItsCrossingIsTracked) {
  // 30 permille: the boxes of BoxAt (0.02) are too small.
  Intrusion rule = FenceRule(
      R"("FenceIntersectType": 1, "ClassIdFilter": 2, "MinTriggerObjectRatioPermille": 30)");
  EXPECT_EQ(Walk(rule, Xs({0.4f, 0.505f})), (std::vector<int>{0, 0}));
  // Crossed (pending) with too small a box; confirmed in a frame with a large box.
  EXPECT_EQ(rule.Apply(Frame({Object(1, 1, dva::Box{0.47f, 0.2f, 0.57f, 0.533f})}))[0][0], 1);
}

TEST(IntrusionApply, RemovedIdStartsWithoutAPreviousPosition) {
  Intrusion rule = FenceRule(R"("FenceIntersectType": 3, "ClassIdFilter": 2)");
  Walk(rule, Xs({0.4f}));
  rule.Apply(Frame({}, /*removed=*/{1}));
  EXPECT_EQ(Walk(rule, Xs({0.6f, 0.7f})), (std::vector<int>{0, 0}));
}

}  // namespace
}  // namespace mirvane
