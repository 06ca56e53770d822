// The host simulation's own settings, read from its settings file (see mirvane_sim.h for the file's
// keys). Owns nothing beyond the values; the process-wide copy is replaced whole on a reload and
// handed out as a shared pointer, so any thread may read the copy it holds while another reloads.
#ifndef MIRVANE_PLATFORM_SIM_SIM_SETTINGS_H
#define MIRVANE_PLATFORM_SIM_SIM_SETTINGS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

typedef struct json_t json_t;

namespace mirvane {
namespace sim {

struct PoolSetting {
  uint32_t type = 0;
  uint32_t blk_size = 0;
  uint32_t blk_cnt = 0;
  uint32_t ddr_id = 0;
  bool operator==(const PoolSetting& o) const {
    return type == o.type && blk_size == o.blk_size && blk_cnt == o.blk_cnt && ddr_id == o.ddr_id;
  }
};

enum class Pace { kRealTime, kFast };

// What the daemon's pipeline clock reads (see pipeline_clock_sim.cc): the steady clock, or virtual
// time that advances with the frames the video output delivers.
enum class Clock { kReal, kVirtual };

struct VideoSetting {
  uint32_t path = 0x24000107;
  uint32_t width = 1920;
  uint32_t height = 1080;
  double fps = 25.0;
  uint32_t buffers = 3;
  Pace pace = Pace::kRealTime;
  bool loop = false;
  int end_code = -43;  // HD_ERR_EOL
  std::string scene = "default";
  std::string file;          // a video file to play instead of a scene
  std::string ground_truth;  // "" for <state_dir>/ground_truth.csv, "none" for none
};

struct EncoderSetting {
  uint32_t path = 0x25000000;
  uint32_t buffer_size = 1 << 20;
  int quality = 80;
};

struct FaultRule {
  std::string call;
  int code = -10;     // HD_ERR_NG
  int64_t nth = 0;    // first failing call, counted from 1 (0: not by count)
  int64_t count = 1;  // how many calls from nth fail (-1: all after)
  double rate = 0.0;  // chance of failure per call
  uint64_t seed = 1;
};

struct Settings {
  std::string source_path;  // the settings file these came from
  std::string state_dir = "/tmp/mirvane-sim";
  std::string param_store;  // defaults to state_dir + "/params.json"
  std::vector<PoolSetting> pools;
  VideoSetting video;
  EncoderSetting encoder;
  bool reject_odd_source_offsets = false;
  Clock clock = Clock::kReal;
  std::vector<FaultRule> faults;
  std::shared_ptr<json_t> raw;  // the whole file, for the sections of other parts
};

// Default settings file when MIRVANE_SIM_SETTINGS is not set.
extern const char kDefaultSettingsPath[];

// Parses settings from a JSON object; false with a reason when a value has the wrong type.
bool ParseSettings(json_t* root, Settings* out, std::string* error);

// The settings in force in this process (read from the file on first use).
std::shared_ptr<const Settings> CurrentSettings();
// Reads the settings file again; false when it exists but is unusable (defaults then apply).
bool ReloadSettings();

// Writes one line "mirvane-sim: <text>" to standard error.
void SimWarn(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_SIM_SETTINGS_H
