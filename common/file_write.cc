#include "common/file_write.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace mirvane {
namespace {

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) {
      errno = EIO;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool WriteFileAtomically(const std::string& path, const std::string& contents) {
  std::string temp = path + ".XXXXXX";
  const int fd = mkostemp(&temp[0], O_CLOEXEC);
  if (fd < 0) return false;
  bool ok =
      WriteAll(fd, contents.data(), contents.size()) && fchmod(fd, 0644) == 0 && fsync(fd) == 0;
  // close reports late write errors of some file systems: it counts too.
  ok = close(fd) == 0 && ok;
  if (ok && rename(temp.c_str(), path.c_str()) == 0) return true;
  const int error = errno;
  unlink(temp.c_str());
  errno = error;
  return false;
}

}  // namespace mirvane
