/*
 * File log of the support library: appends formatted lines to the debug log or the operation log
 * under /tmp/log/, creates those files, and trims them by size.
 *
 * Every call opens and closes its file; no state is kept between calls, no lock is taken, and any
 * thread may call any function. Failures are reported on standard error, never to the caller.
 * Files are opened without following links, at the file and at its directory: a link planted in
 * /tmp makes the call fail rather than write elsewhere.
 */
#ifndef MIRVANE_SUPPORT_DEBUGLOG_H
#define MIRVANE_SUPPORT_DEBUGLOG_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  LOG_TYPE_DEBUG = 0,     /* "/tmp/log/debug.log" */
  LOG_TYPE_OPERATION = 1, /* "/tmp/log/operation.log" */
};

#define DEBUG_LOG_DIR "/tmp/log/"
#define DEBUG_LOG_PATH "/tmp/log/debug.log"
#define OPERATION_LOG_PATH "/tmp/log/operation.log"

/* Path of a log type, or "" for an unknown type. */
const char* GetLogFilePath(int type);

/* Index of an operation category by exact name ("Connection" 0 ... "Detection" 9), or -1. */
int GetOperationCategoryIndex(const char* name);

/*
 * Appends one line to the file of `type`. The debug log's prefix is "<time> <file>:<line>:<func>():
 * ", every other type's "<time> [<category>] [<category name of category_index>]: ".
 */
void WriteLog(int type, const char* file, int line, const char* function, const char* category,
              int category_index, const char* format, ...) __attribute__((format(printf, 7, 8)));

/* Creates "/tmp/log/" and both log files (existing ones are kept). */
void CreateLogFile(void);

/* Trims the file of `type` to `limit_kib` KiB by dropping whole lines from its head; returns the
 * number of bytes dropped. */
long RotateLogFileBySize(int type, long limit_kib);

/* Drops whole lines from the head of `path` until at least `excess` bytes are gone; returns the
 * number of bytes dropped. */
long RotateFile(const char* path, long excess);

/* When the file of `type` has reached `limit_bytes`, renames it to the same path with ".1" appended
 * (replacing an earlier one), so that the next write starts a new file: the log then never holds
 * much more than twice the limit. Returns 1 when it rotated, else 0. */
int RotateLogFileToPrevious(int type, long limit_bytes);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_SUPPORT_DEBUGLOG_H */
