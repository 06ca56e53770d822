// The simulated scaler and JPEG encoder through the platform's C API: scaling against an
// independent bilinear reference, the checks of a scale request, and the encoder's bit stream and
// its ordering rules.
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "hdal.h"
#include "sim_test_support.h"

namespace mirvane {
namespace {

using testing::MappedBlock;
using testing::PlatformUp;
using testing::UseSimSettings;

constexpr HD_PATH_ID kEncoderPath = 0x25000000;

// An NV12 picture inside the test's block of device memory.
struct Picture {
  UINT32 pa;
  uint8_t* data;
  int w;
  int h;
  uint8_t* y() const { return data; }
  uint8_t* uv() const { return data + w * h; }
  HD_GFX_IMG_BUF Image() const {
    HD_GFX_IMG_BUF img = {};
    img.dim = {static_cast<UINT32>(w), static_cast<UINT32>(h)};
    img.format = HD_VIDEO_PXLFMT_YUV420;
    img.p_phy_addr[0] = pa;
    img.p_phy_addr[1] = pa + static_cast<UINT32>(w * h);
    img.lineoffset[0] = img.lineoffset[1] = static_cast<UINT32>(w);
    return img;
  }
};

Picture Carve(const MappedBlock& block, UINT32 offset, int w, int h) {
  return Picture{block.pa() + offset, block.data() + offset, w, h};
}

// Smooth content (neighbouring samples differ by a few levels), the scaler's typical input.
void FillSmooth(const Picture& p) {
  for (int y = 0; y < p.h; ++y) {
    for (int x = 0; x < p.w; ++x) {
      p.y()[y * p.w + x] =
          static_cast<uint8_t>(128 + 90 * std::sin(x * 0.031) * std::cos(y * 0.023));
    }
  }
  for (int y = 0; y < p.h / 2; ++y) {
    for (int x = 0; x < p.w / 2; ++x) {
      p.uv()[y * p.w + 2 * x] = static_cast<uint8_t>(128 + 60 * std::sin(x * 0.05 + y * 0.02));
      p.uv()[y * p.w + 2 * x + 1] = static_cast<uint8_t>(128 + 60 * std::cos(x * 0.04 - y * 0.03));
    }
  }
}

// Bilinear sample of one plane (step 1 for luma, 2 for an interleaved chroma component) at
// (fx, fy), clamped at the edges of the source rectangle.
double Sample(const uint8_t* plane, int stride, int step, int x0, int y0, int w, int h, double fx,
              double fy) {
  fx = std::min(std::max(fx, 0.0), w - 1.0);
  fy = std::min(std::max(fy, 0.0), h - 1.0);
  const int ix = std::min(static_cast<int>(fx), w - 2 < 0 ? 0 : w - 2);
  const int iy = std::min(static_cast<int>(fy), h - 2 < 0 ? 0 : h - 2);
  const double ax = fx - ix, ay = fy - iy;
  auto at = [&](int x, int y) { return plane[(y0 + y) * stride + (x0 + x) * step]; };
  const int x1 = std::min(ix + 1, w - 1), y1 = std::min(iy + 1, h - 1);
  return (at(ix, iy) * (1 - ax) + at(x1, iy) * ax) * (1 - ay) +
         (at(ix, y1) * (1 - ax) + at(x1, y1) * ax) * ay;
}

// Where destination sample i falls in the source: centres aligned when shrinking, ends aligned
// when growing.
double SourcePosition(int i, int src, int dst) {
  if (dst <= src) return (i + 0.5) * src / dst - 0.5;
  return dst > 1 ? static_cast<double>(i) * (src - 1) / (dst - 1) : 0.0;
}

struct Deviation {
  int luma = 0;
  int chroma = 0;
};

Deviation CompareWithReference(const Picture& src, HD_IRECT sr, const Picture& dst, HD_IRECT dr) {
  Deviation worst;
  for (int y = 0; y < dr.h; ++y) {
    for (int x = 0; x < dr.w; ++x) {
      const double ref = Sample(src.y(), src.w, 1, sr.x, sr.y, sr.w, sr.h,
                                SourcePosition(x, sr.w, dr.w), SourcePosition(y, sr.h, dr.h));
      const int got = dst.y()[(dr.y + y) * dst.w + dr.x + x];
      worst.luma = std::max(worst.luma, static_cast<int>(std::lround(std::fabs(got - ref))));
    }
  }
  const int csx = sr.x / 2, csy = sr.y / 2;
  const int csw = (sr.x + sr.w + 1) / 2 - csx, csh = (sr.y + sr.h + 1) / 2 - csy;
  const int cdw = (dr.w + 1) / 2, cdh = (dr.h + 1) / 2;
  for (int y = 0; y < cdh; ++y) {
    for (int x = 0; x < cdw; ++x) {
      for (int c = 0; c < 2; ++c) {
        const double ref = Sample(src.uv() + c, src.w, 2, csx, csy, csw, csh,
                                  SourcePosition(x, csw, cdw), SourcePosition(y, csh, cdh));
        const int got = dst.uv()[(dr.y / 2 + y) * dst.w + (dr.x / 2 + x) * 2 + c];
        worst.chroma = std::max(worst.chroma, static_cast<int>(std::lround(std::fabs(got - ref))));
      }
    }
  }
  return worst;
}

HD_RESULT Scale(const Picture& src, HD_IRECT sr, const Picture& dst, HD_IRECT dr) {
  HD_GFX_SCALE request = {};
  request.src_img = src.Image();
  request.dst_img = dst.Image();
  request.src_region = sr;
  request.dst_region = dr;
  return hd_gfx_scale(&request);
}

class MediaTest : public ::testing::Test {
 protected:
  void SetUp() override {
    UseSimSettings("{}");
    ASSERT_TRUE(platform_.ok());
    ASSERT_TRUE(block_.ok());
  }
  PlatformUp platform_;
  MappedBlock block_;
};

TEST_F(MediaTest, ScalingMatchesABilinearReference) {
  const Picture frame = Carve(block_, 0, 1920, 1080);
  const Picture input = Carve(block_, 4 << 20, 384, 384);
  const Picture snapshot = Carve(block_, 5 << 20, 160, 90);
  FillSmooth(frame);

  // The letterbox of the network's input, the snapshot crop (at an odd offset) and a tiny crop
  // grown to a snapshot.
  const struct {
    Picture dst;
    HD_IRECT sr, dr;
  } cases[] = {
      {input, {0, 0, 1920, 1080}, {0, 0, 384, 216}},
      {snapshot, {301, 211, 333, 187}, {0, 0, 160, 90}},
      {snapshot, {1000, 500, 28, 16}, {0, 0, 160, 90}},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(Scale(frame, c.sr, c.dst, c.dr), HD_OK);
    const Deviation d = CompareWithReference(frame, c.sr, c.dst, c.dr);
    EXPECT_LE(d.luma, 1) << c.sr.x << "," << c.sr.y << " " << c.sr.w << "x" << c.sr.h;
    EXPECT_LE(d.chroma, 3) << c.sr.x << "," << c.sr.y << " " << c.sr.w << "x" << c.sr.h;
  }
}

TEST_F(MediaTest, PixelsOutsideTheDestinationRectangleStayAsTheyWere) {
  const Picture frame = Carve(block_, 0, 1920, 1080);
  const Picture input = Carve(block_, 4 << 20, 384, 384);
  FillSmooth(frame);
  std::memset(input.y(), 0, 384 * 384);
  std::memset(input.uv(), 128, 384 * 192);
  ASSERT_EQ(Scale(frame, {0, 0, 1920, 1080}, input, {64, 32, 192, 108}), HD_OK);
  int changed_outside = 0, changed_inside = 0;
  for (int y = 0; y < 384; ++y) {
    for (int x = 0; x < 384; ++x) {
      const bool inside = x >= 64 && x < 256 && y >= 32 && y < 140;
      const bool changed =
          input.y()[y * 384 + x] != 0 || input.uv()[(y / 2) * 384 + (x / 2) * 2] != 128;
      (inside ? changed_inside : changed_outside) += changed;
    }
  }
  EXPECT_EQ(changed_outside, 0);
  EXPECT_GT(changed_inside, 192 * 108 / 2);
}

TEST_F(MediaTest, BadScaleRequestsFailWithThePlatformsCodes) {
  const Picture frame = Carve(block_, 0, 1920, 1080);
  const Picture small = Carve(block_, 4 << 20, 160, 90);
  const HD_IRECT whole = {0, 0, 160, 90};
  EXPECT_EQ(Scale(frame, {1800, 0, 200, 100}, small, whole), HD_ERR_PARAM);  // past the edge
  EXPECT_EQ(Scale(frame, {-2, 0, 200, 100}, small, whole), HD_ERR_PARAM);
  EXPECT_EQ(Scale(frame, {0, 0, 0, 100}, small, whole), HD_ERR_PARAM);
  EXPECT_EQ(Scale(frame, {0, 0, 320, 180}, small, {1, 0, 100, 50}), HD_ERR_PARAM);  // odd 4:2:0
  EXPECT_EQ(Scale(frame, {0, 0, 320, 180}, small, {0, 0, 162, 90}), HD_ERR_PARAM);

  HD_GFX_SCALE request = {};
  request.src_img = frame.Image();
  request.dst_img = small.Image();
  request.src_region = {0, 0, 320, 180};
  request.dst_region = whole;
  request.dst_img.format = HD_VIDEO_PXLFMT_Y8;
  EXPECT_EQ(hd_gfx_scale(&request), HD_ERR_NOT_SUPPORT);
  request.dst_img = small.Image();
  request.src_img.p_phy_addr[0] = 0x1000;  // not device memory
  EXPECT_EQ(hd_gfx_scale(&request), HD_ERR_PARAM);
  request.src_img = frame.Image();
  request.src_img.lineoffset[0] = 1000;  // shorter than a row
  EXPECT_EQ(hd_gfx_scale(&request), HD_ERR_PARAM);
  EXPECT_EQ(hd_gfx_scale(nullptr), HD_ERR_NULL_PTR);

  UseSimSettings(R"({"gfx": {"odd_source_offsets": "reject"}})");
  EXPECT_EQ(Scale(frame, {301, 210, 320, 180}, small, whole), HD_ERR_PARAM);
  EXPECT_EQ(Scale(frame, {300, 210, 320, 180}, small, whole), HD_OK);
  UseSimSettings("{}");

  ASSERT_EQ(hd_gfx_uninit(), HD_OK);
  EXPECT_EQ(Scale(frame, {0, 0, 320, 180}, small, whole), HD_ERR_UNINIT);
  ASSERT_EQ(hd_gfx_init(), HD_OK);
}

// The daemon's snapshot request: a 160x90 picture, no user buffer, no wait.
HD_RESULT PushSnapshot(const Picture& p) {
  HD_VIDEO_FRAME frame = {};
  frame.sign = HD_VIDEO_FRAME_SIGN;
  frame.pxlfmt = HD_VIDEO_PXLFMT_YUV420;
  frame.dim = {static_cast<UINT32>(p.w), static_cast<UINT32>(p.h)};
  frame.phy_addr[0] = p.pa;
  frame.phy_addr[1] = p.pa + static_cast<UINT32>(p.w * p.h);
  frame.loff[0] = frame.loff[1] = static_cast<UINT32>(p.w);
  frame.reserved[0] = 0x22000707;
  return hd_videoenc_push_in_buf(kEncoderPath, &frame, nullptr, 0);
}

TEST_F(MediaTest, AnEncodedSnapshotDecodesBackTo160x90Yuv420) {
  const Picture snapshot = Carve(block_, 0, 160, 90);
  FillSmooth(snapshot);
  ASSERT_EQ(PushSnapshot(snapshot), HD_OK);
  HD_VIDEOENC_BS bs;
  ASSERT_EQ(hd_videoenc_pull_out_buf(kEncoderPath, &bs, -1), HD_OK);
  EXPECT_EQ(bs.sign, HD_VIDEOENC_BS_SIGN);
  EXPECT_EQ(bs.vcodec_format, HD_CODEC_TYPE_JPEG);
  ASSERT_EQ(bs.pack_num, 1u);

  HD_VIDEOENC_BUFINFO info = {};
  ASSERT_EQ(hd_videoenc_get(kEncoderPath, HD_VIDEOENC_PARAM_BUFINFO, &info), HD_OK);
  const HD_VIDEO_BS_DATA& pack = bs.video_pack[0];
  ASSERT_GE(pack.phy_addr, info.buf_info.phy_addr);
  ASSERT_LE(pack.phy_addr + pack.size, info.buf_info.phy_addr + info.buf_info.buf_size);
  auto* buffer = static_cast<uint8_t*>(hd_common_mem_mmap(
      HD_COMMON_MEM_MEM_TYPE_CACHE, info.buf_info.phy_addr, info.buf_info.buf_size));
  ASSERT_NE(buffer, nullptr);
  const uint8_t* jpeg = buffer + (pack.phy_addr - info.buf_info.phy_addr);

  tjhandle tj = tjInitDecompress();
  int w = 0, h = 0, subsampling = -1, colourspace = -1;
  ASSERT_EQ(tjDecompressHeader3(tj, jpeg, pack.size, &w, &h, &subsampling, &colourspace), 0);
  EXPECT_EQ(w, 160);
  EXPECT_EQ(h, 90);
  EXPECT_EQ(subsampling, TJSAMP_420);
  std::vector<uint8_t> luma(static_cast<size_t>(tjBufSizeYUV2(160, 1, 90, TJSAMP_420)));
  ASSERT_EQ(tjDecompressToYUV2(tj, jpeg, pack.size, luma.data(), 160, 1, 90, 0), 0);
  double error = 0;
  for (int i = 0; i < 160 * 90; ++i) error += std::abs(luma[i] - snapshot.y()[i]);
  EXPECT_LT(error / (160 * 90), 3.0);  // the picture, not just a header
  tjDestroy(tj);
  hd_common_mem_munmap(buffer, info.buf_info.buf_size);
  EXPECT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &bs), HD_OK);
}

TEST_F(MediaTest, TheEncoderHoldsOneBitStreamUntilItIsReleased) {
  const Picture snapshot = Carve(block_, 0, 160, 90);
  FillSmooth(snapshot);
  HD_VIDEOENC_BS bs;
  EXPECT_EQ(hd_videoenc_pull_out_buf(kEncoderPath, &bs, 0), HD_ERR_TIMEDOUT);  // nothing pushed
  ASSERT_EQ(PushSnapshot(snapshot), HD_OK);
  EXPECT_EQ(PushSnapshot(snapshot), HD_ERR_NOBUF);
  ASSERT_EQ(hd_videoenc_pull_out_buf(kEncoderPath, &bs, 0), HD_OK);
  EXPECT_EQ(PushSnapshot(snapshot), HD_ERR_NOBUF);
  HD_VIDEOENC_BS forged = bs;
  forged.video_pack[0].phy_addr += 64;
  EXPECT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &forged), HD_ERR_PARAM);
  ASSERT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &bs), HD_OK);
  EXPECT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &bs), HD_ERR_PARAM);

  // The next bit stream lies elsewhere in the buffer: readers must use the pack's address.
  ASSERT_EQ(PushSnapshot(snapshot), HD_OK);
  HD_VIDEOENC_BS next;
  ASSERT_EQ(hd_videoenc_pull_out_buf(kEncoderPath, &next, -1), HD_OK);
  EXPECT_NE(next.video_pack[0].phy_addr, bs.video_pack[0].phy_addr);
  EXPECT_EQ(next.video_pack[0].size, bs.video_pack[0].size);
  EXPECT_EQ(hd_videoenc_release_out_buf(kEncoderPath, &next), HD_OK);
}

TEST_F(MediaTest, BadEncoderRequestsFail) {
  const Picture snapshot = Carve(block_, 0, 160, 90);
  HD_VIDEO_FRAME frame = {};
  EXPECT_EQ(hd_videoenc_push_in_buf(kEncoderPath, &frame, nullptr, 0), HD_ERR_SIGN);
  frame.sign = HD_VIDEO_FRAME_SIGN;
  frame.pxlfmt = static_cast<HD_VIDEO_PXLFMT>(0x22000707);
  frame.dim = {160, 90};
  EXPECT_EQ(hd_videoenc_push_in_buf(kEncoderPath, &frame, nullptr, 0), HD_ERR_NOT_SUPPORT);
  frame.pxlfmt = HD_VIDEO_PXLFMT_YUV420;
  frame.loff[0] = frame.loff[1] = 160;
  frame.phy_addr[0] = 0x2000;  // not device memory
  frame.phy_addr[1] = 0x2000 + 160 * 90;
  EXPECT_EQ(hd_videoenc_push_in_buf(kEncoderPath, &frame, nullptr, 0), HD_ERR_PARAM);
  EXPECT_EQ(hd_videoenc_push_in_buf(0x25000001, &frame, nullptr, 0), HD_ERR_PATH);
  HD_VIDEOENC_BUFINFO info;
  EXPECT_EQ(hd_videoenc_get(kEncoderPath, static_cast<HD_VIDEOENC_PARAM_ID>(7), &info),
            HD_ERR_NOT_SUPPORT);
  (void)snapshot;
}

}  // namespace
}  // namespace mirvane
