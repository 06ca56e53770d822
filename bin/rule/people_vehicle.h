// The people and vehicle rule: reports people and vehicles that stay in a detection region, with
// optional filters (only moving people, only moving vehicles, only crowds of people, only when
// people and vehicles are both present).
//
// PeopleVeichile owns its settings (the detection region among them) and the status-manager chain
// built from them, which borrows the region; it is neither copied nor moved. Single-threaded: the
// pipeline thread builds it at a settings reload and calls Apply once per frame.
#ifndef MIRVANE_BIN_RULE_PEOPLE_VEHICLE_H
#define MIRVANE_BIN_RULE_PEOPLE_VEHICLE_H

#include <jansson.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "bin/pgo_access.h"
#include "bin/tracked_object.h"
#include "common/detection_region.h"
#include "tracking/object_status_manager.h"
#include "tracking/steady_now.h"

namespace mirvane {
namespace rule {

// Settings of the rule; all zero, false and an empty inclusion region by default.
struct PeopleVeichileSettings {
  int32_t min_people_trigger_seconds = 0;
  int32_t min_vehicle_trigger_seconds = 0;
  float min_object_ratio = 0.0f;  // smallest box area, a fraction of the frame area
  uint32_t class_id_filter = 0;   // bit n admits class id n
  bool only_both_people_vehicle = false;
  bool only_moved_people = false;
  bool only_moved_vehicle = false;
  int32_t crowd_people_threshold = 0;  // 0 or less: off
  dva::DetectionRegion detection_region;
};

// Reads the settings from the stored value of "Custom.Dva.ObjectDetection" (a JSON object, or a
// string holding one), key by key; unknown keys are logged and skipped, a value that is no
// settings object is logged and gives the defaults. A region number that is not a float throws
// std::invalid_argument.
PeopleVeichileSettings ParsePeopleVeichileSettings(const json_t* value);

class PeopleVeichile {
 public:
  static constexpr const char* kSettingsKey = "Custom.Dva.ObjectDetection";

  // Fetches the settings value from the parameter store (or from fetch) and parses it.
  static PeopleVeichileSettings ReadFromPgo(PgoJsonFetcher fetch = &GetPgoJson);

  explicit PeopleVeichile(PeopleVeichileSettings settings,
                          dva::SteadyNow now = dva::RealSteadyNow());
  PeopleVeichile(const PeopleVeichile&) = delete;
  PeopleVeichile& operator=(const PeopleVeichile&) = delete;

  // Drops the current chain, with all its per-id state, and builds a new one from the settings:
  // the basic manager, then around it in this order the moving-people, moving-vehicle, crowd and
  // both-present decorators that the settings ask for.
  void ResetObjectStatusManger();

  // One frame: updates the chain with the tracker's objects, answers per object (one list per
  // class list, same order) whether it is triggered, then lets the chain forget removed ids.
  std::vector<std::vector<bool>> Apply(const TrackResult& result);

  const PeopleVeichileSettings& settings() const { return settings_; }
  // The outermost manager of the chain.
  const dva::object_detect_result::IObjectStatusManager& object_status_manager() const {
    return *chain_;
  }

 private:
  PeopleVeichileSettings settings_;
  dva::SteadyNow now_;
  std::unique_ptr<dva::object_detect_result::IObjectStatusManager> chain_;
};

}  // namespace rule
}  // namespace mirvane

#endif  // MIRVANE_BIN_RULE_PEOPLE_VEHICLE_H
