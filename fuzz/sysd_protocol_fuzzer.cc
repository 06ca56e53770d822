// Fuzz target: the system-daemon stand-in's handling of a client's byte stream. The first input
// byte sets the size of the pieces in which the rest arrives (as reads of a socket would cut it);
// each complete message is decoded and printed as the stand-in does, in text and in JSON lines.
// Every JSON line must parse and carry all the fields of its kind, whatever the bytes were.
#include <jansson.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
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

// The text of a body up to its first NUL, as the stand-in quotes request texts.
std::string BodyText(const std::vector<uint8_t>& body) {
  const std::string text(body.begin(), body.end());
  return text.substr(0, text.find('\0'));
}

bool HasAll(json_t* object, std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    if (json_object_get(object, key) == nullptr) return false;
  }
  return true;
}

// One JSON line of the printer: an object with the fields of its kind.
bool WellFormedLine(const std::string& line) {
  json_t* record = json_loads(line.c_str(), 0, nullptr);
  bool ok = json_is_object(record) && HasAll(record, {"time", "kind"});
  const char* kind = json_string_value(json_object_get(record, "kind"));
  const std::string k = kind != nullptr ? kind : "";
  if (ok && k == "heartbeat") ok = HasAll(record, {"alive", "name", "restart_command"});
  if (ok && k == "command") ok = HasAll(record, {"cmd", "length", "detail"});
  if (ok && k == "event") {
    json_t* objects = json_object_get(record, "objects");
    ok = HasAll(record, {"timestamp", "count"}) && json_is_array(objects);
    size_t i;
    json_t* item;
    json_array_foreach(objects, i, item) {
      ok = ok && HasAll(item, {"class", "tracking_id", "flags", "confidence"}) &&
           json_array_size(json_object_get(item, "box")) == 4;
    }
  }
  json_decref(record);
  return ok;
}

void CheckJsonLines(const std::string& output) {
  size_t start = 0;
  for (size_t end; (end = output.find('\n', start)) != std::string::npos; start = end + 1) {
    if (!WellFormedLine(output.substr(start, end - start))) {
      std::fprintf(stderr, "bad JSON line: %s\n", output.substr(start, end - start).c_str());
      std::abort();
    }
  }
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
    printer->Command(1, message.cmd, message.body.size(), BodyText(message.body));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || NullOutput() == nullptr) return 0;
  const size_t piece = data[0] == 0 ? size : data[0];
  ++data, --size;
  char* json_output = nullptr;
  size_t json_size = 0;
  std::FILE* json_stream = open_memstream(&json_output, &json_size);
  if (json_stream == nullptr) std::abort();
  Printer text(NullOutput(), false, true);
  Printer json(json_stream, true, false);
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
  std::fclose(json_stream);
  CheckJsonLines(std::string(json_output, json_size));
  std::free(json_output);
  return 0;
}
