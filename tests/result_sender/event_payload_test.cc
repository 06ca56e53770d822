// The event payload as the system daemon reads it: golden bytes, the flags byte, truncation, and
// the sender delivering it under command '1'.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "result_sender/event_sender.h"
#include "result_sender/ipc_eventcb_converter.h"
#include "sysapi.h"
#include "testing/artifacts.h"
#include "testing/child_process.h"
#include "testing/system_peer.h"

namespace mirvane {
namespace result_sender {
namespace {

using testing::ChildResult;
using testing::RunInChild;
using testing::SystemPeer;
using testing::WaitUntil;

EventObject Object(float confidence, bool pv, uint8_t intrusion) {
  EventObject o;
  o.confidence = confidence;
  o.box[0] = 0.25f;
  o.box[1] = 0.5f;
  o.box[2] = 0.75f;
  o.box[3] = 1.0f;
  o.pv_trigger = pv;
  o.int_trigger = intrusion;
  o.tracking_id = 0x01020304;
  o.snapshot_id = 7;
  o.class_code = 1;
  return o;
}

std::vector<uint8_t> Pack(const std::vector<EventObject>& objects, uint64_t timestamp) {
  std::vector<uint8_t> payload(kEventPayloadSize, 0xAA);  // the packer must clear what it skips
  Convert(kEventMaxNum, objects, timestamp, payload.data());
  return payload;
}

std::string Hex(const std::vector<uint8_t>& bytes, size_t from, size_t count) {
  std::string text;
  char byte[4];
  for (size_t i = from; i < from + count; ++i) {
    std::snprintf(byte, sizeof(byte), "%02x", bytes[i]);
    text += byte;
  }
  return text;
}

bool AllZero(const std::vector<uint8_t>& bytes, size_t from) {
  for (size_t i = from; i < bytes.size(); ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

TEST(EventPayload, EmptyFrameIsAHeaderWithCountZero) {
  const std::vector<uint8_t> payload = Pack({}, 0x1122334455667788ull);
  EXPECT_EQ(Hex(payload, 0, 20), "81000000" "00000000" "8877665544332211" "00000000");
  EXPECT_TRUE(AllZero(payload, 20));
}

TEST(EventPayload, OneObjectGoldenBytes) {
  const std::vector<uint8_t> payload = Pack({Object(0.5f, true, 3)}, 42);
  EXPECT_EQ(Hex(payload, 16, 4), "01000000");
  EXPECT_EQ(Hex(payload, 20, 29),
            "01"          // class code
            "04030201"    // tracking id
            "07"          // snapshot id
            "0000"        // reserved
            "07"          // flags: region, both fence directions
            "0000003f"    // 0.5f
            "0000803e" "0000003f" "0000403f" "0000803f");  // 0.25 0.5 0.75 1.0
  EXPECT_TRUE(AllZero(payload, 49));
}

TEST(EventPayload, FifteenRecordsLieBackToBackUnaligned) {
  std::vector<EventObject> objects;
  for (int k = 0; k < 15; ++k) {
    objects.push_back(Object(0.5f, false, 0));
    objects.back().tracking_id = 100 + k;
  }
  const std::vector<uint8_t> payload = Pack(objects, 1);
  // Left for the comparison of the native and the ARM runs: the bytes must not depend on the CPU.
  EXPECT_TRUE(testing::SaveArtifact("result_sender/payload_15.bin",
                                    std::string(payload.begin(), payload.end())));
  EXPECT_EQ(payload[16], 15);
  for (int k = 0; k < 15; ++k) {
    EXPECT_EQ(payload[20 + 29 * k + 1], 100 + k) << "record " << k;
  }
  EXPECT_TRUE(AllZero(payload, 20 + 29 * 15));
}

TEST(EventPayload, FlagsCrossTheIntrusionBits) {
  EXPECT_EQ(EventFlags(Object(1, true, 3)), 7);
  EXPECT_EQ(EventFlags(Object(1, false, 1)), 4);
  EXPECT_EQ(EventFlags(Object(1, false, 2)), 2);
  EXPECT_EQ(EventFlags(Object(1, true, 0)), 1);
  EXPECT_EQ(EventFlags(Object(1, false, 7)), 0) << "values above 3 set no fence flag";
}

TEST(EventPayload, SixteenObjectsAreCutToFifteenWithAMessage) {
  ChildResult result = RunInChild([] {
    std::vector<EventObject> objects(16, Object(0.5f, false, 0));
    objects[15].tracking_id = 999;
    const std::vector<uint8_t> payload = Pack(objects, 1);
    if (payload[16] != 15) _exit(10);
    if (!AllZero(payload, 20 + 29 * 15)) _exit(11);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find(
                "Convert: Detection num[16] exceed event maximum[15]. It will be truncated.\n"),
            std::string::npos)
      << result.out;
}

TEST(EventSender, SendsEveryFrameAs520BytesUnderCommandOne) {
  SystemPeer peer(SYSAPI_SYSTEM_SOCKET);
  EventSender sender;
  EXPECT_EQ(sender.Send({}, 5), 520);
  EXPECT_EQ(sender.Send({Object(0.9f, false, 1)}, 6), 520);
  ASSERT_TRUE(WaitUntil([&] { return peer.Count(SYSAPI_CMD_EVENT) == 2; },
                        std::chrono::seconds(5)));
  const auto messages = peer.Messages();
  EXPECT_EQ(messages[0].body.size(), 520u);
  EXPECT_EQ(messages[1].body[8], 6);
  EXPECT_EQ(messages[1].body[16], 1);
  EXPECT_EQ(messages[1].body[28], 4);
}

}  // namespace
}  // namespace result_sender
}  // namespace mirvane
