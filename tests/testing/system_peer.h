// A minimal system daemon for tests: listens on a UNIX socket, accepts any number of clients and
// records every well-formed message (header and body) in arrival order. It can also stall like a
// hung system daemon: clients are still accepted but nothing is read from them.
//
// Owns: the listening socket, the client sockets and the thread that serves them (stopped and
// joined by the destructor). Messages() and Count() may be called from any thread.
#ifndef MIRVANE_TESTS_TESTING_SYSTEM_PEER_H
#define MIRVANE_TESTS_TESTING_SYSTEM_PEER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace mirvane {
namespace testing {

struct PeerMessage {
  uint32_t cmd = 0;
  std::vector<uint8_t> body;
};

// Bytes the peer writes back to the client after a message; empty for no reply.
using PeerReplier = std::function<std::string(const PeerMessage&)>;

class SystemPeer {
 public:
  explicit SystemPeer(const std::string& path, PeerReplier replier = nullptr);
  ~SystemPeer();
  SystemPeer(const SystemPeer&) = delete;
  SystemPeer& operator=(const SystemPeer&) = delete;

  bool listening() const { return listen_fd_ >= 0; }
  std::vector<PeerMessage> Messages() const;
  size_t Count(uint32_t cmd) const;
  // The heartbeats received, one letter each in arrival order: 'W' alive, 'w' released.
  std::string Heartbeats() const;
  // Closes every accepted client connection (the listener stays).
  void DropClients();
  // While stalled, connections are accepted and never read, so that the clients' sends fill the
  // socket buffers; once resumed, what they hold is read as usual.
  void SetStalled(bool stalled);
  // Client connections accepted so far.
  size_t Accepted() const { return accepted_.load(); }

 private:
  void Serve();

  std::string path_;
  PeerReplier replier_;
  int listen_fd_ = -1;
  int wake_pipe_[2] = {-1, -1};
  std::atomic<bool> drop_clients_{false};
  std::atomic<bool> stalled_{false};
  std::atomic<size_t> accepted_{0};
  mutable std::mutex mutex_;
  std::vector<PeerMessage> messages_;
  std::thread thread_;
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_TESTING_SYSTEM_PEER_H
