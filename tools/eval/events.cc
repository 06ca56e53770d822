#include "events.h"

#include "json_input.h"

namespace mirvane {
namespace eval {
namespace {

bool ReadObject(const json_t* item, ReportedObject* object, std::string* error) {
  if (!IntegerField(item, "tracking_id", &object->tracking_id)) {
    *error = "object without an integer \"tracking_id\"";
    return false;
  }
  const std::string which = "object #" + std::to_string(object->tracking_id);
  const json_t* name = json_object_get(item, "class");
  object->class_name = json_is_string(name) ? json_string_value(name) : "";
  int64_t number = 0;
  if (IntegerField(item, "flags", &number)) {
    object->flags = static_cast<int>(number);
  } else {  // the decoded form only
    int64_t fence = 0;
    IntegerField(item, "fence", &fence);
    object->flags =
        event_wire::FlagsOf(json_is_true(json_object_get(item, "region")), static_cast<int>(fence));
  }
  if (IntegerField(item, "snapshot_id", &number)) object->snapshot_id = static_cast<int>(number);
  NumberField(item, "confidence", &object->confidence);
  if (!BoxValue(json_object_get(item, "box"), &object->box)) {
    *error = which + " without a \"box\" of four numbers";
    return false;
  }
  return true;
}

}  // namespace

bool ParseEventLines(const std::string& text, EventLog* log, std::string* error) {
  *log = EventLog();
  return ForEachLine(text, [&](const std::string& line, size_t number) {
    const JsonRef json = ParseJson(line, nullptr);
    const json_t* kind = json_object_get(json.get(), "kind");
    if (!json_is_string(kind) || std::string(json_string_value(kind)) != "event") {
      ++log->skipped_lines;
      return true;
    }
    ReportedFrame frame;
    int64_t timestamp = 0;
    if (!IntegerField(json.get(), "timestamp", &timestamp)) {
      *error = AtLine(number, "event without an integer \"timestamp\"");
      return false;
    }
    frame.timestamp = static_cast<uint64_t>(timestamp);
    const json_t* objects = json_object_get(json.get(), "objects");
    if (!json_is_array(objects)) {
      *error = AtLine(number, "event without an \"objects\" array");
      return false;
    }
    for (size_t i = 0; i < json_array_size(objects); ++i) {
      ReportedObject object;
      std::string problem;
      if (!ReadObject(json_array_get(objects, i), &object, &problem)) {
        *error = AtLine(number, problem);
        return false;
      }
      frame.objects.push_back(object);
    }
    log->frames.push_back(std::move(frame));
    return true;
  });
}

}  // namespace eval
}  // namespace mirvane
