#include "testing/system_peer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <utility>

#include "sysapi.h"

namespace mirvane {
namespace testing {
namespace {

constexpr uint32_t kMaxBody = 1 << 16;

}  // namespace

SystemPeer::SystemPeer(const std::string& path, PeerReplier replier)
    : path_(path), replier_(std::move(replier)) {
  unlink(path.c_str());
  listen_fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr = {};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
  if (listen_fd_ < 0 || bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
      listen(listen_fd_, 16) != 0 || pipe(wake_pipe_) != 0) {
    if (listen_fd_ >= 0) close(listen_fd_);
    listen_fd_ = -1;
    return;
  }
  thread_ = std::thread(&SystemPeer::Serve, this);
}

SystemPeer::~SystemPeer() {
  if (thread_.joinable()) {
    const char stop = 's';
    (void)!write(wake_pipe_[1], &stop, 1);
    thread_.join();
  }
  if (listen_fd_ >= 0) close(listen_fd_);
  for (int fd : wake_pipe_) close(fd);
  unlink(path_.c_str());
}

std::vector<PeerMessage> SystemPeer::Messages() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return messages_;
}

size_t SystemPeer::Count(uint32_t cmd) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::count_if(messages_.begin(), messages_.end(),
                       [cmd](const PeerMessage& m) { return m.cmd == cmd; });
}

std::string SystemPeer::Heartbeats() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::string letters;
  for (const PeerMessage& m : messages_) {
    if (m.cmd == SYSAPI_CMD_WDG_ALIVE || m.cmd == SYSAPI_CMD_WDG_RELEASE) {
      letters += static_cast<char>(m.cmd);
    }
  }
  return letters;
}

void SystemPeer::DropClients() {
  drop_clients_ = true;
  const char wake = 'd';
  (void)!write(wake_pipe_[1], &wake, 1);
  while (drop_clients_) std::this_thread::yield();
}

void SystemPeer::SetStalled(bool stalled) {
  stalled_ = stalled;
  const char wake = 'w';
  (void)!write(wake_pipe_[1], &wake, 1);
}

void SystemPeer::Serve() {
  std::map<int, std::vector<uint8_t>> clients;  // socket, bytes not yet read as a message
  for (;;) {
    std::vector<pollfd> fds = {{wake_pipe_[0], POLLIN, 0}, {listen_fd_, POLLIN, 0}};
    if (!stalled_) {
      for (const auto& entry : clients) fds.push_back({entry.first, POLLIN, 0});
    }
    if (poll(fds.data(), fds.size(), -1) < 0) continue;
    if (fds[0].revents != 0) {
      char what = 0;
      (void)!read(wake_pipe_[0], &what, 1);
      if (what == 's') break;
      if (what == 'w') continue;
      for (const auto& entry : clients) close(entry.first);
      clients.clear();
      drop_clients_ = false;
      continue;
    }
    if (fds[1].revents & POLLIN) {
      int fd = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) {
        clients[fd];
        ++accepted_;
      }
    }
    for (size_t i = 2; i < fds.size(); ++i) {
      if (fds[i].revents == 0) continue;
      const int fd = fds[i].fd;
      uint8_t chunk[4096];
      ssize_t n = read(fd, chunk, sizeof(chunk));
      if (n <= 0) {
        close(fd);
        clients.erase(fd);
        continue;
      }
      std::vector<uint8_t>& buffer = clients[fd];
      buffer.insert(buffer.end(), chunk, chunk + n);
      while (buffer.size() >= sizeof(cmd_hdr)) {
        cmd_hdr hdr;
        std::memcpy(&hdr, buffer.data(), sizeof(hdr));
        if (hdr.sync != SYSTEMD_COMMAND_PACKET_SYNC_CODE || hdr.len > kMaxBody) {
          buffer.clear();  // garbage: resynchronising is not worth it in a test peer
          break;
        }
        if (buffer.size() < sizeof(hdr) + hdr.len) break;
        PeerMessage message;
        message.cmd = hdr.cmd;
        message.body.assign(buffer.begin() + sizeof(hdr), buffer.begin() + sizeof(hdr) + hdr.len);
        buffer.erase(buffer.begin(), buffer.begin() + sizeof(hdr) + hdr.len);
        if (replier_) {
          const std::string reply = replier_(message);
          if (!reply.empty()) (void)!send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        messages_.push_back(std::move(message));
      }
    }
  }
  for (const auto& entry : clients) close(entry.first);
}

}  // namespace testing
}  // namespace mirvane
