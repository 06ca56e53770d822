#include "bin/instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace mirvane {

InstanceLock::InstanceLock(const char* path) {
  fd_ = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd_ < 0) {
    error_ = errno;
    return;
  }
  int r;
  do {
    r = flock(fd_, LOCK_EX | LOCK_NB);
  } while (r != 0 && errno == EINTR);
  if (r == 0) {
    state_ = State::kHeld;
  } else if (errno == EWOULDBLOCK) {
    state_ = State::kHeldByAnother;
  } else {
    error_ = errno;
  }
}

InstanceLock::~InstanceLock() {
  if (fd_ >= 0) close(fd_);
}

}  // namespace mirvane
