#include "tracking/rule_decorator.h"

#include <chrono>
#include <utility>

#include "common/object_class.h"

namespace mirvane {
namespace dva {
namespace object_detect_result {
namespace rule_decorator {

Base::Base(std::unique_ptr<IObjectStatusManager> wrapped) : wrapped_(std::move(wrapped)) {}

void Base::Update(const ObjectLists& objects) {
  wrapped_->Update(objects);
}

bool Base::IsTriggered(uint32_t tracking_id) const {
  return wrapped_->IsTriggered(tracking_id);
}

void Base::Remove(uint32_t tracking_id) {
  wrapped_->Remove(tracking_id);
}

std::vector<uint32_t> Base::CollectRemovedIds(const TrackResult& result) {
  return wrapped_->CollectRemovedIds(result);
}

CrowdPeopleDetectedRule::CrowdPeopleDetectedRule(std::unique_ptr<IObjectStatusManager> wrapped,
                                                 int32_t threshold)
    : Base(std::move(wrapped)), threshold_(threshold) {}

void CrowdPeopleDetectedRule::Update(const ObjectLists& objects) {
  Base::Update(objects);
  int32_t count = 0;
  for (const auto& list : objects) {
    for (const TrackedObject& object : list) {
      if (IsPerson(object.class_id) && Base::IsTriggered(object.tracking_id)) {
        ++count;
        crowd_ids_.insert(object.tracking_id);
      }
    }
  }
  crowd_ok_ = threshold_ <= count;
}

bool CrowdPeopleDetectedRule::IsTriggered(uint32_t tracking_id) const {
  if (!crowd_ok_ && crowd_ids_.count(tracking_id) != 0) return false;
  return Base::IsTriggered(tracking_id);
}

OnlyBothPeopleVehicleDetectedRule::OnlyBothPeopleVehicleDetectedRule(
    std::unique_ptr<IObjectStatusManager> wrapped)
    : Base(std::move(wrapped)) {}

void OnlyBothPeopleVehicleDetectedRule::Update(const ObjectLists& objects) {
  Base::Update(objects);
  bool person = false;
  bool vehicle = false;
  for (const auto& list : objects) {
    for (const TrackedObject& object : list) {
      if (IsPerson(object.class_id)) {
        person = person || Base::IsTriggered(object.tracking_id);
      } else if (IsVehicle(object.class_id)) {
        vehicle = vehicle || Base::IsTriggered(object.tracking_id);
      }
    }
  }
  both_present_ = person && vehicle;
}

bool OnlyBothPeopleVehicleDetectedRule::IsTriggered(uint32_t tracking_id) const {
  return both_present_ && Base::IsTriggered(tracking_id);
}

OnlyMovedRule::OnlyMovedRule(std::unique_ptr<IObjectStatusManager> wrapped,
                             std::unique_ptr<IMoveJudge> judge, int64_t moved_window_seconds,
                             uint32_t class_mask, SteadyNow now)
    : Base(std::move(wrapped)),
      judge_(std::move(judge)),
      moved_window_seconds_(moved_window_seconds),
      class_mask_(class_mask),
      now_(std::move(now)) {}

void OnlyMovedRule::Update(const ObjectLists& objects) {
  Base::Update(objects);
  const SteadyTimePoint now = now_();
  for (const auto& list : objects) {
    for (const TrackedObject& object : list) {
      if (!ClassInMask(class_mask_, object.class_id) || !Base::IsTriggered(object.tracking_id)) {
        continue;
      }
      judge_->Update(object);
      if (judge_->IsMoved(object.tracking_id)) last_moved_[object.tracking_id] = now;
    }
  }
}

bool OnlyMovedRule::IsTriggered(uint32_t tracking_id) const {
  if (!Base::IsTriggered(tracking_id)) return false;
  if (judge_->IsMoved(tracking_id)) return true;
  const auto it = last_moved_.find(tracking_id);
  if (it == last_moved_.end()) return true;
  return std::chrono::nanoseconds(now_() - it->second) <=
         std::chrono::nanoseconds(std::chrono::seconds(moved_window_seconds_));
}

void OnlyMovedRule::Forget(uint32_t tracking_id) {
  judge_->Remove(tracking_id);
  last_moved_.erase(tracking_id);
}

void OnlyMovedRule::Remove(uint32_t tracking_id) {
  Base::Remove(tracking_id);
  Forget(tracking_id);
}

std::vector<uint32_t> OnlyMovedRule::CollectRemovedIds(const TrackResult& result) {
  std::vector<uint32_t> removed = Base::CollectRemovedIds(result);
  for (uint32_t id : removed) Forget(id);
  return removed;
}

OnlyMovedPeopleRule::OnlyMovedPeopleRule(std::unique_ptr<IObjectStatusManager> wrapped,
                                         std::unique_ptr<IMoveJudge> judge,
                                         int64_t moved_window_seconds, SteadyNow now)
    : OnlyMovedRule(std::move(wrapped), std::move(judge), moved_window_seconds, kPeopleClassMask,
                    std::move(now)) {}

OnlyMovedVehicleRule::OnlyMovedVehicleRule(std::unique_ptr<IObjectStatusManager> wrapped,
                                           std::unique_ptr<IMoveJudge> judge,
                                           int64_t moved_window_seconds, SteadyNow now)
    : OnlyMovedRule(std::move(wrapped), std::move(judge), moved_window_seconds, kVehicleClassMask,
                    std::move(now)) {}

}  // namespace rule_decorator
}  // namespace object_detect_result
}  // namespace dva
}  // namespace mirvane
