// Movement judges of the "only moving objects" decorators: per tracking id, whether the object's
// latest box has moved away from its reference box.
//
// Single-threaded: the pipeline thread only.
#ifndef MIRVANE_TRACKING_MOVE_JUDGE_H
#define MIRVANE_TRACKING_MOVE_JUDGE_H

#include <cstdint>
#include <unordered_map>
#include <unordered_set>

#include "bin/tracked_object.h"
#include "common/geometry.h"

namespace mirvane {
namespace dva {
namespace object_detect_result {

class IMoveJudge {
 public:
  virtual ~IMoveJudge() = default;
  virtual void Update(const TrackedObject& object) = 0;
  virtual bool IsMoved(uint32_t tracking_id) const = 0;
  virtual void Remove(uint32_t tracking_id) = 0;
};

// Judges by overlap with a reference box: an object has moved when it has no reference yet or when
// the overlap (ClampedOverlap) with the reference falls strictly below iou_threshold; the box then
// becomes the new reference. A still object keeps its old reference, so slow drift adds up.
// Owns its reference boxes and the set of moved ids.
class IouMoveJudge final : public IMoveJudge {
 public:
  explicit IouMoveJudge(float iou_threshold);

  void Update(const TrackedObject& object) override;
  bool IsMoved(uint32_t tracking_id) const override;
  void Remove(uint32_t tracking_id) override;

 private:
  float iou_threshold_;
  std::unordered_set<uint32_t> moved_ids_;
  std::unordered_map<uint32_t, Box> reference_boxes_;
};

}  // namespace object_detect_result
}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_TRACKING_MOVE_JUDGE_H
