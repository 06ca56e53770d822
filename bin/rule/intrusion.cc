#include "bin/rule/intrusion.h"

#include <limits>
#include <string>
#include <utility>

#include "bin/rule/json_settings.h"
#include "common/log.h"
#include "common/object_class.h"

namespace mirvane {
namespace rule {
namespace {

constexpr int64_t kStatusExpireMinutes = 10;
// How far past a segment's line the test point must be before a crossing counts.
constexpr float kMinCrossDistance = 0.01f;
constexpr json_int_t kMaxIntersectType = dva::kCrossLeftToRight | dva::kCrossRightToLeft;

// The side of a segment that a crossing in direction d leads to.
dva::Side SideAfter(uint8_t direction) {
  return direction == dva::kCrossLeftToRight ? dva::Side::kRight : dva::Side::kLeft;
}

}  // namespace

IntrusionSettings ParseIntrusionSettings(const json_t* value) {
  IntrusionSettings settings;
  const JsonRef config = SettingsObject(value);
  if (!config) {
    MIRVANE_LOG(kLogErr, "Fail to parse json config\n");
    return settings;
  }
  const char* key;
  json_t* item;
  json_object_foreach(config.get(), key, item) {
    const std::string name = key;
    if (name == "FenceLine") {
      const char* text = json_string_value(item);
      if (text == nullptr) {
        MIRVANE_LOG(kLogErr, "Fail to parse json config\n");
        continue;
      }
      const std::vector<dva::Point> points =
          ParseCoordinates(key, text, [text] { return dva::ParsePointList(text); });
      for (const dva::Point& p : points) settings.fence.AddPoint(p);
    } else if (name == "FenceIntersectType") {
      const json_int_t type = json_integer_value(item);
      if (!IntSettingInRange(key, item)) {
        // Logged with its whole value; the fence keeps its default direction.
      } else if (type >= 0 && type <= kMaxIntersectType) {
        settings.fence.set_intersect_type(static_cast<uint8_t>(type));
      } else {
        MIRVANE_LOG(kLogErr, "Not support fence intersect type [%d]\n", static_cast<int>(type));
      }
    } else if (name == "MinTriggerObjectRatioPermille") {
      if (IntSettingInRange(key, item)) {
        settings.min_object_ratio = static_cast<float>(json_integer_value(item) / 1000.0);
      }
    } else if (name == "ClassIdFilter") {
      // A mask of class bits: all 32 bits usable, and -1 as "every class".
      if (IntSettingInRange(key, item, std::numeric_limits<int32_t>::min(),
                            std::numeric_limits<uint32_t>::max())) {
        settings.class_id_filter = static_cast<uint32_t>(json_integer_value(item));
      }
    } else {
      MIRVANE_LOG(kLogErr, "Invalid config key[%s]\n", key);
    }
  }
  return settings;
}

FenceCrossing::FenceCrossing(const dva::Fence& fence, float min_distance)
    : fence_(&fence), min_distance_(min_distance) {}

uint8_t FenceCrossing::Update(dva::Point p) {
  if (!previous_) {
    previous_ = p;
    return 0;
  }
  const std::vector<dva::Segment>& segments = fence_->boundaries();
  const dva::Segment step{*previous_, p};
  for (size_t i = 0; i < segments.size(); ++i) {
    const uint8_t direction = dva::CrossingDirection(segments[i], step);
    if (direction != 0) pending_[i] = direction;
  }
  uint8_t result = 0;
  for (auto it = pending_.begin(); it != pending_.end();) {
    const dva::Segment& segment = segments[it->first];
    const uint8_t direction = it->second;
    if (dva::SideOfSegment(segment, p) != SideAfter(direction)) {
      it = pending_.erase(it);  // back on the side it came from
    } else if (dva::DistanceToLine(segment, p) > min_distance_) {
      result |= direction;
      it = pending_.erase(it);
    } else {
      ++it;
    }
  }
  previous_ = p;
  return result;
}

IntrusionStatus::IntrusionStatus(int64_t expire, const dva::Fence& status_fence, uint32_t filter,
                                 float ratio, float min_distance)
    : expire_minutes(expire),
      fence(&status_fence),
      class_id_filter(filter),
      min_object_ratio(ratio),
      crossing(status_fence, min_distance) {}

void IntrusionStatus::Update(const TrackedObject& object, dva::SteadyTimePoint now) {
  last_update = now;
  const dva::Point test_point{object.xmax * 0.5f + object.xmin * 0.5f,
                              object.ymax * 0.9f + object.ymin * 0.1f};
  crossed = crossing.Update(test_point);
  const float area = (object.xmax - object.xmin) * (object.ymax - object.ymin);
  condition_ok = dva::ClassInMask(class_id_filter, object.class_id) && min_object_ratio <= area;
}

IntrusionSettings Intrusion::ReadFromPgo(PgoJsonFetcher fetch) {
  const JsonRef value(fetch(kSettingsKey));
  return ParseIntrusionSettings(value.get());
}

Intrusion::Intrusion(IntrusionSettings settings, dva::SteadyNow now)
    : settings_(std::move(settings)), now_(std::move(now)) {}

std::vector<std::vector<uint8_t>> Intrusion::Apply(const TrackResult& result) {
  const dva::SteadyTimePoint now = now_();
  for (const auto& list : result.objects) {
    for (const TrackedObject& object : list) {
      auto it = statuses_.find(object.tracking_id);
      if (it == statuses_.end()) {
        it = statuses_
                 .emplace(object.tracking_id,
                          IntrusionStatus(kStatusExpireMinutes, settings_.fence,
                                          settings_.class_id_filter, settings_.min_object_ratio,
                                          kMinCrossDistance))
                 .first;
      }
      it->second.Update(object, now);
    }
  }

  const uint8_t allowed = settings_.fence.intersect_type();
  std::vector<std::vector<uint8_t>> crossed;
  crossed.reserve(result.objects.size());
  for (const auto& list : result.objects) {
    std::vector<uint8_t> row;
    row.reserve(list.size());
    for (const TrackedObject& object : list) {
      const auto it = statuses_.find(object.tracking_id);
      const bool report =
          it != statuses_.end() && it->second.condition_ok && (it->second.crossed & allowed) != 0;
      row.push_back(report ? it->second.crossed : 0);
    }
    crossed.push_back(std::move(row));
  }

  for (const auto& ids : result.removed_ids) {
    for (uint32_t id : ids) statuses_.erase(id);
  }
  return crossed;
}

}  // namespace rule
}  // namespace mirvane
