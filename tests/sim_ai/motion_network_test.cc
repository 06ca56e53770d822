// The motion detector on drawn footage: a still background with one object moving across it. What
// moves is found as a box of its shape's class with its motion back to the previous run; what
// stands still is not found at all; the boxes reach the heatmaps through the reference encoding.
#include <gtest/gtest.h>

#include <cmath>

#include "model_file.h"
#include "motion_network.h"
#include "scene_drawing.h"

namespace mirvane {
namespace sim {
namespace ai {
namespace {

using sim_ai_test::Box;
using sim_ai_test::kPictureSize;
using sim_ai_test::TestPicture;

Nv12Picture PictureOf(TestPicture& p) {
  Nv12Picture picture;
  picture.y = p.data();
  picture.uv = p.data() + static_cast<size_t>(p.width()) * p.height();
  picture.width = p.width();
  picture.height = p.height();
  picture.stride = p.width();
  return picture;
}

TEST(MotionNetwork, FindsWhatMovesWithItsShapesClassAndMotion) {
  struct Case {
    const char* name;
    Box start;           // where the object is in the first picture
    int step_x, step_y;  // its move per picture
    int class_id;        // what the detector should call it (0: nothing found; it never moves)
  };
  const Case cases[] = {
      {"a walking person", {1, 40, 100, 64, 180}, 4, 0, 1},
      {"a passing car", {2, 60, 40, 180, 90}, 0, 5, 2},
      {"a small wide thing", {3, 200, 200, 230, 216}, -3, 2, 3},
      {"a person who has stood there all along", {1, 100, 100, 124, 180}, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ModelDescription model = DefaultModel();
    model.name = kMotionNetworkName;
    model.settings = IdealSettings();
    MotionNetwork network(model);
    // The camera has seen the empty square for a while before the object comes.
    TestPicture previous(1);
    if (c.step_x == 0 && c.step_y == 0) previous.Draw(c.start);
    for (int run = 0; run < 40; ++run) network.Run(PictureOf(previous), PictureOf(previous));
    Box box = c.start;
    for (int run = 0; run < 4; ++run) {
      box = Box{c.start.class_id, c.start.x0 + run * c.step_x, c.start.y0 + run * c.step_y,
                c.start.x1 + run * c.step_x, c.start.y1 + run * c.step_y};
      TestPicture current(1);
      current.Draw(box);
      network.Run(PictureOf(current), PictureOf(previous));
      previous = current;
    }
    const std::vector<EncodedObject>& found = network.encoded();
    if (c.class_id == 0) {
      EXPECT_TRUE(found.empty());
      continue;
    }
    ASSERT_EQ(found.size(), 1u);
    const EncodedObject& o = found[0];
    EXPECT_EQ(o.box.class_id, c.class_id);
    EXPECT_NEAR(o.box.x0, box.x0, 3);
    EXPECT_NEAR(o.box.y0, box.y0, 3);
    EXPECT_NEAR(o.box.x1, box.x1, 3);
    EXPECT_NEAR(o.box.y1, box.y1, 3);
    EXPECT_NEAR(o.dx, -c.step_x, 1);
    EXPECT_NEAR(o.dy, -c.step_y, 1);
    EXPECT_FLOAT_EQ(o.score, model.settings.score);
    // The heat of the box's class peaks somewhere on one of the three scales.
    float peak = 0;
    for (size_t i = 0; i < model.outputs.size(); ++i) {
      if (model.outputs[i].kind != OutputKind::kHeatmap) continue;
      const size_t cells = static_cast<size_t>(model.outputs[i].width) * model.outputs[i].height;
      const std::vector<float>& heat = network.output(i);
      for (size_t k = 0; k < cells; ++k) peak = std::max(peak, heat[(c.class_id - 1) * cells + k]);
    }
    EXPECT_NEAR(peak, model.settings.score, 1.0f / 255);
  }
}

TEST(MotionNetwork, TheFirstRunsFindNothingWhileTheBackgroundIsLearnt) {
  ModelDescription model = DefaultModel();
  model.name = kMotionNetworkName;
  MotionNetwork network(model);
  TestPicture picture(1);
  picture.Draw(Box{1, 40, 100, 64, 180});
  network.Run(PictureOf(picture), PictureOf(picture));
  EXPECT_TRUE(network.encoded().empty());
}

}  // namespace
}  // namespace ai
}  // namespace sim
}  // namespace mirvane
