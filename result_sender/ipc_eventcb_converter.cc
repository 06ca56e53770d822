#include "result_sender/ipc_eventcb_converter.h"

#include <cstring>

#include "common/log.h"

namespace mirvane {
namespace result_sender {
namespace {

// Byte-wise little-endian stores: correct on any host, and free of alignment assumptions for the
// records that start at odd offsets.
void Store32(uint8_t* p, uint32_t value) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

void Store64(uint8_t* p, uint64_t value) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

void StoreFloat(uint8_t* p, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  Store32(p, bits);
}

}  // namespace

uint8_t EventFlags(const EventObject& object) {
  uint8_t flags = object.pv_trigger ? 1 : 0;
  // The intrusion mask's bit 1 becomes flag 2 and its bit 0 flag 4; larger values set neither.
  if (object.int_trigger <= 3) {
    if (object.int_trigger & 2) flags |= 2;
    if (object.int_trigger & 1) flags |= 4;
  }
  return flags;
}

void Convert(int max, const std::vector<EventObject>& objects, uint64_t timestamp,
             uint8_t* payload) {
  if (static_cast<int>(objects.size()) > max) {
    MIRVANE_LOG(kLogErr, "Detection num[%d] exceed event maximum[%d]. It will be truncated.\n",
                static_cast<int>(objects.size()), max);
  }
  std::memset(payload, 0, kEventPayloadSize);
  Store32(payload, kObjectDetectionEventType);
  Store64(payload + 8, timestamp);
  uint32_t count = 0;
  for (const EventObject& object : objects) {
    if (static_cast<int>(count) >= max || count >= static_cast<uint32_t>(kEventMaxNum)) break;
    uint8_t* record = payload + kEventRecordOffset + kEventRecordSize * count;
    record[0] = object.class_code;
    Store32(record + 1, static_cast<uint32_t>(object.tracking_id));
    record[5] = object.snapshot_id;
    record[8] = EventFlags(object);
    StoreFloat(record + 9, object.confidence);
    for (int k = 0; k < 4; ++k) StoreFloat(record + 13 + 4 * k, object.box[k]);
    ++count;
  }
  Store32(payload + 16, count);
}

}  // namespace result_sender
}  // namespace mirvane
