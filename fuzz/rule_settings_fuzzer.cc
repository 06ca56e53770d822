// Fuzz target: the rules' settings and the score thresholds as the daemon reads them at a settings
// reload. The input is the whole parameter store (the host simulation's store file, in the target's
// private /tmp); the people and vehicle rule, the intrusion rule and the thresholds read their keys
// from it through the parameter store API, and the rules are then built and run for two frames.
//
// A region or fence number that is no float (or out of float range) throws from std::stof, which
// ends the daemon through its pipeline's handler; that is accepted here. Anything else that
// escapes, and every sanitizer report, is a finding.
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bin/rule/intrusion.h"
#include "bin/rule/people_vehicle.h"
#include "bin/threshold.h"
#include "bin/tracked_object.h"
#include "fuzz_sandbox.h"

namespace {

// The host simulation's parameter store when no simulation settings name another.
constexpr const char* kStoreDir = "/tmp/mirvane-sim";
constexpr const char* kStorePath = "/tmp/mirvane-sim/params.json";

bool WriteStore(const uint8_t* data, size_t size) {
  std::FILE* file = std::fopen(kStorePath, "wb");
  if (file == nullptr) return false;
  const bool written = std::fwrite(data, 1, size, file) == size;
  return std::fclose(file) == 0 && written;
}

mirvane::TrackedObject Object(uint32_t id, int32_t class_id, float x) {
  mirvane::TrackedObject object;
  object.score = 0.9f;
  object.xmin = x;
  object.ymin = 0.2f;
  object.xmax = x + 0.2f;
  object.ymax = 0.8f;
  object.class_id = class_id;
  object.tracking_id = id;
  return object;
}

// Two frames of a person and a vehicle walking from left to right, the second a minute later.
std::vector<mirvane::TrackResult> Frames() {
  std::vector<mirvane::TrackResult> frames(2);
  for (size_t i = 0; i < frames.size(); ++i) {
    const float x = i == 0 ? 0.1f : 0.7f;
    frames[i].objects = {{Object(1, 1, x)}, {Object(2, 2, x)}};
    frames[i].removed_ids = {{}, {}};
  }
  frames[1].removed_ids[0].insert(3);
  return frames;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  mirvane::fuzz::EnterFuzzSandbox(*argc, *argv);
  if (mkdir(kStoreDir, 0755) != 0 && errno != EEXIST) {
    std::perror(kStoreDir);
    std::exit(1);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!WriteStore(data, size)) {
    std::perror(kStorePath);
    std::abort();
  }
  mirvane::Threshold threshold;
  threshold.ReloadFromPgo();

  // Only the reading may throw (std::stof); running the rules must not.
  std::optional<mirvane::rule::PeopleVeichileSettings> people_vehicle_settings;
  std::optional<mirvane::rule::IntrusionSettings> intrusion_settings;
  try {
    people_vehicle_settings = mirvane::rule::PeopleVeichile::ReadFromPgo();
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
  try {
    intrusion_settings = mirvane::rule::Intrusion::ReadFromPgo();
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }

  auto clock = std::chrono::steady_clock::time_point{};
  const auto now = [&clock] { return clock; };
  std::optional<mirvane::rule::PeopleVeichile> people_vehicle;
  std::optional<mirvane::rule::Intrusion> intrusion;
  if (people_vehicle_settings) people_vehicle.emplace(std::move(*people_vehicle_settings), now);
  if (intrusion_settings) intrusion.emplace(std::move(*intrusion_settings), now);
  for (const mirvane::TrackResult& frame : Frames()) {
    if (people_vehicle) (void)people_vehicle->Apply(frame);
    if (intrusion) (void)intrusion->Apply(frame);
    clock += std::chrono::minutes(1);
  }
  mirvane::fuzz::TrimDebugLog();
  return 0;
}
