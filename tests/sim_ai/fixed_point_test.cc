// vendor_ai_cpu_util_fixed2float against values worked out by hand: out = in * 2^-frac * ratio.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

extern "C" {
#include "vendor_ai.h"
}

namespace {

struct Case {
  const char* name;
  UINT32 format;
  float ratio;
  std::vector<int> stored;  // element values as the format holds them
  std::vector<float> expected;
};

std::vector<uint8_t> Pack(const Case& c) {
  const bool wide = (c.format & 0x00ff0000u) == 0x00100000u;
  std::vector<uint8_t> bytes;
  for (int v : c.stored) {
    if (wide) {
      const uint16_t w = static_cast<uint16_t>(v);
      bytes.push_back(static_cast<uint8_t>(w & 0xff));  // host order: little-endian
      bytes.push_back(static_cast<uint8_t>(w >> 8));
    } else {
      bytes.push_back(static_cast<uint8_t>(v));
    }
  }
  return bytes;
}

TEST(Fixed2Float, ConvertsEachFormatByItsFractionBitsAndScale) {
  const Case cases[] = {
      {"sint8 frac 0", 0xa1080000, 1.0f, {-128, -1, 0, 1, 127}, {-128, -1, 0, 1, 127}},
      {"sint8 frac 7",
       0xa1080007,
       1.0f,
       {-128, -64, 1, 127},
       {-1.0f, -0.5f, 0.0078125f, 0.9921875f}},
      {"sint8 frac 8", 0xa1080008, 1.0f, {-128, 64, 127}, {-0.5f, 0.25f, 0.49609375f}},
      {"sint8 frac 7 ratio 3", 0xa1080007, 3.0f, {-128, 64}, {-3.0f, 1.5f}},
      {"uint8 frac 0", 0xa2080000, 1.0f, {0, 1, 200, 255}, {0, 1, 200, 255}},
      {"uint8 frac 7", 0xa2080007, 1.0f, {128, 255}, {1.0f, 1.9921875f}},
      {"uint8 frac 8", 0xa2080008, 1.0f, {128, 255}, {0.5f, 0.99609375f}},
      {"uint8 frac 0 ratio 1/4", 0xa2080000, 0.25f, {255, 6}, {63.75f, 1.5f}},
      {"sint16 frac 0", 0xa1100000, 1.0f, {-32768, -300, 32767}, {-32768, -300, 32767}},
      {"sint16 frac 7", 0xa1100007, 1.0f, {-32768, 384}, {-256.0f, 3.0f}},
      {"sint16 frac 8", 0xa1100008, 1.0f, {-640, 32767}, {-2.5f, 127.99609375f}},
      {"sint16 frac 8 ratio 0.5", 0xa1100008, 0.5f, {-640, 512}, {-1.25f, 1.0f}},
      {"uint16 frac 0", 0xa2100000, 1.0f, {0, 65535}, {0, 65535}},
      {"uint16 frac 7", 0xa2100007, 1.0f, {65535, 128}, {511.9921875f, 1.0f}},
      {"uint16 frac 8", 0xa2100008, 1.0f, {65535, 384}, {255.99609375f, 1.5f}},
      {"uint16 frac 7 ratio 10", 0xa2100007, 10.0f, {64}, {5.0f}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<uint8_t> bytes = Pack(c);
    std::vector<float> out(c.stored.size(), -99.0f);
    ASSERT_EQ(vendor_ai_cpu_util_fixed2float(bytes.data(), static_cast<HD_VIDEO_PXLFMT>(c.format),
                                             out.data(), c.ratio, static_cast<INT32>(out.size())),
              HD_OK);
    for (size_t i = 0; i < out.size(); ++i) EXPECT_FLOAT_EQ(out[i], c.expected[i]) << i;
  }
}

TEST(Fixed2Float, ReportsButAcceptsFormatsItCannotConvert) {
  uint8_t in[4] = {1, 2, 3, 4};
  float out[1] = {-7.0f};
  EXPECT_EQ(vendor_ai_cpu_util_fixed2float(in, HD_VIDEO_PXLFMT_AI_FLOAT32, out, 1.0f, 1), HD_OK);
  EXPECT_EQ(vendor_ai_cpu_util_fixed2float(in, HD_VIDEO_PXLFMT_YUV420, out, 1.0f, 1), HD_OK);
  EXPECT_EQ(out[0], -7.0f);
  EXPECT_EQ(vendor_ai_cpu_util_fixed2float(in, HD_VIDEO_PXLFMT_AI_UINT8, out, 1.0f, -1),
            HD_ERR_PARAM);
  EXPECT_EQ(vendor_ai_cpu_util_fixed2float(nullptr, HD_VIDEO_PXLFMT_AI_UINT8, out, 1.0f, 1),
            HD_ERR_NULL_PTR);
  EXPECT_EQ(vendor_ai_cpu_util_fixed2float(in, HD_VIDEO_PXLFMT_AI_UINT8, out, 1.0f, 0), HD_OK);
  EXPECT_EQ(out[0], -7.0f);
}

}  // namespace
