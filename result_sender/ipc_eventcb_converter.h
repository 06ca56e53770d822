// Packing of a frame's reported objects into the 520-byte object-detection event payload.
//
// Layout (little-endian, packed): u32 event type 129 at 0, u32 reserved at 4, u64 frame timestamp
// at 8, u32 object count at 16, then one 29-byte record per object at 20 + 29k:
//   +0 u8 class code, +1 i32 tracking id, +5 u8 snapshot id, +6 two reserved bytes,
//   +8 u8 flags (bit 0 people/vehicle trigger, bit 1 intrusion value 2 or 3, bit 2 intrusion
//   value 1 or 3), +9 f32 confidence, +13 4 x f32 box.
// The reserved word and everything after the last record are zero.
//
// Pure code; any thread.
#ifndef MIRVANE_RESULT_SENDER_IPC_EVENTCB_CONVERTER_H
#define MIRVANE_RESULT_SENDER_IPC_EVENTCB_CONVERTER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "result_sender/event_object.h"

namespace mirvane {
namespace result_sender {

constexpr size_t kEventPayloadSize = 520;
constexpr uint32_t kObjectDetectionEventType = 129;
constexpr size_t kEventRecordOffset = 20;
constexpr size_t kEventRecordSize = 29;

// Fills payload (at least kEventPayloadSize bytes) with at most max objects of the list, in list
// order; a longer list is logged and cut.
void Convert(int max, const std::vector<EventObject>& objects, uint64_t timestamp,
             uint8_t* payload);

// The flags byte of one object.
uint8_t EventFlags(const EventObject& object);

}  // namespace result_sender
}  // namespace mirvane

#endif  // MIRVANE_RESULT_SENDER_IPC_EVENTCB_CONVERTER_H
