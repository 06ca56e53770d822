/*
 * The camera's parameter store, read side: a parameter object is a list of keys whose values are
 * fetched together by pgo_run. Values are JSON (Jansson). Keys are dotted paths:
 * "Custom.Dva.Threshold.Detection" names the member Threshold.Detection of the value stored under
 * "Custom.Dva".
 *
 *   pgo_t *pgo = pgo_new();
 *   pgo_push_key(pgo, "Custom.Dva.Threshold.Detection");
 *   if (pgo_run(pgo) == 0) v = pgo_get_obj(pgo, "Custom.Dva.Threshold.Detection");
 *   pgo_free(pgo);
 *
 * A parameter object is used by one thread at a time.
 */
#ifndef MIRVANE_PLATFORM_PGO_H
#define MIRVANE_PLATFORM_PGO_H

#ifdef __cplusplus
extern "C" {
#endif

/* Jansson's value type (declared here so that this header needs no Jansson include path). */
typedef struct json_t json_t;

typedef struct pgo pgo_t;

/* A new, empty parameter object; NULL when out of memory. */
pgo_t* pgo_new(void);
/* Appends a key (copied). Returns 0, or -1 for a null or empty key. */
int pgo_push_key(pgo_t* pgo, const char* key);
/* Fetches the current values of all pushed keys. Returns 0 (absent keys then have no value), or a
 * negative code when the store cannot be read. */
int pgo_run(pgo_t* pgo);
/* The value fetched for a pushed key, borrowed from the object (valid until the next pgo_run or
 * pgo_free); NULL when the key was not pushed, not run or not stored. */
json_t* pgo_get_obj(pgo_t* pgo, const char* key);
/* Releases the object and every value it holds; NULL is ignored. */
void pgo_free(pgo_t* pgo);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_PGO_H */
