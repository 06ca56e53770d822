#include "common/log.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "debugLog.h"

namespace mirvane {
namespace {

const char* const kLevelNames[] = {"Debug", "Info", "Err"};

bool DebugSwitchPresent() {
  struct stat st;
  return stat(kDebugSwitchPath, &st) == 0;
}

const char* BaseName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

}  // namespace

bool IsLogLevelEnabled(unsigned level) {
  // Thread-safe one-time initialisation: exactly one thread performs the stat.
  static const bool debug_enabled = DebugSwitchPresent();
  return level != kLogDebug || debug_enabled;
}

void LogPrint(unsigned level, const char* file, int line, const char* function, const char* format,
              ...) {
  if (file == nullptr || function == nullptr || format == nullptr) return;
  const char* base = BaseName(file);
  const char* name = kLevelNames[level];

  std::string prefixed = std::string("[Mirvane][") + name + "]" + format;
  char message[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::vsnprintf(message, sizeof(message), prefixed.c_str(), args);
  WriteLog(LOG_TYPE_DEBUG, base, line, function, "System", -1, "%s", message);

  std::printf("[Mirvane][%s] %s:%d:%s: ", name, base, line, function);
  std::vprintf(format, again);
#pragma GCC diagnostic pop
  va_end(again);
  va_end(args);
}

}  // namespace mirvane
