// The frame reader on the host simulation's video output (1920x1080 NV12, as fast as pulled):
// the buffer record it hands to the model, frames going back to the platform with their images,
// and a failing pull turning into one log line and a null image.
#include "image_reader/stream_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "nvt/hd_module.h"
#include "sim_test_support.h"
#include "testing/checks_in_child.h"

namespace mirvane {
namespace image_reader {
namespace {

using testing::ChildResult;
using testing::CountErrorLogLines;
using testing::RunChecksInChild;
using testing::UseSimSettings;

constexpr char kFastVideo[] = R"({"video": {"pace": "fast", "buffers": 3}})";
constexpr uint64_t kFirstTimestampUs = 1000000;
constexpr uint64_t kFrameIntervalUs = 40000;  // 25 frames per second

TEST(StreamReader, ImageCarriesTheFramesPictureAsTheNetworkRuntimeTakesIt) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(kFastVideo);
    HdModule platform;
    StreamReader reader;
    std::unique_ptr<IReader::Image> first = reader.Read();
    std::unique_ptr<IReader::Image> second = reader.Read();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(first->timestamp, kFirstTimestampUs);
    EXPECT_EQ(second->timestamp, kFirstTimestampUs + kFrameIntervalUs);

    const VENDOR_AI_BUF& b = first->buffer;
    EXPECT_EQ(b.sign, 0x46554241u);  // "ABUF"
    EXPECT_EQ(b.width, 1920u);
    EXPECT_EQ(b.height, 1080u);
    EXPECT_EQ(b.line_ofs, 1920u);
    EXPECT_EQ(b.size, 1080u * 1920u * 3 / 2);
    EXPECT_EQ(static_cast<uint32_t>(b.fmt), 0x520c0420u);
    EXPECT_EQ(b.channel, 2u);
    EXPECT_NE(b.pa, 0u);
    EXPECT_NE(b.va, 0u);
    EXPECT_NE(second->buffer.pa, b.pa) << "two frames held, two buffers";
    // Everything else is zero.
    VENDOR_AI_BUF rest = b;
    rest.sign = rest.pa = rest.va = rest.size = rest.width = rest.height = rest.channel = 0;
    rest.line_ofs = 0;
    rest.fmt = static_cast<HD_VIDEO_PXLFMT>(0);
    const VENDOR_AI_BUF zero = {};
    EXPECT_EQ(std::memcmp(&rest, &zero, sizeof(rest)), 0);

    // The whole picture, chroma plane included, is mapped into the process; the scene's grey
    // background shows neutral-ish chroma somewhere in it.
    const auto* pixels = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(b.va));
    unsigned long sum = 0;
    for (uint32_t i = 1920 * 1080; i < b.size; i += 4096) sum += pixels[i];
    EXPECT_GT(sum, 0u);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(CountErrorLogLines(result.out), 0) << result.out;
}

TEST(StreamReader, DestroyingAnImageGivesItsFrameBack) {
  const ChildResult result = RunChecksInChild([] {
    // Three buffers, and a pull that waits for ever once all are held: a frame that never went
    // back hangs the fourth read, which the alarm turns into a failure.
    UseSimSettings(kFastVideo);
    alarm(20);
    HdModule platform;
    StreamReader reader;
    uint64_t last = 0;
    for (int i = 0; i < 12; ++i) {
      std::unique_ptr<IReader::Image> image = reader.Read();
      ASSERT_NE(image, nullptr) << "frame " << i;
      EXPECT_GT(image->timestamp, last);
      last = image->timestamp;
    }
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(result.term_signal, 0) << "hung on a frame that was not given back";
}

TEST(StreamReader, AFailingPullGivesOneLogLineAndNoImageThenReadingGoesOn) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(R"({"video": {"pace": "fast"},
                       "faults": [{"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 1,
                                   "count": 1}]})");
    HdModule platform;
    StreamReader reader;
    EXPECT_EQ(reader.Read(), nullptr);
    std::unique_ptr<IReader::Image> next = reader.Read();
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->buffer.width, 1920u);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(CountErrorLogLines(result.out), 1) << result.out;
  EXPECT_NE(result.out.find("[Mirvane][Err] stream_reader.cc:"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find(":Read: hd_videoproc_pull_out_buf fail. err[-10]\n"),
            std::string::npos)
      << result.out;
}

}  // namespace
}  // namespace image_reader
}  // namespace mirvane
