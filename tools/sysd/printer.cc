#include "printer.h"

#include <jansson.h>
#include <time.h>

#include <cmath>

namespace mirvane {
namespace sysd {
namespace {

constexpr const char* kRed = "\033[31m";
constexpr const char* kYellow = "\033[33m";
constexpr const char* kCyan = "\033[36m";
constexpr const char* kDim = "\033[2m";
constexpr const char* kReset = "\033[0m";

std::string Clock() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  tm local;
  localtime_r(&now.tv_sec, &local);
  char text[32];
  std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min,
                local.tm_sec, now.tv_nsec / 1000000);
  return text;
}

double WallSeconds() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9;
}

// Reals are printed with 15 significant digits: the wall-clock time to the millisecond needs 13.
// Single-precision values are rounded to six decimals first, so that they print as they were
// meant (0.62, not 0.620000005).
constexpr int kRealDigits = 15;

// JSON has no NaN or infinity: a peer's non-finite number is written as null, so that its field is
// still there.
json_t* Real(double value, double unit) {
  if (!std::isfinite(value)) return json_null();
  return json_real(std::round(value / unit) * unit);
}

// A peer's text (names, paths) is raw bytes: when it is not UTF-8, every byte from 0x80 up is
// written as "\xNN" rather than the field being left out.
json_t* String(const std::string& text) {
  if (json_t* valid = json_stringn(text.data(), text.size())) return valid;
  std::string escaped;
  for (const char c : text) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      escaped += c;
    } else {
      char hex[8];
      std::snprintf(hex, sizeof(hex), "\\x%02x", static_cast<unsigned>(byte));
      escaped += hex;
    }
  }
  return json_stringn(escaped.data(), escaped.size());
}

json_t* Record(const char* kind, int client) {
  json_t* object = json_object();
  json_object_set_new(object, "time", Real(WallSeconds(), 1e-3));
  json_object_set_new(object, "kind", json_string(kind));
  if (client >= 0) json_object_set_new(object, "client", json_integer(client));
  return object;
}

using event_wire::FenceDirections;
using event_wire::kRegionFlag;

}  // namespace

std::string DescribeObject(const EventObject& o) {
  char text[160];
  std::snprintf(text, sizeof(text), "%s #%d %.0f%% (%.2f,%.2f)-(%.2f,%.2f) snap %d",
                ClassName(o.class_code).c_str(), o.tracking_id, o.confidence * 100.0f, o.box[0],
                o.box[1], o.box[2], o.box[3], o.snapshot_id);
  std::string result = text;
  if (o.flags & kRegionFlag) result += " REGION";
  const int fence = FenceDirections(o.flags);
  if (fence == 3)
    result += " FENCE-1+2";
  else if (fence != 0)
    result += " FENCE-" + std::to_string(fence);
  return result;
}

void Printer::Text(const char* color, const std::string& kind, const std::string& text) {
  FlushEmptyRun();
  char head[32];
  std::snprintf(head, sizeof(head), "%-9s", kind.c_str());
  if (color_ && color != nullptr) {
    std::fprintf(out_, "%s%s%s %s%s%s %s\n", kDim, Clock().c_str(), kReset, color, head, kReset,
                 text.c_str());
  } else {
    std::fprintf(out_, "%s %s %s\n", Clock().c_str(), head, text.c_str());
  }
  std::fflush(out_);
}

void Printer::Json(void* object) {
  json_t* record = static_cast<json_t*>(object);
  char* text = json_dumps(record, JSON_COMPACT | JSON_REAL_PRECISION(kRealDigits));
  if (text != nullptr) {
    std::fprintf(out_, "%s\n", text);
    std::fflush(out_);
    free(text);
  }
  json_decref(record);
}

void Printer::FlushEmptyRun() {
  if (empty_run_ == 0) return;
  const uint64_t run = empty_run_;
  empty_run_ = 0;
  Text(kDim, "event", "... " + std::to_string(run) + " more without objects");
}

void Printer::Connected(int client) {
  if (json_) return Json(Record("connected", client));
  Text(kDim, "client", std::to_string(client) + " connected");
}

void Printer::Closed(int client) {
  if (json_) return Json(Record("closed", client));
  Text(kDim, "client", std::to_string(client) + " closed");
}

void Printer::Dropped(int client, const std::string& reason) {
  ++stats_.dropped_clients;
  if (json_) {
    json_t* record = Record("dropped", client);
    json_object_set_new(record, "reason", String(reason));
    return Json(record);
  }
  Text(kRed, "dropped", "client " + std::to_string(client) + ": " + reason);
}

void Printer::HeartbeatLine(int client, const Heartbeat& beat) {
  ++(beat.alive ? stats_.heartbeats_alive : stats_.heartbeats_released);
  if (json_) {
    json_t* record = Record("heartbeat", client);
    json_object_set_new(record, "alive", json_boolean(beat.alive));
    json_object_set_new(record, "name", String(beat.name));
    json_object_set_new(record, "restart_command", String(beat.restart_command));
    return Json(record);
  }
  Text(beat.alive ? kCyan : kYellow, beat.alive ? "alive" : "released",
       beat.name + "  (restart: " + beat.restart_command + ")");
}

void Printer::EventLine(int client, const Event& event) {
  ++stats_.events;
  stats_.objects += event.objects.size();
  for (const EventObject& o : event.objects) {
    stats_.region_triggers += (o.flags & kRegionFlag) != 0;
    stats_.fence_triggers += FenceDirections(o.flags) != 0;
    stats_.snapshot_ids.insert(o.snapshot_id);
    stats_.tracking_ids.insert(o.tracking_id);
  }
  if (event.objects.empty()) ++stats_.empty_events;
  if (json_) {
    json_t* record = Record("event", client);
    json_object_set_new(record, "timestamp",
                        json_integer(static_cast<json_int_t>(event.timestamp)));
    json_object_set_new(record, "count", json_integer(event.count));
    json_t* objects = json_array();
    for (const EventObject& o : event.objects) {
      json_t* item = json_object();
      json_object_set_new(item, "class", json_string(ClassName(o.class_code).c_str()));
      json_object_set_new(item, "class_code", json_integer(o.class_code));
      json_object_set_new(item, "tracking_id", json_integer(o.tracking_id));
      json_object_set_new(item, "snapshot_id", json_integer(o.snapshot_id));
      json_object_set_new(item, "flags", json_integer(o.flags));
      json_object_set_new(item, "region", json_boolean(o.flags & kRegionFlag));
      json_object_set_new(item, "fence", json_integer(FenceDirections(o.flags)));
      json_object_set_new(item, "confidence", Real(o.confidence, 1e-6));
      json_t* box = json_array();
      for (float corner : o.box) json_array_append_new(box, Real(corner, 1e-6));
      json_object_set_new(item, "box", box);
      json_array_append_new(objects, item);
    }
    json_object_set_new(record, "objects", objects);
    return Json(record);
  }
  if (event.objects.empty() && last_event_empty_) {
    ++empty_run_;  // runs of empty events fold into one line, written before the next output
    return;
  }
  last_event_empty_ = event.objects.empty();
  std::string text = "ts " + std::to_string(event.timestamp) + "  ";
  text += event.objects.empty() ? "no objects" : std::to_string(event.objects.size()) + " objects:";
  bool triggered = false;
  for (const EventObject& o : event.objects) {
    text += "\n                       " + DescribeObject(o);
    triggered = triggered || o.flags != 0;
  }
  Text(triggered ? kYellow : nullptr, "event", text);
}

void Printer::BadEvent(int client, const std::string& reason) {
  ++stats_.bad_events;
  if (json_) {
    json_t* record = Record("bad_event", client);
    json_object_set_new(record, "reason", String(reason));
    return Json(record);
  }
  Text(kRed, "bad event", "client " + std::to_string(client) + ": " + reason);
}

void Printer::Command(int client, uint32_t cmd, size_t length, const std::string& detail) {
  ++stats_.commands;
  const char letter[2] = {static_cast<char>(cmd), 0};
  if (json_) {
    json_t* record = Record("command", client);
    json_object_set_new(record, "cmd", json_string(letter));
    json_object_set_new(record, "length", json_integer(static_cast<json_int_t>(length)));
    json_object_set_new(record, "detail", String(detail));
    return Json(record);
  }
  Text(kCyan, "command",
       std::string("'") + letter + "' " + std::to_string(length) + " bytes" +
           (detail.empty() ? "" : ": " + detail));
}

void Printer::Note(const std::string& note) {
  if (json_) {
    json_t* record = Record("note", -1);
    json_object_set_new(record, "note", String(note));
    return Json(record);
  }
  Text(kCyan, "stand-in", note);
}

void Printer::Summary(const std::string& snapshot_prefix) {
  const Stats& s = stats_;
  if (json_) {
    json_t* record = Record("summary", -1);
    json_object_set_new(record, "events", json_integer(static_cast<json_int_t>(s.events)));
    json_object_set_new(record, "empty_events",
                        json_integer(static_cast<json_int_t>(s.empty_events)));
    json_object_set_new(record, "objects", json_integer(static_cast<json_int_t>(s.objects)));
    json_object_set_new(record, "tracks",
                        json_integer(static_cast<json_int_t>(s.tracking_ids.size())));
    json_object_set_new(record, "region_triggers",
                        json_integer(static_cast<json_int_t>(s.region_triggers)));
    json_object_set_new(record, "fence_triggers",
                        json_integer(static_cast<json_int_t>(s.fence_triggers)));
    json_object_set_new(record, "snapshots",
                        json_integer(static_cast<json_int_t>(s.snapshot_ids.size())));
    json_object_set_new(
        record, "heartbeats",
        json_integer(static_cast<json_int_t>(s.heartbeats_alive + s.heartbeats_released)));
    json_object_set_new(record, "restarts", json_integer(static_cast<json_int_t>(s.restarts)));
    json_object_set_new(record, "dropped_clients",
                        json_integer(static_cast<json_int_t>(s.dropped_clients)));
    return Json(record);
  }
  FlushEmptyRun();
  std::fprintf(
      out_,
      "\nsummary: %llu events (%llu without objects), %llu objects in %zu tracks\n"
      "         region triggers %llu, fence triggers %llu\n"
      "         %zu snapshot ids used (files %s<id>)\n"
      "         heartbeats %llu alive, %llu released; restarts %llu; dropped clients %llu\n",
      static_cast<unsigned long long>(s.events), static_cast<unsigned long long>(s.empty_events),
      static_cast<unsigned long long>(s.objects), s.tracking_ids.size(),
      static_cast<unsigned long long>(s.region_triggers),
      static_cast<unsigned long long>(s.fence_triggers), s.snapshot_ids.size(),
      snapshot_prefix.c_str(), static_cast<unsigned long long>(s.heartbeats_alive),
      static_cast<unsigned long long>(s.heartbeats_released),
      static_cast<unsigned long long>(s.restarts),
      static_cast<unsigned long long>(s.dropped_clients));
  std::fflush(out_);
}

}  // namespace sysd
}  // namespace mirvane
