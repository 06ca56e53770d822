// Reading settings from the camera's parameter store. The rules read their JSON settings through
// these functions on the pipeline thread, during a settings reload.
#ifndef MIRVANE_BIN_PGO_ACCESS_H
#define MIRVANE_BIN_PGO_ACCESS_H

#include <jansson.h>

#include <cstdint>
#include <limits>

namespace mirvane {

// The value stored under key, as a new reference owned by the caller, or null when the store has
// nothing (or key is null). A key holding commas is pushed as several keys; a dotted key is pushed
// whole and resolved by the store.
json_t* GetPgoJson(const char* key);

// The integer stored under key; 0 when the key is absent, its value is not an integer, or it does
// not fit an int (the last two logged, naming the key).
int GetPgoInt(const char* key);

// Whether a settings value that is a JSON integer lies within [min, max], the range of the field
// it is read into. A value outside is logged at the error level with key and the whole value, so
// that the caller treats it as invalid instead of cutting it to the field's width. A value of
// another JSON type passes, with a line naming the key (its readers take it as 0); no value at all
// passes silently.
bool IntSettingInRange(const char* key, const json_t* value,
                       json_int_t min = std::numeric_limits<int32_t>::min(),
                       json_int_t max = std::numeric_limits<int32_t>::max());

// json_integer_value of a value that IntSettingInRange admitted for an int32_t field.
inline int32_t Int32Value(const json_t* value) {
  return static_cast<int32_t>(json_integer_value(value));
}

// A source of stored JSON values with the contract of GetPgoJson; lets the settings readers run
// on another source (tests use one).
using PgoJsonFetcher = json_t* (*)(const char* key);

}  // namespace mirvane

#endif  // MIRVANE_BIN_PGO_ACCESS_H
