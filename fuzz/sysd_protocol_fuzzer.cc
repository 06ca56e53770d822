// Fuzz target: the system-daemon stand-in's handling of a client's byte stream. The first input
// byte sets the size of the pieces in which the rest arrives (as reads of a socket would cut it);
// each complete message is decoded and printed as the stand-in does, in text and in JSON lines.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "printer.h"
#include "protocol.h"
#include "sysapi.h"

namespace {

using mirvane::sysd::Message;
using mirvane::sysd::Printer;

std::FILE* NullOutput() {
  static std::FILE* const null = std::fopen("/dev/null", "w");
  return null;
}

void Handle(const Message& message, Printer* printer) {
  if (message.cmd == SYSAPI_CMD_EVENT) {
    mirvane::sysd::Event event;
    std::string error;
    if (mirvane::sysd::DecodeEvent(message.body, &event, &error)) {
      if (event.objects.size() != event.count) std::abort();
      printer->EventLine(1, event);
    } else {
      printer->BadEvent(1, error);
    }
  } else if (message.cmd == SYSAPI_CMD_WDG_ALIVE || message.cmd == SYSAPI_CMD_WDG_RELEASE) {
    printer->HeartbeatLine(1, mirvane::sysd::DecodeHeartbeat(message.cmd, message.body));
  } else {
    printer->Command(1, message.cmd, message.body.size(), std::string());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || NullOutput() == nullptr) return 0;
  const size_t piece = data[0] == 0 ? size : data[0];
  ++data, --size;
  Printer text(NullOutput(), false, true);
  Printer json(NullOutput(), true, false);
  mirvane::sysd::StreamFramer framer;
  size_t fed = 0;
  for (size_t at = 0; at < size; at += piece) {
    const size_t n = size - at < piece ? size - at : piece;
    std::vector<Message> messages;
    const bool ok = framer.Feed(data + at, n, &messages);
    for (const Message& message : messages) {
      mirvane::sysd::BodyBound bound;
      if (!mirvane::sysd::BoundOf(message.cmd, &bound) || message.body.size() < bound.min ||
          message.body.size() > bound.max) {
        std::abort();  // the framer let through a message it should have refused
      }
      fed += sizeof(cmd_hdr) + message.body.size();
      Handle(message, &text);
      Handle(message, &json);
    }
    if (!ok) {
      if (framer.error().empty()) std::abort();
      break;
    }
  }
  if (framer.error().empty() && fed + framer.pending() != size) std::abort();  // bytes lost
  text.Summary("snap");
  json.Summary("snap");
  return 0;
}
