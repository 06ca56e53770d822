#include "bin/pgo_access.h"

#include <cinttypes>
#include <string>

#include "common/log.h"
#include "pgo.h"

namespace mirvane {

json_t* GetPgoJson(const char* key) {
  if (key == nullptr) return nullptr;
  pgo_t* pgo = pgo_new();
  if (pgo == nullptr) return nullptr;
  // Several keys may be asked at once, separated by commas; each is pushed whole.
  const std::string keys = key;
  size_t start = 0;
  for (;;) {
    const size_t comma = keys.find(',', start);
    pgo_push_key(pgo, keys.substr(start, comma - start).c_str());
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  pgo_run(pgo);
  json_t* value = json_deep_copy(pgo_get_obj(pgo, key));
  pgo_free(pgo);
  return value;
}

int GetPgoInt(const char* key) {
  json_t* value = GetPgoJson(key);
  const int result = IntSettingInRange(key, value) ? Int32Value(value) : 0;
  json_decref(value);
  return result;
}

bool IntSettingInRange(const char* key, const json_t* value, json_int_t min, json_int_t max) {
  if (value == nullptr) return true;
  if (!json_is_integer(value)) {
    // Still read as 0, as the camera always has; the line tells the user which setting it was.
    MIRVANE_LOG(kLogErr, "Setting [%s] is not an integer, read as 0\n", key != nullptr ? key : "");
    return true;
  }
  const json_int_t number = json_integer_value(value);
  if (number >= min && number <= max) return true;
  MIRVANE_LOG(kLogErr,
              "Setting [%s] value %" JSON_INTEGER_FORMAT " out of range [%" JSON_INTEGER_FORMAT
              ", %" JSON_INTEGER_FORMAT "], ignored\n",
              key != nullptr ? key : "", number, min, max);
  return false;
}

}  // namespace mirvane
