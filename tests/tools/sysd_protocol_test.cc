// The stand-in's reading of the wire: framing with header checks, heartbeat and event decoding,
// and how objects are described. (Its JSON lines are checked in sysd_stand_in_test.cc and, read
// back, in tests/eval/input_test.cc; here only what a peer's odd bytes and numbers become.)
#include <gtest/gtest.h>
#include <jansson.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "printer.h"
#include "protocol.h"
#include "sysapi.h"

namespace mirvane {
namespace sysd {
namespace {

struct JsonRelease {
  void operator()(json_t* json) const { json_decref(json); }
};
using JsonRef = std::unique_ptr<json_t, JsonRelease>;

std::vector<uint8_t> Frame(uint32_t sync, uint32_t cmd, const std::vector<uint8_t>& body,
                           uint32_t len_override = UINT32_MAX) {
  const cmd_hdr hdr = {
      sync, cmd, len_override == UINT32_MAX ? static_cast<uint32_t>(body.size()) : len_override};
  std::vector<uint8_t> bytes(sizeof(hdr));
  std::memcpy(bytes.data(), &hdr, sizeof(hdr));
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

std::vector<uint8_t> Concat(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

template <typename T>
void Put(std::vector<uint8_t>* body, size_t offset, T value) {
  std::memcpy(body->data() + offset, &value, sizeof(value));
}

// An event body with records written field by field at their packed offsets.
std::vector<uint8_t> EventBody(uint64_t timestamp, uint32_t count) {
  std::vector<uint8_t> body(SYSAPI_EVENT_PAYLOAD_SIZE, 0xEE);
  Put<uint32_t>(&body, 0, 129);
  Put<uint64_t>(&body, 8, timestamp);
  Put<uint32_t>(&body, 16, count);
  for (uint32_t k = 0; k < count && k < 15; ++k) {
    const size_t r = 20 + 29 * k;
    body[r] = static_cast<uint8_t>(k % 4);
    Put<int32_t>(&body, r + 1, static_cast<int32_t>(1000 + k));
    body[r + 5] = static_cast<uint8_t>(k + 1);
    body[r + 8] = static_cast<uint8_t>(k % 8);
    Put<float>(&body, r + 9, 0.5f + 0.01f * static_cast<float>(k));
    for (int i = 0; i < 4; ++i) Put<float>(&body, r + 13 + 4 * i, 0.1f * static_cast<float>(i));
  }
  return body;
}

TEST(StreamFramer, ReassemblesMessagesSplitAnywhere) {
  const std::vector<uint8_t> stream =
      Concat(Frame(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'W', std::vector<uint8_t>(128, 0)),
             Frame(SYSTEMD_COMMAND_PACKET_SYNC_CODE, '1', EventBody(7, 2)));
  for (size_t step : {1u, 5u, 12u, 139u, 1000u}) {
    StreamFramer framer;
    std::vector<Message> out;
    for (size_t at = 0; at < stream.size(); at += step) {
      ASSERT_TRUE(framer.Feed(stream.data() + at, std::min(step, stream.size() - at), &out));
    }
    ASSERT_EQ(out.size(), 2u) << "step " << step;
    EXPECT_EQ(out[0].cmd, static_cast<uint32_t>('W'));
    EXPECT_EQ(out[1].body.size(), 520u);
    EXPECT_EQ(framer.pending(), 0u);
  }
}

TEST(StreamFramer, RefusesBadSyncUnknownLettersAndLengthsOutsideTheCommandsBound) {
  const std::vector<uint8_t> good = Frame(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'D', {1, 0, 0, 0});
  const struct {
    std::vector<uint8_t> bytes;
    size_t messages;  // taken before the bad header
  } cases[] = {
      {Frame(0x12345678, 'W', std::vector<uint8_t>(128, 0)), 0},
      {Frame(SYSTEMD_COMMAND_PACKET_SYNC_CODE, '?', {}), 0},
      {Frame(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'W', std::vector<uint8_t>(127, 0)), 0},
      {Frame(SYSTEMD_COMMAND_PACKET_SYNC_CODE, '1', {}, 0x7FFFFFFF), 0},
      {Frame(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'Y', std::vector<uint8_t>(21, 0)), 0},
      {Concat(good, Frame(0x42, 'D', {1, 0, 0, 0})), 1},
  };
  for (const auto& c : cases) {
    StreamFramer framer;
    std::vector<Message> out;
    EXPECT_FALSE(framer.Feed(c.bytes.data(), c.bytes.size(), &out));
    EXPECT_FALSE(framer.error().empty());
    EXPECT_EQ(out.size(), c.messages);
    EXPECT_FALSE(framer.Feed(c.bytes.data(), 1, &out)) << "a failed stream stays failed";
  }
}

TEST(DecodeHeartbeat, ReadsBothNamesAndStopsAtTheFieldEnd) {
  std::vector<uint8_t> body(128, 'x');  // no terminator anywhere
  std::memcpy(body.data(), "mirvane", 8);
  Heartbeat beat = DecodeHeartbeat('w', body);
  EXPECT_FALSE(beat.alive);
  EXPECT_EQ(beat.name, "mirvane");
  EXPECT_EQ(beat.restart_command, std::string(64, 'x'));
}

TEST(DecodeEvent, ReadsPackedRecordsAtTheirOffsetsAndRefusesOtherTypesAndCountsAboveFifteen) {
  Event event;
  std::string error;
  ASSERT_TRUE(DecodeEvent(EventBody(0x0102030405060708ull, 15), &event, &error)) << error;
  EXPECT_EQ(event.timestamp, 0x0102030405060708ull);
  ASSERT_EQ(event.objects.size(), 15u);
  const EventObject& last = event.objects[14];
  EXPECT_EQ(last.class_code, 2);
  EXPECT_EQ(last.tracking_id, 1014);
  EXPECT_EQ(last.snapshot_id, 15);
  EXPECT_EQ(last.flags, 6);
  EXPECT_FLOAT_EQ(last.confidence, 0.64f);
  EXPECT_FLOAT_EQ(last.box[3], 0.3f);

  EXPECT_FALSE(DecodeEvent(EventBody(1, 16), &event, &error));
  EXPECT_NE(error.find("16"), std::string::npos);
  std::vector<uint8_t> other = EventBody(1, 0);
  other[0] = 5;
  EXPECT_FALSE(DecodeEvent(other, &event, &error));
  EXPECT_FALSE(DecodeEvent(std::vector<uint8_t>(100, 0), &event, &error));
}

TEST(DescribeObject, NamesClassIdTriggersAndFenceDirection) {
  EXPECT_EQ(DescribeObject(EventObject{1, 42, 7, 1 | 4, 0.9f, {0.25f, 0.5f, 0.75f, 1}}),
            "vehicle #42 90% (0.25,0.50)-(0.75,1.00) snap 7 REGION FENCE-1");
  EXPECT_EQ(DescribeObject(EventObject{9, 42, 7, 2, 0.9f, {}}),
            "class9 #42 90% (0.00,0.00)-(0.00,0.00) snap 7 FENCE-2");
}

// The JSON lines that a printer writes for a peer's messages, each parsed back.
std::vector<JsonRef> JsonLines(const std::function<void(Printer*)>& print) {
  char* output = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&output, &size);
  {
    Printer printer(stream, true, false);
    print(&printer);
  }
  std::fclose(stream);
  std::vector<JsonRef> lines;
  std::istringstream in(std::string(output, size));
  std::free(output);
  for (std::string line; std::getline(in, line);) {
    lines.emplace_back(json_loads(line.c_str(), 0, nullptr));
  }
  return lines;
}

TEST(PrinterJson, RawBytesAndNonFiniteNumbersKeepTheirFields) {
  Heartbeat beat;
  beat.alive = true;
  beat.name = "cam\xff\x80";
  beat.restart_command = "caf\xc3\xa9";  // valid UTF-8 stays as it is
  Event event;
  event.type = kObjectDetectionEvent;
  event.count = 1;
  event.objects.push_back(EventObject{0, 3, 1, 0, NAN, {0.5f, INFINITY, -INFINITY, 0.25f}});
  const std::vector<JsonRef> lines = JsonLines([&](Printer* printer) {
    printer->HeartbeatLine(1, beat);
    printer->EventLine(1, event);
    printer->Command(1, SYSAPI_CMD_RESTORE_CONF, 5, "from \"\xfe\"");
  });
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_STREQ(json_string_value(json_object_get(lines[0].get(), "name")), "cam\\xff\\x80");
  EXPECT_STREQ(json_string_value(json_object_get(lines[0].get(), "restart_command")),
               "caf\xc3\xa9");
  json_t* object = json_array_get(json_object_get(lines[1].get(), "objects"), 0);
  EXPECT_TRUE(json_is_null(json_object_get(object, "confidence")));
  json_t* box = json_object_get(object, "box");
  ASSERT_EQ(json_array_size(box), 4u);
  EXPECT_DOUBLE_EQ(json_real_value(json_array_get(box, 0)), 0.5);
  EXPECT_TRUE(json_is_null(json_array_get(box, 1)));
  EXPECT_TRUE(json_is_null(json_array_get(box, 2)));
  EXPECT_STREQ(json_string_value(json_object_get(lines[2].get(), "detail")), "from \"\\xfe\"");
}

}  // namespace
}  // namespace sysd
}  // namespace mirvane
