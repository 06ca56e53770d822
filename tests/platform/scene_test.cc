// The scene renderer behind the simulated video output: scene files, keyframed boxes, the shipped
// scenes, clipping at the picture's edges and determinism. (That the pixels show the ground truth
// in each class's colour is checked end to end by the model suite's decoding of the scene.)
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "scene.h"

namespace mirvane {
namespace sim {
namespace {

Scene Load(const std::string& name) {
  Scene scene;
  std::string error;
  EXPECT_TRUE(LoadScene(name, &scene, &error)) << error;
  return scene;
}

// A picture of its own, for rendering outside device memory.
struct OwnedPicture {
  OwnedPicture(uint32_t w, uint32_t h) : bytes(w * h * 3 / 2) {
    image = Nv12Image{bytes.data(), bytes.data() + w * h, w, h, w};
  }
  std::vector<uint8_t> bytes;
  Nv12Image image;
};

TEST(Scene, TheShippedScenesLoad) {
  const std::vector<std::string> names = ShippedSceneNames();
  for (const char* name : {"default", "empty_street", "crowd", "edges"}) {
    EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
    EXPECT_GT(Load(name).duration, 0.0) << name;
  }
  EXPECT_TRUE(Load("empty_street").objects.empty());
  EXPECT_EQ(Load("crowd").objects.size(), 43u);
  const Scene demo = Load("default");
  for (int class_id = 1; class_id <= 4; ++class_id) {
    EXPECT_TRUE(std::any_of(demo.objects.begin(), demo.objects.end(),
                            [&](const SceneObject& o) { return o.class_id == class_id; }))
        << "class " << class_id;
  }
}

TEST(Scene, BoxesFollowTheKeys) {
  Scene scene;
  std::string error;
  ASSERT_TRUE(ParseScene(R"({"duration": 10, "objects": [{"id": 4, "class": "vehicle", "keys": [
      [1, 0.0, 0.5, 0.2, 0.7], [3, 0.4, 0.5, 0.6, 0.7], [5, 0.4, 0.5, 0.6, 0.7]]}]})",
                         &scene, &error))
      << error;
  const SceneObject& car = scene.objects.at(0);
  NormBox box;
  EXPECT_FALSE(BoxAt(car, 0.5, &box));  // not there yet
  ASSERT_TRUE(BoxAt(car, 2.0, &box));
  EXPECT_DOUBLE_EQ(box.xmin, 0.2);
  EXPECT_DOUBLE_EQ(box.xmax, 0.4);
  ASSERT_TRUE(BoxAt(car, 4.0, &box));  // standing still
  EXPECT_DOUBLE_EQ(box.xmin, 0.4);
  EXPECT_FALSE(BoxAt(car, 5.5, &box));  // gone
}

TEST(Scene, BadScenesAreRefused) {
  const char* bad[] = {
      R"({"objects": []})",  // no duration
      R"({"duration": 5, "objects": [{"id": 1, "class": "tree", "keys": [[0, 0, 0, 1, 1]]}]})",
      R"({"duration": 5, "objects": [{"id": 1, "class": "person",
          "keys": [[0, 0.5, 0, 0.4, 1]]}]})",
      R"({"duration": 5, "objects": [{"id": 1, "class": "person",
          "keys": [[2, 0, 0, 1, 1], [1, 0, 0, 1, 1]]}]})",
      R"({"duration": 5, "generate": [{"class": "person", "count": 3, "height": [0.3, 0.1]}]})",
      "not json",
  };
  Scene scene;
  for (const char* text : bad) {
    std::string error;
    EXPECT_FALSE(ParseScene(text, &scene, &error)) << text;
    EXPECT_FALSE(error.empty());
  }
  std::string error;
  EXPECT_FALSE(LoadScene("/no/such/scene.json", &scene, &error));
}

TEST(Scene, RenderingDependsOnlyOnTheSceneAndTheFrame) {
  const SceneRenderer a(Load("crowd"), 640, 360, 25);
  const SceneRenderer b(Load("crowd"), 640, 360, 25);
  OwnedPicture pa(640, 360), pb(640, 360);
  std::vector<GroundTruthBox> truth_a, truth_b;
  a.Render(250, pa.image, &truth_a);
  b.Render(99, pb.image, &truth_b);  // whatever came before
  b.Render(250, pb.image, &truth_b);
  EXPECT_EQ(pa.bytes, pb.bytes);
  EXPECT_EQ(truth_a.size(), truth_b.size());
  EXPECT_FALSE(truth_a.empty());

  Scene other_seed = Load("crowd");
  other_seed.background_seed += 1;
  const SceneRenderer c(other_seed, 640, 360, 25);
  c.Render(250, pb.image, &truth_b);
  EXPECT_NE(pa.bytes, pb.bytes);
}

TEST(Scene, ObjectsAtTheEdgesAreClippedToThePicture) {
  const SceneRenderer renderer(Load("edges"), 640, 360, 25);
  bool left = false, right = false, top = false, bottom = false;
  std::vector<GroundTruthBox> truth;
  for (int64_t i = 0; i < renderer.FrameCount(); i += 5) {
    renderer.GroundTruth(i, &truth);
    for (const GroundTruthBox& b : truth) {
      ASSERT_TRUE(b.x0 >= 0 && b.x0 < b.x1 && b.x1 <= 640) << b.object_id;
      ASSERT_TRUE(b.y0 >= 0 && b.y0 < b.y1 && b.y1 <= 360) << b.object_id;
      left |= b.x0 == 0;
      right |= b.x1 == 640;
      top |= b.y0 == 0;
      bottom |= b.y1 == 360;
    }
  }
  EXPECT_TRUE(left && right && top && bottom);
}

}  // namespace
}  // namespace sim
}  // namespace mirvane
