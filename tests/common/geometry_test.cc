// Region and fence geometry: polygons, box coverage, crossings, overlaps, the region text and the
// fence's getters.
#include "common/geometry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/detection_region.h"
#include "common/fence.h"
#include "testing/log_capture.h"

namespace mirvane {
namespace dva {
namespace {

using ::testing::HasSubstr;

const Polygon kSquare{{0.2f, 0.2f}, {0.6f, 0.2f}, {0.6f, 0.6f}, {0.2f, 0.6f}};
// A "U": two prongs joined at the bottom, open at the top between x 0.4 and 0.6.
const Polygon kU{{0.2f, 0.2f}, {0.4f, 0.2f}, {0.4f, 0.6f}, {0.6f, 0.6f},
                 {0.6f, 0.2f}, {0.8f, 0.2f}, {0.8f, 0.8f}, {0.2f, 0.8f}};

TEST(PolygonContains, FollowsTheEvenOddRule) {
  const struct {
    const Polygon& polygon;
    Point point;
    bool inside;
  } cases[] = {
      {kSquare, {0.4f, 0.4f}, true},  {kSquare, {0.7f, 0.4f}, false},
      {kSquare, {0.4f, 0.1f}, false}, {kU, {0.3f, 0.4f}, true},
      {kU, {0.5f, 0.4f}, false},  // in the notch
      {kU, {0.5f, 0.7f}, true},       {Polygon(), {0.5f, 0.5f}, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PolygonContains(c.polygon, c.point), c.inside) << c.point.x << "," << c.point.y;
  }
}

TEST(CrossingDirection, GivesTheDirectionOfAStepThroughTheSegment) {
  const Segment fence{{0.5f, 0.1f}, {0.5f, 0.9f}};
  EXPECT_EQ(CrossingDirection(fence, {{0.4f, 0.5f}, {0.6f, 0.5f}}), kCrossLeftToRight);
  EXPECT_EQ(CrossingDirection(fence, {{0.6f, 0.5f}, {0.4f, 0.5f}}), kCrossRightToLeft);
  EXPECT_EQ(CrossingDirection(fence, {{0.4f, 0.5f}, {0.45f, 0.5f}}), 0);   // stops short
  EXPECT_EQ(CrossingDirection(fence, {{0.4f, 0.95f}, {0.6f, 0.95f}}), 0);  // passes the end
  EXPECT_EQ(CrossingDirection(fence, {{0.4f, 0.5f}, {0.5f, 0.5f}}), 0);    // onto the line
}

TEST(ClampedOverlap, ClampsOnlyTheNewBoxForTheIntersection) {
  const Box a{0.1f, 0.1f, 0.3f, 0.3f};
  EXPECT_FLOAT_EQ(ClampedOverlap(a, a), 1.0f);
  EXPECT_FLOAT_EQ(ClampedOverlap(a, Box{0.3f, 0.1f, 0.5f, 0.3f}), 0.0f);
  // Half of the box lies left of the frame. Against itself: the intersection takes only the
  // clamped half (0.1 x 0.2), the union both whole areas (0.04 + 0.04 - 0.02).
  const Box half_out{-0.1f, 0.1f, 0.1f, 0.3f};
  EXPECT_FLOAT_EQ(ClampedOverlap(half_out, half_out), 1.0f / 3.0f);
  // A reference lying wholly left of the frame never meets the clamped box.
  EXPECT_FLOAT_EQ(ClampedOverlap(half_out, Box{-0.1f, 0.1f, 0.0f, 0.3f}), 0.0f);
}

TEST(DetectionRegion, RegionTextSnapsCoordinatesNearTheEdges) {
  std::string text;
  for (const Polygon& polygon :
       DetectionRegion::ParsePolygons("0.01,0.5,0.99,0.5,0.99,0.99;0.1,0.1,0.2,0.1,0.2,0.2")) {
    for (const Point& p : polygon) text += std::to_string(p.x) + "," + std::to_string(p.y) + " ";
    text += ";";
  }
  EXPECT_EQ(text,
            "0.000000,0.500000 1.000000,0.500000 1.000000,1.000000 ;"
            "0.100000,0.100000 0.200000,0.100000 0.200000,0.200000 ;");
}

TEST(DetectionRegion, ExclusionAdmitsWhatNoPolygonContainsAndEverythingWithoutPolygons) {
  const DetectionRegion include(DetectionRegion::kInclusion, {kSquare});
  const DetectionRegion exclude(DetectionRegion::kExclusion, {kSquare});
  EXPECT_TRUE(include.Admits({0.4f, 0.4f}));
  EXPECT_FALSE(exclude.Admits({0.4f, 0.4f}));
  EXPECT_TRUE(exclude.Admits({0.8f, 0.8f}));
  const Box box{0.3f, 0.3f, 0.5f, 0.5f};
  EXPECT_TRUE(include.AdmitsBox(box, 10, 0.1f));
  EXPECT_FALSE(exclude.AdmitsBox(box, 10, 0.1f));
  // A box is covered by a tenth of its samples; their centres lie at 0.05, 0.15, ...
  const Box whole{0, 0, 1, 1};
  const Polygon one_column{{0, 0}, {0.1f, 0}, {0.1f, 1}, {0, 1}};
  const Polygon nine_samples{{0, 0}, {0.1f, 0}, {0.1f, 0.9f}, {0, 0.9f}};
  EXPECT_TRUE(
      DetectionRegion(DetectionRegion::kInclusion, {one_column}).AdmitsBox(whole, 10, 0.1f));
  EXPECT_FALSE(
      DetectionRegion(DetectionRegion::kInclusion, {nine_samples}).AdmitsBox(whole, 10, 0.1f));
  EXPECT_FALSE(DetectionRegion().Admits({0.5f, 0.5f}));
  EXPECT_TRUE(DetectionRegion(DetectionRegion::kExclusion, {}).Admits({0.5f, 0.5f}));
}

TEST(Fence, EachPointAfterTheFirstAddsASegmentAndOutOfRangeGettersLogUnderThePointGetter) {
  const testing::LogCapture log;
  Fence fence;
  fence.AddPoint({0.1f, 0.1f});
  EXPECT_TRUE(fence.boundaries().empty());
  fence.AddPoint({0.2f, 0.3f});
  ASSERT_EQ(fence.boundaries().size(), 1u);
  EXPECT_EQ(fence.GetBoundary(0)->end.y, 0.3f);
  EXPECT_EQ(log.Text(), "");
  EXPECT_FALSE(fence.GetPoint(2));
  EXPECT_FALSE(fence.GetBoundary(1));
  EXPECT_THAT(log.Text(), HasSubstr(":GetPoint: failed to get point 2\n"));
  EXPECT_THAT(log.Text(), HasSubstr(":GetPoint: failed to get boundary 1\n"));
}

}  // namespace
}  // namespace dva
}  // namespace mirvane
