// The simulated video output through the platform's C API: the frame record, the queue that a
// non-releasing consumer starves, waiting pulls, the end of the source, determinism across
// processes, and the ground truth written beside the frames.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "hdal.h"
#include "scene.h"
#include "sim_test_support.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::PlatformUp;
using testing::RunInChild;
using testing::UseSimSettings;

constexpr HD_PATH_ID kPath = 0x24000107;
constexpr UINT32 kWidth = 320;
constexpr UINT32 kHeight = 180;

std::string FastVideo(const std::string& extra = "") {
  return R"({"video": {"width": 320, "height": 180, "fps": 25, "pace": "fast", "buffers": 3)" +
         extra + "}}";
}

// FNV-1a of a frame's bytes, read through a mapping as the daemon reads them.
uint64_t FrameHash(const HD_VIDEO_FRAME& frame) {
  const UINT32 size = frame.pw[0] * frame.ph[0] * 3 / 2;
  auto* p = static_cast<const uint8_t*>(
      hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, frame.phy_addr[0], size));
  if (p == nullptr) return 0;
  uint64_t h = 1469598103934665603ULL;
  for (UINT32 i = 0; i < size; ++i) h = (h ^ p[i]) * 1099511628211ULL;
  hd_common_mem_munmap(const_cast<uint8_t*>(p), size);
  return h;
}

TEST(VideoOutput, FramesCarryTheRecordThePlatformFills) {
  UseSimSettings(FastVideo());
  PlatformUp platform;
  HD_VIDEO_FRAME a, b;
  ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &a, -1), HD_OK);
  ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &b, -1), HD_OK);
  EXPECT_EQ(a.sign, 0x4D524656u);
  EXPECT_EQ(static_cast<UINT32>(a.pxlfmt), 0x520c0420u);
  EXPECT_EQ(a.dim.w, kWidth);
  EXPECT_EQ(a.dim.h, kHeight);
  EXPECT_EQ(a.pw[0], kWidth);
  EXPECT_EQ(a.ph[0], kHeight);
  EXPECT_EQ(a.pw[1], kWidth / 2);
  EXPECT_EQ(a.ph[1], kHeight / 2);
  EXPECT_EQ(a.loff[0], kWidth);
  EXPECT_EQ(a.loff[1], kWidth);
  EXPECT_EQ(a.phy_addr[1], a.phy_addr[0] + kWidth * kHeight);
  EXPECT_NE(a.phy_addr[0], b.phy_addr[0]);
  EXPECT_EQ(b.count, a.count + 1);
  EXPECT_EQ(b.timestamp - a.timestamp, 40000u);  // microseconds at 25 frames per second
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &a), HD_OK);
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &b), HD_OK);
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
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &held[0]), HD_OK);
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &held[2]), HD_OK);
  EXPECT_EQ(hd_videoproc_release_out_buf(kPath, &next), HD_OK);
}

TEST(VideoOutput, ReleaseRefusesForeignAndRepeatedFrames) {
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
  std::ofstream("/tmp/short_scene.json") << R"({"name": "short", "duration": 0.2, "objects": []})";
  UseSimSettings(FastVideo(R"(, "scene": "/tmp/short_scene.json", "end_code": -26)"));
  PlatformUp platform;
  HD_VIDEO_FRAME frame;
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_OK) << i;
    hd_videoproc_release_out_buf(kPath, &frame);
  }
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_ERR_NOT_START);
  EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_ERR_NOT_START);
}

TEST(VideoOutput, ALoopingSourceStartsAgain) {
  std::ofstream("/tmp/short_scene.json") << R"({"name": "short", "duration": 0.08})";
  UseSimSettings(FastVideo(R"(, "scene": "/tmp/short_scene.json", "loop": true)"));
  PlatformUp platform;
  HD_VIDEO_FRAME frame;
  uint64_t hashes[3];
  for (uint64_t& h : hashes) {
    ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_OK);
    h = FrameHash(frame);
    hd_videoproc_release_out_buf(kPath, &frame);
  }
  EXPECT_EQ(frame.count, 3u);  // the count goes on
  EXPECT_EQ(hashes[2], hashes[0]);
}

TEST(VideoOutput, ASceneRendersTheSameFramesTwice) {
  UseSimSettings(FastVideo(R"(, "scene": "crowd")"));
  auto run = [] {
    return RunInChild([] {
      PlatformUp platform;
      HD_VIDEO_FRAME frame;
      for (int i = 0; i < 300; ++i) {
        if (hd_videoproc_pull_out_buf(kPath, &frame, -1) != HD_OK) return;
        if (i % 30 == 0)
          std::printf("%016llx\n", static_cast<unsigned long long>(FrameHash(frame)));
        hd_videoproc_release_out_buf(kPath, &frame);
      }
    });
  };
  const ChildResult first = run();
  const ChildResult second = run();
  ASSERT_EQ(first.out.size(), 10u * 17) << first.err;
  EXPECT_EQ(first.out, second.out);
  std::istringstream lines(first.out);
  std::set<std::string> distinct;
  for (std::string line; std::getline(lines, line);) distinct.insert(line);
  EXPECT_GT(distinct.size(), 5u);  // the scene moves
}

TEST(VideoOutput, GroundTruthNamesWhatThePixelsShow) {
  UseSimSettings(FastVideo(R"(, "scene": "default", "ground_truth": "/tmp/truth.csv")"));
  PlatformUp platform;
  HD_VIDEO_FRAME frame;
  // Frame 400 (16 s) of the default scene shows six people or things and a car.
  for (int i = 0; i <= 400; ++i) {
    ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_OK);
    if (i < 400) hd_videoproc_release_out_buf(kPath, &frame);
  }
  auto* picture = static_cast<const uint8_t*>(hd_common_mem_mmap(
      HD_COMMON_MEM_MEM_TYPE_CACHE, frame.phy_addr[0], kWidth * kHeight * 3 / 2));
  ASSERT_NE(picture, nullptr);
  std::ifstream truth("/tmp/truth.csv");
  std::string line;
  std::getline(truth, line);
  EXPECT_EQ(line.rfind("# scene=default width=320 height=180 fps=25 frames=1000", 0), 0u) << line;
  std::getline(truth, line);
  EXPECT_EQ(line, "count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1");
  std::vector<sim::GroundTruthBox> boxes;  // of the frame held, in drawing order
  while (std::getline(truth, line)) {
    unsigned long long count, timestamp;
    long long index;
    sim::GroundTruthBox b;
    ASSERT_EQ(std::sscanf(line.c_str(), "%llu,%llu,%lld,%d,%d,%d,%d,%d,%d", &count, &timestamp,
                          &index, &b.object_id, &b.class_id, &b.x0, &b.y0, &b.x1, &b.y1),
              9);
    if (count != frame.count) continue;
    EXPECT_EQ(timestamp, frame.timestamp);
    EXPECT_EQ(index, 400);
    boxes.push_back(b);
  }
  EXPECT_EQ(boxes.size(), 7u);
  // The top-left chroma sample of each box shows the colour of the last object drawn there.
  for (const sim::GroundTruthBox& b : boxes) {
    int top_class = 0;
    for (const sim::GroundTruthBox& o : boxes) {
      if (b.x0 >= o.x0 && b.x0 < o.x1 && b.y0 >= o.y0 && b.y0 < o.y1) top_class = o.class_id;
    }
    const sim::Yuv colour = sim::ClassColour(top_class);
    const uint8_t* uv = picture + kWidth * kHeight + (b.y0 / 2) * kWidth + (b.x0 / 2) * 2;
    EXPECT_EQ(uv[0], colour.u) << "object " << b.object_id;
    EXPECT_EQ(uv[1], colour.v) << "object " << b.object_id;
  }
  hd_common_mem_munmap(const_cast<uint8_t*>(picture), kWidth * kHeight * 3 / 2);
  hd_videoproc_release_out_buf(kPath, &frame);
}

TEST(VideoOutput, APullFailsWhenFaultInjectionSaysSo) {
  UseSimSettings(R"({"video": {"width": 320, "height": 180, "pace": "fast"},
                     "faults": [{"call": "hd_videoproc_pull_out_buf", "code": -15, "nth": 2,
                                 "count": 5}]})");
  PlatformUp platform;
  HD_VIDEO_FRAME frame;
  std::vector<int> results;
  for (int i = 0; i < 7; ++i) {
    results.push_back(hd_videoproc_pull_out_buf(kPath, &frame, -1));
    if (results.back() == HD_OK) hd_videoproc_release_out_buf(kPath, &frame);
  }
  EXPECT_EQ(results, (std::vector<int>{0, -15, -15, -15, -15, -15, 0}));
  UseSimSettings("{}");
}

}  // namespace
}  // namespace mirvane
