#include "event_wire.h"

#include <cstring>

#include "common/object_class.h"
#include "sysapi.h"

namespace mirvane {
namespace event_wire {
namespace {

template <typename T>
T Load(const uint8_t* p) {
  T value;
  std::memcpy(&value, p, sizeof(value));  // records are packed: fields are unaligned
  return value;
}

}  // namespace

int FenceDirections(int flags) {
  return ((flags & kFenceDirection1Flag) ? 1 : 0) | ((flags & kFenceDirection2Flag) ? 2 : 0);
}

int FlagsOf(bool region, int fence_directions) {
  return (region ? kRegionFlag : 0) | ((fence_directions & 1) ? kFenceDirection1Flag : 0) |
         ((fence_directions & 2) ? kFenceDirection2Flag : 0);
}

bool DecodeEvent(const std::vector<uint8_t>& body, Event* event, std::string* error) {
  if (body.size() != SYSAPI_EVENT_PAYLOAD_SIZE) {
    *error = "event body of " + std::to_string(body.size()) + " bytes";
    return false;
  }
  const uint8_t* p = body.data();
  event->type = Load<uint32_t>(p + kTypeOffset);
  event->timestamp = Load<uint64_t>(p + kTimestampOffset);
  event->count = Load<uint32_t>(p + kCountOffset);
  event->objects.clear();
  if (event->type != kObjectDetectionEvent) {
    *error = "event type " + std::to_string(event->type);
    return false;
  }
  if (event->count > kMaxEventObjects) {
    *error = "object count " + std::to_string(event->count) + " above " +
             std::to_string(kMaxEventObjects);
    return false;
  }
  for (uint32_t i = 0; i < event->count; ++i) {
    const uint8_t* r = p + kRecordOffset + kRecordSize * i;
    EventObject object;
    object.class_code = r[kClassCodeField];
    object.tracking_id = Load<int32_t>(r + kTrackingIdField);
    object.snapshot_id = r[kSnapshotIdField];
    object.flags = r[kFlagsField];
    object.confidence = Load<float>(r + kConfidenceField);
    for (int k = 0; k < 4; ++k) object.box[k] = Load<float>(r + kBoxField + 4 * k);
    event->objects.push_back(object);
  }
  return true;
}

std::string ClassName(uint8_t class_code) {
  const char* name = dva::ClassName(dva::ClassIdOfCode(class_code));
  if (name != nullptr) return name;
  return "class" + std::to_string(class_code);
}

}  // namespace event_wire
}  // namespace mirvane
