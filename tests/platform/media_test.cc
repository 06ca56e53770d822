// Device memory and the media hardware working in it, on the host simulation through the
// platform's C API: blocks and their bytes shared by processes (a killed owner leaves its block
// taken), the order of the calls and their error returns, fault injection; the scaler against an
// independent bilinear reference and the checks of a scale request; the encoder's ordering rules.
// (The JPEG's content is checked through the daemon's snapshot getter.)
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hdal.h"
#include "mirvane_sim.h"
#include "sim_test_support.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::MappedBlock;
using testing::PlatformUp;
using testing::RunInChild;
using testing::UseSimSettings;

constexpr UINT32 kBlockSize = MappedBlock::kSize;
constexpr HD_COMMON_MEM_VB_BLK kNoBlock = HD_COMMON_MEM_VB_INVALID_BLK;

HD_COMMON_MEM_VB_BLK TakeCnnBlock(UINT32 size = kBlockSize) {
  return hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, size, DDR_ID0);
}

TEST(DeviceMemory, BlockOfAKilledProcessStaysTakenWithItsBytesUntilReleasedById) {
  UseSimSettings("{}");
  const ChildResult killed = RunInChild([] {
    PlatformUp platform;
    MappedBlock block;
    std::memcpy(block.data() + 4196, "left behind", 12);
    std::printf("%ld", static_cast<long>(block.ok() ? block.id() : -1));
    std::fflush(stdout);
    raise(SIGKILL);  // no destructor runs, as with a daemon killed by the watchdog
  });
  ASSERT_EQ(killed.term_signal, SIGKILL);
  const long left = std::strtol(killed.out.c_str(), nullptr, 10);
  ASSERT_NE(left, -1) << killed.err;

  const ChildResult next = RunInChild([left] {
    PlatformUp platform;
    const HD_COMMON_MEM_VB_BLK first = TakeCnnBlock();
    const HD_RESULT released = hd_common_mem_release_block(left);
    const HD_COMMON_MEM_VB_BLK second = TakeCnnBlock();
    const UINT32 pa = hd_common_mem_blk2pa(second) + 4196;  // an unaligned mapping
    auto* p = static_cast<char*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_NONCACHE, pa, 64));
    std::printf("%ld %d %d %s", static_cast<long>(first), released, second == left,
                p != nullptr ? p : "(unmapped)");
    hd_common_mem_release_block(second);
  });
  EXPECT_EQ(next.out, "-1 0 1 left behind") << next.err;
}

TEST(DeviceMemory, CallsFollowThePlatformsOrder) {
  UseSimSettings("{}");
  EXPECT_EQ(hd_common_mem_init(nullptr), HD_ERR_UNINIT);
  EXPECT_EQ(hd_gfx_init(), HD_ERR_UNINIT);
  EXPECT_EQ(TakeCnnBlock(), kNoBlock);
  ASSERT_EQ(hd_common_init(2), HD_OK);
  EXPECT_EQ(hd_common_init(2), HD_ERR_INIT);
  EXPECT_EQ(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, 0x10000000, 4096), nullptr);
  ASSERT_EQ(hd_common_mem_init(nullptr), HD_OK);
  EXPECT_EQ(hd_common_uninit(), HD_ERR_STATE);  // memory comes down first
  EXPECT_EQ(hd_common_mem_uninit(), HD_OK);
  EXPECT_EQ(hd_common_mem_uninit(), HD_ERR_UNINIT);
  EXPECT_EQ(hd_common_uninit(), HD_OK);
  EXPECT_EQ(hd_common_uninit(), HD_ERR_UNINIT);
}

TEST(DeviceMemory, RequestsOutsideThePoolsAndMappingsFail) {
  UseSimSettings("{}");
  PlatformUp platform;
  EXPECT_EQ(TakeCnnBlock(kBlockSize + 1), kNoBlock);
  EXPECT_EQ(hd_common_mem_get_block(HD_COMMON_MEM_GFX_POOL, 4096, DDR_ID0), kNoBlock);
  EXPECT_EQ(hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, 4096, DDR_ID1), kNoBlock);
  EXPECT_EQ(hd_common_mem_release_block(12345), HD_ERR_PARAM);
  EXPECT_EQ(hd_common_mem_blk2pa(12345), 0u);
  EXPECT_EQ(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, 0x1000, 4096), nullptr);

  const HD_COMMON_MEM_VB_BLK blk = TakeCnnBlock();
  ASSERT_NE(blk, kNoBlock);
  EXPECT_EQ(TakeCnnBlock(), kNoBlock);  // the pool holds one block
  const UINT32 pa = hd_common_mem_blk2pa(blk);
  EXPECT_EQ(pa % 4096, 0u);
  EXPECT_EQ(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa, kBlockSize + 4096), nullptr);
  auto* va = static_cast<uint8_t*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa, 65536));
  ASSERT_NE(va, nullptr);
  int not_mapped = 0;
  EXPECT_EQ(hd_common_mem_flush_cache(va + 100, 1000), HD_OK);
  EXPECT_EQ(hd_common_mem_flush_cache(va + 65000, 1000), HD_ERR_PARAM);
  EXPECT_EQ(hd_common_mem_flush_cache(&not_mapped, sizeof not_mapped), HD_ERR_PARAM);
  EXPECT_EQ(hd_common_mem_munmap(va, 4096), HD_ERR_PARAM);  // not the size that was mapped
  EXPECT_EQ(hd_common_mem_munmap(va, 65536), HD_OK);
  EXPECT_EQ(hd_common_mem_release_block(blk), HD_OK);
  EXPECT_EQ(hd_common_mem_release_block(blk), HD_ERR_NOT_USE);
  EXPECT_EQ(hd_common_mem_blk2pa(blk), 0u);
}

// Which of the next n calls of call fault injection fails ('1').
std::string FaultPattern(const char* call, int n) {
  std::string fails;
  for (int i = 0; i < n; ++i) fails += mirvane_sim_fault(call) ? '1' : '0';
  return fails;
}

TEST(FaultInjection, FailsTheNthCallForACountOrASeededRateOfCalls) {
  UseSimSettings(R"({"faults": [{"call": "hd_common_mem_get_block", "nth": 2, "count": 2},
                                {"call": "vendor_ai_net_proc", "rate": 0.25, "seed": 42}]})");
  EXPECT_EQ(FaultPattern("hd_common_mem_get_block", 4), "0110");
  EXPECT_EQ(FaultPattern("hd_gfx_scale", 4), "0000");  // other calls are untouched
  const std::string first = FaultPattern("vendor_ai_net_proc", 400);
  EXPECT_NEAR(std::count(first.begin(), first.end(), '1'), 100, 40);
  mirvane_sim_reload_settings();  // a reload counts from the first call again
  EXPECT_EQ(FaultPattern("vendor_ai_net_proc", 400), first);
  UseSimSettings("{}");
}

constexpr HD_PATH_ID kEncoderPath = 0x25000000;

// An NV12 picture inside the test's block of device memory.
struct Picture {
  UINT32 pa;
  uint8_t* y;
  int w;
  int h;
  uint8_t* uv() const { return y + w * h; }
  HD_GFX_IMG_BUF Image() const {
    HD_GFX_IMG_BUF img = {};
    img.dim = {static_cast<UINT32>(w), static_cast<UINT32>(h)};
    img.format = HD_VIDEO_PXLFMT_YUV420;
    img.p_phy_addr[0] = pa;
    img.p_phy_addr[1] = pa + static_cast<UINT32>(w * h);
    img.lineoffset[0] = img.lineoffset[1] = static_cast<UINT32>(w);
    return img;
  }
  // The encoder's input record: no user buffer, the daemon's "reserved" word.
  HD_VIDEO_FRAME Frame() const {
    HD_VIDEO_FRAME frame = {};
    frame.sign = HD_VIDEO_FRAME_SIGN;
    frame.pxlfmt = HD_VIDEO_PXLFMT_YUV420;
    frame.dim = {static_cast<UINT32>(w), static_cast<UINT32>(h)};
    frame.phy_addr[0] = pa;
    frame.phy_addr[1] = pa + static_cast<UINT32>(w * h);
    frame.loff[0] = frame.loff[1] = static_cast<UINT32>(w);
    frame.reserved[0] = 0x22000707;
    return frame;
  }
};

// Smooth content (neighbouring samples differ by a few levels), the scaler's typical input.
void FillSmooth(const Picture& p) {
  for (int y = 0; y < p.h; ++y) {
    for (int x = 0; x < p.w; ++x) {
      p.y[y * p.w + x] = static_cast<uint8_t>(128 + 90 * std::sin(x * 0.031) * std::cos(y * 0.023));
      p.uv()[y / 2 * p.w + x] = static_cast<uint8_t>(128 + 60 * std::sin(x * 0.025 + y * 0.01));
    }
  }
}

// Where destination sample i falls in the source: centres aligned when shrinking, ends aligned
// when growing.
double SourcePosition(int i, int src, int dst) {
  if (dst <= src) return (i + 0.5) * src / dst - 0.5;
  return dst > 1 ? static_cast<double>(i) * (src - 1) / (dst - 1) : 0.0;
}

// The largest difference between one component of a scaled plane and a bilinear reference. step
// is 1 for luma, 2 for an interleaved chroma component; rectangles are in that plane's samples.
int WorstDeviation(const uint8_t* src, int src_stride, HD_IRECT sr, const uint8_t* dst,
                   int dst_stride, HD_IRECT dr, int step) {
  auto at = [&](int x, int y) { return src[(sr.y + y) * src_stride + (sr.x + x) * step]; };
  const int sw = sr.w, sh = sr.h;
  int worst = 0;
  for (int y = 0; y < dr.h; ++y) {
    for (int x = 0; x < dr.w; ++x) {
      const double fx = std::min(std::max(SourcePosition(x, sw, dr.w), 0.0), sw - 1.0);
      const double fy = std::min(std::max(SourcePosition(y, sh, dr.h), 0.0), sh - 1.0);
      const int ix = std::min(static_cast<int>(fx), std::max(sw - 2, 0));
      const int iy = std::min(static_cast<int>(fy), std::max(sh - 2, 0));
      const int nx = std::min(ix + 1, sw - 1), ny = std::min(iy + 1, sh - 1);
      const double ax = fx - ix, ay = fy - iy;
      const double ref = (at(ix, iy) * (1 - ax) + at(nx, iy) * ax) * (1 - ay) +
                         (at(ix, ny) * (1 - ax) + at(nx, ny) * ax) * ay;
      const int got = dst[(dr.y + y) * dst_stride + (dr.x + x) * step];
      worst = std::max(worst, static_cast<int>(std::lround(std::fabs(got - ref))));
    }
  }
  return worst;
}

// The chroma samples covering a luma rectangle.
HD_IRECT ChromaRect(HD_IRECT r) {
  return {r.x / 2, r.y / 2, (r.x + r.w + 1) / 2 - r.x / 2, (r.y + r.h + 1) / 2 - r.y / 2};
}

HD_GFX_SCALE Request(const Picture& src, HD_IRECT sr, const Picture& dst, HD_IRECT dr) {
  return HD_GFX_SCALE{src.Image(), dst.Image(), sr, dr, {}};
}

HD_RESULT Scale(const Picture& src, HD_IRECT sr, const Picture& dst, HD_IRECT dr) {
  HD_GFX_SCALE request = Request(src, sr, dst, dr);
  return hd_gfx_scale(&request);
}

class MediaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    UseSimSettings("{}");
    ASSERT_TRUE(platform_.ok());
    ASSERT_TRUE(block_.ok());
  }
  Picture Carve(UINT32 offset, int w, int h) const {
    return Picture{block_.pa() + offset, block_.data() + offset, w, h};
  }
  PlatformUp platform_;
  MappedBlock block_;
};

TEST_F(MediaTest, ScalingMatchesABilinearReferenceAndWritesOnlyTheDestinationRectangle) {
  const Picture frame = Carve(0, 1920, 1080);
  const Picture input = Carve(4 << 20, 384, 384);
  const Picture snapshot = Carve(5 << 20, 160, 90);
  FillSmooth(frame);
  // The letterbox of the network's input (inside a cleared picture), the snapshot crop (at an odd
  // offset) and a tiny crop grown to a snapshot.
  const struct {
    Picture dst;
    HD_IRECT sr, dr;
  } cases[] = {
      {input, {0, 0, 1920, 1080}, {64, 32, 192, 108}},
      {snapshot, {301, 211, 333, 187}, {0, 0, 160, 90}},
      {snapshot, {1000, 500, 28, 16}, {0, 0, 160, 90}},
  };
  std::memset(input.y, 0, 384 * 384);
  std::memset(input.uv(), 128, 384 * 192);
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    ASSERT_EQ(Scale(frame, c.sr, c.dst, c.dr), HD_OK);
    EXPECT_LE(WorstDeviation(frame.y, 1920, c.sr, c.dst.y, c.dst.w, c.dr, 1), 1);
    for (int k = 0; k < 2; ++k) {
      EXPECT_LE(WorstDeviation(frame.uv() + k, 1920, ChromaRect(c.sr), c.dst.uv() + k, c.dst.w,
                               ChromaRect(c.dr), 2),
                3);
    }
  }
  int changed_outside = 0;
  for (int y = 0; y < 384; ++y) {
    for (int x = 0; x < 384; ++x) {
      const bool inside = x >= 64 && x < 256 && y >= 32 && y < 140;
      changed_outside +=
          !inside && (input.y[y * 384 + x] != 0 || input.uv()[(y / 2) * 384 + x] != 128);
    }
  }
  EXPECT_EQ(changed_outside, 0);
}

TEST_F(MediaTest, BadScaleRequestsFailWithThePlatformsCodes) {
  const Picture frame = Carve(0, 1920, 1080);
  const Picture small = Carve(4 << 20, 160, 90);
  const HD_IRECT whole = {0, 0, 160, 90}, part = {0, 0, 320, 180};
  const struct {
    HD_IRECT sr, dr;
  } bad_rects[] = {
      {{1800, 0, 200, 100}, whole},  // past the edge
      {{-2, 0, 200, 100}, whole},   {{0, 0, 0, 100}, whole},
      {part, {1, 0, 100, 50}},  // odd offset in 4:2:0
      {part, {0, 0, 162, 90}},
  };
  for (const auto& r : bad_rects) EXPECT_EQ(Scale(frame, r.sr, small, r.dr), HD_ERR_PARAM);

  HD_GFX_SCALE request = Request(frame, part, small, whole);
  request.dst_img.format = HD_VIDEO_PXLFMT_Y8;
  EXPECT_EQ(hd_gfx_scale(&request), HD_ERR_NOT_SUPPORT);
  request = Request(frame, part, small, whole);
  request.src_img.p_phy_addr[0] = 0x1000;  // not device memory
  EXPECT_EQ(hd_gfx_scale(&request), HD_ERR_PARAM);
  request = Request(frame, part, small, whole);
  request.src_img.lineoffset[0] = 1000;  // shorter than a row
  EXPECT_EQ(hd_gfx_scale(&request), HD_ERR_PARAM);
  EXPECT_EQ(hd_gfx_scale(nullptr), HD_ERR_NULL_PTR);

  UseSimSettings(R"({"gfx": {"odd_source_offsets": "reject"}})");
  EXPECT_EQ(Scale(frame, {301, 210, 320, 180}, small, whole), HD_ERR_PARAM);
  EXPECT_EQ(Scale(frame, {300, 210, 320, 180}, small, whole), HD_OK);
  UseSimSettings("{}");

  ASSERT_EQ(hd_gfx_uninit(), HD_OK);
  EXPECT_EQ(Scale(frame, part, small, whole), HD_ERR_UNINIT);
  ASSERT_EQ(hd_gfx_init(), HD_OK);
}

TEST_F(MediaTest, TheEncoderHoldsOneBitStreamUntilItIsReleasedAndRefusesBadRequests) {
  const Picture snapshot = Carve(0, 160, 90);
  HD_VIDEO_FRAME frame = snapshot.Frame();
  auto push = [&] { return hd_videoenc_push_in_buf(kEncoderPath, &frame, nullptr, 0); };
  HD_VIDEOENC_BS bs, next;
  EXPECT_EQ(hd_videoenc_pull_out_buf(kEncoderPath, &bs, 0), HD_ERR_TIMEDOUT);  // nothing pushed
  ASSERT_EQ(push(), HD_OK);
  EXPECT_EQ(push(), HD_ERR_NOBUF);
  ASSERT_EQ(hd_videoenc_pull_out_buf(kEncoderPath, &bs, 0), HD_OK);
  EXPECT_EQ(push(), HD_ERR_NOBUF);
  HD_VIDEOENC_BS forged = bs;
  forged.video_pack[0].phy_addr += 64;
  EXPECT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &forged), HD_ERR_PARAM);
  ASSERT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &bs), HD_OK);
  EXPECT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &bs), HD_ERR_PARAM);

  // The next bit stream lies elsewhere in the buffer: readers must use the pack's address.
  ASSERT_EQ(push(), HD_OK);
  ASSERT_EQ(hd_videoenc_pull_out_buf(kEncoderPath, &next, -1), HD_OK);
  EXPECT_NE(next.video_pack[0].phy_addr, bs.video_pack[0].phy_addr);
  EXPECT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &next), HD_OK);

  // Requests that are not the daemon's snapshot (the frame is still the good one here).
  EXPECT_EQ(hd_videoenc_push_in_buf(0x25000001, &frame, nullptr, 0), HD_ERR_PATH);
  frame.pxlfmt = static_cast<HD_VIDEO_PXLFMT>(0x22000707);
  EXPECT_EQ(push(), HD_ERR_NOT_SUPPORT);
  frame.pxlfmt = HD_VIDEO_PXLFMT_YUV420;
  frame.phy_addr[0] = 0x2000;  // not device memory
  frame.phy_addr[1] = 0x2000 + 160 * 90;
  EXPECT_EQ(push(), HD_ERR_PARAM);
  frame.sign = 0;
  EXPECT_EQ(push(), HD_ERR_SIGN);
  HD_VIDEOENC_BUFINFO info;
  EXPECT_EQ(hd_videoenc_get(kEncoderPath, static_cast<HD_VIDEOENC_PARAM_ID>(7), &info),
            HD_ERR_NOT_SUPPORT);
}

}  // namespace
}  // namespace mirvane
