// Helpers of the rules' settings readers: an owning JSON reference, and access to the settings
// object of a stored value.
//
// Pure functions without state: any thread may call them.
#ifndef MIRVANE_BIN_RULE_JSON_SETTINGS_H
#define MIRVANE_BIN_RULE_JSON_SETTINGS_H

#include <jansson.h>

#include <memory>
#include <stdexcept>

#include "common/log.h"

namespace mirvane {
namespace rule {

struct JsonRelease {
  void operator()(json_t* json) const { json_decref(json); }
};

// Owns one JSON reference.
using JsonRef = std::unique_ptr<json_t, JsonRelease>;

// The settings object held by a stored value: the value itself when it is a JSON object, or the
// object its text parses to when it is a JSON string. Null for anything else (null included).
JsonRef SettingsObject(const json_t* value);

// Runs parse over the coordinate text of the setting key. A coordinate that is no number still
// ends the reload with parse's exception (and so the process), but first one line names the
// setting and its text, so that the user knows which setting to mend.
template <typename Parse>
auto ParseCoordinates(const char* key, const char* text, Parse parse) -> decltype(parse()) {
  try {
    return parse();
  } catch (const std::logic_error&) {
    MIRVANE_LOG(kLogErr, "Setting [%s] holds a coordinate that is no number: \"%.200s\"\n", key,
                text);
    throw;
  }
}

}  // namespace rule
}  // namespace mirvane

#endif  // MIRVANE_BIN_RULE_JSON_SETTINGS_H
