#include "bin/obj_detect_tracker.h"

#include <utility>

#include "common/log.h"
#include "common/object_class.h"

namespace mirvane {
namespace dva {
namespace {

void ToNormalised(TrackedObject* object, float width, float height) {
  object->xmin /= width;
  object->ymin /= height;
  object->xmax /= width;
  object->ymax /= height;
  object->offset_x /= width;
  object->offset_y /= height;
}

}  // namespace

TrackedObject ToTrackerInput(const Detection& detection, float width, float height,
                             int32_t class_id, uint64_t timestamp) {
  TrackedObject object;
  object.score = detection.score;
  object.xmin = detection.xmin * width;
  object.ymin = detection.ymin * height;
  object.xmax = detection.xmax * width;
  object.ymax = detection.ymax * height;
  object.offset_x = detection.track_dx * width;
  object.offset_y = detection.track_dy * height;
  object.class_id = class_id;
  object.time = timestamp;
  return object;
}

ObjDetectTracker::ObjDetectTracker(int class_count, float score_threshold, SteadyNow now) {
  if (class_count < 0) class_count = 0;
  trackers_.reserve(static_cast<size_t>(class_count));
  for (int i = 0; i < class_count; ++i) trackers_.emplace_back(&next_id_, score_threshold, now);
}

TrackResult ObjDetectTracker::Update(const DetectionsPerClass& detections, int width, int height,
                                     uint64_t timestamp) {
  TrackResult result;
  if (detections.size() != trackers_.size()) {
    MIRVANE_LOG(kLogErr, "Detection class num is not equal to trackers\n");
    return result;
  }

  const float fwidth = static_cast<float>(width);
  const float fheight = static_cast<float>(height);
  result.objects.resize(trackers_.size());
  for (size_t i = 0; i < trackers_.size(); ++i) {
    const std::vector<Detection>& list = detections[i];
    boxes_.resize(list.size());
    scores_.resize(list.size());
    const int32_t class_id = ClassIdOfList(i);
    for (size_t d = 0; d < list.size(); ++d) {
      boxes_[d] = ToTrackerInput(list[d], fwidth, fheight, class_id, timestamp);
      scores_[d] = list[d].score;
    }
    std::vector<TrackedObject> tracked = trackers_[i].Update(boxes_, scores_);
    for (TrackedObject& object : tracked) ToNormalised(&object, fwidth, fheight);
    result.objects[i] = std::move(tracked);
  }

  result.removed_ids.reserve(trackers_.size());
  for (const GreedyTracker& tracker : trackers_) result.removed_ids.push_back(tracker.RemovedIds());
  return result;
}

}  // namespace dva
}  // namespace mirvane
