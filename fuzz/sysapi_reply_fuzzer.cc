// Fuzz target: the system API client's reading of what the system daemon sends back, through its
// public functions and real sockets. The first input byte picks the call (and a buffer size); the
// rest is what the peer sends:
//   - the request/reply commands (storage list, short info and status, configuration restore,
//     snapshot) connect to a UNIX socket in the target's private /tmp, where a serving thread reads
//     each request and answers with the input's bytes, then closes;
//   - sysapi_event_process reads the bytes from a socket pair until it reports an error.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fuzz_sandbox.h"
#include "pdebug.h"
#include "sysapi.h"

namespace {

constexpr const char* kSocketPath = "/tmp/fuzz-system-daemon";

// The peer of the request/reply commands: serves one connection at a time with the reply in force,
// for the life of the process.
class ReplyServer {
 public:
  bool Start() {
    listen_fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", kSocketPath);
    unlink(kSocketPath);
    if (listen_fd_ < 0 || bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(listen_fd_, 4) != 0) {
      return false;
    }
    std::thread([this] { Serve(); }).detach();
    return true;
  }

  void SetReply(std::string reply) {
    std::lock_guard<std::mutex> lock(mutex_);
    reply_ = std::move(reply);
  }

 private:
  void Serve() {
    for (;;) {
      const int client = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      std::string reply;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        reply = reply_;
      }
      cmd_hdr hdr;
      if (recv(client, &hdr, sizeof(hdr), MSG_WAITALL) == static_cast<ssize_t>(sizeof(hdr)) &&
          hdr.len <= SYSAPI_MAX_BODY_SIZE) {
        std::vector<char> body(hdr.len);
        if (hdr.len == 0 ||
            recv(client, body.data(), hdr.len, MSG_WAITALL) == static_cast<ssize_t>(hdr.len)) {
          // The client may stop reading early and close: the send then fails, which is fine.
          (void)!send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
        }
      }
      close(client);
    }
  }

  int listen_fd_ = -1;
  std::mutex mutex_;
  std::string reply_;
};

ReplyServer& Server() {
  static ReplyServer* const server = new ReplyServer;  // serves until the process ends
  return *server;
}

// Checks that the reported body can be read whole (AddressSanitizer watches the reads).
void OnEvent(uint32_t cmd, const void* body, uint32_t len, void* user) {
  if (cmd != SYSAPI_CMD_EVENT) std::abort();
  const unsigned char* bytes = static_cast<const unsigned char*>(body);
  unsigned sum = 0;
  for (uint32_t i = 0; i < len; ++i) sum += bytes[i];
  *static_cast<unsigned*>(user) += sum;
}

void ProcessEvents(const std::string& stream) {
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) std::abort();
  // What fits the socket's buffer goes in; the peer then closes its side.
  fcntl(fds[1], F_SETFL, O_NONBLOCK);
  size_t sent = 0;
  while (sent < stream.size()) {
    const ssize_t n = send(fds[1], stream.data() + sent, stream.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) break;
    sent += static_cast<size_t>(n);
  }
  shutdown(fds[1], SHUT_WR);
  unsigned sum = 0;
  for (int i = 0; i < 1000; ++i) {
    const int rc = sysapi_event_process(fds[0], &OnEvent, &sum);
    if (rc < 0) {
      if (rc != -1 && rc != -5 && rc != -6 && rc != -8) std::abort();
      break;
    }
  }
  close(fds[0]);
  close(fds[1]);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  mirvane::fuzz::EnterFuzzSandbox(*argc, *argv);
  current_dbg_level = -1;  // the client's debug lines would drown libFuzzer's report
  if (!Server().Start()) {
    std::perror(kSocketPath);
    std::exit(1);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const unsigned call = data[0] % 8;
  // Buffer sizes of the callers: tight, small, ordinary and larger than any body.
  static const size_t kSizes[] = {2, 17, 4096, SYSAPI_MAX_BODY_SIZE + 2};
  const size_t buffer_size = kSizes[(data[0] / 8) % 4];
  const std::string peer(reinterpret_cast<const char*>(data + 1), size - 1);
  if (call == 7) {
    ProcessEvents(peer);
    return 0;
  }
  Server().SetReply(peer);
  std::vector<char> buffer(buffer_size);
  int rc = 0;
  switch (call) {
    case 0: {
      char names[SYSAPI_STORAGE_LIST_REPLY_SIZE];
      rc = sysapi_storage_list(kSocketPath, names);
      if (rc > 8 || (rc >= 0 && names[SYSAPI_STORAGE_LIST_REPLY_SIZE - 1] != '\0')) std::abort();
      break;
    }
    case 1: {
      sysapi_storage_info info;
      rc = sysapi_storage_short_info(kSocketPath, "sda", &info);
      break;
    }
    case 2:
      rc = sysapi_storage_mount(kSocketPath, "sda");
      break;
    case 3:
      rc = sysapi_storage_format(kSocketPath, "sdb");
      break;
    case 4:
      rc = sysapi_restore_conf(kSocketPath, "/etc/conf.json", buffer.data(), buffer.size());
      // A reply is a NUL-terminated text of exactly the length returned.
      if (rc >= 0 && (static_cast<size_t>(rc) >= buffer.size() || buffer[rc] != '\0' ||
                      std::strlen(buffer.data()) != static_cast<size_t>(rc))) {
        std::abort();
      }
      break;
    case 5:
      rc = sysapi_snapshot(kSocketPath, 0, 160, 90, 80, buffer.data(), buffer.size());
      if (rc > static_cast<int>(buffer.size())) std::abort();
      break;
    default:
      rc = sysapi_snapshot_profile(kSocketPath, 1, 2, 70, buffer.data(), buffer.size());
      if (rc > static_cast<int>(buffer.size())) std::abort();
      break;
  }
  if (rc < -8) std::abort();  // the documented codes only
  return 0;
}
