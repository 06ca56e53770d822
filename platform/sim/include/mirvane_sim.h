/*
 * Control of the host simulation of the camera platform, for tests, host tools and the
 * simulation's own parts. Daemon code never includes this header: on the camera none of it exists.
 *
 * The simulation reads its own settings file: the path in the environment variable
 * MIRVANE_SIM_SETTINGS, or "/tmp/mirvane-sim/sim.json". A missing file means all defaults. Keys
 * (all optional):
 *   "clock"        "real" (the default) or "virtual": what the daemon's pipeline clock reads, the
 *                  steady clock or virtual time (the steady clock's epoch plus the timestamp of
 *                  the latest frame delivered; see platform/README.md)
 *   "state_dir"    where the shared device memory and its pool table live ("/tmp/mirvane-sim")
 *   "param_store"  the parameter store file ("<state_dir>/params.json")
 *   "memory":  {"pools": [{"type": 106, "blk_size": 33554432, "blk_cnt": 1, "ddr_id": 0}, ...]}
 *   "video":   {"path", "width", "height", "fps", "buffers", "pace": "realtime" | "fast",
 *               "loop", "end_code", "scene" (a shipped scene's name or a scene file's path),
 *               "file" (a video file played instead of a scene, at its own frame rate),
 *               "ground_truth" (file path, "" for none)}
 *   "encoder": {"path", "buffer_size", "quality"}
 *   "gfx":     {"odd_source_offsets": "align" | "reject"}
 *   "faults":  [{"call": "hd_gfx_scale", "code": -10, "nth": 3, "count": 2},
 *               {"call": "vendor_ai_net_proc", "code": -11, "rate": 0.05, "seed": 7}, ...]
 *   further sections belong to other parts of the simulation (mirvane_sim_settings_section).
 * The file is read at the first platform call of a process and again by
 * mirvane_sim_reload_settings.
 */
#ifndef MIRVANE_PLATFORM_SIM_MIRVANE_SIM_H
#define MIRVANE_PLATFORM_SIM_MIRVANE_SIM_H

#include "hd_type.h"
#include "param_observer.h"
#include "pgo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Re-reads the settings file and restarts the fault counters. Platform state already set up in
 * this process (video output, encoder, mappings) keeps the settings it started with. Returns 0,
 * or -1 when the file exists but cannot be used (the defaults are then in force). */
int mirvane_sim_reload_settings(void);

/* The settings file in force. */
const char* mirvane_sim_settings_path(void);

/* The state directory in force. */
const char* mirvane_sim_state_dir(void);

/* A section of the settings file by name (new reference), or NULL. */
json_t* mirvane_sim_settings_section(const char* name);

/* 1 when the video output runs at fast pace ("pace": "fast"), else 0. The simulated hardware then
 * spends no time of its own: the network runtime skips its model's run time. */
int mirvane_sim_fast_pace(void);

/* Counts one call of the named platform function and returns the error code that fault
 * injection gives this call, or 0 when it runs normally. */
int mirvane_sim_fault(const char* call);

/* The simulation's own view of device memory: a pointer to size bytes at phy_addr, or NULL when
 * the range is not device memory. Used by the simulated hardware (scaler, encoder, network). */
void* mirvane_sim_device_view(UINT32 phy_addr, UINT32 size);

/* The parameter store, write side (how other processes change the store: atomically, under a
 * lock). Keys are dotted as for pgo_push_key; setting creates missing objects on the way.
 * Return 0, or -1 (store unreadable or not writable), -2 (no such key, or a non-object on the
 * way). */
int mirvane_param_set(const char* key, json_t* value); /* value is borrowed */
int mirvane_param_delete(const char* key);
/* Sets every member of object (its keys may be dotted) in one write. */
int mirvane_param_load(json_t* object);
/* A new reference to the value under key (NULL when absent); the whole store for NULL or "". */
json_t* mirvane_param_get(const char* key);
/* The store file in force. */
const char* mirvane_param_store_path(void);

/* Stops and frees an observer (its loop must not be running); the camera's library has no such
 * call, the daemon keeps its observer to the end. */
void mirvane_param_observer_free(param_observer_t* observer);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_SIM_MIRVANE_SIM_H */
