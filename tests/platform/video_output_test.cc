// The simulated video output through the platform's C API: the frame record, the queue that a
// non-releasing consumer starves, waiting pulls, the end of the source and determinism across
// processes. (The ground truth beside the frames is checked by the model and end-to-end suites.)
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <thread>

#include "hdal.h"
#include "sim_test_support.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::PlatformUp;
using testing::RunInChild;
using testing::UseSimSettings;

constexpr HD_PATH_ID kPath = 0x24000107;

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

// Pulls the next frame (waiting as long as it takes), hashes it and gives it back; 0 on failure.
uint64_t NextFrameHash(HD_VIDEO_FRAME* frame) {
  if (hd_videoproc_pull_out_buf(kPath, frame, -1) != HD_OK) return 0;
  const uint64_t hash = FrameHash(*frame);
  hd_videoproc_release_out_buf(kPath, frame);
  return hash;
}

TEST(VideoOutput, FramesCarryTheRecordThePlatformFills) {
  UseSimSettings(FastVideo());
  PlatformUp platform;
  HD_VIDEO_FRAME a, b;
  ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &a, -1), HD_OK);
  ASSERT_EQ(hd_videoproc_pull_out_buf(kPath, &b, -1), HD_OK);
  EXPECT_EQ(a.sign, 0x4D524656u);
  EXPECT_EQ(static_cast<UINT32>(a.pxlfmt), 0x520c0420u);
  EXPECT_TRUE(a.dim.w == 320 && a.dim.h == 180 && a.pw[0] == 320 && a.ph[0] == 180);
  EXPECT_TRUE(a.pw[1] == 160 && a.ph[1] == 90 && a.loff[0] == 320 && a.loff[1] == 320);
  EXPECT_EQ(a.phy_addr[1], a.phy_addr[0] + 320 * 180);
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

TEST(VideoOutput, AnEndedSourceFailsEveryPullUnlessItLoops) {
  std::ofstream("/tmp/short_scene.json") << R"({"name": "short", "duration": 0.08})";
  const char kScene[] = R"(, "scene": "/tmp/short_scene.json")";
  HD_VIDEO_FRAME frame;
  {
    UseSimSettings(FastVideo(kScene + std::string(R"(, "end_code": -26)")));
    PlatformUp platform;
    for (int i = 0; i < 2; ++i) ASSERT_NE(NextFrameHash(&frame), 0u) << i;
    EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_ERR_NOT_START);
    EXPECT_EQ(hd_videoproc_pull_out_buf(kPath, &frame, -1), HD_ERR_NOT_START);
  }
  UseSimSettings(FastVideo(kScene + std::string(R"(, "loop": true)")));
  PlatformUp platform;
  const uint64_t first = NextFrameHash(&frame);
  NextFrameHash(&frame);
  EXPECT_EQ(NextFrameHash(&frame), first);
  EXPECT_EQ(frame.count, 3u);  // the count goes on
}

TEST(VideoOutput, ASceneRendersTheSameFramesInEveryProcess) {
  UseSimSettings(FastVideo(R"(, "scene": "crowd")"));
  auto run = [] {
    return RunInChild([] {
             PlatformUp platform;
             HD_VIDEO_FRAME frame;
             for (int i = 0; i < 300; ++i) {
               const uint64_t hash = NextFrameHash(&frame);
               if (i % 100 == 0) std::printf("%016llx\n", static_cast<unsigned long long>(hash));
             }
           })
        .out;
  };
  const std::string first = run();
  ASSERT_EQ(first.size(), 3u * 17);
  EXPECT_EQ(run(), first);
  EXPECT_NE(first.substr(0, 17), first.substr(17, 17));  // the scene moves
}

}  // namespace
}  // namespace mirvane
