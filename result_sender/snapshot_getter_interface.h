// What the event converter needs of the snapshot getter: one JPEG of an object, named by the id
// it returns.
#ifndef MIRVANE_RESULT_SENDER_SNAPSHOT_GETTER_INTERFACE_H
#define MIRVANE_RESULT_SENDER_SNAPSHOT_GETTER_INTERFACE_H

#include <cstdint>

extern "C" {
#include "vendor_ai_net.h"
}

namespace mirvane {
namespace result_sender {

class ISnapshotGetter {
 public:
  virtual ~ISnapshotGetter() = default;
  // Writes a JPEG of the box (corners normalised 0..1) cut from the frame; returns the snapshot
  // id that names its file, or 0 when the file could not be created. Throws on a platform failure.
  virtual int32_t GetSnapshot(VENDOR_AI_BUF frame, float xmin, float ymin, float xmax,
                              float ymax) = 0;
};

}  // namespace result_sender
}  // namespace mirvane

#endif  // MIRVANE_RESULT_SENDER_SNAPSHOT_GETTER_INTERFACE_H
