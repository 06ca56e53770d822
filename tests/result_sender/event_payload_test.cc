// The event payload's bytes as the system daemon receives them (golden bytes, the flags byte,
// truncation) and where a snapshot's crop is cut: pure computations, checked in process.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "result_sender/ipc_eventcb_converter.h"
#include "result_sender/snapshot_crop.h"
#include "testing/artifacts.h"
#include "testing/log_capture.h"

namespace mirvane {
namespace result_sender {
namespace {

EventObject Object(bool pv, uint8_t intrusion, int32_t tracking_id = 0x01020304) {
  EventObject o;
  o.confidence = 0.5f;
  o.box[0] = 0.25f;
  o.box[1] = 0.5f;
  o.box[2] = 0.75f;
  o.box[3] = 1.0f;
  o.pv_trigger = pv;
  o.int_trigger = intrusion;
  o.tracking_id = tracking_id;
  o.snapshot_id = 7;
  o.class_code = 1;
  return o;
}

std::string Pack(const std::vector<EventObject>& objects, uint64_t timestamp) {
  std::vector<uint8_t> payload(kEventPayloadSize, 0xAA);  // the packer must clear what it skips
  Convert(kEventMaxNum, objects, timestamp, payload.data());
  return std::string(payload.begin(), payload.end());
}

std::string Hex(const std::string& bytes) {
  std::string text;
  char byte[4];
  for (unsigned char c : bytes) {
    std::snprintf(byte, sizeof(byte), "%02x", c);
    text += byte;
  }
  return text;
}

bool ZeroFrom(const std::string& bytes, size_t from) {
  return bytes.find_first_not_of('\0', from) == std::string::npos;
}

TEST(EventPayload, GoldenBytesOfAnEmptyFrameAndOfOneObject) {
  // Type 129, reserved, timestamp, count; then nothing but zeros.
  EXPECT_EQ(Hex(Pack({}, 0x1122334455667788ull)),
            "8100000000000000887766554433221100000000" + std::string(1000, '0'));
  // Class code, tracking id, snapshot id, reserved, flags (region, both fence directions),
  // confidence 0.5, box 0.25 0.5 0.75 1.0.
  const std::string record = "0104030201070000070000003f0000803e0000003f0000403f0000803f";
  EXPECT_EQ(Hex(Pack({Object(true, 3)}, 42)),
            "81000000000000002a0000000000000001000000" + record + std::string(942, '0'));
}

TEST(EventPayload, RecordsLieBackToBackUnalignedAndASixteenthIsCutWithAMessage) {
  const testing::LogCapture log;
  std::vector<EventObject> objects;
  for (int k = 0; k < 16; ++k) objects.push_back(Object(false, 0, 100 + k));
  const std::string payload = Pack(objects, 1);
  // Left for the comparison of the native and the ARM runs: the bytes must not depend on the CPU.
  EXPECT_TRUE(testing::SaveArtifact("result_sender/payload_15.bin", payload));
  EXPECT_EQ(payload[16], 15);
  for (int k = 0; k < 15; ++k) EXPECT_EQ(payload[20 + 29 * k + 1], 100 + k) << "record " << k;
  EXPECT_TRUE(ZeroFrom(payload, 20 + 29 * 15));
  EXPECT_TRUE(
      log.Contains("Convert: Detection num[16] exceed event maximum[15]. It will be truncated.\n"))
      << log.Text();
}

TEST(EventPayload, FlagsCrossTheIntrusionBits) {
  const struct {
    bool pv;
    uint8_t intrusion;
    int flags;
  } cases[] = {{true, 3, 7}, {false, 1, 4}, {false, 2, 2}, {true, 0, 1}, {false, 7, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(EventFlags(Object(c.pv, c.intrusion)), c.flags) << int{c.intrusion};
  }
}

TEST(SnapshotCrop, GrowsToSixteenByNineInsideTheFrame) {
  const struct {
    const char* what;
    float xmin, ymin, xmax, ymax;
    int width, height;
    int x, y, w, h;
  } cases[] = {
      // x 1728..1919 (xmax 1.0 gives 1919): 192 wide, grown to 211; y 432..648: 217 high, grown
      // to 238; 16:9 of 238 is 423 wide, pushed back inside.
      {"right edge", 0.9f, 0.4f, 1.0f, 0.6f, 1920, 1080, 1497, 421, 423, 238},
      {"tiny box takes the minimum", 0.5f, 0.5f, 0.501f, 0.505f, 1920, 1080, 947, 535, 28, 16},
      {"never wider than the frame", 0.5f, 0.5f, 0.51f, 0.505f, 20, 1080, 0, 535, 20, 16},
      {"very wide box", 0.0f, 0.45f, 1.0f, 0.55f, 1920, 1080, 0, 0, 1920, 1080},
      // 400 wide: 440 x 247, kept inside from row 0.
      {"top edge", 0.25f, 0.0f, 0.25f + 399.5f / 1920, 0.01f, 1920, 1080, 460, 0, 440, 247},
      {"portrait frame", 0.4f, 0.4f, 0.6f, 0.6f, 1080, 1920, 164, 749, 752, 423},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const CropRect crop = SnapshotCrop(c.xmin, c.ymin, c.xmax, c.ymax, c.width, c.height);
    EXPECT_EQ(crop.x, c.x);
    EXPECT_EQ(crop.y, c.y);
    EXPECT_EQ(crop.w, c.w);
    EXPECT_EQ(crop.h, c.h);
  }
}

}  // namespace
}  // namespace result_sender
}  // namespace mirvane
