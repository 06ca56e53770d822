// The event payload as the system daemon reads it: golden bytes, the flags byte and truncation.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "result_sender/ipc_eventcb_converter.h"
#include "testing/artifacts.h"
#include "testing/child_process.h"

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

TEST(EventPayload, EmptyFrameIsAHeaderWithCountZero) {
  const std::string payload = Pack({}, 0x1122334455667788ull);
  EXPECT_EQ(Hex(payload.substr(0, 20)),
            "81000000"
            "00000000"
            "8877665544332211"
            "00000000");
  EXPECT_TRUE(ZeroFrom(payload, 20));
}

TEST(EventPayload, OneObjectGoldenBytes) {
  const std::string payload = Pack({Object(true, 3)}, 42);
  EXPECT_EQ(Hex(payload.substr(16, 33)),
            "01000000"  // count
            "01"        // class code
            "04030201"  // tracking id
            "07"        // snapshot id
            "0000"      // reserved
            "07"        // flags: region, both fence directions
            "0000003f"  // 0.5f
            "0000803e"
            "0000003f"
            "0000403f"
            "0000803f");  // 0.25 0.5 0.75 1.0
  EXPECT_TRUE(ZeroFrom(payload, 49));
}

TEST(EventPayload, FifteenRecordsLieBackToBackUnaligned) {
  std::vector<EventObject> objects;
  for (int k = 0; k < 15; ++k) objects.push_back(Object(false, 0, 100 + k));
  const std::string payload = Pack(objects, 1);
  // Left for the comparison of the native and the ARM runs: the bytes must not depend on the CPU.
  EXPECT_TRUE(testing::SaveArtifact("result_sender/payload_15.bin", payload));
  EXPECT_EQ(payload[16], 15);
  for (int k = 0; k < 15; ++k) EXPECT_EQ(payload[20 + 29 * k + 1], 100 + k) << "record " << k;
  EXPECT_TRUE(ZeroFrom(payload, 20 + 29 * 15));
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

TEST(EventPayload, SixteenObjectsAreCutToFifteenWithAMessage) {
  const testing::ChildResult result = testing::RunInChild([] {
    std::vector<EventObject> objects(16, Object(false, 0));
    const std::string payload = Pack(objects, 1);
    if (payload[16] != 15 || !ZeroFrom(payload, 20 + 29 * 15)) _exit(10);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find(
                "Convert: Detection num[16] exceed event maximum[15]. It will be truncated.\n"),
            std::string::npos)
      << result.out;
}

}  // namespace
}  // namespace result_sender
}  // namespace mirvane
