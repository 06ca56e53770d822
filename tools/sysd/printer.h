// The stand-in's output: one line per message, readable text by default or JSON lines, and a
// summary at the end. Owns its counters; used from the event loop thread only.
#ifndef MIRVANE_TOOLS_SYSD_PRINTER_H
#define MIRVANE_TOOLS_SYSD_PRINTER_H

#include <cstdint>
#include <cstdio>
#include <set>
#include <string>

#include "protocol.h"

namespace mirvane {
namespace sysd {

struct Stats {
  uint64_t heartbeats_alive = 0;
  uint64_t heartbeats_released = 0;
  uint64_t events = 0;
  uint64_t empty_events = 0;
  uint64_t objects = 0;
  uint64_t region_triggers = 0;  // objects reported with the region flag
  uint64_t fence_triggers = 0;   // objects reported with a fence direction flag
  uint64_t bad_events = 0;
  uint64_t commands = 0;  // everything else
  uint64_t dropped_clients = 0;
  uint64_t restarts = 0;
  std::set<int> snapshot_ids;
  std::set<int32_t> tracking_ids;
};

class Printer {
 public:
  // color: ANSI colours in text mode (for terminals).
  Printer(FILE* out, bool json, bool color) : out_(out), json_(json), color_(color) {}

  void Connected(int client);
  void Closed(int client);
  void Dropped(int client, const std::string& reason);
  void HeartbeatLine(int client, const Heartbeat& beat);
  void EventLine(int client, const Event& event);
  void BadEvent(int client, const std::string& reason);
  void Command(int client, uint32_t cmd, size_t length, const std::string& detail);
  void Note(const std::string& note);  // supervisor and stand-in notices
  void Summary(const std::string& snapshot_prefix);

  Stats& stats() { return stats_; }

 private:
  void Text(const char* color, const std::string& kind, const std::string& text);
  void Json(void* object);  // takes a json_t* and releases it
  void FlushEmptyRun();

  FILE* out_;
  bool json_;
  bool color_;
  bool last_event_empty_ = false;
  uint64_t empty_run_ = 0;  // empty events not printed yet (text mode folds runs of them)
  Stats stats_;
};

// "person #3 91% (0.10,0.20)-(0.30,0.60) snap 4 REGION FENCE-1"
std::string DescribeObject(const EventObject& object);

}  // namespace sysd
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_SYSD_PRINTER_H
