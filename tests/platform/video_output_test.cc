// The simulated video output and the scene renderer behind it. The output through the platform's
// C API: the queue that a non-releasing consumer starves, waiting pulls, checks of the frames given
// back, the end of the source, and the pipeline clock that follows the frames. The scenes: the
// shipped ones, the refusal of bad ones, and rendering that depends on nothing else than the scene
// and the frame. (The frame record is checked through the frame reader. That the pixels show the
// ground truth, boxes follow their keys and are clipped to the picture, by the model and end-to-end
// suites, which render and decode the scenes.)
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "common/object_class.h"
#include "hdal.h"
#include "scene.h"
#include "sim_clock.h"
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
  for (HD_VIDEO_FRAME* f : {&held[0], &held[2], &next}) hd_videoproc_release_out_buf(kPath, f);
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

// The daemon's pipeline clock on this host: on virtual time the steady clock's epoch plus the
// timestamp of the latest frame handed out; on the real clock (the default, and what a bad value
// leaves in force) the steady clock itself.
TEST(PipelineClock, FollowsTheFramesOnVirtualTimeAndTheSteadyClockOtherwise) {
  using std::chrono::steady_clock;
  struct Case {
    const char* clock_member;
    bool virtual_time;
    int reload_result;
  };
  for (const Case& c :
       {Case{R"("clock": "virtual", )", true, 0}, Case{"", false, 0},
        Case{R"("clock": "real", )", false, 0}, Case{R"("clock": "wall", )", false, -1}}) {
    SCOPED_TRACE(c.clock_member);
    UseSimSettings("{" + std::string(c.clock_member) + FastVideo().substr(1));
    EXPECT_EQ(mirvane_sim_reload_settings(), c.reload_result);
    PlatformUp platform;
    HD_VIDEO_FRAME frame;
    for (int i = 0; i < 3; ++i) {
      ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_OK);
      hd_videoproc_release_out_buf(kPath, &frame);
    }
    const steady_clock::time_point before = steady_clock::now();
    const steady_clock::time_point now = PipelineTime();
    if (c.virtual_time) {
      EXPECT_EQ(frame.timestamp, 1000000u + 2 * 40000u);
      EXPECT_EQ(now.time_since_epoch(), std::chrono::microseconds(frame.timestamp));
      EXPECT_EQ(PipelineTime(), now) << "time stands still between frames";
    } else {
      EXPECT_GE(now, before);
      EXPECT_LE(now, steady_clock::now());
    }
  }
}

Scene Load(const std::string& name) {
  Scene scene;
  std::string error;
  EXPECT_TRUE(LoadScene(name, &scene, &error)) << error;
  return scene;
}

TEST(Scene, TheShippedScenesLoadWithEveryClassInTheDefaultOne) {
  EXPECT_EQ(ShippedSceneNames(),
            (std::vector<std::string>{"crowd", "default", "edges", "empty_street"}));
  for (const std::string& name : ShippedSceneNames()) EXPECT_GT(Load(name).duration, 0.0) << name;
  const Scene demo = Load("default");
  for (const int class_id : dva::kClassIds) {
    EXPECT_TRUE(std::any_of(demo.objects.begin(), demo.objects.end(),
                            [&](const SceneObject& o) { return o.class_id == class_id; }))
        << "class " << class_id;
  }
}

TEST(Scene, BadScenesAreRefusedWithAReason) {
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
  std::string error;
  for (const char* text : bad) {
    EXPECT_FALSE(ParseScene(text, &scene, &error)) << text;
    EXPECT_FALSE(error.empty());
    error.clear();
  }
  EXPECT_FALSE(LoadScene("/no/such/scene.json", &scene, &error));
}

TEST(Scene, RenderingDependsOnlyOnTheSceneAndTheFrame) {
  const SceneRenderer a(Load("crowd"), 640, 360, 25), b(Load("crowd"), 640, 360, 25);
  std::vector<uint8_t> pa(640 * 360 * 3 / 2), pb(pa.size());
  auto image = [](std::vector<uint8_t>& p) {
    return Nv12Image{p.data(), p.data() + 640 * 360, 640, 360, 640};
  };
  std::vector<GroundTruthBox> truth;
  b.Render(99, image(pb), &truth);  // whatever came before
  b.Render(250, image(pb), &truth);
  a.Render(250, image(pa), &truth);
  EXPECT_FALSE(truth.empty());
  EXPECT_EQ(pa, pb);
}

}  // namespace
}  // namespace sim
}  // namespace mirvane
