// Small file helpers of the simulation: directories and whole-file locks (atomic replacement is
// common/file_write.h, shared with the daemon).
#ifndef MIRVANE_PLATFORM_SIM_FILE_UTIL_H
#define MIRVANE_PLATFORM_SIM_FILE_UTIL_H

#include <string>

namespace mirvane {
namespace sim {

// Creates dir and its missing parents (mode 0755); true when it exists afterwards.
bool MakeDirs(const std::string& dir);

// The directory part of a path ("." when there is none).
std::string DirName(const std::string& path);

// Holds an exclusive flock on a descriptor for its lifetime (owns the lock, not the descriptor).
// A process that dies loses its locks, so a killed holder never blocks the others.
class FileLock {
 public:
  explicit FileLock(int fd);
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int fd_;
};

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_FILE_UTIL_H
