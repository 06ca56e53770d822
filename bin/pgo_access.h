// Reading settings from the camera's parameter store. The rules read their JSON settings through
// these functions on the pipeline thread, during a settings reload.
#ifndef MIRVANE_BIN_PGO_ACCESS_H
#define MIRVANE_BIN_PGO_ACCESS_H

#include <jansson.h>

namespace mirvane {

// The value stored under key, as a new reference owned by the caller, or null when the store has
// nothing (or key is null). A key holding commas is pushed as several keys; a dotted key is pushed
// whole and resolved by the store.
json_t* GetPgoJson(const char* key);

// The integer stored under key; 0 when the key is absent or its value is not an integer.
int GetPgoInt(const char* key);

// A source of stored JSON values with the contract of GetPgoJson; lets the settings readers run
// on another source (tests use one).
using PgoJsonFetcher = json_t* (*)(const char* key);

}  // namespace mirvane

#endif  // MIRVANE_BIN_PGO_ACCESS_H
