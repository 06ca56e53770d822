// The people and vehicle rule: its settings, the chain it builds from them, and Apply.
#include "bin/rule/people_vehicle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "bin/rule/json_settings.h"
#include "rules/rule_test_support.h"
#include "testing/child_process.h"
#include "testing/manual_clock.h"
#include "tracking/rule_decorator.h"

namespace mirvane {
namespace rule {
namespace {

using std::chrono::seconds;
using testing::Frame;
using ::testing::HasSubstr;
using testing::ManualClock;
using ::testing::Not;
using testing::Object;
namespace decorator = dva::object_detect_result::rule_decorator;

JsonRef Json(const std::string& text) {
  JsonRef json(json_loads(text.c_str(), JSON_DECODE_ANY, nullptr));
  if (!json) ADD_FAILURE() << "bad test JSON: " << text;
  return json;
}

PeopleVeichileSettings Parse(const std::string& text) {
  return ParsePeopleVeichileSettings(Json(text).get());
}

// What parsing the text writes to standard output.
std::string ParseLog(const std::string& text) {
  return testing::RunInChild([&] { Parse(text); }).out;
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
  EXPECT_EQ(s.min_people_trigger_seconds, 3);
  EXPECT_EQ(s.min_vehicle_trigger_seconds, 7);
  EXPECT_FLOAT_EQ(s.min_object_ratio, 0.015f);
  EXPECT_EQ(s.class_id_filter, 20u);
  EXPECT_TRUE(s.only_both_people_vehicle);
  EXPECT_TRUE(s.only_moved_people);
  EXPECT_FALSE(s.only_moved_vehicle);
  EXPECT_EQ(s.crowd_people_threshold, 4);
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
  EXPECT_THAT(testing::RunInChild([] { ParsePeopleVeichileSettings(nullptr); }).out,
              HasSubstr("Fail to read json config\n"));
  for (const char* text : {R"("{not json")", "[1, 2]"}) {
    EXPECT_THAT(ParseLog(text), HasSubstr("Fail to read json config\n")) << text;
  }
}

TEST(PeopleVeichileSettings, RegionNumberThatIsNoFloatThrows) {
  EXPECT_THAT([] { Parse(R"({"DetectionRegion": "0.1,0.1,zero,0.5"})"); },
              ::testing::ThrowsMessage<std::invalid_argument>(HasSubstr("stof")));
}

TEST(PeopleVeichileSettings, ReadFromPgoFetchesTheObjectDetectionKey) {
  const PeopleVeichileSettings s = PeopleVeichile::ReadFromPgo([](const char* key) -> json_t* {
    if (std::string(key) != "Custom.Dva.ObjectDetection") return nullptr;
    return json_pack("{s:i}", "CrowdPeopleThreshold", 3);
  });
  EXPECT_EQ(s.crowd_people_threshold, 3);
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
  const std::string log = testing::RunInChild([&] { PeopleVeichile again(Parse(text)); }).out;
  const size_t people = log.find("Add triggered_only_moved_people.\n");
  const size_t vehicle = log.find("Add triggered_only_moved_vehicle.\n");
  const size_t crowd = log.find("Add crowd_people_threshold.\n");
  const size_t both = log.find("Add triggered_only_both_people_vehicle.\n");
  ASSERT_NE(both, std::string::npos) << log;
  EXPECT_LT(people, vehicle);
  EXPECT_LT(vehicle, crowd);
  EXPECT_LT(crowd, both);
  EXPECT_THAT(log, HasSubstr("[Info]"));
}

TEST(ResetObjectStatusManger, CrowdThresholdOfOneAddsTheDecoratorAndZeroLeavesItOut) {
  auto chain = [](const char* text) {
    return ChainNames(PeopleVeichile(Parse(text)).object_status_manager());
  };
  EXPECT_EQ(chain(R"({"CrowdPeopleThreshold": 1})"), (std::vector<std::string>{"crowd", "basic"}));
  EXPECT_EQ(chain(R"({"CrowdPeopleThreshold": 0})"), std::vector<std::string>{"basic"});
}

constexpr dva::Box kInside{0.1f, 0.1f, 0.3f, 0.5f};
constexpr dva::Box kOutside{0.6f, 0.1f, 0.8f, 0.5f};

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

}  // namespace
}  // namespace rule
}  // namespace mirvane
