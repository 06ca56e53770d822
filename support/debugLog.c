#define _GNU_SOURCE
#include "debugLog.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static const char* const kCategoryNames[] = {
    "Connection", "Recording", "Maintenance", "Edge Recording", "Image",
    "Security",   "Streaming", "Audio",       "Network",        "Detection",
};
enum { kCategoryCount = (int)(sizeof(kCategoryNames) / sizeof(kCategoryNames[0])) };

const char* GetLogFilePath(int type) {
  switch (type) {
    case LOG_TYPE_DEBUG:
      return DEBUG_LOG_PATH;
    case LOG_TYPE_OPERATION:
      return OPERATION_LOG_PATH;
    default:
      return "";
  }
}

int GetOperationCategoryIndex(const char* name) {
  if (name == NULL) return -1;
  for (int i = 0; i < kCategoryCount; ++i) {
    if (strcmp(kCategoryNames[i], name) == 0) return i;
  }
  return -1;
}

/*
 * Opens the directory of a log file's path without following a link there (a link planted at
 * "/tmp/log" must not carry the logs into another directory); *name gets the file's name inside
 * it. -1 on failure.
 */
static int OpenLogDir(const char* path, const char** name) {
  const char* slash = strrchr(path, '/');
  if (slash == NULL || slash == path) {
    errno = EINVAL;
    return -1;
  }
  char dir[256];
  const size_t dir_length = (size_t)(slash - path);
  if (dir_length >= sizeof(dir)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  memcpy(dir, path, dir_length);
  dir[dir_length] = '\0';
  *name = slash + 1;
  return open(dir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

/* Opens a log file with flags, following no link, neither at the file nor at its directory. */
static int OpenLogPath(const char* path, int flags) {
  const char* name = NULL;
  const int dir_fd = OpenLogDir(path, &name);
  if (dir_fd < 0) return -1;
  const int fd = openat(dir_fd, name, flags | O_NOFOLLOW | O_CLOEXEC, 0644);
  const int error = errno;
  close(dir_fd);
  errno = error;
  return fd;
}

static const char* CategoryName(int index) {
  return (index >= 0 && index < kCategoryCount) ? kCategoryNames[index] : "";
}

static void FormatTimestamp(char* out, size_t size) {
  time_t now = time(NULL);
  struct tm local;
  if (localtime_r(&now, &local) == NULL || strftime(out, size, "%b %e %T %Y", &local) == 0) {
    out[0] = '\0';
  }
}

void WriteLog(int type, const char* file, int line, const char* function, const char* category,
              int category_index, const char* format, ...) {
  const char* path = GetLogFilePath(type);
  if (path[0] == '\0') {
    fprintf(stderr, "Empty log file path.\n");
    return;
  }
  int fd = OpenLogPath(path, O_WRONLY | O_CREAT | O_APPEND);
  FILE* stream = fd >= 0 ? fdopen(fd, "a") : NULL;
  if (stream == NULL) {
    fprintf(stderr, "Failed to open fd. [%m]\n");
    if (fd >= 0) close(fd);
    return;
  }
  char stamp[64];
  FormatTimestamp(stamp, sizeof(stamp));
  if (type == LOG_TYPE_DEBUG) {
    fprintf(stream, "%s %s:%d:%s(): ", stamp, file ? file : "", line, function ? function : "");
  } else {
    fprintf(stream, "%s [%s] [%s]: ", stamp, category ? category : "",
            CategoryName(category_index));
  }
  if (format != NULL) {
    va_list args;
    va_start(args, format);
    vfprintf(stream, format, args);
    va_end(args);
  }
  fflush(stream);
  fclose(stream);
}

void CreateLogFile(void) {
  if (mkdir(DEBUG_LOG_DIR, 0755) != 0 && errno != EEXIST) return;
  for (int type = LOG_TYPE_DEBUG; type <= LOG_TYPE_OPERATION; ++type) {
    const char* path = GetLogFilePath(type);
    if (path[0] == '\0') {
      WriteLog(LOG_TYPE_DEBUG, __FILE__, __LINE__, "CreateLogFile", "System", -1,
               "Empty log file path.\n");
      continue;
    }
    int fd = OpenLogPath(path, O_WRONLY | O_CREAT | O_EXCL);
    if (fd >= 0) {
      close(fd);
    } else if (errno != EEXIST) {
      fprintf(stderr, "Failed to touch log file [%d] [%m].\n", type);
    }
  }
}

long RotateLogFileBySize(int type, long limit_kib) {
  const char* path = GetLogFilePath(type);
  struct stat st;
  if (stat(path, &st) != 0) {
    WriteLog(LOG_TYPE_DEBUG, __FILE__, __LINE__, "RotateLogFileBySize", "System", -1,
             "Failed to stat [%s].\n", path);
    return 0;
  }
  long long limit = (long long)limit_kib * 1024;
  if ((long long)st.st_size <= limit) return 0;
  return RotateFile(path, (long)((long long)st.st_size - limit));
}

long RotateFile(const char* path, long excess) {
  int in_fd = OpenLogPath(path, O_RDONLY);
  FILE* in = in_fd >= 0 ? fdopen(in_fd, "r") : NULL;
  if (in == NULL) {
    if (in_fd >= 0) close(in_fd);
    return 0;
  }
  /* Kept lines are gathered in memory first, so that the file is rewritten in one pass. */
  char* kept = NULL;
  size_t kept_size = 0;
  FILE* out = open_memstream(&kept, &kept_size);
  if (out == NULL) {
    fclose(in);
    return 0;
  }
  long dropped = 0;
  char* line = NULL;
  size_t capacity = 0;
  ssize_t length;
  while ((length = getline(&line, &capacity, in)) > 0) {
    /* A last line without its line feed gets one back, as every other line has. */
    int has_newline = line[length - 1] == '\n';
    long with_newline = (long)length + (has_newline ? 0 : 1);
    if (dropped < excess) {
      dropped += with_newline;
      continue;
    }
    fwrite(line, 1, (size_t)length, out);
    if (!has_newline) fputc('\n', out);
  }
  free(line);
  fclose(in);
  fclose(out);
  int out_fd = OpenLogPath(path, O_WRONLY | O_TRUNC);
  FILE* rewrite = out_fd >= 0 ? fdopen(out_fd, "w") : NULL;
  if (rewrite != NULL) {
    fwrite(kept, 1, kept_size, rewrite);
    fclose(rewrite);
  } else if (out_fd >= 0) {
    close(out_fd);
  }
  free(kept);
  WriteLog(LOG_TYPE_DEBUG, __FILE__, __LINE__, "RotateFile", "System", -1,
           "Rotate log[%s], size[%d].\n", path, (int)dropped);
  return dropped;
}

int RotateLogFileToPrevious(int type, long limit_bytes) {
  const char* name = NULL;
  const int dir_fd = OpenLogDir(GetLogFilePath(type), &name);
  if (dir_fd < 0) return 0;
  /* Names inside the directory: neither the stat nor the rename follows a link. */
  char previous[128];
  int rotated = 0;
  struct stat st;
  if (snprintf(previous, sizeof(previous), "%s.1", name) < (int)sizeof(previous) &&
      fstatat(dir_fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode) &&
      (long long)st.st_size >= (long long)limit_bytes) {
    rotated = renameat(dir_fd, name, dir_fd, previous) == 0;
  }
  close(dir_fd);
  return rotated;
}
