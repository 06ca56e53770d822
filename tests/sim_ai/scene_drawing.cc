#include "scene_drawing.h"

#include <algorithm>

#include "libyuv/scale.h"

namespace mirvane {
namespace sim_ai_test {
namespace {

struct Colour {
  int y, u, v;
};

Colour ColourOf(int class_id) {
  switch (class_id) {
    case 1:
      return {82, 90, 240};
    case 2:
      return {41, 240, 110};
    case 3:
      return {145, 54, 34};
    default:
      return {210, 16, 146};
  }
}

uint32_t Hash(uint32_t x, uint32_t y, uint32_t seed) {
  uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ seed * 0xcb1ab31fu;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  return h ^ (h >> 15);
}

}  // namespace

TestPicture::TestPicture(uint32_t seed, int width, int height)
    : width_(width), height_(height), bytes_(static_cast<size_t>(width) * height * 3 / 2) {
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      // Blocks of any luma with a little grain.
      const int block = static_cast<int>(Hash(x / 24, y / 24, seed) % 220) + 16;
      const int grain = static_cast<int>(Hash(x, y, seed + 7) % 9) - 4;
      bytes_[y * width_ + x] = static_cast<uint8_t>(std::min(235, std::max(16, block + grain)));
    }
  }
  uint8_t* uv = bytes_.data() + width_ * height_;
  for (int i = 0; i < width_ * height_ / 2; ++i) {
    uv[i] = static_cast<uint8_t>(128 + static_cast<int>(Hash(i, 3, seed) % 13) - 6);
  }
}

void TestPicture::Draw(const Box& box) {
  const Colour c = ColourOf(box.class_id);
  const int border = std::max(2, (height_ / 270) & ~1);
  const int x0 = std::max(box.x0, 0), x1 = std::min(box.x1, width_);
  const int y0 = std::max(box.y0, 0), y1 = std::min(box.y1, height_);
  // The renderer draws the box as cut by the frame: its border follows the cut.
  for (int y = y0; y < y1; ++y) {
    const int stripe = ((y - y0) / 4) % 2 == 0 ? 12 : -12;
    for (int x = x0; x < x1; ++x) {
      const bool edge = y - y0 < border || y1 - y <= border || x - x0 < border || x1 - x <= border;
      bytes_[y * width_ + x] =
          static_cast<uint8_t>(edge ? c.y / 2 : std::min(255, std::max(0, c.y + stripe)));
    }
  }
  uint8_t* uv = bytes_.data() + width_ * height_;
  for (int y = y0 / 2; y < (y1 + 1) / 2; ++y) {
    for (int x = x0 / 2; x < (x1 + 1) / 2; ++x) {
      uv[y * width_ + 2 * x] = static_cast<uint8_t>(c.u);
      uv[y * width_ + 2 * x + 1] = static_cast<uint8_t>(c.v);
    }
  }
}

TestPicture TestPicture::Letterboxed() const {
  TestPicture input(1);
  input.PadBelow(0);
  const bool wide = width_ >= height_;
  const int w = wide ? kPictureSize : width_ * kPictureSize / height_;
  const int h = wide ? height_ * kPictureSize / width_ : kPictureSize;
  uint8_t* dst = input.data();
  libyuv::NV12Scale(bytes_.data(), width_, bytes_.data() + width_ * height_, width_, width_,
                    height_, dst, kPictureSize, dst + kPictureSize * kPictureSize, kPictureSize, w,
                    h, libyuv::kFilterBilinear);
  return input;
}

void TestPicture::PadBelow(int rows) {
  std::fill(bytes_.begin() + rows * kPictureSize, bytes_.begin() + kPictureSize * kPictureSize, 0);
  std::fill(bytes_.begin() + kPictureSize * kPictureSize + rows / 2 * kPictureSize, bytes_.end(),
            128);
}

}  // namespace sim_ai_test
}  // namespace mirvane
