// What the system-daemon stand-in understands of the command protocol: splitting a client's byte
// stream into messages with every header checked, and decoding heartbeat and event bodies.
// Pure code, no I/O; any thread may use its own instances.
#ifndef MIRVANE_TOOLS_SYSD_PROTOCOL_H
#define MIRVANE_TOOLS_SYSD_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mirvane {
namespace sysd {

struct BodyBound {
  uint32_t min;
  uint32_t max;
};

// Length bounds of a command letter's body; false for a letter the system daemon does not know.
bool BoundOf(uint32_t cmd, BodyBound* bound);

struct Message {
  uint32_t cmd = 0;
  std::vector<uint8_t> body;
};

// Splits a stream into messages. Once a header is bad the framer stays failed: a stream that lost
// its framing cannot be trusted again, and the client is dropped.
class StreamFramer {
 public:
  // Appends bytes; complete messages go to out. Returns false (with error()) on a bad header.
  bool Feed(const uint8_t* data, size_t size, std::vector<Message>* out);
  const std::string& error() const { return error_; }
  size_t pending() const { return buffer_.size(); }  // bytes of an unfinished message

 private:
  std::vector<uint8_t> buffer_;
  std::string error_;
};

struct Heartbeat {
  bool alive = false;
  std::string name;             // up to the first NUL in its 64-byte field
  std::string restart_command;  // likewise, in the second field
};

Heartbeat DecodeHeartbeat(uint32_t cmd, const std::vector<uint8_t>& body);

// One 29-byte object record of the object-detection event.
struct EventObject {
  uint8_t class_code = 0;
  int32_t tracking_id = 0;
  uint8_t snapshot_id = 0;
  uint8_t flags = 0;  // bit 0 region rule, bit 1 fence direction 2, bit 2 fence direction 1
  float confidence = 0.0f;
  float box[4] = {0, 0, 0, 0};  // xmin, ymin, xmax, ymax
};

struct Event {
  uint32_t type = 0;
  uint64_t timestamp = 0;
  uint32_t count = 0;  // as sent
  std::vector<EventObject> objects;
};

constexpr uint32_t kObjectDetectionEvent = 129;
constexpr uint32_t kMaxEventObjects = 15;
constexpr size_t kEventRecordOffset = 20;
constexpr size_t kEventRecordSize = 29;

// Decodes a 520-byte event body. Returns false with a reason when it is not an object-detection
// event or its count is out of range; event is filled as far as it could be.
bool DecodeEvent(const std::vector<uint8_t>& body, Event* event, std::string* error);

// dva::ClassName of the class id a class code stands for; "class<N>" for any other code.
std::string ClassName(uint8_t class_code);

}  // namespace sysd
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_SYSD_PROTOCOL_H
