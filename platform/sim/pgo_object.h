// The parameter object behind pgo_t, shared by the pgo_* calls and the observer (which copies its
// keys). Owns copies of the keys and one reference per fetched value; used by one thread at a time.
#ifndef MIRVANE_PLATFORM_SIM_PGO_OBJECT_H
#define MIRVANE_PLATFORM_SIM_PGO_OBJECT_H

#include <jansson.h>

#include <string>
#include <vector>

#include "pgo.h"

struct pgo {
  std::vector<std::string> keys;
  std::vector<json_t*> values;  // parallel to keys after a run; null for absent keys

  pgo() = default;
  pgo(const pgo&) = delete;
  pgo& operator=(const pgo&) = delete;
  ~pgo() { DropValues(); }

  void DropValues() {
    for (json_t* v : values) json_decref(v);
    values.clear();
  }
};

#endif  // MIRVANE_PLATFORM_SIM_PGO_OBJECT_H
