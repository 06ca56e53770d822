// The intrusion rule: its settings, the crossing tracker's pending crossings, direction and class
// and size filters.
#include "bin/rule/intrusion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jansson.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "bin/rule/json_settings.h"
#include "rules/rule_test_support.h"
#include "testing/child_process.h"

namespace mirvane {
namespace rule {
namespace {

using testing::Frame;
using ::testing::HasSubstr;
using testing::Object;

IntrusionSettings Parse(const std::string& text) {
  JsonRef json(json_loads(text.c_str(), JSON_DECODE_ANY, nullptr));
  if (!json) ADD_FAILURE() << "bad test JSON: " << text;
  return ParseIntrusionSettings(json.get());
}

// A box of 0.125 x 0.16 whose test point (middle, nine tenths down) is at p; the half width is
// exact in binary, so that a point on the fence line is exactly on it.
dva::Box BoxAt(dva::Point p) {
  return dva::Box{p.x - 0.0625f, p.y - 0.144f, p.x + 0.0625f, p.y + 0.016f};
}

// A vertical fence drawn downwards at x 0.5 from y 0.1 to 0.9: moving to larger x crosses it left
// to right (direction 1), back is direction 2.
constexpr const char* kVerticalFence = R"("FenceLine": "0.5,0.1,0.5,0.9")";

std::string Config(const std::string& keys) {
  return std::string("{") + kVerticalFence + ", " + keys + "}";
}

// Walks one object (its tracking id is its class id) through the test points and returns the rule's
// answer in each frame.
std::vector<int> WalkPoints(Intrusion& rule, const std::vector<dva::Point>& points,
                            int32_t class_id = 1) {
  std::vector<int> answers;
  for (const dva::Point& p : points) {
    answers.push_back(rule.Apply(Frame({Object(class_id, class_id, BoxAt(p))}))[class_id - 1][0]);
  }
  return answers;
}

// The same along the line y = 0.5.
std::vector<int> Walk(Intrusion& rule, const std::vector<float>& xs, int32_t class_id = 1) {
  std::vector<dva::Point> points;
  for (float x : xs) points.push_back(dva::Point{x, 0.5f});
  return WalkPoints(rule, points, class_id);
}

TEST(IntrusionSettings, ReadsTheFenceAndTheFilters) {
  const IntrusionSettings s = Parse(R"({"FenceLine": "0.1,0.2,0.3,0.4,0.5,0.6,0.7",
      "FenceIntersectType": 3, "MinTriggerObjectRatioPermille": 20, "ClassIdFilter": 2})");
  EXPECT_EQ(s.fence.points().size(), 3u);  // the unpaired 0.7 is dropped
  EXPECT_EQ(s.fence.boundaries().size(), 2u);
  EXPECT_EQ(s.fence.intersect_type(), 3);
  EXPECT_FLOAT_EQ(s.min_object_ratio, 0.02f);
  EXPECT_EQ(s.class_id_filter, 2u);
}

TEST(IntrusionSettings, UnsupportedTypeUnknownKeyAndUnreadableValuesAreLogged) {
  EXPECT_EQ(Parse(R"({"FenceIntersectType": 4})").fence.intersect_type(), 0);
  const std::string log =
      testing::RunInChild([] {
        for (const char* text : {R"({"FenceIntersectType": 4})", R"({"FenceColour": 1})", "7",
                                 R"({"FenceLine": 5})"}) {
          Parse(text);
        }
      }).out;
  EXPECT_THAT(log, HasSubstr("[Err] intrusion.cc"));
  EXPECT_THAT(log, HasSubstr("Not support fence intersect type [4]\n"));
  EXPECT_THAT(log, HasSubstr("Invalid config key[FenceColour]\n"));
  const std::string parse_failure = "Fail to parse json config\n";
  EXPECT_NE(log.find(parse_failure), log.rfind(parse_failure)) << log;  // logged twice
}

TEST(IntrusionSettings, FenceNumberThatIsNoFloatThrows) {
  EXPECT_THAT([] { Parse(R"({"FenceLine": "0.5,0.1,half,0.9"})"); },
              ::testing::ThrowsMessage<std::invalid_argument>(HasSubstr("stof")));
}

TEST(IntrusionSettings, ReadFromPgoFetchesTheIntrusionKey) {
  const IntrusionSettings s = Intrusion::ReadFromPgo([](const char* key) -> json_t* {
    if (std::string(key) != "Custom.Dva.IntrusionDetection") return nullptr;
    return json_string("{\"FenceLine\": \"0.1,0.1,0.9,0.9\"}");
  });
  EXPECT_EQ(s.fence.boundaries().size(), 1u);
}

TEST(IntrusionApply, WalksAlongAHorizontalLine) {
  const struct {
    const char* what;
    const char* type;  // 1: left to right only, 3: both
    std::vector<float> xs;
    std::vector<int> expected;
  } cases[] = {
      // clang-format off
      {"crossing reported in exactly one frame", "1", {0.4f, 0.45f, 0.6f, 0.7f, 0.8f}, {0, 0, 1, 0, 0}},
      {"pending until more than 0.01 past the line", "1",
       {0.4f, 0.505f, 0.505f, 0.509f, 0.52f, 0.53f}, {0, 0, 0, 0, 1, 0}},
      {"newer crossing replaces the pending one", "3", {0.4f, 0.505f, 0.45f}, {0, 0, 2}},
      {"onto the fence and back never triggers", "3", {0.4f, 0.5f, 0.4f, 0.5f, 0.3f}, {0, 0, 0, 0, 0}},
      {"wrong direction gives 0", "1", {0.6f, 0.4f, 0.6f}, {0, 0, 1}},
      {"both directions report either", "3", {0.6f, 0.4f, 0.6f}, {0, 2, 1}},
      // clang-format on
  };
  for (const auto& c : cases) {
    Intrusion rule(
        Parse(Config(std::string(R"("ClassIdFilter": 2, "FenceIntersectType": )") + c.type)));
    EXPECT_EQ(Walk(rule, c.xs), c.expected) << c.what;
  }
}

TEST(IntrusionApply, PendingCrossingIsDroppedWhenTheObjectGoesBackAroundTheEnd) {
  Intrusion rule(Parse(Config(R"("FenceIntersectType": 1, "ClassIdFilter": 2)")));
  // Just over the line near its lower end, down past the end, back to the left there (dropping
  // the pending crossing) and right again below the fence, which crosses nothing.
  EXPECT_EQ(
      WalkPoints(rule,
                 {{0.4f, 0.85f}, {0.505f, 0.85f}, {0.505f, 0.95f}, {0.45f, 0.95f}, {0.6f, 0.95f}}),
      (std::vector<int>{0, 0, 0, 0, 0}));
}

TEST(IntrusionApply, OnePointFenceNeverTriggers) {
  Intrusion rule(Parse(R"({"FenceLine": "0.5,0.5", "FenceIntersectType": 3, "ClassIdFilter": 2})"));
  EXPECT_EQ(rule.settings().fence.boundaries().size(), 0u);
  EXPECT_EQ(Walk(rule, {0.4f, 0.6f, 0.4f}), (std::vector<int>{0, 0, 0}));
}

TEST(IntrusionApply, ClassOutsideTheFilterGivesZeroWhileItsCrossingsAreTracked) {
  Intrusion rule(Parse(Config(R"("FenceIntersectType": 3, "ClassIdFilter": 4)")));  // class 2
  EXPECT_EQ(Walk(rule, {0.4f, 0.6f}, /*class_id=*/1), (std::vector<int>{0, 0}));
  EXPECT_EQ(Walk(rule, {0.4f, 0.6f}, /*class_id=*/2), (std::vector<int>{0, 1}));
}

TEST(IntrusionApply, BoxBelowTheRatioGivesZeroWhileItsCrossingIsTracked) {
  // 30 permille: the boxes of BoxAt (0.02) are too small.
  Intrusion rule(Parse(Config(R"("FenceIntersectType": 1, "ClassIdFilter": 2,
                                 "MinTriggerObjectRatioPermille": 30)")));
  EXPECT_EQ(Walk(rule, {0.4f, 0.505f}), (std::vector<int>{0, 0}));
  // Crossed (pending) with too small a box; confirmed in a frame with a large box.
  const TrackResult big = Frame({Object(1, 1, dva::Box{0.47f, 0.2f, 0.57f, 0.533f})});
  EXPECT_EQ(rule.Apply(big)[0][0], 1);
}

TEST(IntrusionApply, RemovedIdStartsWithoutAPreviousPosition) {
  Intrusion rule(Parse(Config(R"("FenceIntersectType": 3, "ClassIdFilter": 2)")));
  Walk(rule, {0.4f});
  rule.Apply(Frame({}, /*removed=*/{1}));
  EXPECT_EQ(Walk(rule, {0.6f, 0.7f}), (std::vector<int>{0, 0}));
}

TEST(IntrusionApply, StepAcrossTwoSegmentsReportsBothDirectionsAtOnce) {
  // A "V" open to the top: a horizontal step through it crosses the arm (0.2,0.1)->(0.5,0.9)
  // from left to right and the arm (0.5,0.9)->(0.8,0.1) from right to left.
  Intrusion rule(Parse(R"({"FenceLine": "0.2,0.1,0.5,0.9,0.8,0.1", "FenceIntersectType": 3,
                           "ClassIdFilter": 2})"));
  EXPECT_EQ(Walk(rule, {0.1f, 0.9f}), (std::vector<int>{0, 3}));
}

}  // namespace
}  // namespace rule
}  // namespace mirvane
