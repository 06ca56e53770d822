// The simulated video output and the scene renderer behind it. The output through the platform's
// C API: the queue that a non-releasing consumer starves, waiting pulls, checks of the frames given
// back, and the end of the source. The renderer: scene files, the shipped scenes, clipping at the
// picture's edges and determinism. (The frame record is checked through the frame reader; that the
// pixels show the ground truth and that boxes follow their keys, by the model and end-to-end
// suites, which decode the scenes and script motion with keys.)
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "hdal.h"
#include "scene.h"
#include "sim_test_support.h"

namespace mirvane {
namespace sim {
namespace {

using testing::PlatformUp;
using testing::UseSimSettings;

constexpr HD_PATH_ID kPath = 0x24000107;

std::string FastVideo(const std::string& extra = "") {
  return R"({"video": {"width": 320, "height": 180, "fps": 25, "pace": "fast", "buffers": 3)" +
         extra + "}}";
}

TEST(VideoOutput, AConsumerThatNeverReleasesStarves) {
  UseSimSettings(FastVideo());
  PlatformUp platform;
  HD_VIDEO_FRAME held[3], next;
  for (HD_VIDEO_FRAME& f : held) ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &f, 0), HD_OK);
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &next, 0), HD_ERR_TIMEDOUT);
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &next, 30), HD_ERR_TIMEDOUT);

  // A pull without limit returns as soon as another thread gives a buffer back.
  std::thread releaser([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    hd_videoproc_release_out_buf(kPath, &held[1]);
  });
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &next, -1), HD_OK);
  releaser.join();
  EXPECT_EQ(next.phy_addr[0], held[1].phy_addr[0]);
  for (HD_VIDEO_FRAME* f : {&held[0], &held[2], &next}) {
    EXPECT_EQ(hd_videoproc_release_out_buf(kPath, f), HD_OK);
  }
}

TEST(VideoOutput, PullAndReleaseRefuseForeignAndRepeatedFrames) {
  UseSimSettings(FastVideo());
  PlatformUp platform;
  HD_VIDEO_FRAME frame;
  EXPECT_EQ(hd_videoproc_pull_out_buf(0x24000100, &frame, 0), HD_ERR_PATH);
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, nullptr, 0), HD_ERR_NULL_PTR);
  ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, 0), HD_OK);
  HD_VIDEO_FRAME forged = frame;
  forged.sign = 0;
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &forged), HD_ERR_SIGN);
  forged = frame;
  forged.phy_addr[0] += 4096;
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &forged), HD_ERR_PARAM);
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &frame), HD_OK);
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &frame), HD_ERR_PARAM);
}

TEST(VideoOutput, AnEndedSourceFailsEveryPull) {
  std::ofstream("/tmp/short_scene.json") << R"({"name": "short", "duration": 0.08})";
  UseSimSettings(FastVideo(R"(, "scene": "/tmp/short_scene.json", "end_code": -26)"));
  PlatformUp platform;
  HD_VIDEO_FRAME frame;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_OK) << i;
    hd_videoproc_release_out_buf(kPath, &frame);
  }
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_ERR_NOT_START);
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_ERR_NOT_START);
}

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

TEST(Scene, TheShippedScenesLoadWithEveryClassInTheDefaultOne) {
  EXPECT_EQ(ShippedSceneNames(),
            (std::vector<std::string>{"crowd", "default", "edges", "empty_street"}));
  for (const std::string& name : ShippedSceneNames()) EXPECT_GT(Load(name).duration, 0.0) << name;
  const Scene demo = Load("default");
  for (int class_id = 1; class_id <= 4; ++class_id) {
    EXPECT_TRUE(std::any_of(demo.objects.begin(), demo.objects.end(),
                            [&](const SceneObject& o) { return o.class_id == class_id; }))
        << "class " << class_id;
  }
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
