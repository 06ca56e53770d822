// Optional conditions stacked on an object status manager. Each decorator is itself an
// IObjectStatusManager that owns the manager it wraps, passes every call on, and narrows the
// answer of IsTriggered. The people and vehicle rule builds the chain from its settings.
//
// Single-threaded: the pipeline thread only; a chain is replaced only between frames.
#ifndef MIRVANE_TRACKING_RULE_DECORATOR_H
#define MIRVANE_TRACKING_RULE_DECORATOR_H

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tracking/move_judge.h"
#include "tracking/object_status_manager.h"
#include "tracking/steady_now.h"

namespace mirvane {
namespace dva {
namespace object_detect_result {
namespace rule_decorator {

// Owns the wrapped manager (never null) and forwards every call to it unchanged.
class Base : public IObjectStatusManager {
 public:
  explicit Base(std::unique_ptr<IObjectStatusManager> wrapped);

  void Update(const ObjectLists& objects) override;
  bool IsTriggered(uint32_t tracking_id) const override;
  void Remove(uint32_t tracking_id) override;
  std::vector<uint32_t> CollectRemovedIds(const TrackResult& result) override;

  const IObjectStatusManager& wrapped() const { return *wrapped_; }

 protected:
  IObjectStatusManager& wrapped() { return *wrapped_; }

 private:
  std::unique_ptr<IObjectStatusManager> wrapped_;
};

// People count only in a crowd: while fewer than `threshold` people are triggered in a frame, no
// person is. Other classes are unaffected. The set of ids seen as triggered people is kept for
// the chain's lifetime (it only marks which ids are people).
class CrowdPeopleDetectedRule final : public Base {
 public:
  CrowdPeopleDetectedRule(std::unique_ptr<IObjectStatusManager> wrapped, int32_t threshold);

  void Update(const ObjectLists& objects) override;
  bool IsTriggered(uint32_t tracking_id) const override;

 private:
  int32_t threshold_;
  bool crowd_ok_ = false;
  std::unordered_set<uint32_t> crowd_ids_;
};

// Nothing is triggered unless, in the same frame, a person and a vehicle (class 2 or 4) are both
// triggered.
class OnlyBothPeopleVehicleDetectedRule final : public Base {
 public:
  explicit OnlyBothPeopleVehicleDetectedRule(std::unique_ptr<IObjectStatusManager> wrapped);

  void Update(const ObjectLists& objects) override;
  bool IsTriggered(uint32_t tracking_id) const override;

 private:
  bool both_present_ = false;
};

// Shared part of the two movement decorators: a triggered object of the watched classes stays
// triggered only while its judge says it moves, or until `moved_window_seconds` have passed since
// it last moved (strictly more). Objects of other classes keep the wrapped answer. Owns its judge.
class OnlyMovedRule : public Base {
 public:
  void Update(const ObjectLists& objects) override;
  bool IsTriggered(uint32_t tracking_id) const override;
  void Remove(uint32_t tracking_id) override;
  std::vector<uint32_t> CollectRemovedIds(const TrackResult& result) override;

 protected:
  // class_mask: bit n selects class id n.
  OnlyMovedRule(std::unique_ptr<IObjectStatusManager> wrapped, std::unique_ptr<IMoveJudge> judge,
                int64_t moved_window_seconds, uint32_t class_mask, SteadyNow now);

 private:
  void Forget(uint32_t tracking_id);

  std::unique_ptr<IMoveJudge> judge_;
  int64_t moved_window_seconds_;
  uint32_t class_mask_;
  SteadyNow now_;
  std::unordered_map<uint32_t, SteadyTimePoint> last_moved_;
};

// Only moving people (class 1) are triggered.
class OnlyMovedPeopleRule final : public OnlyMovedRule {
 public:
  OnlyMovedPeopleRule(std::unique_ptr<IObjectStatusManager> wrapped,
                      std::unique_ptr<IMoveJudge> judge, int64_t moved_window_seconds,
                      SteadyNow now = RealSteadyNow());
};

// Only moving vehicles (classes 2 and 4) are triggered.
class OnlyMovedVehicleRule final : public OnlyMovedRule {
 public:
  OnlyMovedVehicleRule(std::unique_ptr<IObjectStatusManager> wrapped,
                       std::unique_ptr<IMoveJudge> judge, int64_t moved_window_seconds,
                       SteadyNow now = RealSteadyNow());
};

}  // namespace rule_decorator
}  // namespace object_detect_result
}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_TRACKING_RULE_DECORATOR_H
