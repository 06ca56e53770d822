// Per-tracking-id trigger state of the people and vehicle rule.
//
// An object is "triggered" once it has stood in the detection region, with an admitted class and a
// large enough box, for strictly longer than its class's trigger time. IObjectStatusManager is the
// interface the rule calls; BasicObjectStatusManager keeps the state, and the decorators of
// tracking/rule_decorator.h narrow its answers.
//
// Per frame the expected order is: Update with the frame's objects, IsTriggered per object, then
// CollectRemovedIds with the same frame's result. Managers are single-threaded: only the pipeline
// thread calls them, and a chain is replaced only between frames.
#ifndef MIRVANE_TRACKING_OBJECT_STATUS_MANAGER_H
#define MIRVANE_TRACKING_OBJECT_STATUS_MANAGER_H

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "bin/tracked_object.h"
#include "common/detection_region.h"
#include "common/geometry.h"
#include "tracking/steady_now.h"

namespace mirvane {
namespace dva {
namespace object_detect_result {

// The objects of one frame, one list per class (TrackResult::objects).
using ObjectLists = std::vector<std::vector<TrackedObject>>;

class IObjectStatusManager {
 public:
  virtual ~IObjectStatusManager() = default;
  virtual void Update(const ObjectLists& objects) = 0;
  virtual bool IsTriggered(uint32_t tracking_id) const = 0;
  // Forgets the id.
  virtual void Remove(uint32_t tracking_id) = 0;
  // Forgets the ids the trackers dropped in result and the ids not updated for too long; returns
  // the ids forgotten by this call.
  virtual std::vector<uint32_t> CollectRemovedIds(const TrackResult& result) = 0;
};

// The box of a tracked object.
inline Box BoxOf(const TrackedObject& object) {
  return Box{object.xmin, object.ymin, object.xmax, object.ymax};
}

// The state of one tracking id, with the thresholds it was created with.
struct ObjectStatus {
  int64_t expire_minutes = 0;
  int64_t min_trigger_seconds = 0;
  float min_area = 0.0f;
  uint32_t class_mask = 0;
  const DetectionRegion* region = nullptr;  // not owned; never null
  bool triggered = false;
  SteadyTimePoint trigger_start{};  // when triggered last became true
  SteadyTimePoint last_update{};

  // Records this frame's object: the streak starts when the condition begins to hold and ends in
  // the first frame it fails.
  void Update(const TrackedObject& object, SteadyTimePoint now);
  // The condition has held for strictly more than min_trigger_seconds.
  bool IsTriggered(SteadyTimePoint now) const;
  // Not updated for strictly more than expire_minutes.
  bool IsExpired(SteadyTimePoint now) const;
};

// Keeps one ObjectStatus per tracking id. The detection region is borrowed and must outlive the
// manager. Single-threaded: the pipeline thread only.
class BasicObjectStatusManager final : public IObjectStatusManager {
 public:
  // Trigger times: people_trigger_seconds for class 1, vehicle_trigger_seconds for classes 2 and 4,
  // none for other classes. class_mask: bit n admits class id n. min_area: the smallest box area,
  // a fraction of the frame area.
  BasicObjectStatusManager(int64_t expire_minutes, int64_t people_trigger_seconds,
                           int64_t vehicle_trigger_seconds, uint32_t class_mask,
                           const DetectionRegion& region, float min_area,
                           SteadyNow now = RealSteadyNow());

  void Update(const ObjectLists& objects) override;
  bool IsTriggered(uint32_t tracking_id) const override;
  void Remove(uint32_t tracking_id) override;
  std::vector<uint32_t> CollectRemovedIds(const TrackResult& result) override;

 private:
  ObjectStatus NewStatus(int32_t class_id) const;

  int64_t expire_minutes_;
  int64_t people_trigger_seconds_;
  int64_t vehicle_trigger_seconds_;
  float min_area_;
  uint32_t class_mask_;
  const DetectionRegion* region_;
  SteadyNow now_;
  std::unordered_map<uint32_t, ObjectStatus> statuses_;
};

}  // namespace object_detect_result
}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_TRACKING_OBJECT_STATUS_MANAGER_H
