// The daemon's log lines, collected in the test's own process (see common/log_sink.h).
#ifndef MIRVANE_TESTS_TESTING_LOG_CAPTURE_H
#define MIRVANE_TESTS_TESTING_LOG_CAPTURE_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/log.h"
#include "common/log_sink.h"

namespace mirvane {
namespace testing {

// Installs a log sink for its lifetime and collects every line written meanwhile, in the
// standard output form ("[Mirvane][Err] file.cc:12:Function: text\n"); the destructor puts the
// sink it replaced back. Captures nest: the innermost one gets the lines. Each capture starts
// with the repeat filter's counts forgotten, so that what a test logs does not depend on what
// earlier tests of the process logged.
//
// Owns the installed sink. Construct and destroy on one thread; lines may come from any thread,
// and the queries may run while they do.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // Every line so far, in order, joined.
  std::string Text() const;
  // The lines that contain part.
  int Count(const std::string& part) const;
  bool Contains(const std::string& part) const { return Count(part) > 0; }
  // The lines at level (kLogErr, ...).
  int CountAt(unsigned level) const;
  void Clear();

 private:
  struct Lines;
  std::shared_ptr<Lines> lines_;
  LogSink previous_;
};

// Fixes the debug switch on or off for its lifetime, then puts the earlier setting back.
class ScopedDebugSwitch {
 public:
  explicit ScopedDebugSwitch(bool on)
      : previous_(SetDebugSwitch(on ? DebugSwitch::kOn : DebugSwitch::kOff)) {}
  ~ScopedDebugSwitch() { SetDebugSwitch(previous_); }
  ScopedDebugSwitch(const ScopedDebugSwitch&) = delete;
  ScopedDebugSwitch& operator=(const ScopedDebugSwitch&) = delete;

 private:
  DebugSwitch previous_;
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_LOG_CAPTURE_H
