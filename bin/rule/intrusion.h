// The intrusion rule: reports tracked objects that cross a virtual fence in an allowed direction.
//
// Every tracking id keeps the last position of its test point (the middle of its box at nine
// tenths of its height); each frame the step from the old to the new position is tested against
// every fence segment, and a crossing counts once the point is clearly past the segment's line.
//
// Intrusion owns its settings (the fence among them) and one IntrusionStatus per tracking id, which
// borrow the fence; it is neither copied nor moved. Single-threaded: the pipeline thread builds it
// at a settings reload and calls Apply once per frame.
#ifndef MIRVANE_BIN_RULE_INTRUSION_H
#define MIRVANE_BIN_RULE_INTRUSION_H

#include <jansson.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "bin/pgo_access.h"
#include "bin/tracked_object.h"
#include "common/fence.h"
#include "common/geometry.h"
#include "tracking/steady_now.h"

namespace mirvane {
namespace rule {

// Settings of the rule; an empty fence with no direction, no class and no minimum by default.
struct IntrusionSettings {
  dva::Fence fence;
  float min_object_ratio = 0.0f;  // smallest box area, a fraction of the frame area
  uint32_t class_id_filter = 0;   // bit n admits class id n
};

// Reads the settings from the stored value of "Custom.Dva.IntrusionDetection" (a JSON object, or a
// string holding one), key by key; unknown keys are logged and skipped, a value that cannot be read
// is logged. A fence number that is not a float throws std::invalid_argument.
IntrusionSettings ParseIntrusionSettings(const json_t* value);

// Follows one test point across the fence. A crossing of segment i waits in `pending` until the
// point is strictly more than min_distance from the segment's line on the far side (then it is
// reported once), or is dropped when the point returns. Borrows the fence.
class FenceCrossing {
 public:
  FenceCrossing(const dva::Fence& fence, float min_distance);

  // Moves the point to p; returns the direction bits confirmed by this move (0 to 3). The first
  // call only stores p.
  uint8_t Update(dva::Point p);

 private:
  const dva::Fence* fence_;
  float min_distance_;
  std::unordered_map<size_t, uint8_t> pending_;  // segment index -> direction
  std::optional<dva::Point> previous_;
};

// The state of one tracking id.
struct IntrusionStatus {
  IntrusionStatus(int64_t expire_minutes, const dva::Fence& fence, uint32_t class_id_filter,
                  float min_object_ratio, float min_distance);

  // Records this frame's object: moves the test point and re-tests class and size.
  void Update(const TrackedObject& object, dva::SteadyTimePoint now);

  int64_t expire_minutes;  // kept, but statuses leave only when the tracker drops their id
  const dva::Fence* fence;
  uint32_t class_id_filter;
  float min_object_ratio;
  bool condition_ok = false;  // class and size of the latest update
  dva::SteadyTimePoint last_update{};
  uint8_t crossed = 0;  // directions confirmed in the latest update
  FenceCrossing crossing;
};

class Intrusion {
 public:
  static constexpr const char* kSettingsKey = "Custom.Dva.IntrusionDetection";

  // Fetches the settings value from the parameter store (or from fetch) and parses it.
  static IntrusionSettings ReadFromPgo(PgoJsonFetcher fetch = &GetPgoJson);

  explicit Intrusion(IntrusionSettings settings, dva::SteadyNow now = dva::RealSteadyNow());
  Intrusion(const Intrusion&) = delete;
  Intrusion& operator=(const Intrusion&) = delete;

  // One frame: updates every object's status, answers per object (one list per class list, same
  // order) the crossing directions confirmed in this frame when they include an allowed one and
  // the object passes the class and size filters (else 0), then forgets the removed ids.
  std::vector<std::vector<uint8_t>> Apply(const TrackResult& result);

  const IntrusionSettings& settings() const { return settings_; }

 private:
  IntrusionSettings settings_;
  dva::SteadyNow now_;
  std::unordered_map<uint32_t, IntrusionStatus> statuses_;
};

}  // namespace rule
}  // namespace mirvane

#endif  // MIRVANE_BIN_RULE_INTRUSION_H
