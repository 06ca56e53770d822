// The daemon's events as the system-daemon stand-in prints them with --json: one JSON object
// per line; lines of "kind" "event" carry the frame's "timestamp" (microseconds, the platform's
// frame timestamp) and its "objects", each with "tracking_id", "class", "class_code", "flags",
// "snapshot_id", "confidence" and a normalised "box" [xmin, ymin, xmax, ymax]. Every other kind
// of line, and any line that is not a JSON object, is skipped. Plain values; any thread.
#ifndef MIRVANE_TOOLS_EVAL_EVENTS_H
#define MIRVANE_TOOLS_EVAL_EVENTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "event_wire.h"
#include "sequence.h"

namespace mirvane {
namespace eval {

// Trigger flag bits of a reported object, as the event carries them.
using event_wire::kFenceDirection1Flag;
using event_wire::kFenceDirection2Flag;
using event_wire::kRegionFlag;

struct ReportedObject {
  int64_t tracking_id = 0;
  std::string class_name;
  int flags = 0;
  int snapshot_id = 0;
  double confidence = 0;
  Box box;

  bool region() const { return (flags & kRegionFlag) != 0; }
  // Whether a fence crossing in direction 1 or 2 is flagged.
  bool fence(int direction) const {
    return (flags & (direction == 1 ? kFenceDirection1Flag : kFenceDirection2Flag)) != 0;
  }
};

struct ReportedFrame {
  uint64_t timestamp = 0;
  std::vector<ReportedObject> objects;
};

struct EventLog {
  std::vector<ReportedFrame> frames;  // in the order of the file
  size_t skipped_lines = 0;           // not events
};

// False with a reason (and its line) when an event line lacks a field or has one of a wrong
// type.
bool ParseEventLines(const std::string& text, EventLog* log, std::string* error);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_EVENTS_H
