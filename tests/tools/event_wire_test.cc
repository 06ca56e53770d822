// The daemon's event packer and the tools' event decoder are written apart on purpose (the
// daemon's side follows the camera, the tools' side serves the host); here each packed payload
// must read back as the objects that went in. The packer's own golden bytes are checked in
// tests/result_sender.
#include "event_wire.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "result_sender/ipc_eventcb_converter.h"
#include "sysapi.h"

namespace mirvane {
namespace {

using mirvane::EventObject;  // the daemon's reported object

EventObject Object(int32_t tracking_id, uint8_t class_code, bool pv, uint8_t intrusion) {
  EventObject o;
  o.confidence = 0.25f + 0.01f * static_cast<float>(tracking_id % 50);
  o.box[0] = 0.125f;
  o.box[1] = -0.0f;
  o.box[2] = 1.0f / 3.0f;
  o.box[3] = 0.999f;
  o.pv_trigger = pv;
  o.int_trigger = intrusion;
  o.tracking_id = tracking_id;
  o.snapshot_id = static_cast<uint8_t>(tracking_id * 7);
  o.class_code = class_code;
  return o;
}

std::vector<EventObject> Fifteen() {
  std::vector<EventObject> objects;
  for (int k = 0; k < 15; ++k) {
    objects.push_back(
        Object(1000 + k, static_cast<uint8_t>(k % 4), k % 2 == 0, static_cast<uint8_t>(k % 4)));
  }
  return objects;
}

event_wire::Event RoundTrip(const std::vector<EventObject>& objects, uint64_t timestamp) {
  std::vector<uint8_t> payload(SYSAPI_EVENT_PAYLOAD_SIZE, 0x5A);
  result_sender::Convert(result_sender::kEventMaxNum, objects, timestamp, payload.data());
  event_wire::Event event;
  std::string error;
  EXPECT_TRUE(event_wire::DecodeEvent(payload, &event, &error)) << error;
  return event;
}

TEST(EventWire, PackedObjectsReadBackFieldForField) {
  const struct {
    const char* what;
    std::vector<EventObject> objects;
  } cases[] = {
      {"no objects", {}},
      {"one of each class code and trigger",
       {Object(0, 0, true, 0), Object(1, 1, false, 1), Object(-2, 2, false, 2),
        Object(0x7FFFFFFF, 3, true, 3), Object(-1, 200, true, 9)}},
      {"fifteen, every record unaligned but the first", Fifteen()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::vector<EventObject>& objects = c.objects;
    const event_wire::Event event = RoundTrip(objects, 0x8877665544332211ull);
    EXPECT_EQ(event.type, event_wire::kObjectDetectionEvent);
    EXPECT_EQ(event.timestamp, 0x8877665544332211ull);
    EXPECT_EQ(event.count, objects.size());
    ASSERT_EQ(event.objects.size(), objects.size());
    for (size_t k = 0; k < objects.size(); ++k) {
      SCOPED_TRACE(k);
      const EventObject& in = objects[k];
      const event_wire::EventObject& out = event.objects[k];
      EXPECT_EQ(out.class_code, in.class_code);
      EXPECT_EQ(out.tracking_id, in.tracking_id);
      EXPECT_EQ(out.snapshot_id, in.snapshot_id);
      EXPECT_EQ(out.flags, result_sender::EventFlags(in));
      EXPECT_EQ((out.flags & event_wire::kRegionFlag) != 0, in.pv_trigger);
      // The intrusion value's bit 0 is direction 1, bit 1 direction 2; above 3 neither counts.
      EXPECT_EQ(event_wire::FenceDirections(out.flags), in.int_trigger <= 3 ? in.int_trigger : 0);
      EXPECT_EQ(out.confidence, in.confidence);
      for (int i = 0; i < 4; ++i) EXPECT_EQ(out.box[i], in.box[i]) << "box " << i;
    }
  }
}

}  // namespace
}  // namespace mirvane
