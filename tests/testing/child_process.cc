#include "testing/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "testing/target_emulator.h"

namespace mirvane {
namespace testing {
namespace {

std::atomic<int> g_capture_counter{0};
std::string g_capture_directory = "/tmp";

std::string CapturePath(const char* kind) {
  return g_capture_directory + "/mirvane-test-" + std::to_string(getpid()) + "-" +
         std::to_string(g_capture_counter.fetch_add(1)) + "." + kind;
}

// Forks; the child sends its standard output and error to the files and runs body.
pid_t ForkCaptured(const std::string& out_path, const std::string& err_path,
                   const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    for (const auto& target :
         {std::make_pair(&out_path, STDOUT_FILENO), std::make_pair(&err_path, STDERR_FILENO)}) {
      const int fd = open(target.first->c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (fd < 0) _exit(126);
      dup2(fd, target.second);
      close(fd);
    }
    body();
    std::fflush(nullptr);
    _exit(0);
  }
  return pid;
}

void Finish(int status, const std::string& out_path, const std::string& err_path,
            ChildResult* result) {
  if (WIFEXITED(status)) result->exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result->term_signal = WTERMSIG(status);
  result->out = ReadFileOrEmpty(out_path);
  result->err = ReadFileOrEmpty(err_path);
}

// The ELF machine code of a program file (at offset 18 in both classes, in the file's byte
// order), or 0 when it is no ELF file.
uint16_t ElfMachine(const std::string& path) {
  unsigned char h[20] = {};
  std::ifstream in(path, std::ios::binary);
  if (!in.read(reinterpret_cast<char*>(h), sizeof(h)) || h[0] != 0x7f || h[1] != 'E') return 0;
  return h[5] == 2 ? static_cast<uint16_t>(h[18] << 8 | h[19])
                   : static_cast<uint16_t>(h[19] << 8 | h[18]);
}

// The emulator of a cross build runs this process's code but cannot start another program of the
// target architecture by itself: such a program starts through the emulator too.
std::vector<std::string> TargetArgv(const std::vector<std::string>& argv) {
  std::vector<std::string> command = argv;
  if (!kTargetEmulator.empty() && !argv.empty() &&
      ElfMachine(argv[0]) == ElfMachine("/proc/self/exe")) {
    command.insert(command.begin(), kTargetEmulator.begin(), kTargetEmulator.end());
  }
  return command;
}

}  // namespace

bool UnderEmulator() {
  return !kTargetEmulator.empty();
}

std::string ShellCommand(const std::vector<std::string>& argv) {
  std::string command;
  for (const std::string& word : TargetArgv(argv)) {
    std::string quoted = "'";
    for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    command += (command.empty() ? "" : " ") + quoted + "'";
  }
  return command;
}

void SetCaptureDirectory(const std::string& directory) {
  g_capture_directory = directory;
}

std::string ReadFileOrEmpty(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

ChildResult RunInChild(const std::function<void()>& body) {
  const std::string out_path = CapturePath("out");
  const std::string err_path = CapturePath("err");
  pid_t pid = -1;
  if (kTargetEmulator.empty()) {
    // Natively the fork stays on the calling thread, so that a single-threaded test forks a
    // single-threaded process, as the thread sanitizer requires of a child that starts threads.
    pid = ForkCaptured(out_path, err_path, body);
  } else {
    // Under qemu 7 a forked child numbers its new threads after the forking one and fails when
    // that number is still held by a thread of the parent: forking from the newest thread avoids
    // the clash.
    std::thread([&] { pid = ForkCaptured(out_path, err_path, body); }).join();
  }
  ChildResult result;
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid) Finish(status, out_path, err_path, &result);
  unlink(out_path.c_str());
  unlink(err_path.c_str());
  return result;
}

Subprocess::Subprocess(const std::vector<std::string>& argv)
    : out_path_(CapturePath("out")), err_path_(CapturePath("err")) {
  std::vector<std::string> command = TargetArgv(argv);
  std::vector<char*> args;
  for (std::string& arg : command) args.push_back(&arg[0]);
  args.push_back(nullptr);
  pid_ = ForkCaptured(out_path_, err_path_, [&] {
    execv(args[0], args.data());
    _exit(127);
  });
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
  if (!WaitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, timeout)) return false;
  Finish(status, out_path_, err_path_, &result_);
  return true;
}

std::string Subprocess::ReadOut() const {
  return ReadFileOrEmpty(out_path_);
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace testing
}  // namespace mirvane
