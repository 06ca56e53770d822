// The support library. The system API client against real peers on UNIX sockets: the kept event
// socket, the request/reply checks, event registration and reception, and body layouts. The file
// log: line prefixes, categories, creation and trimming by size.
#include "debugLog.h"
#include "sysapi.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include "one_shot_server.h"
#include "pdebug.h"
#include "testing/checks_in_child.h"
#include "testing/system_peer.h"

namespace mirvane {
namespace {

using std::chrono::seconds;
using testing::ChildResult;
using testing::OneShotServer;
using testing::PeerMessage;
using testing::ReadFileOrEmpty;
using testing::RunChecksInChild;
using testing::RunInChild;
using testing::SystemPeer;
using testing::WaitUntil;

constexpr char kPath[] = "/tmp/ipc-test";
constexpr uint32_t kSync = SYSTEMD_COMMAND_PACKET_SYNC_CODE;

std::string Header(uint32_t sync, uint32_t cmd, uint32_t len) {
  const cmd_hdr hdr = {sync, cmd, len};
  return std::string(reinterpret_cast<const char*>(&hdr), sizeof(hdr));
}

std::string Word(int32_t value) {
  return std::string(reinterpret_cast<const char*>(&value), 4);
}

uint32_t WordAt(const std::vector<uint8_t>& body, size_t offset) {
  uint32_t value = 0;
  std::memcpy(&value, body.data() + offset, sizeof(value));
  return value;
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

bool Contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

TEST(EventCb, FailsWithoutAPeerAndAfterItClosedThenReconnects) {
  for (const int level : {0, -1}) {
    SCOPED_TRACE(level);
    // In a child: the library writes the process's standard error under a process-wide level.
    const ChildResult result = RunInChild([level] {
      current_dbg_level = level;
      unsigned char payload[SYSAPI_EVENT_PAYLOAD_SIZE] = {0x81};
      unlink(kPath);
      if (sysapi_eventcb(kPath, payload) != -1) _exit(9);  // no peer: every call fails
      if (sysapi_eventcb(kPath, payload) != -1) _exit(9);
      SystemPeer peer(kPath);
      if (sysapi_eventcb(kPath, payload) != 520) _exit(10);
      if (!WaitUntil([&] { return peer.Count(SYSAPI_CMD_EVENT) == 1; }, seconds(5))) _exit(13);
      peer.DropClients();
      if (sysapi_eventcb(kPath, payload) != -1) _exit(11);
      if (sysapi_eventcb(kPath, payload) != 520) _exit(12);
      if (!WaitUntil([&] { return peer.Count(SYSAPI_CMD_EVENT) == 2; }, seconds(5))) _exit(14);
    });
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_TRUE(Contains(result.err, "sysapi failed to send ev header")) << result.err;
    // The debug lines only while the level is not negative.
    EXPECT_EQ(Contains(result.err, "## sysapi - ["), level >= 0) << result.err;
    EXPECT_EQ(Contains(result.err, ":sysapi.c:"), level >= 0) << result.err;
    EXPECT_EQ(Contains(result.err, "]: sysapi failed, type=0x81, socket="), level >= 0);
  }
}

TEST(Commands, SendTheirLetterAndBodyLayout) {
  SystemPeer peer(kPath);
  EXPECT_EQ(sysapi_wdg_update(kPath, std::string(100, 'n').c_str(), "restart", 0), 0);
  EXPECT_EQ(sysapi_buzzer(kPath, 1, 3, 100, 0), 0);
  EXPECT_EQ(sysapi_reset_conf(kPath, "factory", "{\"keep\":1}"), 0);
  EXPECT_EQ(sysapi_irled_event(kPath, 1), 0);
  EXPECT_EQ(sysapi_run_app(kPath, std::string(300, 'x').c_str()), -7);  // never cut silently
  EXPECT_EQ(sysapi_button_event(kPath, 7), 520);
  const int registered = sysapi_eventreg_ex(kPath, 0x12);
  EXPECT_GE(registered, 0);
  ASSERT_TRUE(WaitUntil([&] { return peer.Messages().size() == 6; }, seconds(5)));
  close(registered);
  std::map<char, std::vector<uint8_t>> body;  // by command letter
  for (const PeerMessage& m : peer.Messages()) body[static_cast<char>(m.cmd)] = m.body;
  ASSERT_EQ(body.size(), 6u);
  ASSERT_EQ(body['w'].size(), 128u);  // each name cut to its field, the rest zero
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(body['w'].data())), std::string(63, 'n'));
  EXPECT_STREQ(reinterpret_cast<const char*>(&body['w'][SYSAPI_WDG_COMMAND_OFFSET]), "restart");
  EXPECT_EQ(body['w'][127], 0);
  ASSERT_EQ(body['B'].size(), 16u);
  EXPECT_EQ(WordAt(body['B'], 12), 250u) << "a duration below 1 becomes 250";
  ASSERT_EQ(body['C'].size(), 196u + 11u);
  EXPECT_STREQ(reinterpret_cast<const char*>(&body['C'][196]), "{\"keep\":1}");
  EXPECT_EQ(body['D'].size(), 4u);
  ASSERT_EQ(body['1'].size(), 520u);
  EXPECT_EQ(WordAt(body['1'], 0), SYSAPI_EVENT_BUTTON);
  EXPECT_EQ(WordAt(body['1'], 4), 7u);
  ASSERT_EQ(body['E'].size(), 528u);
  EXPECT_EQ(WordAt(body['E'], 0), 0x12u);
}

TEST(Request, SendsItsBodyAndChecksTheReplysHeaderLengthAndContent) {
  char out[64];
  char small[4];
  char listed[SYSAPI_STORAGE_LIST_REPLY_SIZE];
  const std::string json = "{\"a\":1}";
  std::string names(SYSAPI_STORAGE_LIST_REPLY_SIZE, '\0');
  names.replace(0, 3, "sd0").replace(16, 3, "usb");
  const struct {
    std::string reply;
    std::function<int()> call;
    int expected;
  } cases[] = {
      {Header(kSync, 'Y', 4) + Word(0), [] { return sysapi_storage_format(kPath, "sd0"); }, 0},
      {Header(kSync, 'Y', 4) + Word(3), [] { return sysapi_storage_mount(kPath, "sd0"); }, 3},
      {Header(kSync, 'Y', 4) + Word(-1), [] { return sysapi_storage_mount(kPath, "sd0"); }, -6},
      {Header(0x12345678, 'Y', 4) + Word(0), [] { return sysapi_storage_format(kPath, "sd0"); },
       -8},
      {Header(kSync, 'Z', 4) + Word(0), [] { return sysapi_storage_mount(kPath, "sd0"); }, -8},
      {"\xff\xff", [] { return sysapi_storage_umount(kPath, "sd0"); }, -8},  // then closes
      {Header(kSync, 'Y', 8) + Word(0), [] { return sysapi_storage_format(kPath, "sd0"); }, -5},
      {Header(kSync, 'Y', 4) + "\x01\x02", [] { return sysapi_storage_format(kPath, "sd0"); }, -6},
      {Header(kSync, 'Y', 128) + names, [&] { return sysapi_storage_list(kPath, listed); }, 2},
      {Header(kSync, 'K', 7) + json,
       [&] { return sysapi_restore_conf(kPath, "/tmp/conf", out, sizeof(out)); }, 7},
      {Header(kSync, 'K', 7) + json,
       [&] { return sysapi_restore_conf(kPath, "/tmp/conf", small, sizeof(small)); }, -5},
  };
  std::string format_request;
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    OneShotServer server(kPath, c.reply);
    EXPECT_EQ(c.call(), c.expected);
    if (&c == cases) format_request = server.received().substr(sizeof(cmd_hdr));
  }
  ASSERT_EQ(format_request.size(), 20u);
  EXPECT_EQ(format_request[0], SYSAPI_STORAGE_FORMAT);
  EXPECT_STREQ(format_request.c_str() + 4, "sd0");
  EXPECT_EQ(std::string(out), json);
  EXPECT_STREQ(listed + 16, "usb");
  EXPECT_EQ(sysapi_storage_format(kPath, "sd0"), -2);  // no peer
  EXPECT_EQ(sysapi_storage_format(kPath, "a-device-name-too-long"), -7);
}

// Writes bytes into one end of a socket pair (then closes it), processes one message at the other
// end and adds each body handed to the callback to *bodies.
int ProcessBytes(const std::string& bytes, std::vector<std::string>* bodies) {
  int fds[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  (void)!write(fds[0], bytes.data(), bytes.size());
  close(fds[0]);
  const int rc = sysapi_event_process(
      fds[1],
      [](uint32_t, const void* body, uint32_t len, void* user) {
        static_cast<std::vector<std::string>*>(user)->emplace_back(static_cast<const char*>(body),
                                                                   len);
      },
      bodies);
  close(fds[1]);
  return rc;
}

TEST(EventProcess, HandsOnlyAWholeEventBodyToTheCallbackAndTellsRegistrationAnswersApart) {
  // In a child: the library writes the process's standard error.
  const ChildResult result = RunChecksInChild([] {
    std::vector<std::string> bodies;
    EXPECT_EQ(ProcessBytes(Header(0, '1', 5) + "hello", &bodies), -8);
    EXPECT_EQ(ProcessBytes(Header(kSync, '?', 0), &bodies), -8);
    EXPECT_EQ(ProcessBytes(Header(kSync, '1', 1u << 30), &bodies), -5);
    EXPECT_EQ(ProcessBytes(Header(kSync, '1', 10) + "abc", &bodies), -6);
    EXPECT_EQ(ProcessBytes("\xff\xff\xff", &bodies), -1);
    ProcessBytes(Header(kSync, 'E', 4) + Word(0), &bodies);
    ProcessBytes(Header(kSync, 'E', 4) + Word(1), &bodies);
    EXPECT_EQ(ProcessBytes(Header(kSync, '1', 5) + "hello", &bodies), 5);
    EXPECT_EQ(bodies, std::vector<std::string>{"hello"});
  });
  EXPECT_EQ(result.exit_code, 0) << result.out;
  EXPECT_TRUE(Contains(result.err, "]: event registed\n")) << result.err;
  EXPECT_TRUE(Contains(result.err, "]: event failed registed\n")) << result.err;
}

// recv_all waits through the peer's pauses (each shorter than its time-out) for the whole length,
// and reports a peer that closes early through perror.
TEST(RecvAll, ReadsTheWholeLengthAcrossPausesAndFailsWhenThePeerCloses) {
  int fds[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  std::thread writer([fd = fds[1]] {
    (void)!write(fd, "abc", 3);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    (void)!write(fd, "defgh", 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    (void)!write(fd, "ij", 2);
    close(fd);
  });
  char buffer[16] = {};
  EXPECT_EQ(recv_all(fds[0], buffer, 8), 8);
  EXPECT_EQ(std::string(buffer, 8), "abcdefgh");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(recv_all(fds[0], buffer, 8), -1);
  EXPECT_TRUE(Contains(::testing::internal::GetCapturedStderr(), "recv_all: "));
  writer.join();
  close(fds[0]);
}

TEST(ModLog, WordsRoundTripThroughTheSegment) {
  const int32_t words[MOD_LOG_WORDS] = {1, 2, 3, 4, 5, 6, 7};
  ASSERT_EQ(mod_log_update(words), 0);
  int32_t back[MOD_LOG_WORDS] = {};
  ASSERT_EQ(mod_log_get(back), 0);
  EXPECT_EQ(std::memcmp(words, back, sizeof(words)), 0);
  EXPECT_EQ(mod_log_exit(), 0);
  EXPECT_EQ(mod_log_get(back), 0) << "a later call attaches again";
}

TEST(WriteLog, OperationLinesCarryTheSourceAndTheCategoryFoundByExactName) {
  EXPECT_EQ(GetOperationCategoryIndex("Detection"), 9);
  EXPECT_EQ(GetOperationCategoryIndex("detection"), -1);
  CreateLogFile();
  WriteLog(LOG_TYPE_OPERATION, "x.c", 5, "Fn", "Camera", 9, "started %s\n", "ok");
  const std::string operation = ReadFileOrEmpty(OPERATION_LOG_PATH);
  EXPECT_NE(operation.find(" [Camera] [Detection]: started ok\n"), std::string::npos) << operation;
  WriteLog(7, "x.c", 5, "Fn", "Camera", 9, "never\n");  // no path for type 7: nothing written
  EXPECT_EQ(ReadFileOrEmpty(OPERATION_LOG_PATH), operation);
}

TEST(WriteLog, MissingDirectoryIsReportedAndCreateLogFileMakesIt) {
  unlink(DEBUG_LOG_PATH);
  unlink(OPERATION_LOG_PATH);
  rmdir(DEBUG_LOG_DIR);
  // In a child: the library writes the process's standard error.
  auto result = RunInChild([] { WriteLog(LOG_TYPE_DEBUG, "x.c", 1, "Fn", "System", -1, "a\n"); });
  EXPECT_NE(result.err.find("Failed to open fd. ["), std::string::npos) << result.err;
  CreateLogFile();
  EXPECT_EQ(access(DEBUG_LOG_PATH, F_OK) + access(OPERATION_LOG_PATH, F_OK), 0);
  WriteLog(LOG_TYPE_DEBUG, "x.c", 1, "Fn", "System", -1, "kept\n");
  CreateLogFile();  // existing files are kept
  EXPECT_NE(ReadFileOrEmpty(DEBUG_LOG_PATH).find("kept\n"), std::string::npos);
}

TEST(RotateFile, DropsWholeLinesFromTheHeadAndEndsTheLastLine) {
  const struct {
    const char *before, *after_text;
    int bytes, dropped;
  } cases[] = {
      {"first\nsecond\nthird\n", "second\nthird\n", 1, 6},  // one byte costs the whole line
      {"second\nthird\n", "", 8, 13},                       // 7 bytes of "second\n" are not enough
      {"a\nno-newline", "a\nno-newline\n", 0, 0},
  };
  const char path[] = "/tmp/rotate-me.log";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before);
    WriteFile(path, c.before);
    EXPECT_EQ(RotateFile(path, c.bytes), c.dropped);
    EXPECT_EQ(ReadFileOrEmpty(path), c.after_text);
  }
}

TEST(RotateLogFileBySize, LeavesASmallOrMissingFileAloneAndTrimsOneByteOver) {
  CreateLogFile();
  WriteFile(OPERATION_LOG_PATH, std::string(1023, 'a') + "\n");
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 0);
  EXPECT_EQ(ReadFileOrEmpty(OPERATION_LOG_PATH).size(), 1024u);
  WriteFile(OPERATION_LOG_PATH, "x\n" + std::string(1023, 'a') + "\n");
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 2);
  EXPECT_EQ(ReadFileOrEmpty(OPERATION_LOG_PATH), std::string(1023, 'a') + "\n");
  unlink(OPERATION_LOG_PATH);
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 0);
  const std::string debug = ReadFileOrEmpty(DEBUG_LOG_PATH);
  EXPECT_NE(debug.find("Rotate log[" OPERATION_LOG_PATH "], size[2].\n"), std::string::npos);
  EXPECT_NE(debug.find("Failed to stat [" OPERATION_LOG_PATH "].\n"), std::string::npos);
}

}  // namespace
}  // namespace mirvane
