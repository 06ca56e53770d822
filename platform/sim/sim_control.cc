// The simulation's control API (mirvane_sim.h) over its internal parts.
#include <jansson.h>

#include "device_memory.h"
#include "fault_injector.h"
#include "mirvane_sim.h"
#include "param_store.h"
#include "sim_control.h"
#include "sim_settings.h"
#include "word_range.h"

using mirvane::sim::CurrentParamStore;
using mirvane::sim::CurrentSettings;

extern "C" {

int mirvane_sim_reload_settings(void) {
  const bool usable = mirvane::sim::ReloadSettings();
  if (!mirvane::sim::StopVideoOutput()) {
    mirvane::sim::SimWarn("frames are held: the video output keeps its settings");
  }
  if (!mirvane::sim::StopEncoder()) {
    mirvane::sim::SimWarn("a bit stream is held: the encoder keeps its settings");
  }
  return usable ? 0 : -1;
}

// The strings below live in the settings in force, which stay alive until the next reload.
const char* mirvane_sim_settings_path(void) {
  return CurrentSettings()->source_path.c_str();
}

const char* mirvane_sim_state_dir(void) {
  return CurrentSettings()->state_dir.c_str();
}

const char* mirvane_param_store_path(void) {
  return CurrentSettings()->param_store.c_str();
}

json_t* mirvane_sim_settings_section(const char* name) {
  if (name == nullptr) return nullptr;
  return json_incref(json_object_get(CurrentSettings()->raw.get(), name));
}

void* mirvane_sim_device_view(UINT32 phy_addr, UINT32 size) {
  if (!mirvane::sim::FitsU32(phy_addr) || !mirvane::sim::FitsU32(size)) return nullptr;
  return mirvane::sim::DeviceMemory::Instance().View(static_cast<uint32_t>(phy_addr),
                                                     static_cast<uint32_t>(size));
}

int mirvane_param_set(const char* key, json_t* value) {
  if (key == nullptr) return -2;
  return CurrentParamStore().Set(key, value);
}

int mirvane_param_delete(const char* key) {
  if (key == nullptr) return -2;
  return CurrentParamStore().Delete(key);
}

int mirvane_param_load(json_t* object) {
  return CurrentParamStore().Load(object);
}

json_t* mirvane_param_get(const char* key) {
  json_t* root = CurrentParamStore().Read();
  if (root == nullptr) return nullptr;
  json_t* value = json_incref(mirvane::sim::ResolveKey(root, key != nullptr ? key : ""));
  json_decref(root);
  return value;
}

}  // extern "C"
