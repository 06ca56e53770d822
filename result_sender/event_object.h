// One object as the daemon reports it to the system daemon, and the most a frame's event carries.
#ifndef MIRVANE_RESULT_SENDER_EVENT_OBJECT_H
#define MIRVANE_RESULT_SENDER_EVENT_OBJECT_H

#include <cstdint>

namespace mirvane {

struct EventObject {
  float confidence = 0.0f;
  float box[4] = {0, 0, 0, 0};  // xmin, ymin, xmax, ymax, normalised 0..1
  bool pv_trigger = false;      // the people/vehicle rule's trigger
  uint8_t int_trigger = 0;      // the intrusion rule's two-bit crossing mask
  int32_t tracking_id = 0;
  uint8_t snapshot_id = 0;  // names "/tmp/zarn_ai_snapshot_<id>"; 0 when none was written
  uint8_t class_code = 0;   // 0..3
};

namespace result_sender {

// The most objects one event payload carries.
constexpr int kEventMaxNum = 15;

}  // namespace result_sender
}  // namespace mirvane

#endif  // MIRVANE_RESULT_SENDER_EVENT_OBJECT_H
