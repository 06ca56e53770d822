#include "testing/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "testing/target_emulator.h"

namespace mirvane {
namespace testing {
namespace {

std::atomic<int> g_capture_counter{0};

std::string CapturePath(const char* kind) {
  return "/tmp/mirvane-test-" + std::to_string(getpid()) + "-" +
         std::to_string(g_capture_counter.fetch_add(1)) + "." + kind;
}

void RedirectTo(const std::string& path, int target_fd) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) _exit(126);
  dup2(fd, target_fd);
  close(fd);
}

void FillStatus(int status, ChildResult* result) {
  if (WIFEXITED(status)) result->exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result->term_signal = WTERMSIG(status);
}

// The ELF machine code of a program file, or 0 when it is no ELF file.
uint16_t ElfMachine(const std::string& path) {
  unsigned char header[20] = {};
  std::ifstream in(path, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(header), sizeof(header))) return 0;
  if (header[0] != 0x7f || header[1] != 'E' || header[2] != 'L' || header[3] != 'F') return 0;
  // e_machine sits at offset 18 in both ELF classes, in the file's byte order (EI_DATA).
  return header[5] == 2 ? static_cast<uint16_t>(header[18] << 8 | header[19])
                        : static_cast<uint16_t>(header[19] << 8 | header[18]);
}

// The command line that starts argv. In a cross build the tests run under a user-mode emulator,
// which runs this process's code but cannot start another program of the target architecture by
// itself: such a program is started through the emulator too. Host programs start as they are.
std::vector<std::string> CommandFor(const std::vector<std::string>& argv) {
  if (kTargetEmulator.empty() || argv.empty() ||
      ElfMachine(argv[0]) != ElfMachine("/proc/self/exe")) {
    return argv;
  }
  std::vector<std::string> command(kTargetEmulator.begin(), kTargetEmulator.end());
  command.insert(command.end(), argv.begin(), argv.end());
  return command;
}

}  // namespace

std::string ReadFileOrEmpty(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

ChildResult RunInChild(const std::function<void()>& body) {
  const std::string out_path = CapturePath("out");
  const std::string err_path = CapturePath("err");
  std::fflush(nullptr);
  pid_t pid = -1;
  auto fork_and_run = [&] {
    pid = fork();
    if (pid == 0) {
      RedirectTo(out_path, STDOUT_FILENO);
      RedirectTo(err_path, STDERR_FILENO);
      body();
      std::fflush(nullptr);
      _exit(0);
    }
  };
  if (kTargetEmulator.empty()) {
    fork_and_run();
  } else {
    // Under the emulator (qemu 7) a forked child numbers its new threads after the forking one
    // and fails when that number is still held by a thread of the parent: forking from a fresh
    // thread, the newest of the process, avoids the clash. (Natively the fork stays on the
    // calling thread, so that a single-threaded test forks a single-threaded process, as the
    // thread sanitizer requires of a child that starts threads.)
    std::thread forker(fork_and_run);
    forker.join();
  }
  ChildResult result;
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid) FillStatus(status, &result);
  result.out = ReadFileOrEmpty(out_path);
  result.err = ReadFileOrEmpty(err_path);
  unlink(out_path.c_str());
  unlink(err_path.c_str());
  return result;
}

Subprocess::Subprocess(const std::vector<std::string>& argv)
    : out_path_(CapturePath("out")), err_path_(CapturePath("err")) {
  const std::vector<std::string> command = CommandFor(argv);
  std::vector<char*> args;
  for (const std::string& arg : command) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    RedirectTo(out_path_, STDOUT_FILENO);
    RedirectTo(err_path_, STDERR_FILENO);
    execv(args[0], args.data());
    _exit(127);
  }
}

Subprocess::~Subprocess() {
  if (pid_ > 0 && result_.exit_code < 0 && result_.term_signal == 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  unlink(out_path_.c_str());
  unlink(err_path_.c_str());
}

void Subprocess::Signal(int signum) const {
  if (pid_ > 0) kill(pid_, signum);
}

bool Subprocess::Wait(std::chrono::milliseconds timeout) {
  if (result_.exit_code >= 0 || result_.term_signal != 0) return true;
  int status = 0;
  const bool ended = WaitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, timeout);
  if (!ended) return false;
  FillStatus(status, &result_);
  result_.out = ReadFileOrEmpty(out_path_);
  result_.err = ReadFileOrEmpty(err_path_);
  return true;
}

std::string Subprocess::ReadOut() const { return ReadFileOrEmpty(out_path_); }

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (condition()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace testing
}  // namespace mirvane
