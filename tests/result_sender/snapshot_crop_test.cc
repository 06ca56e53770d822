// Where a snapshot is cut from the frame. Expected rectangles are worked out by hand from the
// box: 10 % growth about the centre, then the side that makes it 16:9, clamped to the frame.
#include "result_sender/snapshot_crop.h"

#include <gtest/gtest.h>

namespace mirvane {
namespace result_sender {
namespace {

void ExpectCrop(const CropRect& crop, int x, int y, int w, int h) {
  EXPECT_EQ(crop.x, x);
  EXPECT_EQ(crop.y, y);
  EXPECT_EQ(crop.w, w);
  EXPECT_EQ(crop.h, h);
}

TEST(SnapshotCrop, BoxAtTheRightEdgeStaysInsideTheFrame) {
  // x 1728..1919 (xmax 1.0 gives 1919, not 1920): 192 wide, grown to 211; y 432..648: 217 high,
  // grown to 238; 16:9 of 238 is 423 wide, pushed back inside: 1497..1919.
  ExpectCrop(SnapshotCrop(0.9f, 0.4f, 1.0f, 0.6f, 1920, 1080), 1497, 421, 423, 238);
}

TEST(SnapshotCrop, TinyBoxTakesTheMinimumCrop) {
  ExpectCrop(SnapshotCrop(0.5f, 0.5f, 0.501f, 0.505f, 1920, 1080), 947, 535, 28, 16);
  const CropRect narrow = SnapshotCrop(0.5f, 0.5f, 0.51f, 0.505f, 20, 1080);
  EXPECT_EQ(narrow.w, 20) << "never wider than the frame";
  EXPECT_EQ(narrow.x, 0);
}

TEST(SnapshotCrop, VeryWideBoxGrowsInHeightUpToTheFrame) {
  ExpectCrop(SnapshotCrop(0.0f, 0.45f, 1.0f, 0.55f, 1920, 1080), 0, 0, 1920, 1080);
  // 400 wide at the top edge: 440 x 247, kept inside from row 0.
  ExpectCrop(SnapshotCrop(0.25f, 0.0f, 0.25f + 399.5f / 1920, 0.01f, 1920, 1080), 460, 0, 440, 247);
}

TEST(SnapshotCrop, PortraitFramesAreHandledLikeLandscapeOnes) {
  const CropRect crop = SnapshotCrop(0.4f, 0.4f, 0.6f, 0.6f, 1080, 1920);
  EXPECT_GE(crop.x, 0);
  EXPECT_GE(crop.y, 0);
  EXPECT_LE(crop.x + crop.w, 1080);
  EXPECT_LE(crop.y + crop.h, 1920);
  EXPECT_NEAR(static_cast<double>(crop.w) / crop.h, 16.0 / 9.0, 0.01);
}

}  // namespace
}  // namespace result_sender
}  // namespace mirvane
