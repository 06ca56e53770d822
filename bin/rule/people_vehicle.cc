#include "bin/rule/people_vehicle.h"

#include <limits>
#include <string>
#include <utility>

#include "bin/rule/json_settings.h"
#include "common/log.h"
#include "tracking/move_judge.h"
#include "tracking/rule_decorator.h"

namespace mirvane {
namespace rule {
namespace {

namespace odr = dva::object_detect_result;
namespace decorator = dva::object_detect_result::rule_decorator;

constexpr int64_t kStatusExpireMinutes = 10;
constexpr float kMoveIouThreshold = 0.5f;
constexpr int64_t kMovedWindowSeconds = 5;

// Stores an integer setting into field unless it is out of the field's range (logged); the field
// then keeps its default.
void ReadInt(const char* key, const json_t* value, int32_t* field) {
  if (IntSettingInRange(key, value)) *field = Int32Value(value);
}

int GetRegionType(const json_t* config) {
  const json_t* value = json_object_get(config, "DetectionRegionType");
  if (!IntSettingInRange("DetectionRegionType", value)) return dva::DetectionRegion::kInclusion;
  const int type = Int32Value(value);
  if (type == dva::DetectionRegion::kInclusion || type == dva::DetectionRegion::kExclusion) {
    return type;
  }
  MIRVANE_LOG(kLogErr, "Invalid region type [%d]\n", type);
  return dva::DetectionRegion::kInclusion;
}

}  // namespace

PeopleVeichileSettings ParsePeopleVeichileSettings(const json_t* value) {
  PeopleVeichileSettings settings;
  const JsonRef config = SettingsObject(value);
  if (!config) {
    MIRVANE_LOG(kLogErr, "Fail to read json config\n");
    return settings;
  }
  const char* key;
  json_t* item;
  json_object_foreach(config.get(), key, item) {
    const std::string name = key;
    if (name == "MinPeopleTriggerTimeSeconds") {
      ReadInt(key, item, &settings.min_people_trigger_seconds);
    } else if (name == "MinVehicleTriggerTimeSeconds") {
      ReadInt(key, item, &settings.min_vehicle_trigger_seconds);
    } else if (name == "MinTriggerObjectRatioPermille") {
      if (IntSettingInRange(key, item)) {
        settings.min_object_ratio = static_cast<float>(Int32Value(item) / 1000.0);
      }
    } else if (name == "ClassIdFilter") {
      // A mask of class bits: all 32 bits usable, and -1 as "every class".
      if (IntSettingInRange(key, item, std::numeric_limits<int32_t>::min(),
                            std::numeric_limits<uint32_t>::max())) {
        settings.class_id_filter = static_cast<uint32_t>(json_integer_value(item));
      }
    } else if (name == "TriggeredOnlyBothPeopleVehicle") {
      settings.only_both_people_vehicle = json_is_true(item);
    } else if (name == "TriggeredOnlyMovedPeople") {
      settings.only_moved_people = json_is_true(item);
    } else if (name == "TriggeredOnlyMovedVehicle") {
      settings.only_moved_vehicle = json_is_true(item);
    } else if (name == "CrowdPeopleThreshold") {
      ReadInt(key, item, &settings.crowd_people_threshold);
    } else if (name == "DetectionRegion") {
      const char* text = json_string_value(item);
      const int type = GetRegionType(config.get());
      settings.detection_region =
          dva::DetectionRegion(type, ParseCoordinates(key, text ? text : "", [text] {
                                 return dva::DetectionRegion::ParsePolygons(text ? text : "");
                               }));
    } else if (name == "DetectionRegionType") {
      // Read together with "DetectionRegion".
    } else {
      MIRVANE_LOG(kLogErr, "Invalid config key[%s]\n", key);
    }
  }
  return settings;
}

PeopleVeichileSettings PeopleVeichile::ReadFromPgo(PgoJsonFetcher fetch) {
  const JsonRef value(fetch(kSettingsKey));
  return ParsePeopleVeichileSettings(value.get());
}

PeopleVeichile::PeopleVeichile(PeopleVeichileSettings settings, dva::SteadyNow now)
    : settings_(std::move(settings)), now_(std::move(now)) {
  ResetObjectStatusManger();
}

void PeopleVeichile::ResetObjectStatusManger() {
  chain_.reset();
  std::unique_ptr<odr::IObjectStatusManager> chain =
      std::make_unique<odr::BasicObjectStatusManager>(
          kStatusExpireMinutes, settings_.min_people_trigger_seconds,
          settings_.min_vehicle_trigger_seconds, settings_.class_id_filter,
          settings_.detection_region, settings_.min_object_ratio, now_);
  if (settings_.only_moved_people) {
    MIRVANE_LOG(kLogInfo, "Add triggered_only_moved_people.\n");
    chain = std::make_unique<decorator::OnlyMovedPeopleRule>(
        std::move(chain), std::make_unique<odr::IouMoveJudge>(kMoveIouThreshold),
        kMovedWindowSeconds, now_);
  }
  if (settings_.only_moved_vehicle) {
    MIRVANE_LOG(kLogInfo, "Add triggered_only_moved_vehicle.\n");
    chain = std::make_unique<decorator::OnlyMovedVehicleRule>(
        std::move(chain), std::make_unique<odr::IouMoveJudge>(kMoveIouThreshold),
        kMovedWindowSeconds, now_);
  }
  if (settings_.crowd_people_threshold > 0) {
    MIRVANE_LOG(kLogInfo, "Add crowd_people_threshold.\n");
    chain = std::make_unique<decorator::CrowdPeopleDetectedRule>(std::move(chain),
                                                                 settings_.crowd_people_threshold);
  }
  if (settings_.only_both_people_vehicle) {
    MIRVANE_LOG(kLogInfo, "Add triggered_only_both_people_vehicle.\n");
    chain = std::make_unique<decorator::OnlyBothPeopleVehicleDetectedRule>(std::move(chain));
  }
  chain_ = std::move(chain);
}

std::vector<std::vector<bool>> PeopleVeichile::Apply(const TrackResult& result) {
  chain_->Update(result.objects);
  std::vector<std::vector<bool>> bits;
  bits.reserve(result.objects.size());
  for (const auto& list : result.objects) {
    std::vector<bool> row;
    row.reserve(list.size());
    for (const TrackedObject& object : list) row.push_back(chain_->IsTriggered(object.tracking_id));
    bits.push_back(std::move(row));
  }
  chain_->CollectRemovedIds(result);
  return bits;
}

}  // namespace rule
}  // namespace mirvane
