#include "testing/log_capture.h"

#include <mutex>

namespace mirvane {
namespace testing {

struct LogCapture::Lines {
  mutable std::mutex mutex;
  std::vector<std::pair<unsigned, std::string>> lines;
};

LogCapture::LogCapture() : lines_(std::make_shared<Lines>()) {
  ForgetLogRepeats();
  previous_ = SetLogSink([lines = lines_](unsigned level, const std::string& line) {
    std::lock_guard<std::mutex> lock(lines->mutex);
    lines->lines.emplace_back(level, line);
  });
}

LogCapture::~LogCapture() {
  SetLogSink(std::move(previous_));
}

std::string LogCapture::Text() const {
  std::lock_guard<std::mutex> lock(lines_->mutex);
  std::string text;
  for (const auto& line : lines_->lines) text += line.second;
  return text;
}

int LogCapture::Count(const std::string& part) const {
  std::lock_guard<std::mutex> lock(lines_->mutex);
  int count = 0;
  for (const auto& line : lines_->lines) count += line.second.find(part) != std::string::npos;
  return count;
}

int LogCapture::CountAt(unsigned level) const {
  std::lock_guard<std::mutex> lock(lines_->mutex);
  int count = 0;
  for (const auto& line : lines_->lines) count += line.first == level;
  return count;
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> lock(lines_->mutex);
  lines_->lines.clear();
}

}  // namespace testing
}  // namespace mirvane
