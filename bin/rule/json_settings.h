// Helpers of the rules' settings readers: an owning JSON reference, and access to the settings
// object of a stored value.
//
// Pure functions without state: any thread may call them.
#ifndef MIRVANE_BIN_RULE_JSON_SETTINGS_H
#define MIRVANE_BIN_RULE_JSON_SETTINGS_H

#include <jansson.h>

#include <memory>

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

}  // namespace rule
}  // namespace mirvane

#endif  // MIRVANE_BIN_RULE_JSON_SETTINGS_H
