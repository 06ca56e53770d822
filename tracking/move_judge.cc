#include "tracking/move_judge.h"

#include "tracking/object_status_manager.h"

namespace mirvane {
namespace dva {
namespace object_detect_result {

IouMoveJudge::IouMoveJudge(float iou_threshold) : iou_threshold_(iou_threshold) {}

void IouMoveJudge::Update(const TrackedObject& object) {
  const Box box = BoxOf(object);
  auto it = reference_boxes_.find(object.tracking_id);
  const bool moved =
      it == reference_boxes_.end() || iou_threshold_ > ClampedOverlap(box, it->second);
  if (moved) {
    reference_boxes_[object.tracking_id] = box;
    moved_ids_.insert(object.tracking_id);
  } else {
    moved_ids_.erase(object.tracking_id);
  }
}

bool IouMoveJudge::IsMoved(uint32_t tracking_id) const {
  return moved_ids_.count(tracking_id) != 0;
}

void IouMoveJudge::Remove(uint32_t tracking_id) {
  moved_ids_.erase(tracking_id);
  reference_boxes_.erase(tracking_id);
}

}  // namespace object_detect_result
}  // namespace dva
}  // namespace mirvane
