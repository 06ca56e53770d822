#include "run_report.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "common/detection_region.h"
#include "json_input.h"

namespace mirvane {
namespace report {
namespace {

using eval::JsonRef;

// A rule's settings value: an object, or a string holding one (as the parameter store keeps it).
JsonRef RuleObject(const json_t* dva, const char* key, std::string* error) {
  const json_t* value = json_object_get(dva, key);
  if (value == nullptr) return JsonRef(json_object());
  if (json_is_string(value)) {
    JsonRef parsed = eval::ParseJson(json_string_value(value), error);
    if (parsed != nullptr && !json_is_object(parsed.get())) {
      *error = std::string(key) + " is not a JSON object";
      return nullptr;
    }
    return parsed;
  }
  if (!json_is_object(value)) {
    *error = std::string(key) + " is neither an object nor a string";
    return nullptr;
  }
  return JsonRef(json_incref(const_cast<json_t*>(value)));
}

std::string StringField(const json_t* object, const char* key) {
  const char* text = json_string_value(json_object_get(object, key));
  return text != nullptr ? text : "";
}

}  // namespace

bool ParseRuleOverlay(const std::string& text, RuleOverlay* overlay, std::string* error) {
  *overlay = RuleOverlay();
  const JsonRef root = eval::ParseJson(text, error);
  if (root == nullptr) return false;
  const json_t* dva = json_object_get(json_object_get(root.get(), "Custom"), "Dva");
  if (!json_is_object(dva)) {
    *error = "no \"Custom\": {\"Dva\": {...}} object";
    return false;
  }
  const JsonRef region = RuleObject(dva, "ObjectDetection", error);
  const JsonRef fence = RuleObject(dva, "IntrusionDetection", error);
  if (region == nullptr || fence == nullptr) return false;
  try {
    overlay->region =
        dva::DetectionRegion::ParsePolygons(StringField(region.get(), "DetectionRegion"));
    overlay->fence = dva::ParsePointList(StringField(fence.get(), "FenceLine"));
  } catch (const std::invalid_argument&) {
    *error = "a region or fence coordinate is not a number";
    return false;
  }
  int64_t number = 0;
  if (eval::IntegerField(region.get(), "DetectionRegionType", &number)) {
    overlay->region_type = static_cast<int>(number);
  }
  if (eval::IntegerField(fence.get(), "FenceIntersectType", &number)) {
    overlay->fence_directions = static_cast<int>(number);
  }
  return true;
}

std::vector<SampledFrame> SampleFrames(const eval::AlignedRun& run, double rate) {
  std::vector<SampledFrame> frames;
  double next = -1.0;
  for (size_t i = 0; i < run.frames.size(); ++i) {
    const eval::RunFrame& frame = run.frames[i];
    if (!frame.reported || frame.time < next) continue;
    SampledFrame sample;
    sample.run_frame = i;
    sample.time = frame.time;
    sample.scene_frame = frame.frame >= 0 ? frame.frame
                         : run.fps > 0    ? std::llround(frame.time * run.fps)
                                          : static_cast<int64_t>(i);
    frames.push_back(sample);
    if (rate > 0) next = (std::floor(frame.time * rate + 1e-9) + 1.0) / rate;
  }
  return frames;
}

std::vector<TimelineRow> BuildTimeline(const eval::AlignedRun& run) {
  std::vector<TimelineRow> rows = {{"region", eval::kRegionFlag, {}},
                                   {"fence direction 1", eval::kFenceDirection1Flag, {}},
                                   {"fence direction 2", eval::kFenceDirection2Flag, {}}};
  for (TimelineRow& row : rows) {
    std::map<int64_t, std::vector<TriggerSpan>> by_track;
    std::map<int64_t, bool> open;  // whether the track's last reported frame had the flag
    for (const eval::RunFrame& frame : run.frames) {
      for (const eval::ReportedObject& object : frame.reported_objects) {
        const bool flagged = (object.flags & row.flag) != 0;
        std::vector<TriggerSpan>& spans = by_track[object.tracking_id];
        if (flagged && open[object.tracking_id]) {
          spans.back().to = frame.time;
        } else if (flagged) {
          spans.push_back({object.tracking_id, frame.time, frame.time});
        }
        open[object.tracking_id] = flagged;
      }
    }
    for (auto& entry : by_track) {
      row.spans.insert(row.spans.end(), entry.second.begin(), entry.second.end());
    }
  }
  return rows;
}

std::vector<GalleryTrack> BuildGallery(const eval::AlignedRun& run,
                                       const std::vector<std::string>& snapshot_files,
                                       const std::string& directory) {
  std::map<int64_t, std::string> classes;
  for (const eval::RunFrame& frame : run.frames) {
    for (const eval::ReportedObject& object : frame.reported_objects) {
      classes.emplace(object.tracking_id, object.class_name);
    }
  }
  std::map<int64_t, std::vector<std::pair<uint64_t, std::string>>> by_track;
  for (const std::string& name : snapshot_files) {
    char* end = nullptr;
    const long long id = std::strtoll(name.c_str(), &end, 10);
    if (end == name.c_str() || *end != '-') continue;
    const char* stamp_text = end + 1;
    const unsigned long long stamp = std::strtoull(stamp_text, &end, 10);
    if (end == stamp_text || std::string(end) != ".jpg") continue;
    by_track[id].emplace_back(stamp, directory + "/" + name);
  }
  std::vector<GalleryTrack> gallery;
  for (auto& entry : by_track) {
    std::sort(entry.second.begin(), entry.second.end());
    GalleryTrack track;
    track.tracking_id = entry.first;
    const auto found = classes.find(entry.first);
    track.class_name = found != classes.end() ? found->second : "";
    for (const auto& file : entry.second) track.images.push_back(file.second);
    gallery.push_back(std::move(track));
  }
  return gallery;
}

}  // namespace report
}  // namespace mirvane
