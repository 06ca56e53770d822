#include "tracking/object_status_manager.h"

#include <chrono>
#include <utility>

#include "common/object_class.h"

namespace mirvane {
namespace dva {
namespace object_detect_result {
namespace {

// The box test of vehicles of the first kind: a polygon must hold at least a tenth of a 10 x 10
// sample grid.
constexpr int kBoxDivisions = 10;
constexpr float kBoxCoverRatio = 0.1f;

bool InRegion(const DetectionRegion& region, const TrackedObject& o) {
  if (o.class_id == kClassPerson) {
    // The middle of the box at nine tenths of its height: about where a person's feet are.
    return region.Admits(
        Point{o.xmin + (o.xmax - o.xmin) * 0.5f, o.ymin + (o.ymax - o.ymin) * 0.9f});
  }
  if (o.class_id == kClassVehicle) return region.AdmitsBox(BoxOf(o), kBoxDivisions, kBoxCoverRatio);
  // Every other class, the second vehicle kind included, by the bottom centre.
  return region.Admits(Point{(o.xmin + o.xmax) * 0.5f, o.ymax});
}

}  // namespace

void ObjectStatus::Update(const TrackedObject& object, SteadyTimePoint now) {
  last_update = now;
  const float area = (object.xmax - object.xmin) * (object.ymax - object.ymin);
  // The region test, by far the dearest part, comes last.
  const bool condition =
      ClassInMask(class_mask, object.class_id) && min_area <= area && InRegion(*region, object);
  if (!condition) {
    triggered = false;
  } else if (!triggered) {
    triggered = true;
    trigger_start = now;
  }
}

bool ObjectStatus::IsTriggered(SteadyTimePoint now) const {
  return triggered && std::chrono::nanoseconds(now - trigger_start) >
                          std::chrono::nanoseconds(std::chrono::seconds(min_trigger_seconds));
}

bool ObjectStatus::IsExpired(SteadyTimePoint now) const {
  return std::chrono::nanoseconds(now - last_update) >
         std::chrono::nanoseconds(std::chrono::minutes(expire_minutes));
}

BasicObjectStatusManager::BasicObjectStatusManager(
    int64_t expire_minutes, int64_t people_trigger_seconds, int64_t vehicle_trigger_seconds,
    uint32_t class_mask, const DetectionRegion& region, float min_area, SteadyNow now)
    : expire_minutes_(expire_minutes),
      people_trigger_seconds_(people_trigger_seconds),
      vehicle_trigger_seconds_(vehicle_trigger_seconds),
      min_area_(min_area),
      class_mask_(class_mask),
      region_(&region),
      now_(std::move(now)) {}

ObjectStatus BasicObjectStatusManager::NewStatus(int32_t class_id) const {
  ObjectStatus status;
  status.expire_minutes = expire_minutes_;
  if (IsPerson(class_id)) {
    status.min_trigger_seconds = people_trigger_seconds_;
  } else if (IsVehicle(class_id)) {
    status.min_trigger_seconds = vehicle_trigger_seconds_;
  }
  status.min_area = min_area_;
  status.class_mask = class_mask_;
  status.region = region_;
  return status;
}

void BasicObjectStatusManager::Update(const ObjectLists& objects) {
  const SteadyTimePoint now = now_();
  for (const auto& list : objects) {
    for (const TrackedObject& object : list) {
      auto it = statuses_.find(object.tracking_id);
      if (it == statuses_.end()) {
        it = statuses_.emplace(object.tracking_id, NewStatus(object.class_id)).first;
      }
      it->second.Update(object, now);
    }
  }
}

bool BasicObjectStatusManager::IsTriggered(uint32_t tracking_id) const {
  const auto it = statuses_.find(tracking_id);
  return it != statuses_.end() && it->second.IsTriggered(now_());
}

void BasicObjectStatusManager::Remove(uint32_t tracking_id) {
  statuses_.erase(tracking_id);
}

std::vector<uint32_t> BasicObjectStatusManager::CollectRemovedIds(const TrackResult& result) {
  std::vector<uint32_t> removed;
  for (const auto& ids : result.removed_ids) {
    for (uint32_t id : ids) {
      removed.push_back(id);
      Remove(id);
    }
  }
  const SteadyTimePoint now = now_();
  for (auto it = statuses_.begin(); it != statuses_.end();) {
    if (it->second.IsExpired(now)) {
      removed.push_back(it->first);
      it = statuses_.erase(it);
    } else {
      ++it;
    }
  }
  return removed;
}

}  // namespace object_detect_result
}  // namespace dva
}  // namespace mirvane
