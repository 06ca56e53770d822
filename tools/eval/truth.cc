#include "truth.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <map>
#include <sstream>

#include "common/object_class.h"
#include "json_input.h"

namespace mirvane {
namespace eval {
namespace {

using FramesByTimestamp = std::map<uint64_t, TruthFrame>;

// Sorted frames with every time filled in: from the frame index and rate when known, else from
// the timestamps, counted from the first frame.
void Finish(FramesByTimestamp* frames, GroundTruth* truth) {
  truth->frames.clear();
  for (auto& entry : *frames) truth->frames.push_back(std::move(entry.second));
  if (truth->frames.empty()) return;
  for (TruthFrame& frame : truth->frames) {
    if (std::isnan(frame.time) && frame.frame >= 0 && truth->fps > 0) {
      frame.time = static_cast<double>(frame.frame) / truth->fps;
    }
  }
  const TruthFrame& first = truth->frames.front();
  const double base = std::isnan(first.time) ? 0.0 : first.time;
  const uint64_t base_timestamp = first.timestamp;
  for (TruthFrame& frame : truth->frames) {
    if (std::isnan(frame.time)) {
      frame.time = base + static_cast<double>(frame.timestamp - base_timestamp) / 1e6;
    }
  }
}

bool ReadClass(const json_t* value, std::string* name) {
  if (json_is_string(value)) {
    *name = json_string_value(value);
    return true;
  }
  if (json_is_integer(value)) {
    *name = ClassNameOfId(json_integer_value(value));
    return true;
  }
  return false;
}

bool ReadTruthObject(const json_t* item, TruthObject* object, std::string* error) {
  if (!IntegerField(item, "id", &object->id)) {
    *error = "object without an integer \"id\"";
    return false;
  }
  if (!ReadClass(json_object_get(item, "class"), &object->class_name)) {
    *error = "object " + std::to_string(object->id) + " without a \"class\" name or id";
    return false;
  }
  if (!BoxValue(json_object_get(item, "box"), &object->box)) {
    *error = "object " + std::to_string(object->id) + " without a \"box\" of four numbers";
    return false;
  }
  return true;
}

bool ReadJsonFrame(const json_t* line, TruthFrame* frame, std::string* error) {
  int64_t timestamp = 0;
  if (!IntegerField(line, "timestamp", &timestamp) || timestamp < 0) {
    *error = "\"timestamp\" is not a non-negative integer";
    return false;
  }
  frame->timestamp = static_cast<uint64_t>(timestamp);
  if (json_object_get(line, "frame") != nullptr && !IntegerField(line, "frame", &frame->frame)) {
    *error = "\"frame\" is not an integer";
    return false;
  }
  if (json_object_get(line, "time") != nullptr && !NumberField(line, "time", &frame->time)) {
    *error = "\"time\" is not a number";
    return false;
  }
  const json_t* objects = json_object_get(line, "objects");
  if (!json_is_array(objects)) {
    *error = "no \"objects\" array";
    return false;
  }
  for (size_t i = 0; i < json_array_size(objects); ++i) {
    TruthObject object;
    if (!ReadTruthObject(json_array_get(objects, i), &object, error)) return false;
    frame->objects.push_back(object);
  }
  return true;
}

void AddFrame(TruthFrame frame, FramesByTimestamp* frames) {
  auto inserted = frames->emplace(frame.timestamp, frame);
  if (inserted.second) return;
  TruthFrame& existing = inserted.first->second;  // a frame split over lines
  existing.objects.insert(existing.objects.end(), frame.objects.begin(), frame.objects.end());
}

std::vector<std::string> SplitCommas(const std::string& line) {
  std::vector<std::string> fields;
  std::stringstream in(line);
  std::string field;
  while (std::getline(in, field, ',')) {
    const size_t begin = field.find_first_not_of(" \t\r");
    const size_t end = field.find_last_not_of(" \t\r");
    fields.push_back(begin == std::string::npos ? "" : field.substr(begin, end - begin + 1));
  }
  return fields;
}

bool ParseInteger(const std::string& text, int64_t* value) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const long long parsed = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0') return false;
  *value = parsed;
  return true;
}

// "# scene=default width=640 height=360 fps=25 frames=1000": the numbers it names, and the scene.
void ReadCsvHeader(const std::string& line, std::map<std::string, double>* values,
                   std::string* scene) {
  std::stringstream in(line.substr(1));
  std::string token;
  while (in >> token) {
    const size_t equals = token.find('=');
    if (equals == std::string::npos) continue;
    if (token.compare(0, equals, "scene") == 0) *scene = token.substr(equals + 1);
    if (token.compare(0, equals, "video") == 0) *scene = token;  // "video=<file>"
    char* end = nullptr;
    const std::string number = token.substr(equals + 1);
    const double value = std::strtod(number.c_str(), &end);
    if (end != number.c_str() && *end == '\0') (*values)[token.substr(0, equals)] = value;
  }
}

}  // namespace

std::string ClassNameOfId(int64_t class_id) {
  const char* name = class_id == static_cast<int32_t>(class_id)
                         ? dva::ClassName(static_cast<int32_t>(class_id))
                         : nullptr;
  if (name != nullptr) return name;
  return "class" + std::to_string(class_id);
}

bool JsonLinesTruthReader::Read(const std::string& text, GroundTruth* truth,
                                std::string* error) const {
  *truth = GroundTruth();
  truth->lists_empty_frames = true;
  FramesByTimestamp frames;
  const bool ok = ForEachLine(text, [&](const std::string& line, size_t number) {
    std::string problem;
    const JsonRef json = ParseJson(line, &problem);
    if (!json_is_object(json.get())) {
      *error = AtLine(number, json == nullptr ? problem : "not a JSON object");
      return false;
    }
    if (json_object_get(json.get(), "timestamp") == nullptr) {  // the run's description
      NumberField(json.get(), "fps", &truth->fps);
      return true;
    }
    TruthFrame frame;
    if (!ReadJsonFrame(json.get(), &frame, &problem)) {
      *error = AtLine(number, problem);
      return false;
    }
    AddFrame(std::move(frame), &frames);
    return true;
  });
  if (!ok) return false;
  Finish(&frames, truth);
  return true;
}

bool SimulationCsvTruthReader::Read(const std::string& text, GroundTruth* truth,
                                    std::string* error) const {
  *truth = GroundTruth();
  std::map<std::string, double> header;
  std::map<std::string, size_t> column;
  FramesByTimestamp frames;
  const bool ok = ForEachLine(text, [&](const std::string& line, size_t number) {
    if (line[0] == '#') {
      ReadCsvHeader(line, &header, &truth->scene);
      return true;
    }
    const std::vector<std::string> fields = SplitCommas(line);
    if (column.empty()) {
      for (size_t i = 0; i < fields.size(); ++i) column[fields[i]] = i;
      for (const char* name : {"timestamp_us", "object_id", "class_id", "x0", "y0", "x1", "y1"}) {
        if (column.count(name) == 0) {
          *error = AtLine(number, std::string("no column \"") + name + "\"");
          return false;
        }
      }
      if (header["width"] <= 0 || header["height"] <= 0) {
        *error = AtLine(number, "no picture width and height in a \"#\" line before the columns");
        return false;
      }
      return true;
    }
    std::map<std::string, int64_t> value;
    for (const auto& entry : column) {
      int64_t parsed = 0;
      if (entry.second < fields.size() && ParseInteger(fields[entry.second], &parsed)) {
        value[entry.first] = parsed;
      } else if (entry.first != "count" && entry.first != "frame") {
        *error = AtLine(number, "\"" + entry.first + "\" is not an integer");
        return false;
      }
    }
    TruthFrame frame;
    frame.timestamp = static_cast<uint64_t>(value["timestamp_us"]);
    frame.frame = value.count("frame") != 0 ? value["frame"] : -1;
    const double width = header["width"];
    const double height = header["height"];
    TruthObject object;
    object.id = value["object_id"];
    object.class_name = ClassNameOfId(value["class_id"]);
    object.box =
        Box{static_cast<double>(value["x0"]) / width, static_cast<double>(value["y0"]) / height,
            static_cast<double>(value["x1"]) / width, static_cast<double>(value["y1"]) / height};
    frame.objects.push_back(object);
    AddFrame(std::move(frame), &frames);
    return true;
  });
  if (!ok) return false;
  truth->fps = header.count("fps") != 0 ? header["fps"] : 0.0;
  truth->width = static_cast<int>(header["width"]);
  truth->height = static_cast<int>(header["height"]);
  Finish(&frames, truth);
  return true;
}

std::unique_ptr<ITruthReader> TruthReaderFor(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && text[first] == '{') {
    return std::make_unique<JsonLinesTruthReader>();
  }
  return std::make_unique<SimulationCsvTruthReader>();
}

}  // namespace eval
}  // namespace mirvane
