// pgo_* of the host simulation: a parameter object lists keys; pgo_run reads the store file once
// and keeps a reference to each key's value for pgo_get_obj.
#include <jansson.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "fault_injector.h"
#include "param_store.h"
#include "pgo_object.h"

extern "C" {

pgo_t* pgo_new(void) {
  return new (std::nothrow) pgo();
}

int pgo_push_key(pgo_t* pgo, const char* key) {
  if (pgo == nullptr || key == nullptr || key[0] == '\0') return -1;
  pgo->keys.emplace_back(key);
  return 0;
}

int pgo_run(pgo_t* pgo) {
  if (pgo == nullptr) return -1;
  pgo->DropValues();
  if (int code = mirvane::sim::FaultCode("pgo_run")) return code;
  json_t* root = mirvane::sim::CurrentParamStore().Read();
  if (root == nullptr) return -1;
  for (const std::string& key : pgo->keys) {
    // The reference keeps the value alive after the store's tree is released.
    pgo->values.push_back(json_incref(mirvane::sim::ResolveKey(root, key)));
  }
  json_decref(root);
  return 0;
}

json_t* pgo_get_obj(pgo_t* pgo, const char* key) {
  if (pgo == nullptr || key == nullptr) return nullptr;
  for (size_t i = 0; i < pgo->values.size(); ++i) {
    if (pgo->keys[i] == key) return pgo->values[i];
  }
  return nullptr;
}

void pgo_free(pgo_t* pgo) {
  delete pgo;
}

}  // extern "C"
