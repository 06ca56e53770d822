#define _GNU_SOURCE
#include "pdebug.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

__attribute__((weak)) char app_name[] = "sysapi";
int current_dbg_level = 0;
volatile int32_t* g_logshm = NULL;

/* Attaches once; later calls reuse the mapping. The two public names differ only in messages. */
static int Attach(const char* who) {
  if (g_logshm != NULL) return 0;
  const int id = shmget(MOD_LOG_SHM_KEY, MOD_LOG_WORDS * sizeof(int32_t), IPC_CREAT | 0777);
  if (id < 0) {
    fprintf(stderr, "%s() shmget create failed\n", who);
    return -1;
  }
  void* addr = shmat(id, NULL, 0);
  if (addr == (void*)-1) {
    fprintf(stderr, "%s() shmat failed\n", who);
    return -1;
  }
  g_logshm = (volatile int32_t*)addr;
  return 0;
}

int mod_log_init(void) {
  return Attach("mod_log_init");
}

int mod_log_attach(void) {
  return Attach("mod_log_attach");
}

int mod_log_update(const int32_t words[MOD_LOG_WORDS]) {
  if (words == NULL || Attach("mod_log_attach") != 0) {
    fprintf(stderr, "mod_log_update() failed\n");
    return -1;
  }
  for (int i = 0; i < MOD_LOG_WORDS; ++i) g_logshm[i] = words[i];
  return 0;
}

int mod_log_get(int32_t words[MOD_LOG_WORDS]) {
  if (words == NULL || Attach("mod_log_attach") != 0) {
    fprintf(stderr, "mod_log_get() failed\n");
    return -1;
  }
  for (int i = 0; i < MOD_LOG_WORDS; ++i) words[i] = g_logshm[i];
  return 0;
}

int mod_log_exit(void) {
  if (g_logshm == NULL) return 0;
  if (shmdt((const void*)g_logshm) != 0) {
    fprintf(stderr, "mod_log_exit() shmdt failed\n");
    return -1;
  }
  g_logshm = NULL;
  return 0;
}

void mod_log_print(const char* ident, int priority, int facility, const char* format, ...) {
  char text[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  openlog(ident, 0, facility);
  syslog(priority, "%s", text);
  closelog();
}

void mod_log_debug_line(const char* file, int line, const char* format, ...) {
  if (current_dbg_level < 0) return;
  fprintf(stderr, "## %s - ", app_name);
  fprintf(stderr, "[%d:%s:%d:%3d]: ", (int)getpid(), file, line, (int)(time(NULL) % 1000));
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fflush(stdout);
}
