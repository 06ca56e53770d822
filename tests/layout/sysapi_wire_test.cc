// The system API's bytes on the socket: the header's words go out little-endian and unpadded,
// followed by the body, whatever the CPU. The event's bytes are also left as an artifact, which
// the native and the armhf run must produce identically.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "sysapi.h"
#include "testing/artifacts.h"

namespace {

using mirvane::testing::SaveArtifact;

// A listening socket whose single client's bytes are read raw, after the client has sent them
// (they wait in the socket's buffer until accepted).
class RawListener {
 public:
  explicit RawListener(const char* path) {
    unlink(path);
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd_, 4) != 0) {
      close(fd_);
      fd_ = -1;
    }
  }
  ~RawListener() {
    if (fd_ >= 0) close(fd_);
  }
  RawListener(const RawListener&) = delete;
  RawListener& operator=(const RawListener&) = delete;

  bool listening() const { return fd_ >= 0; }

  // Accepts the next client and reads size bytes from it (fewer when it closes first).
  std::string Read(size_t size) {
    const int client = accept(fd_, nullptr, nullptr);
    if (client < 0) return std::string();
    std::string bytes(size, '\0');
    const ssize_t got = recv(client, &bytes[0], size, MSG_WAITALL);
    close(client);
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return bytes;
  }

 private:
  int fd_ = -1;
};

std::string Bytes(std::initializer_list<unsigned> values) {
  std::string bytes;
  for (unsigned v : values) bytes.push_back(static_cast<char>(v));
  return bytes;
}

TEST(SysapiWire, EventIsAHeaderOfLittleEndianWordsThenThePayload) {
  RawListener listener(SYSAPI_SYSTEM_SOCKET);
  ASSERT_TRUE(listener.listening());
  std::string payload(SYSAPI_EVENT_PAYLOAD_SIZE, '\0');
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7 + 0x80);

  ASSERT_EQ(sysapi_eventcb(SYSAPI_SYSTEM_SOCKET, payload.data()), 520);
  const std::string sent = listener.Read(12 + 520);

  ASSERT_EQ(sent.size(), 12u + 520u);
  EXPECT_EQ(sent.substr(0, 12), Bytes({0xff, 0xff, 0xff, 0xff, '1', 0, 0, 0, 0x08, 0x02, 0, 0}));
  EXPECT_EQ(sent.substr(12), payload);
  EXPECT_TRUE(SaveArtifact("sysapi/event.bin", sent));
}

TEST(SysapiWire, HeartbeatCarriesNameAndRestartCommandAtTheirOffsets) {
  RawListener listener(SYSAPI_SYSTEM_SOCKET);
  ASSERT_TRUE(listener.listening());
  const char* restart = "/etc/rc.d/init.d/mirvane restart &";

  ASSERT_EQ(sysapi_wdg_update(SYSAPI_SYSTEM_SOCKET, "mirvane", restart, 0), 0);
  const std::string sent = listener.Read(12 + 128);

  ASSERT_EQ(sent.size(), 12u + 128u);
  EXPECT_EQ(sent.substr(0, 12), Bytes({0xff, 0xff, 0xff, 0xff, 'w', 0, 0, 0, 128, 0, 0, 0}));
  EXPECT_STREQ(sent.c_str() + 12 + SYSAPI_WDG_NAME_OFFSET, "mirvane");
  EXPECT_STREQ(sent.c_str() + 12 + SYSAPI_WDG_COMMAND_OFFSET, restart);
}

}  // namespace
