// A peer on a UNIX socket that serves one client: reads one message (header and body) as raw
// bytes, writes a fixed reply and closes. Owns the listening socket and the serving thread; the
// destructor wakes and joins it. Used from the test's thread.
#ifndef MIRVANE_TESTS_SUPPORT_ONE_SHOT_SERVER_H
#define MIRVANE_TESTS_SUPPORT_ONE_SHOT_SERVER_H

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "sysapi.h"

namespace mirvane {
namespace testing {

class OneShotServer {
 public:
  OneShotServer(const std::string& path, std::string reply) : path_(path) {
    unlink(path.c_str());
    listen_fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    if (bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(listen_fd_, 1) != 0) {
      return;
    }
    thread_ = std::thread([this, reply] {
      const int fd = accept(listen_fd_, nullptr, nullptr);
      if (fd < 0) return;
      cmd_hdr hdr;
      if (recv(fd, &hdr, sizeof(hdr), MSG_WAITALL) == sizeof(hdr)) {
        received_.assign(reinterpret_cast<const char*>(&hdr), sizeof(hdr));
        std::string body(hdr.len, '\0');
        const ssize_t n = hdr.len > 0 ? recv(fd, &body[0], hdr.len, MSG_WAITALL) : 0;
        received_ += body.substr(0, n > 0 ? static_cast<size_t>(n) : 0);
      }
      (void)!send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
      close(fd);
    });
  }
  ~OneShotServer() {
    shutdown(listen_fd_, SHUT_RDWR);  // ends a wait for a client that never came
    if (thread_.joinable()) thread_.join();
    close(listen_fd_);
    unlink(path_.c_str());
  }
  OneShotServer(const OneShotServer&) = delete;
  OneShotServer& operator=(const OneShotServer&) = delete;

  bool listening() const { return thread_.joinable(); }
  // The message as received, header included; waits until the client has been served.
  const std::string& received() {
    if (thread_.joinable()) thread_.join();
    return received_;
  }
  std::string body() { return received().size() < 12 ? "" : received().substr(12); }

 private:
  std::string path_;
  int listen_fd_ = -1;
  std::string received_;
  std::thread thread_;
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_SUPPORT_ONE_SHOT_SERVER_H
