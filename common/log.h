// Log front end of the daemon: a level gate and a print call that writes each line to the debug
// log file (through the support library) and to standard output.
//
// Levels: 0 "Debug" (only when "/tmp/workspace/mirvane.debug" existed at the process's first level
// test), 1 "Info", 2 "Err". Call sites test IsLogLevelEnabled() before formatting anything; the
// MIRVANE_LOG macro does that and passes the call site's file, line and function.
//
// Tests take the lines in their own process and set the debug switch through common/log_sink.h.
//
// Threads: any thread may call both functions. LogPrint keeps the repeat counts of recent lines
// and the rotation check under short internal locks.
#ifndef MIRVANE_COMMON_LOG_H
#define MIRVANE_COMMON_LOG_H

namespace mirvane {

enum LogLevel : unsigned {
  kLogDebug = 0,
  kLogInfo = 1,
  kLogErr = 2,
};

// The debug switch file; only whether it exists matters, and only at the first level test.
constexpr const char* kDebugSwitchPath = "/tmp/workspace/mirvane.debug";

// True for levels 1 and 2; for level 0, whether the debug switch file existed at the first call
// of the process (whatever that call's level was).
bool IsLogLevelEnabled(unsigned level);

// Writes one line: to the debug log as "[Mirvane][<level>]<message>" (cut to 511 characters),
// and to standard output as "[Mirvane][<level>] <file base name>:<line>:<function>: <message>"
// (whole). Null file, function or format: no output at all. Does not test the level itself.
//
// Bounds, since the log lives on a RAM disk: of identical lines from one call site, at most 3 a
// second are written; the next one written after drops ends in "[N identical lines dropped]".
// The debug log is moved to "/tmp/log/debug.log.1" once it has reached 1 MiB. Standard output and
// error, when they are regular files (an init script's output file), are written at their end and
// emptied once they have reached 1 MiB.
void LogPrint(unsigned level, const char* file, int line, const char* function, const char* format,
              ...) __attribute__((format(printf, 5, 6)));

}  // namespace mirvane

#define MIRVANE_LOG(level, ...)                                                \
  do {                                                                         \
    if (::mirvane::IsLogLevelEnabled(level)) {                                 \
      ::mirvane::LogPrint((level), __FILE__, __LINE__, __func__, __VA_ARGS__); \
    }                                                                          \
  } while (0)

#endif  // MIRVANE_COMMON_LOG_H
