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

// Checks run in a child: the platform's bring-up and the device memory it takes last as long as
// the process.
TEST(StreamReader, ImageCarriesTheFramesPictureAndGivesItsFrameBackWhenDestroyed) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(R"({"video": {"pace": "fast", "buffers": 3}})");
    alarm(20);  // a read that waits for a frame that never went back ends the child
    HdModule platform;
    StreamReader reader;
    std::unique_ptr<IReader::Image> first = reader.Read();
    std::unique_ptr<IReader::Image> second = reader.Read();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(first->timestamp, 1000000u);
    EXPECT_EQ(second->timestamp, 1000000u + 40000u);  // 25 frames per second

    // The frame's picture and nothing else: every other field stays zero.
    const VENDOR_AI_BUF& b = first->buffer;
    VENDOR_AI_BUF expected = {};
    expected.sign = 0x46554241u;  // "ABUF"
    expected.pa = b.pa;
    expected.va = b.va;
    expected.size = 1080u * 1920u * 3 / 2;
    expected.fmt = static_cast<HD_VIDEO_PXLFMT>(0x520c0420u);
    expected.width = expected.line_ofs = 1920;
    expected.height = 1080;
    expected.channel = 2;
    EXPECT_EQ(std::memcmp(&b, &expected, sizeof(b)), 0);
    EXPECT_NE(b.pa, 0u);
    EXPECT_NE(second->buffer.pa, b.pa) << "two frames held, two buffers";

    // The whole picture, chroma plane included, is mapped into the process.
    const auto* pixels = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(b.va));
    unsigned long sum = 0;
    for (uint32_t i = 1920 * 1080; i < b.size; i += 4096) sum += pixels[i];
    EXPECT_GT(sum, 0u);

    // Two frames held, one buffer left: each image read and destroyed gives it back.
    for (int i = 0; i < 10; ++i) ASSERT_NE(reader.Read(), nullptr) << "frame " << i;
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(CountErrorLogLines(result.out), 0) << result.out;
}

TEST(StreamReader, AFailingPullGivesOneLogLineAndNoImageThenReadingGoesOn) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(R"({"video": {"pace": "fast"},
                       "faults": [{"call": "hd_videoproc_pull_out_buf", "code": -10, "nth": 1}]})");
    HdModule platform;
    StreamReader reader;
    EXPECT_EQ(reader.Read(), nullptr);
    EXPECT_NE(reader.Read(), nullptr);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(CountErrorLogLines(result.out), 1) << result.out;
  EXPECT_NE(result.out.find("[Mirvane][Err] stream_reader.cc:"), -1);
  EXPECT_NE(result.out.find(":Read: hd_videoproc_pull_out_buf fail. err[-10]\n"), -1) << result.out;
}

}  // namespace
}  // namespace image_reader
}  // namespace mirvane
