// Running code and programs in child processes, for tests of per-process state (signal handlers,
// one-time initialisation, process-wide sockets) and of the daemon binary itself.
#ifndef MIRVANE_TESTS_TESTING_CHILD_PROCESS_H
#define MIRVANE_TESTS_TESTING_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace mirvane {
namespace testing {

struct ChildResult {
  int exit_code = -1;   // exit status when the child exited, else -1
  int term_signal = 0;  // the signal that ended it, else 0
  std::string out;      // its standard output
  std::string err;      // its standard error
};

// Forks; the child runs body with its standard output and error captured, then exits with 0
// (body may exit itself with another code). Returns when the child has ended. Under the thread
// sanitizer, keep threads a child starts (a SystemPeer, say) inside body.
ChildResult RunInChild(const std::function<void()>& body);

// A program started in the background with its output captured. In a cross build a program of
// the target architecture starts through the emulator (pid() is then the emulator's, which passes
// signals on). Killed by the destructor if it still runs.
class Subprocess {
 public:
  explicit Subprocess(const std::vector<std::string>& argv);
  ~Subprocess();
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  pid_t pid() const { return pid_; }
  void Signal(int signum) const;
  // Waits for the end; false when it has not ended within timeout.
  bool Wait(std::chrono::milliseconds timeout);
  const ChildResult& result() const { return result_; }
  std::string ReadOut() const;  // standard output so far

 private:
  pid_t pid_ = -1;
  std::string out_path_;
  std::string err_path_;
  ChildResult result_;
};

// True in a cross build, whose test programs run under a user-mode emulator.
bool UnderEmulator();

// A /bin/sh command line that runs argv as Subprocess would (through the emulator in a cross
// build), each word quoted: for programs that others start, such as the stand-in's restart command.
std::string ShellCommand(const std::vector<std::string>& argv);

// Where the captured output of children and programs goes from now on ("/tmp" unless set): a
// test that fills /tmp keeps its captures elsewhere.
void SetCaptureDirectory(const std::string& directory);

// Polls condition every 10 ms until it holds or the timeout passes; returns its last value.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout);

std::string ReadFileOrEmpty(const std::string& path);

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_CHILD_PROCESS_H
