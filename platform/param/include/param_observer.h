/*
 * The camera's parameter store, watch side: an observer watches the keys of parameter objects and
 * makes its descriptor readable when the value under a watched key really changed (a write of
 * the same value, or a change elsewhere in the store, gives no notice). The observer works through
 * the libev loop it is created with: it is driven only while that loop runs.
 *
 *   param_observer_t *obs = param_observer_new(loop);
 *   pgo_t *pgo = pgo_new(); pgo_push_key(pgo, "Custom.Dva");
 *   param_observer_register_pgo(obs, pgo); pgo_free(pgo);
 *   int fd = param_observer_get_handle(obs);  // watch fd for reading in the same loop
 *   ... when readable: param_observer_process(obs, fd, on_change, user_data);
 *
 * All calls on one observer are made from the thread that runs its loop.
 */
#ifndef MIRVANE_PLATFORM_PARAM_OBSERVER_H
#define MIRVANE_PLATFORM_PARAM_OBSERVER_H

#include "pgo.h"

#ifdef __cplusplus
extern "C" {
#endif

struct ev_loop;

typedef struct param_observer param_observer_t;

/* Called once per change notice: status 0 for a valid notice (any other value: the notice was
 * lost and the key should be re-read), the watched key, its new value (borrowed for the call; NULL
 * when the key was deleted) and the user data given to param_observer_process. */
typedef void (*param_observer_cb)(int status, const char* key, json_t* value, void* user_data);

/* A new observer driven by loop; NULL on failure. */
param_observer_t* param_observer_new(struct ev_loop* loop);
/* Watches the keys of pgo (copied: pgo may be freed right after). Returns 0 or a negative code. */
int param_observer_register_pgo(param_observer_t* observer, pgo_t* pgo);
/* The descriptor that becomes readable when a notice waits; -1 on failure. */
int param_observer_get_handle(param_observer_t* observer);
/* Reads the waiting notices from fd and calls callback once per notice. Returns the number of
 * notices dispatched (0 when none waited), or a negative code. */
int param_observer_process(param_observer_t* observer, int fd, param_observer_cb callback,
                           void* user_data);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_PARAM_OBSERVER_H */
