// Where a snapshot is cut from the frame: 10 % growth about the centre, then the side that makes
// it 16:9, clamped to the frame.
#include "result_sender/snapshot_crop.h"

#include <gtest/gtest.h>

namespace mirvane {
namespace result_sender {
namespace {

TEST(SnapshotCrop, GrowsToSixteenByNineInsideTheFrame) {
  const struct {
    const char* what;
    float xmin, ymin, xmax, ymax;
    int width, height;
    int x, y, w, h;
  } cases[] = {
      // x 1728..1919 (xmax 1.0 gives 1919): 192 wide, grown to 211; y 432..648: 217 high, grown
      // to 238; 16:9 of 238 is 423 wide, pushed back inside.
      {"right edge", 0.9f, 0.4f, 1.0f, 0.6f, 1920, 1080, 1497, 421, 423, 238},
      {"tiny box takes the minimum", 0.5f, 0.5f, 0.501f, 0.505f, 1920, 1080, 947, 535, 28, 16},
      {"never wider than the frame", 0.5f, 0.5f, 0.51f, 0.505f, 20, 1080, 0, 535, 20, 16},
      {"very wide box", 0.0f, 0.45f, 1.0f, 0.55f, 1920, 1080, 0, 0, 1920, 1080},
      // 400 wide: 440 x 247, kept inside from row 0.
      {"top edge", 0.25f, 0.0f, 0.25f + 399.5f / 1920, 0.01f, 1920, 1080, 460, 0, 440, 247},
      {"portrait frame", 0.4f, 0.4f, 0.6f, 0.6f, 1080, 1920, 164, 749, 752, 423},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const CropRect crop = SnapshotCrop(c.xmin, c.ymin, c.xmax, c.ymax, c.width, c.height);
    EXPECT_EQ(crop.x, c.x);
    EXPECT_EQ(crop.y, c.y);
    EXPECT_EQ(crop.w, c.w);
    EXPECT_EQ(crop.h, c.h);
  }
}

}  // namespace
}  // namespace result_sender
}  // namespace mirvane
