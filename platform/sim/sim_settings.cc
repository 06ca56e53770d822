#include "sim_settings.h"

#include <errno.h>
#include <unistd.h>
#include <jansson.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

namespace mirvane {
namespace sim {

const char kDefaultSettingsPath[] = "/tmp/mirvane-sim/sim.json";

namespace {

std::mutex g_settings_mutex;
std::shared_ptr<const Settings> g_settings;

const char* SettingsPath() {
  const char* env = std::getenv("MIRVANE_SIM_SETTINGS");
  return env != nullptr && env[0] != '\0' ? env : kDefaultSettingsPath;
}

// Field readers: an absent member keeps the default; a member of the wrong type is an error.
class Reader {
 public:
  Reader(json_t* object, std::string where, std::string* error)
      : object_(object), where_(std::move(where)), error_(error) {}

  bool ok() const { return error_->empty(); }

  void Uint(const char* key, uint32_t* out) {
    json_t* v = Get(key);
    if (v == nullptr) return;
    if (json_is_string(v)) {  // "0x24000107"
      char* end = nullptr;
      errno = 0;
      unsigned long long n = std::strtoull(json_string_value(v), &end, 0);
      if (errno != 0 || *end != '\0' || n > 0xffffffffULL) return Fail(key, "an unsigned number");
      *out = static_cast<uint32_t>(n);
      return;
    }
    if (!json_is_integer(v) || json_integer_value(v) < 0 || json_integer_value(v) > 0xffffffffLL) {
      return Fail(key, "an unsigned number");
    }
    *out = static_cast<uint32_t>(json_integer_value(v));
  }
  void Int(const char* key, int* out) {
    json_t* v = Get(key);
    if (v == nullptr) return;
    if (!json_is_integer(v)) return Fail(key, "an integer");
    *out = static_cast<int>(json_integer_value(v));
  }
  void Int64(const char* key, int64_t* out) {
    json_t* v = Get(key);
    if (v == nullptr) return;
    if (!json_is_integer(v)) return Fail(key, "an integer");
    *out = json_integer_value(v);
  }
  void Number(const char* key, double* out) {
    json_t* v = Get(key);
    if (v == nullptr) return;
    if (!json_is_number(v)) return Fail(key, "a number");
    *out = json_number_value(v);
  }
  void Bool(const char* key, bool* out) {
    json_t* v = Get(key);
    if (v == nullptr) return;
    if (!json_is_boolean(v)) return Fail(key, "true or false");
    *out = json_is_true(v);
  }
  void String(const char* key, std::string* out) {
    json_t* v = Get(key);
    if (v == nullptr) return;
    if (!json_is_string(v)) return Fail(key, "a string");
    *out = json_string_value(v);
  }
  json_t* Object(const char* key) {
    json_t* v = Get(key);
    if (v != nullptr && !json_is_object(v)) Fail(key, "an object");
    return json_is_object(v) ? v : nullptr;
  }
  json_t* Array(const char* key) {
    json_t* v = Get(key);
    if (v != nullptr && !json_is_array(v)) Fail(key, "an array");
    return json_is_array(v) ? v : nullptr;
  }
  void Fail(const char* key, const char* what) {
    if (error_->empty()) *error_ = where_ + key + " must be " + what;
  }

 private:
  json_t* Get(const char* key) const { return object_ ? json_object_get(object_, key) : nullptr; }

  json_t* object_;
  std::string where_;
  std::string* error_;
};

void ParseVideo(json_t* object, VideoSetting* video, std::string* error) {
  Reader r(object, "video.", error);
  r.Uint("path", &video->path);
  r.Uint("width", &video->width);
  r.Uint("height", &video->height);
  r.Number("fps", &video->fps);
  r.Uint("buffers", &video->buffers);
  std::string pace = video->pace == Pace::kFast ? "fast" : "realtime";
  r.String("pace", &pace);
  r.Bool("loop", &video->loop);
  r.Int("end_code", &video->end_code);
  r.String("scene", &video->scene);
  r.String("file", &video->file);
  r.String("ground_truth", &video->ground_truth);
  if (!r.ok()) return;
  if (json_object_get(object, "file") != nullptr) {
    if (video->file.empty()) return r.Fail("file", "the path of a video file");
    if (json_object_get(object, "scene") != nullptr) return r.Fail("file", "given without a scene");
  }
  if (pace == "fast") {
    video->pace = Pace::kFast;
  } else if (pace == "realtime") {
    video->pace = Pace::kRealTime;
  } else {
    r.Fail("pace", "\"realtime\" or \"fast\"");
  }
  if (video->width < 16 || video->height < 16 || video->width > 8192 || video->height > 8192 ||
      video->width % 2 != 0 || video->height % 2 != 0) {
    r.Fail("width", "even, from 16 to 8192 (and so must the height)");
  }
  if (!(video->fps > 0.0 && video->fps <= 1000.0)) r.Fail("fps", "above 0 and at most 1000");
  if (video->buffers < 1 || video->buffers > 16) r.Fail("buffers", "from 1 to 16");
  if (video->end_code >= 0) r.Fail("end_code", "a negative platform code");
}

void ParseFaults(json_t* array, std::vector<FaultRule>* faults, std::string* error) {
  size_t i;
  json_t* item;
  json_array_foreach(array, i, item) {
    Reader r(item, "faults[" + std::to_string(i) + "].", error);
    if (!json_is_object(item)) return r.Fail("", "an object");
    FaultRule rule;
    r.String("call", &rule.call);
    r.Int("code", &rule.code);
    r.Int64("nth", &rule.nth);
    r.Int64("count", &rule.count);
    r.Number("rate", &rule.rate);
    int64_t seed = 1;
    r.Int64("seed", &seed);
    rule.seed = static_cast<uint64_t>(seed);
    if (!r.ok()) return;
    if (rule.call.empty()) return r.Fail("call", "the name of a platform function");
    if (rule.code == 0) return r.Fail("code", "a non-zero code");
    if (rule.nth < 0 || rule.count == 0 || rule.count < -1)
      return r.Fail("nth", "from 1 (count: -1 or above 0)");
    if (rule.rate < 0.0 || rule.rate > 1.0) return r.Fail("rate", "from 0 to 1");
    if (rule.nth == 0 && rule.rate == 0.0) {  // neither given: every call fails
      rule.nth = 1;
      rule.count = -1;
    }
    faults->push_back(rule);
  }
}

void ParsePools(json_t* array, std::vector<PoolSetting>* pools, std::string* error) {
  pools->clear();
  size_t i;
  json_t* item;
  json_array_foreach(array, i, item) {
    Reader r(item, "memory.pools[" + std::to_string(i) + "].", error);
    if (!json_is_object(item)) return r.Fail("", "an object");
    PoolSetting pool;
    r.Uint("type", &pool.type);
    r.Uint("blk_size", &pool.blk_size);
    r.Uint("blk_cnt", &pool.blk_cnt);
    r.Uint("ddr_id", &pool.ddr_id);
    if (!r.ok()) return;
    if (pool.type == 0 || pool.blk_size == 0 || pool.blk_cnt == 0 || pool.ddr_id > 7) {
      return r.Fail("type", "non-zero, with a block size and count above 0 and a ddr_id up to 7");
    }
    pools->push_back(pool);
  }
}

std::shared_ptr<const Settings> Load(bool* usable) {
  auto settings = std::make_shared<Settings>();
  settings->source_path = SettingsPath();
  settings->pools.push_back(PoolSetting{106, 32u << 20, 1, 0});
  *usable = true;

  json_error_t jerr;
  json_t* root = json_load_file(settings->source_path.c_str(), 0, &jerr);
  if (root == nullptr) {
    if (access(settings->source_path.c_str(), F_OK) == 0) {
      SimWarn("settings file %s unusable (%s, line %d); using the defaults",
              settings->source_path.c_str(), jerr.text, jerr.line);
      *usable = false;
    }
  } else {
    Settings parsed = *settings;
    std::string error;
    if (ParseSettings(root, &parsed, &error)) {
      *settings = parsed;
    } else {
      SimWarn("settings file %s: %s; using the defaults", settings->source_path.c_str(),
              error.c_str());
      *usable = false;
    }
    json_decref(root);
  }
  if (settings->param_store.empty()) settings->param_store = settings->state_dir + "/params.json";
  if (!settings->raw) settings->raw = std::shared_ptr<json_t>(json_object(), json_decref);
  return settings;
}

}  // namespace

bool ParseSettings(json_t* root, Settings* out, std::string* error) {
  error->clear();
  Reader r(root, "", error);
  if (!json_is_object(root)) {
    r.Fail("the settings", "a JSON object");
    return false;
  }
  r.String("state_dir", &out->state_dir);
  r.String("param_store", &out->param_store);
  if (out->state_dir.empty()) r.Fail("state_dir", "a directory");
  std::string clock = out->clock == Clock::kVirtual ? "virtual" : "real";
  r.String("clock", &clock);
  if (clock == "virtual") {
    out->clock = Clock::kVirtual;
  } else if (clock == "real") {
    out->clock = Clock::kReal;
  } else {
    r.Fail("clock", "\"real\" or \"virtual\"");
  }
  if (json_t* memory = r.Object("memory")) {
    Reader m(memory, "memory.", error);
    if (json_t* pools = m.Array("pools")) ParsePools(pools, &out->pools, error);
  }
  if (json_t* video = r.Object("video")) ParseVideo(video, &out->video, error);
  if (json_t* encoder = r.Object("encoder")) {
    Reader e(encoder, "encoder.", error);
    e.Uint("path", &out->encoder.path);
    e.Uint("buffer_size", &out->encoder.buffer_size);
    e.Int("quality", &out->encoder.quality);
    if (out->encoder.buffer_size < 4096 || out->encoder.buffer_size > (64u << 20)) {
      e.Fail("buffer_size", "from 4096 to 64 MiB");
    }
    if (out->encoder.quality < 1 || out->encoder.quality > 100) e.Fail("quality", "from 1 to 100");
  }
  if (json_t* gfx = r.Object("gfx")) {
    Reader g(gfx, "gfx.", error);
    std::string odd = "align";
    g.String("odd_source_offsets", &odd);
    if (odd == "reject") {
      out->reject_odd_source_offsets = true;
    } else if (odd != "align") {
      g.Fail("odd_source_offsets", "\"align\" or \"reject\"");
    }
  }
  if (json_t* faults = r.Array("faults")) ParseFaults(faults, &out->faults, error);
  if (!error->empty()) return false;
  out->raw = std::shared_ptr<json_t>(json_incref(root), json_decref);
  return true;
}

std::shared_ptr<const Settings> CurrentSettings() {
  std::lock_guard<std::mutex> lock(g_settings_mutex);
  if (!g_settings) {
    bool usable;
    g_settings = Load(&usable);
  }
  return g_settings;
}

bool ReloadSettings() {
  bool usable;
  std::shared_ptr<const Settings> fresh = Load(&usable);
  std::lock_guard<std::mutex> lock(g_settings_mutex);
  g_settings = fresh;
  return usable;
}

void SimWarn(const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  std::fprintf(stderr, "mirvane-sim: %s\n", text);
}

}  // namespace sim
}  // namespace mirvane
