// The lock that keeps one daemon per camera: a second instance must not take over the first one's
// device-memory block, block-id file or sockets. An exclusive flock on a file in /tmp, which the
// kernel releases when its holder dies however it dies, so a crash never blocks the next start.
//
// Owns the lock file's descriptor. Built and destroyed on the main thread, once per process.
#ifndef MIRVANE_BIN_INSTANCE_LOCK_H
#define MIRVANE_BIN_INSTANCE_LOCK_H

namespace mirvane {

constexpr const char* kInstanceLockPath = "/tmp/mirvane.lock";

class InstanceLock {
 public:
  enum class State { kHeld, kHeldByAnother, kFailed };

  // Opens path (created when missing, never through a link) and tries the lock without waiting.
  explicit InstanceLock(const char* path);
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

  State state() const { return state_; }
  // errno of the failure, for kFailed.
  int error() const { return error_; }

 private:
  int fd_ = -1;
  State state_ = State::kFailed;
  int error_ = 0;
};

}  // namespace mirvane

#endif  // MIRVANE_BIN_INSTANCE_LOCK_H
