// The object-detection event as the camera's system daemon receives it, decoded for the host
// tools. The daemon packs it in result_sender/ipc_eventcb_converter on its own; a test holds the
// two to each other.
//
// Layout (little-endian, packed; the body is always SYSAPI_EVENT_PAYLOAD_SIZE bytes): u32 event
// type at 0, u32 reserved at 4, u64 frame timestamp at 8, u32 object count at 16, then one 29-byte
// record per object from offset 20: u8 class code, i32 tracking id, u8 snapshot id, two reserved
// bytes, u8 trigger flags, f32 confidence, 4 x f32 box.
//
// Pure code, no I/O; any thread.
#ifndef MIRVANE_TOOLS_EVENT_WIRE_EVENT_WIRE_H
#define MIRVANE_TOOLS_EVENT_WIRE_EVENT_WIRE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mirvane {
namespace event_wire {

constexpr uint32_t kObjectDetectionEvent = 129;
constexpr uint32_t kMaxEventObjects = 15;

constexpr size_t kTypeOffset = 0;
constexpr size_t kTimestampOffset = 8;
constexpr size_t kCountOffset = 16;
constexpr size_t kRecordOffset = 20;
constexpr size_t kRecordSize = 29;

// Offsets of the fields within a record.
constexpr size_t kClassCodeField = 0;
constexpr size_t kTrackingIdField = 1;
constexpr size_t kSnapshotIdField = 5;
constexpr size_t kFlagsField = 8;
constexpr size_t kConfidenceField = 9;
constexpr size_t kBoxField = 13;

// Trigger flag bits of a record: the region rule, and a fence crossing in direction 2 or 1.
constexpr int kRegionFlag = 1;
constexpr int kFenceDirection2Flag = 2;
constexpr int kFenceDirection1Flag = 4;

// The fence crossings of a flags byte as a mask: bit 0 direction 1, bit 1 direction 2.
int FenceDirections(int flags);
// The flags byte of a region trigger and a fence crossing mask as FenceDirections gives it.
int FlagsOf(bool region, int fence_directions);

// One object record.
struct EventObject {
  uint8_t class_code = 0;
  int32_t tracking_id = 0;
  uint8_t snapshot_id = 0;
  uint8_t flags = 0;
  float confidence = 0.0f;
  float box[4] = {0, 0, 0, 0};  // xmin, ymin, xmax, ymax
};

struct Event {
  uint32_t type = 0;
  uint64_t timestamp = 0;
  uint32_t count = 0;  // as sent
  std::vector<EventObject> objects;
};

// Decodes an event body. Returns false with a reason when it is not SYSAPI_EVENT_PAYLOAD_SIZE
// bytes, not an object-detection event or its count is out of range; event is filled as far as
// it could be.
bool DecodeEvent(const std::vector<uint8_t>& body, Event* event, std::string* error);

// The name of the class a class code stands for (common/object_class.h); "class<N>" for a code
// without a class.
std::string ClassName(uint8_t class_code);

}  // namespace event_wire
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVENT_WIRE_EVENT_WIRE_H
