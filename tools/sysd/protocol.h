// What the system-daemon stand-in understands of the command protocol: splitting a client's byte
// stream into messages with every header checked, and decoding heartbeat bodies (event bodies
// through tools/event_wire).
// Pure code, no I/O; any thread may use its own instances.
#ifndef MIRVANE_TOOLS_SYSD_PROTOCOL_H
#define MIRVANE_TOOLS_SYSD_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "event_wire.h"

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

// The object-detection event: the tools' one decoder.
using event_wire::ClassName;
using event_wire::DecodeEvent;
using event_wire::Event;
using event_wire::EventObject;
using event_wire::kObjectDetectionEvent;

}  // namespace sysd
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_SYSD_PROTOCOL_H
