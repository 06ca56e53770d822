// Region and fence geometry: polygons, box coverage, crossings, overlaps, the region text and the
// fence's getters.
#include "common/geometry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/detection_region.h"
#include "common/fence.h"
#include "testing/child_process.h"

namespace mirvane {
namespace dva {
namespace {

using ::testing::HasSubstr;

const Polygon kSquare{{0.2f, 0.2f}, {0.6f, 0.2f}, {0.6f, 0.6f}, {0.2f, 0.6f}};
// A "U": two prongs joined at the bottom, open at the top between x 0.4 and 0.6.
const Polygon kU{{0.2f, 0.2f}, {0.4f, 0.2f}, {0.4f, 0.6f}, {0.6f, 0.6f},
                 {0.6f, 0.2f}, {0.8f, 0.2f}, {0.8f, 0.8f}, {0.2f, 0.8f}};

TEST(PolygonContains, FollowsTheEvenOddRule) {
  EXPECT_TRUE(PolygonContains(kSquare, {0.4f, 0.4f}));
  EXPECT_FALSE(PolygonContains(kSquare, {0.7f, 0.4f}));
  EXPECT_FALSE(PolygonContains(kSquare, {0.4f, 0.1f}));
  EXPECT_TRUE(PolygonContains(kU, {0.3f, 0.4f}));
  EXPECT_FALSE(PolygonContains(kU, {0.5f, 0.4f}));  // in the notch
  EXPECT_TRUE(PolygonContains(kU, {0.5f, 0.7f}));
}

TEST(PolygonContains, EmptyPolygonContainsNothing) {
  EXPECT_FALSE(PolygonContains({}, {0.5f, 0.5f}));
}

TEST(PolygonCoversBox, NeedsATenthOfTheSamples) {
  const Box box{0.0f, 0.0f, 1.0f, 1.0f};
  // Sample centres lie at 0.05, 0.15, ...: a strip up to x 0.1 holds one column of ten.
  const Polygon one_column{{0.0f, 0.0f}, {0.1f, 0.0f}, {0.1f, 1.0f}, {0.0f, 1.0f}};
  const Polygon nine_samples{{0.0f, 0.0f}, {0.1f, 0.0f}, {0.1f, 0.9f}, {0.0f, 0.9f}};
  EXPECT_TRUE(PolygonCoversBox(one_column, box, 10, 0.1f));
  EXPECT_FALSE(PolygonCoversBox(nine_samples, box, 10, 0.1f));
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
  const std::vector<Polygon> polygons =
      DetectionRegion::ParsePolygons("0.01,0.5,0.99,0.5,0.99,0.99;0.1,0.1,0.2,0.1,0.2,0.2");
  ASSERT_EQ(polygons.size(), 2u);
  ASSERT_EQ(polygons[0].size(), 3u);
  EXPECT_EQ(polygons[0][0].x, 0.0f);
  EXPECT_FLOAT_EQ(polygons[0][0].y, 0.5f);
  EXPECT_EQ(polygons[0][1].x, 1.0f);
  EXPECT_EQ(polygons[0][2].x, 1.0f);
  EXPECT_EQ(polygons[0][2].y, 1.0f);
  ASSERT_EQ(polygons[1].size(), 3u);
  EXPECT_FLOAT_EQ(polygons[1][0].x, 0.1f);
  EXPECT_FLOAT_EQ(polygons[1][2].y, 0.2f);
}

TEST(DetectionRegion, ExclusionRegionAdmitsWhatNoPolygonContains) {
  const std::vector<Polygon> polygons{kSquare};
  const DetectionRegion include(DetectionRegion::kInclusion, polygons);
  const DetectionRegion exclude(DetectionRegion::kExclusion, polygons);
  EXPECT_TRUE(include.Admits({0.4f, 0.4f}));
  EXPECT_FALSE(exclude.Admits({0.4f, 0.4f}));
  EXPECT_TRUE(exclude.Admits({0.8f, 0.8f}));
  const Box box{0.3f, 0.3f, 0.5f, 0.5f};
  EXPECT_TRUE(include.AdmitsBox(box, 10, 0.1f));
  EXPECT_FALSE(exclude.AdmitsBox(box, 10, 0.1f));
}

TEST(DetectionRegion, WithoutPolygonsInclusionAdmitsNothingAndExclusionEverything) {
  EXPECT_FALSE(DetectionRegion().Admits({0.5f, 0.5f}));
  EXPECT_TRUE(DetectionRegion(DetectionRegion::kExclusion, {}).Admits({0.5f, 0.5f}));
}

TEST(Fence, EachPointAfterTheFirstAddsASegment) {
  Fence fence;
  fence.AddPoint({0.1f, 0.1f});
  EXPECT_TRUE(fence.boundaries().empty());
  fence.AddPoint({0.2f, 0.2f});
  fence.AddPoint({0.3f, 0.1f});
  ASSERT_EQ(fence.boundaries().size(), 2u);
  const auto second = fence.GetBoundary(1);
  ASSERT_TRUE(second.has_value());
  EXPECT_FLOAT_EQ(second->start.x, 0.2f);
  EXPECT_FLOAT_EQ(second->end.x, 0.3f);
  EXPECT_FLOAT_EQ(fence.GetPoint(2)->y, 0.1f);
}

TEST(Fence, OutOfRangeGettersLogUnderThePointGettersName) {
  const testing::ChildResult result = testing::RunInChild([] {
    Fence fence;
    fence.AddPoint({0.1f, 0.1f});
    if (fence.GetPoint(1) || fence.GetBoundary(0)) _exit(10);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.out, HasSubstr(":GetPoint: failed to get point 1\n"));
  EXPECT_THAT(result.out, HasSubstr(":GetPoint: failed to get boundary 0\n"));
}

}  // namespace
}  // namespace dva
}  // namespace mirvane
