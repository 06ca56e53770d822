// The system API client against real peers on UNIX sockets: connection handling of the kept
// sockets, the request/reply checks, event registration and reception, and body layouts.
#include "sysapi.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "pdebug.h"
#include "testing/child_process.h"
#include "testing/system_peer.h"

namespace mirvane {
namespace {

using std::chrono::seconds;
using testing::ChildResult;
using testing::PeerMessage;
using testing::RunInChild;
using testing::SystemPeer;
using testing::WaitUntil;

std::string Header(uint32_t sync, uint32_t cmd, uint32_t len) {
  const cmd_hdr hdr = {sync, cmd, len};
  return std::string(reinterpret_cast<const char*>(&hdr), sizeof(hdr));
}

std::string Word(int32_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); }

uint32_t WordAt(const std::vector<uint8_t>& body, size_t offset) {
  uint32_t value = 0;
  std::memcpy(&value, body.data() + offset, sizeof(value));
  return value;
}

// Serves one client: reads one whole request, writes reply, closes.
class OneShotServer {
 public:
  OneShotServer(const std::string& path, std::string reply) : path_(path) {
    unlink(path.c_str());
    listen_fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    EXPECT_EQ(bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
    EXPECT_EQ(listen(listen_fd_, 1), 0);
    thread_ = std::thread([this, reply] {
      const int fd = accept(listen_fd_, nullptr, nullptr);
      cmd_hdr hdr;
      if (recv(fd, &hdr, sizeof(hdr), MSG_WAITALL) == sizeof(hdr)) {
        request_.resize(hdr.len);
        if (hdr.len > 0) (void)!recv(fd, &request_[0], hdr.len, MSG_WAITALL);
      }
      (void)!send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
      close(fd);
    });
  }
  ~OneShotServer() {
    if (thread_.joinable()) thread_.join();
    close(listen_fd_);
    unlink(path_.c_str());
  }
  const std::string& request() {  // valid once the client call has returned
    if (thread_.joinable()) thread_.join();
    return request_;
  }

 private:
  std::string path_;
  int listen_fd_ = -1;
  std::string request_;
  std::thread thread_;
};

constexpr char kPath[] = "/tmp/ipc-test";

// ---- Kept sockets ----

TEST(EventCb, FailsWithoutPeerOnEveryCallAndConnectsOnceOneListens) {
  unsigned char payload[SYSAPI_EVENT_PAYLOAD_SIZE] = {0x81};
  EXPECT_EQ(sysapi_eventcb(kPath, payload), -1);
  EXPECT_EQ(sysapi_eventcb(kPath, payload), -1);
  SystemPeer peer(kPath);
  EXPECT_EQ(sysapi_eventcb(kPath, payload), 520);
  ASSERT_TRUE(WaitUntil([&] { return peer.Count(SYSAPI_CMD_EVENT) == 1; }, seconds(5)));
  EXPECT_EQ(peer.Messages()[0].body.size(), 520u);
  EXPECT_EQ(peer.Messages()[0].body[0], 0x81);
}

TEST(EventCb, AfterThePeerClosedOneCallFailsAndReportsThenTheNextReconnects) {
  ChildResult result = RunInChild([] {
    unsigned char payload[SYSAPI_EVENT_PAYLOAD_SIZE] = {0x81};
    unlink(kPath);
    if (sysapi_eventcb(kPath, payload) != -1) _exit(9);  // drops a socket left by earlier tests
    SystemPeer peer(kPath);
    if (sysapi_eventcb(kPath, payload) != 520) _exit(10);
    WaitUntil([&] { return peer.Count(SYSAPI_CMD_EVENT) == 1; }, seconds(5));
    peer.DropClients();
    if (sysapi_eventcb(kPath, payload) != -1) _exit(11);
    if (sysapi_eventcb(kPath, payload) != 520) _exit(12);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.err.find("sysapi failed to send ev header"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("## sysapi - ["), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(":sysapi.c:"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("]: sysapi failed, type=0x81, socket="), std::string::npos)
      << result.err;
}

TEST(EventCb, DebugLinesStayQuietBelowLevelZero) {
  ChildResult result = RunInChild([] {
    current_dbg_level = -1;
    unsigned char payload[SYSAPI_EVENT_PAYLOAD_SIZE] = {};
    unlink(kPath);
    sysapi_eventcb(kPath, payload);  // drops a socket left by earlier tests
    SystemPeer peer(kPath);
    if (sysapi_eventcb(kPath, payload) != 520) _exit(10);
    WaitUntil([&] { return peer.Count(SYSAPI_CMD_EVENT) == 1; }, seconds(5));
    peer.DropClients();
    if (sysapi_eventcb(kPath, payload) != -1) _exit(11);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.err.find("sysapi failed to send ev header"), std::string::npos);
  EXPECT_EQ(result.err.find("## "), std::string::npos) << result.err;
}

TEST(WdgUpdate, CutsEachNameToItsFieldAndZeroesTheRest) {
  SystemPeer peer(kPath);
  const std::string long_name(100, 'n');
  ASSERT_EQ(sysapi_wdg_update(kPath, long_name.c_str(), "restart", 0), 0);
  ASSERT_TRUE(WaitUntil([&] { return peer.Count(SYSAPI_CMD_WDG_RELEASE) == 1; }, seconds(5)));
  const std::vector<uint8_t> body = peer.Messages()[0].body;
  ASSERT_EQ(body.size(), 128u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(body.data())), std::string(63, 'n'));
  EXPECT_STREQ(reinterpret_cast<const char*>(&body[64]), "restart");
  EXPECT_EQ(body[127], 0);
}

TEST(DeviceCommands, SendTheirLetterAndBodyLayout) {
  SystemPeer peer(kPath);
  EXPECT_EQ(sysapi_buzzer(kPath, 1, 3, 100, 0), 0);
  EXPECT_EQ(sysapi_reset_conf(kPath, "factory", "{\"keep\":1}"), 0);
  EXPECT_EQ(sysapi_irled_event(kPath, 1), 0);
  EXPECT_EQ(sysapi_run_app(kPath, std::string(300, 'x').c_str()), -7);  // never cut silently
  EXPECT_EQ(sysapi_button_event(kPath, 7), 520);
  ASSERT_TRUE(WaitUntil([&] { return peer.Messages().size() == 4; }, seconds(5)));
  const std::vector<PeerMessage> messages = peer.Messages();
  std::string letters;
  for (const PeerMessage& m : messages) letters += static_cast<char>(m.cmd);
  EXPECT_EQ(letters, "BCD1");
  EXPECT_EQ(messages[0].body.size(), 16u);
  EXPECT_EQ(WordAt(messages[0].body, 12), 250u) << "a duration below 1 becomes 250";
  EXPECT_EQ(messages[1].body.size(), 196u + 11u);
  EXPECT_STREQ(reinterpret_cast<const char*>(&messages[1].body[196]), "{\"keep\":1}");
  EXPECT_EQ(messages[2].body.size(), 4u);
  EXPECT_EQ(WordAt(messages[3].body, 0), SYSAPI_EVENT_BUTTON);
  EXPECT_EQ(WordAt(messages[3].body, 4), 7u);
}

// ---- Request and reply ----

TEST(StorageRequest, ReturnsThePeersStatusOnAGoodReply) {
  OneShotServer server(kPath, Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'Y', 4) + Word(0));
  EXPECT_EQ(sysapi_storage_format(kPath, "sd0"), 0);
  const std::string& request = server.request();
  ASSERT_EQ(request.size(), 20u);
  EXPECT_EQ(request[0], SYSAPI_STORAGE_FORMAT);
  EXPECT_STREQ(request.c_str() + 4, "sd0");
}

TEST(StorageRequest, RejectsAWrongSyncWordOrLetterAsAHeaderError) {
  {
    OneShotServer server(kPath, Header(0x12345678, 'Y', 4) + Word(0));
    EXPECT_EQ(sysapi_storage_format(kPath, "sd0"), -8);
  }
  {
    OneShotServer server(kPath, Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'Z', 4) + Word(0));
    EXPECT_EQ(sysapi_storage_mount(kPath, "sd0"), -8);
  }
  {
    OneShotServer server(kPath, "\xff\xff");  // truncated header, then the peer closes
    EXPECT_EQ(sysapi_storage_umount(kPath, "sd0"), -8);
  }
}

TEST(StorageRequest, RejectsAWrongLengthWithoutReadingAndAShortContent) {
  {
    OneShotServer server(kPath, Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'Y', 8) + Word(0));
    EXPECT_EQ(sysapi_storage_format(kPath, "sd0"), -5);
  }
  {
    OneShotServer server(kPath, Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'Y', 4) + "\x01\x02");
    EXPECT_EQ(sysapi_storage_format(kPath, "sd0"), -6);
  }
}

TEST(StorageRequest, FailsToConnectWithoutPeerAndRefusesLongDeviceNames) {
  unlink(kPath);
  EXPECT_EQ(sysapi_storage_format(kPath, "sd0"), -2);
  EXPECT_EQ(sysapi_storage_format(kPath, "a-device-name-too-long"), -7);
}

TEST(StorageRequest, ListCountsTheNamedDevices) {
  std::string names(SYSAPI_STORAGE_LIST_REPLY_SIZE, '\0');
  names.replace(0, 3, "sd0");
  names.replace(16, 3, "usb");
  OneShotServer server(kPath, Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'Y', 128) + names);
  char out[SYSAPI_STORAGE_LIST_REPLY_SIZE];
  EXPECT_EQ(sysapi_storage_list(kPath, out), 2);
  EXPECT_STREQ(out + 16, "usb");
}

TEST(RestoreConf, CopiesTheJsonReplyAndRefusesOneThatDoesNotFit) {
  const std::string json = "{\"a\":1}";
  {
    OneShotServer server(kPath, Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'K', json.size()) + json);
    char out[64];
    EXPECT_EQ(sysapi_restore_conf(kPath, "/tmp/conf", out, sizeof(out)), 7);
    EXPECT_EQ(std::string(out), json);
  }
  {
    OneShotServer server(kPath, Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'K', json.size()) + json);
    char small[4];
    EXPECT_EQ(sysapi_restore_conf(kPath, "/tmp/conf", small, sizeof(small)), -5);
  }
}

// ---- Registration and reception ----

TEST(EventReg, SendsTheRegistrationWithItsFlags) {
  SystemPeer peer(kPath);
  const int plain = sysapi_eventreg(kPath);
  const int flagged = sysapi_eventreg_ex(kPath, 0x12);
  ASSERT_GE(plain, 0);
  ASSERT_GE(flagged, 0);
  ASSERT_TRUE(WaitUntil([&] { return peer.Count(SYSAPI_CMD_EVENT_REG) == 2; }, seconds(5)));
  for (const PeerMessage& m : peer.Messages()) EXPECT_EQ(m.body.size(), 528u);
  uint32_t flags_seen = WordAt(peer.Messages()[0].body, 0) | WordAt(peer.Messages()[1].body, 0);
  EXPECT_EQ(flags_seen, 0x12u);
  close(plain);
  close(flagged);
}

struct Received {
  int calls = 0;
  std::string body;
};

void Record(uint32_t, const void* body, uint32_t len, void* user) {
  auto* received = static_cast<Received*>(user);
  ++received->calls;
  received->body.assign(static_cast<const char*>(body), len);
}

// Writes bytes into one end of a socket pair (then closes it) and processes one message at the
// other end.
int ProcessBytes(const std::string& bytes, Received* received) {
  int fds[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  (void)!write(fds[0], bytes.data(), bytes.size());
  close(fds[0]);
  const int rc = sysapi_event_process(fds[1], Record, received);
  close(fds[1]);
  return rc;
}

TEST(EventProcess, HandsAnEventBodyToTheCallback) {
  Received received;
  EXPECT_EQ(ProcessBytes(Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, '1', 5) + "hello", &received), 5);
  EXPECT_EQ(received.calls, 1);
  EXPECT_EQ(received.body, "hello");
}

TEST(EventProcess, RefusesBadHeadersAndShortBodiesWithoutCallingBack) {
  Received received;
  EXPECT_EQ(ProcessBytes(Header(0, '1', 5) + "hello", &received), -8);
  EXPECT_EQ(ProcessBytes(Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, '?', 0), &received), -8);
  EXPECT_EQ(ProcessBytes(Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, '1', 1u << 30), &received), -5);
  EXPECT_EQ(ProcessBytes(Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, '1', 10) + "abc", &received),
            -6);
  EXPECT_EQ(ProcessBytes("\xff\xff\xff", &received), -1);
  EXPECT_EQ(received.calls, 0);
}

TEST(EventProcess, TellsRegistrationAnswersApart) {
  ChildResult result = RunInChild([] {
    Received received;
    ProcessBytes(Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'E', 4) + Word(0), &received);
    ProcessBytes(Header(SYSTEMD_COMMAND_PACKET_SYNC_CODE, 'E', 4) + Word(1), &received);
    if (received.calls != 0) _exit(10);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.err.find("]: event registed\n"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("]: event failed registed\n"), std::string::npos) << result.err;
}

// ---- Shared log segment ----

TEST(ModLog, WordsRoundTripThroughTheSegment) {
  const int32_t words[MOD_LOG_WORDS] = {1, 2, 3, 4, 5, 6, 7};
  ASSERT_EQ(mod_log_update(words), 0);
  int32_t back[MOD_LOG_WORDS] = {};
  ASSERT_EQ(mod_log_get(back), 0);
  EXPECT_EQ(std::memcmp(words, back, sizeof(words)), 0);
  EXPECT_EQ(mod_log_exit(), 0);
  EXPECT_EQ(mod_log_get(back), 0) << "a later call attaches again";
}

}  // namespace
}  // namespace mirvane
