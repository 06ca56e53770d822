// The stand-in as a program: it serves many clients, drops the ones that send garbage without
// losing the others, answers request/reply commands, and restarts the daemon like the camera.
#include <gtest/gtest.h>
#include <jansson.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <sstream>
#include <string>

#include "sysapi.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using std::chrono::seconds;
using testing::ReadFileOrEmpty;
using testing::WaitUntil;

constexpr char kSocket[] = "/tmp/sysd-test.sock";
constexpr char kRestartLog[] = "/tmp/sysd-test-restarts";

// A client connection that has sent bytes.
int Sent(const std::string& bytes) {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr = {};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", kSocket);
  EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
  EXPECT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  return fd;
}

std::string Message(uint32_t cmd, uint32_t len, const std::string& body) {
  const cmd_hdr hdr = {SYSTEMD_COMMAND_PACKET_SYNC_CODE, cmd, len};
  return std::string(reinterpret_cast<const char*>(&hdr), sizeof(hdr)) + body;
}

double WallSeconds() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// Counts the JSON lines of the output by their "kind"; each carries the wall-clock time to the
// millisecond, at or after since.
std::map<std::string, int> Kinds(const std::string& out, double since) {
  std::map<std::string, int> kinds;
  std::istringstream lines(out);
  std::string line;
  while (std::getline(lines, line)) {
    json_t* record = json_loads(line.c_str(), 0, nullptr);
    EXPECT_NE(record, nullptr) << "not JSON: " << line;
    if (record == nullptr) continue;
    ++kinds[json_string_value(json_object_get(record, "kind"))];
    const double time = json_number_value(json_object_get(record, "time"));
    EXPECT_GE(time, since - 0.001) << line;
    EXPECT_LE(time, WallSeconds() + 0.001) << line;
    json_decref(record);
  }
  return kinds;
}

// Garbage, an oversized length and a truncated message each drop only their own client; when
// the daemon's socket closes after an alive heartbeat, the restart command runs.
TEST(StandIn, DropsBadClientsKeepsServingTheOthersAndRestartsTheDaemon) {
  unlink(kRestartLog);
  const double start = WallSeconds();
  testing::Subprocess stand_in({MIRVANE_SYSD_PATH, "--socket", kSocket, "--json",
                                "--heartbeat-timeout", "60", "--restart-command",
                                std::string("echo restarted >> ") + kRestartLog});
  struct stat st;
  ASSERT_TRUE(WaitUntil([&] { return stat(kSocket, &st) == 0; }, seconds(10)));
  const std::string heartbeat = Message('W', 128, "mirvane" + std::string(121, '\0'));
  const int daemon = Sent(heartbeat);
  const int garbage = Sent("GET / HTTP/1.1\r\n\r\n");
  const int oversized = Sent(Message('1', 0x7FFFFFFF, ""));
  close(Sent(heartbeat.substr(0, 40)));

  const uint8_t event[SYSAPI_EVENT_PAYLOAD_SIZE] = {129};
  EXPECT_EQ(sysapi_eventcb(kSocket, event), SYSAPI_EVENT_PAYLOAD_SIZE);
  EXPECT_EQ(sysapi_storage_format(kSocket, "sd0"), 0);
  char names[SYSAPI_STORAGE_LIST_REPLY_SIZE];
  EXPECT_EQ(sysapi_storage_list(kSocket, names), 1);
  EXPECT_TRUE(
      WaitUntil([&] { return Kinds(stand_in.ReadOut(), start)["event"] == 1; }, seconds(5)));
  EXPECT_EQ(ReadFileOrEmpty(kRestartLog), "") << "no restart while the daemon's socket is open";
  close(daemon);
  EXPECT_TRUE(WaitUntil([] { return ReadFileOrEmpty(kRestartLog) == "restarted\n"; }, seconds(10)));

  stand_in.Signal(SIGTERM);
  ASSERT_TRUE(stand_in.Wait(seconds(10)));
  EXPECT_EQ(stand_in.result().exit_code, 0) << stand_in.result().err;
  std::map<std::string, int> kinds = Kinds(stand_in.result().out, start);
  for (const char* varying : {"connected", "closed", "note"}) kinds.erase(varying);
  EXPECT_EQ(kinds,
            (std::map<std::string, int>{
                {"command", 2}, {"dropped", 3}, {"event", 1}, {"heartbeat", 1}, {"summary", 1}}))
      << stand_in.result().out;
  close(garbage);
  close(oversized);
}

}  // namespace
}  // namespace mirvane
