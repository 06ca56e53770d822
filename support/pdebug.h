/*
 * Module log of the support library: syslog messages and standard-error debug lines of the system
 * API, steered by a small SysV shared-memory segment that a log tool may set, and by the
 * process-wide current_dbg_level.
 *
 * The segment (key 43145, seven 32-bit words) is attached at most once per process and kept in
 * g_logshm until mod_log_exit. Word 0 nonzero puts "[file:line] " ahead of syslog messages; words
 * 1 to 6 belong to the tool that sets them. Nothing here takes a lock: the segment and
 * current_dbg_level are read and written as plain words from any thread.
 */
#ifndef MIRVANE_SUPPORT_PDEBUG_H
#define MIRVANE_SUPPORT_PDEBUG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MOD_LOG_SHM_KEY 43145
#define MOD_LOG_WORDS 7

/* The process's name for syslog and the debug lines; the program defines it (the daemon as
 * "mirvane"). The library carries a weak fallback for programs that do not. */
extern char app_name[];

/* Standard-error debug lines are printed while this is 0 or more. Starts at 0. */
extern int current_dbg_level;

/* The attached segment, or NULL before the first successful attach. */
extern volatile int32_t* g_logshm;

/* Attach the segment, creating it when absent; 0 or -1 (with a message on standard error). */
int mod_log_init(void);
int mod_log_attach(void);
/* Copy seven words in or out; 0 or -1 when the segment cannot be attached. */
int mod_log_update(const int32_t words[MOD_LOG_WORDS]);
int mod_log_get(int32_t words[MOD_LOG_WORDS]);
/* Detach; 0 or -1. */
int mod_log_exit(void);

/* Formats into a 4096-byte buffer and sends it to syslog under ident, priority and facility. */
void mod_log_print(const char* ident, int priority, int facility, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/* Writes "## app_name - [pid:file:line:sss]: " and the message to standard error when
 * current_dbg_level >= 0, then flushes standard output. */
void mod_log_debug_line(const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

#define MOD_LOG_DEBUG(...) mod_log_debug_line(MOD_LOG_BASENAME, __LINE__, __VA_ARGS__)
#define MOD_LOG_BASENAME \
  (__builtin_strrchr(__FILE__, '/') ? __builtin_strrchr(__FILE__, '/') + 1 : __FILE__)

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_SUPPORT_PDEBUG_H */
