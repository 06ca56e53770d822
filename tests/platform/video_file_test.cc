// Video files as the simulated sensor, through the platform's C API: every frame of a file at the
// file's own rate and times, fitted with the aspect kept, looping, and the refusals and early ends
// of files that do not play. The files are written here with FFmpeg's encoders.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "hdal.h"
#include "mirvane_sim.h"
#include "sim_test_support.h"
#include "video_writer.h"

namespace mirvane {
namespace sim {
namespace {

using testing::PlatformUp;
using testing::UseSimSettings;
using testing::VideoFormat;
using testing::WriteVideo;

constexpr HD_PATH_ID kPath = 0x24000107;
constexpr char kTruth[] = "/tmp/mirvane-sim-test/truth.csv";

// Frame i is flat grey of luma 40 + 8 i (i < 20), neutral chroma.
void DrawGrey(int64_t index, const Nv12Image& picture) {
  std::fill_n(picture.y, picture.stride * picture.height, static_cast<uint8_t>(40 + 8 * index));
  std::fill_n(picture.uv, picture.stride * picture.height / 2, 128);
}

std::string Settings(const std::string& file, const std::string& extra = "") {
  return R"({"video": {"width": 640, "height": 360, "pace": "fast", "ground_truth": ")" +
         std::string(kTruth) + R"(", "file": ")" + file + "\"" + extra + "}}";
}

struct Played {
  std::vector<HD_VIDEO_FRAME> frames;
  std::vector<int> centre_luma, left_luma;  // of each frame
  int end = HD_OK;                          // the code that ended the pulls
};

// Pulls up to limit frames (or until a pull fails) and notes the luma in the middle of the picture
// and in its first column.
Played Play(int limit) {
  Played played;
  for (int i = 0; i < limit; ++i) {
    HD_VIDEO_FRAME frame;
    played.end = hd_videoproc_pull_out_buf(kPath, &frame, -1);
    if (played.end != HD_OK) break;
    const auto* y = static_cast<const uint8_t*>(
        mirvane_sim_device_view(frame.phy_addr[0], frame.loff[0] * frame.dim.h));
    played.centre_luma.push_back(y[frame.dim.h / 2 * frame.loff[0] + frame.dim.w / 2]);
    played.left_luma.push_back(y[frame.dim.h / 2 * frame.loff[0]]);
    played.frames.push_back(frame);
    hd_videoproc_release_out_buf(kPath, &frame);
  }
  return played;
}

std::string WriteGreyFile(const std::string& path, VideoFormat format, int frames) {
  std::string error;
  EXPECT_TRUE(WriteVideo(path, format, frames, DrawGrey, &error)) << error;
  return path;
}

TEST(VideoFile, PlaysEveryFrameAtTheFilesRateWithItsOwnTimes) {
  const std::string file = WriteGreyFile("/tmp/grey.mkv", VideoFormat{}, 12);
  UseSimSettings(Settings(file, R"(, "fps": 25)"));  // the file's 10 fps win
  PlatformUp platform;
  const Played played = Play(20);
  ASSERT_EQ(played.frames.size(), 12u);
  EXPECT_EQ(played.end, -43);
  for (size_t i = 0; i < played.frames.size(); ++i) {
    EXPECT_EQ(played.frames[i].count, i + 1);
    EXPECT_EQ(played.frames[i].timestamp, 1000000u + i * 100000u) << i;
    EXPECT_EQ(played.frames[i].dim.w, 640u);
    EXPECT_NEAR(played.centre_luma[i], 40 + 8 * static_cast<int>(i), 3) << i;
  }
  std::ifstream truth(kTruth);
  std::string header;
  std::getline(truth, header);
  EXPECT_EQ(header, "# video=/tmp/grey.mkv width=640 height=360 fps=10 frames=12");
}

TEST(VideoFile, KeepsTheDisplayAspectWithBlackBars) {
  struct Case {
    const char* name;
    int width, height, aspect_num, aspect_den;
    bool bars;  // at the sides of the 16:9 output
  };
  const Case cases[] = {
      {"4:3 square pixels", 320, 240, 1, 1, true},
      {"4:3 storage shown as 16:9", 320, 240, 4, 3, false},
      {"16:9 square pixels", 320, 180, 1, 1, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    VideoFormat format;
    format.width = c.width;
    format.height = c.height;
    format.aspect_num = c.aspect_num;
    format.aspect_den = c.aspect_den;
    const std::string file = WriteGreyFile("/tmp/aspect.mkv", format, 3);
    UseSimSettings(Settings(file));
    PlatformUp platform;
    const Played played = Play(1);
    ASSERT_EQ(played.frames.size(), 1u);
    if (c.bars) {
      EXPECT_EQ(played.left_luma[0], 16);
    } else {
      EXPECT_NEAR(played.left_luma[0], 40, 3);
    }
  }
}

TEST(VideoFile, LoopsWithTimesThatGoOnRising) {
  const std::string file = WriteGreyFile("/tmp/loop.mkv", VideoFormat{}, 5);
  UseSimSettings(Settings(file, R"(, "loop": true)"));
  PlatformUp platform;
  const Played played = Play(12);
  ASSERT_EQ(played.frames.size(), 12u);
  for (size_t i = 0; i < played.frames.size(); ++i) {
    EXPECT_EQ(played.frames[i].timestamp, 1000000u + i * 100000u) << i;
    EXPECT_NEAR(played.centre_luma[i], 40 + 8 * static_cast<int>(i % 5), 3) << i;
  }
}

TEST(VideoFile, FilesThatDoNotPlayAreRefusedAndACutFileEndsEarly) {
  std::ofstream("/tmp/not_a_video.mp4") << "plain text, no video in here\n";
  const std::string whole = WriteGreyFile("/tmp/cut.avi", VideoFormat{"mpeg4"}, 20);
  std::ifstream in(whole, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::ofstream("/tmp/cut_short.avi", std::ios::binary) << bytes.substr(0, bytes.size() * 6 / 10);

  struct Case {
    const char* file;
    int first_code;  // of the first pull
    size_t min_frames, max_frames;
  };
  const Case cases[] = {
      {"/tmp/no_such_file.mp4", HD_ERR_NO_CONFIG, 0, 0},
      {"/tmp/not_a_video.mp4", HD_ERR_NO_CONFIG, 0, 0},
      {"/tmp/cut_short.avi", HD_OK, 5, 19},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    UseSimSettings(Settings(c.file));
    PlatformUp platform;
    const Played played = Play(40);
    EXPECT_GE(played.frames.size(), c.min_frames);
    EXPECT_LE(played.frames.size(), c.max_frames);
    EXPECT_EQ(played.end, c.min_frames == 0 ? c.first_code : -43);
  }
}

TEST(VideoFile, TheSampleFootagePlaysAtItsOwnSizeAndRate) {
  const std::string sample = std::string(MIRVANE_SAMPLE_DIR) + "/vtest.avi";
  if (access(sample.c_str(), R_OK) != 0) {
    GTEST_SKIP() << sample << " is absent: scripts/fetch-sample.sh fetches it";
  }
  UseSimSettings(R"({"video": {"pace": "fast", "ground_truth": ")" + std::string(kTruth) +
                 R"(", "file": ")" + sample + "\"}}");
  PlatformUp platform;
  const Played played = Play(2);
  ASSERT_EQ(played.frames.size(), 2u);
  EXPECT_EQ(played.frames[1].timestamp - played.frames[0].timestamp, 100000u);
  EXPECT_EQ(played.left_luma[0], 16);  // 768x576 fills 1440x1080 of the 1920x1080 picture
  std::ifstream truth(kTruth);
  std::string header;
  std::getline(truth, header);
  EXPECT_NE(header.find("fps=10 frames=795"), std::string::npos) << header;
}

}  // namespace
}  // namespace sim
}  // namespace mirvane
