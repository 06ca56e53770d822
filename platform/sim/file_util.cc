#include "file_util.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mirvane {
namespace sim {

bool MakeDirs(const std::string& dir) {
  if (dir.empty()) return false;
  for (size_t pos = 1; pos <= dir.size(); ++pos) {
    if (pos == dir.size() || dir[pos] == '/') {
      const std::string part = dir.substr(0, pos);
      if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
  }
  struct stat st;
  return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string DirName(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

FileLock::FileLock(int fd) : fd_(fd) {
  while (flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

FileLock::~FileLock() {
  flock(fd_, LOCK_UN);
}

}  // namespace sim
}  // namespace mirvane
