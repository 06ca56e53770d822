#include "common/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "common/log_sink.h"
#include "debugLog.h"

namespace mirvane {
namespace {

const char* const kLevelNames[] = {"Debug", "Info", "Err"};

// A flood of one line (a fault that repeats every frame) must not fill the RAM disk.
constexpr unsigned kRepeatBurst = 3;
constexpr int64_t kRepeatWindowNs = 1000000000;  // per second
constexpr size_t kRepeatSlots = 16;
constexpr long kDebugLogLimitBytes = 1L << 20;  // and as much again in the previous file
constexpr unsigned kSizeCheckPeriod = 16;

bool DebugSwitchPresent() {
  struct stat st;
  return stat(kDebugSwitchPath, &st) == 0;
}

const char* BaseName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

// Identical lines (same call site, same text) within one window: the first kRepeatBurst are
// written, the rest dropped and counted.
struct RepeatEntry {
  uint64_t key = 0;
  int64_t window_start_ns = 0;
  int64_t last_use_ns = 0;
  unsigned written = 0;
  unsigned dropped = 0;
};

class RepeatFilter {
 public:
  // Whether the line with this key is written now; *dropped gets the number of identical lines
  // dropped since the last one written (to be told in this one).
  bool Admit(uint64_t key, unsigned* dropped) {
    const int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::steady_clock::now().time_since_epoch())
                            .count();
    std::lock_guard<std::mutex> lock(mutex_);
    RepeatEntry* entry = Find(key, now);
    entry->last_use_ns = now;
    if (now - entry->window_start_ns >= kRepeatWindowNs) {
      entry->window_start_ns = now;
      entry->written = 0;
    }
    if (entry->written >= kRepeatBurst) {
      ++entry->dropped;
      return false;
    }
    ++entry->written;
    *dropped = entry->dropped + orphaned_;
    entry->dropped = 0;
    orphaned_ = 0;
    return true;
  }

  void Forget() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (RepeatEntry& entry : entries_) entry = RepeatEntry();
    orphaned_ = 0;
  }

 private:
  RepeatEntry* Find(uint64_t key, int64_t now) {
    RepeatEntry* oldest = &entries_[0];
    for (RepeatEntry& entry : entries_) {
      if (entry.key == key && entry.last_use_ns != 0) return &entry;
      if (entry.last_use_ns < oldest->last_use_ns) oldest = &entry;
    }
    // The least recently seen line makes room; its uncounted drops go with the next line.
    orphaned_ += oldest->dropped;
    *oldest = RepeatEntry();
    oldest->key = key;
    oldest->window_start_ns = now;
    return oldest;
  }

  std::mutex mutex_;
  RepeatEntry entries_[kRepeatSlots];
  unsigned orphaned_ = 0;
};

// Never destroyed: threads may log during exit.
RepeatFilter& Repeats() {
  static RepeatFilter* repeats = new RepeatFilter();
  return *repeats;
}

uint64_t LineKey(const char* file, int line, const char* text) {
  // FNV-1a over the call site and the formatted text.
  uint64_t hash = 1469598103934665603ull;
  auto mix = [&hash](const void* data, size_t size) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i) hash = (hash ^ p[i]) * 1099511628211ull;
  };
  mix(&file, sizeof(file));
  mix(&line, sizeof(line));
  mix(text, std::strlen(text));
  return hash;
}

// Standard output or error that whoever started the process sent to a regular file (the init
// script's "/tmp/log/mirvane.out", on the same RAM disk): writes go to its end, and once it has
// reached kDebugLogLimitBytes it is emptied, with a line saying so. The file's name is not the
// process's to rename; the debug log, which holds every line too, keeps its previous megabyte.
void BoundOutputFile(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return;
  const int flags = fcntl(fd, F_GETFL);
  if (flags >= 0 && (flags & O_APPEND) == 0) fcntl(fd, F_SETFL, flags | O_APPEND);
  if (st.st_size < kDebugLogLimitBytes || ftruncate(fd, 0) != 0) return;
  static const char kEmptied[] = "[Mirvane] output emptied at 1 MiB\n";
  (void)!write(fd, kEmptied, sizeof(kEmptied) - 1);
}

// Keeps the logs on the RAM disk bounded: every kSizeCheckPeriod lines, a debug log that has
// reached kDebugLogLimitBytes becomes the previous file and a new one starts, and standard output
// and error in files are bounded the same way (BoundOutputFile).
void BoundLogFiles() {
  static std::atomic<unsigned> lines{0};
  if (lines.fetch_add(1) % kSizeCheckPeriod != 0) return;
  static std::mutex mutex;
  std::lock_guard<std::mutex> lock(mutex);
  RotateLogFileToPrevious(LOG_TYPE_DEBUG, kDebugLogLimitBytes);
  std::fflush(stdout);
  BoundOutputFile(STDOUT_FILENO);
  BoundOutputFile(STDERR_FILENO);
}

// The test sink, when one is installed; sink_installed spares the lock on the daemon's path.
std::atomic<bool> sink_installed{false};
std::mutex sink_mutex;
LogSink& Sink() {
  static LogSink* sink = new LogSink();  // never destroyed, as Repeats()
  return *sink;
}

// The whole text of format and args.
std::string Formatted(const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int size = std::vsnprintf(nullptr, 0, format, args);
  std::string text(size > 0 ? size : 0, '\0');
  if (size > 0) std::vsnprintf(&text[0], text.size() + 1, format, again);
#pragma GCC diagnostic pop
  va_end(again);
  return text;
}

std::atomic<int> debug_switch_setting{static_cast<int>(DebugSwitch::kFromFile)};

// The message without its final line feed, with the count of dropped repeats, and the line feed.
std::string WithDropCount(const char* message, unsigned dropped) {
  std::string text = message;
  const bool newline = !text.empty() && text.back() == '\n';
  if (newline) text.pop_back();
  return text + " [" + std::to_string(dropped) + " identical lines dropped]" +
         (newline ? "\n" : "");
}

}  // namespace

bool IsLogLevelEnabled(unsigned level) {
  // Thread-safe one-time initialisation: exactly one thread performs the stat.
  static const bool debug_enabled = DebugSwitchPresent();
  if (level != kLogDebug) return true;
  switch (static_cast<DebugSwitch>(debug_switch_setting.load(std::memory_order_relaxed))) {
    case DebugSwitch::kOn:
      return true;
    case DebugSwitch::kOff:
      return false;
    case DebugSwitch::kFromFile:
      break;
  }
  return debug_enabled;
}

LogSink SetLogSink(LogSink sink) {
  std::lock_guard<std::mutex> lock(sink_mutex);
  sink_installed = static_cast<bool>(sink);
  std::swap(Sink(), sink);
  return sink;
}

void ForgetLogRepeats() {
  Repeats().Forget();
}

DebugSwitch SetDebugSwitch(DebugSwitch setting) {
  return static_cast<DebugSwitch>(debug_switch_setting.exchange(static_cast<int>(setting)));
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
  unsigned dropped = 0;
  if (!Repeats().Admit(LineKey(file, line, message), &dropped)) {
    va_end(again);
    va_end(args);
    return;
  }
  if (sink_installed.load()) {
    std::string whole = std::string("[Mirvane][") + name + "] " + base + ":" +
                        std::to_string(line) + ":" + function + ": " + Formatted(format, again);
    if (dropped != 0) whole = WithDropCount(whole.c_str(), dropped);
    std::lock_guard<std::mutex> lock(sink_mutex);
    if (Sink()) Sink()(level, whole);
    va_end(again);
    va_end(args);
    return;
  }
  BoundLogFiles();
  std::printf("[Mirvane][%s] %s:%d:%s: ", name, base, line, function);
  if (dropped == 0) {
    WriteLog(LOG_TYPE_DEBUG, base, line, function, "System", -1, "%s", message);
    std::vprintf(format, again);
  } else {
    WriteLog(LOG_TYPE_DEBUG, base, line, function, "System", -1, "%s",
             WithDropCount(message, dropped).c_str());
    char whole[4096];
    std::vsnprintf(whole, sizeof(whole), format, again);
    std::fputs(WithDropCount(whole, dropped).c_str(), stdout);
  }
#pragma GCC diagnostic pop
  va_end(again);
  va_end(args);
}

}  // namespace mirvane
