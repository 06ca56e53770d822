// A peer on a UNIX socket that serves one client: reads one message (header and body) as raw
// bytes, writes a fixed reply and closes. Owns the listening socket and the serving thread; the
// destructor wakes and joins it. Used from the test's thread.
#ifndef MIRVANE_TESTS_SUPPORT_ONE_SHOT_SERVER_H
#define MIRVANE_TESTS_SUPPORT_ONE_SHOT_SERVER_H

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

#include "sysapi.h"

namespace mirvane {
namespace testing {

class OneShotServer {
 public:
  OneShotServer(const std::string& path, const std::string& reply) : path_(path) {
    unlink(path.c_str());
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    if (bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) return;
    listen(fd_, 1);
    thread_ = std::thread([this, reply] {
      const int client = accept(fd_, nullptr, nullptr);
      cmd_hdr hdr;
      if (client >= 0 && recv(client, &hdr, sizeof(hdr), MSG_WAITALL) == sizeof(hdr)) {
        std::string body(hdr.len, '\0');
        const ssize_t n = hdr.len > 0 ? recv(client, &body[0], hdr.len, MSG_WAITALL) : 0;
        body.resize(n > 0 ? static_cast<size_t>(n) : 0);
        received_ = std::string(reinterpret_cast<const char*>(&hdr), sizeof(hdr)) + body;
      }
      (void)!send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
      close(client);
    });
  }
  ~OneShotServer() {
    shutdown(fd_, SHUT_RDWR);  // ends a wait for a client that never came
    received();
    close(fd_);
    unlink(path_.c_str());
  }
  OneShotServer(const OneShotServer&) = delete;
  OneShotServer& operator=(const OneShotServer&) = delete;

  // The message as received, header included; waits until the client has been served.
  const std::string& received() {
    if (thread_.joinable()) thread_.join();
    return received_;
  }

 private:
  std::string path_;
  int fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string received_;
  std::thread thread_;
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_SUPPORT_ONE_SHOT_SERVER_H
