// The log front end: the debug switch, the level gate, and the two line forms.
#include "common/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "debugLog.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::ReadFileOrEmpty;
using testing::RunInChild;

void SetDebugSwitch(bool on) {
  mkdir("/tmp/workspace", 0755);
  if (on) std::ofstream(kDebugSwitchPath) << "";
  if (!on) unlink(kDebugSwitchPath);
}

TEST(DebugSwitch, TheFileEnablesDebugAndIsReadOnceAtTheFirstTestOfAnyLevel) {
  for (bool on : {false, true}) {
    SetDebugSwitch(on);
    // In a child each time: the switch is read once per process.
    EXPECT_EQ(RunInChild([on] {
                if (!IsLogLevelEnabled(kLogErr)) _exit(10);
                SetDebugSwitch(!on);
                if (IsLogLevelEnabled(kLogDebug) != on) _exit(11);
                if (!IsLogLevelEnabled(kLogInfo)) _exit(12);
              }).exit_code,
              0)
        << on;
  }
  SetDebugSwitch(false);
}

// Standard output takes a long message whole; the file cuts it to 511 characters in all, level
// prefix included, and so without its line feed.
TEST(LogPrint, WritesBothLineFormsWithTheFileNameWithoutItsDirectory) {
  unlink(DEBUG_LOG_PATH);
  CreateLogFile();
  const std::string long_text(600, 'x');
  ChildResult result = RunInChild([&] {
    LogPrint(kLogInfo, "/src/bin/threshold.cc", 42, "ReloadFromPgo", "value %d\n", 7);
    LogPrint(kLogInfo, "plain.cc", 1, "F", "a\n");
    LogPrint(kLogInfo, "dir/", 2, "F", "b\n");
    LogPrint(kLogInfo, nullptr, 1, "F", "a\n");  // these three write nothing
    LogPrint(kLogInfo, "a.cc", 1, nullptr, "a\n");
    LogPrint(kLogInfo, "a.cc", 1, "F", nullptr);
    LogPrint(kLogErr, "a.cc", 1, "F", "%s\n", long_text.c_str());
  });
  EXPECT_EQ(result.out,
            "[Mirvane][Info] threshold.cc:42:ReloadFromPgo: value 7\n"
            "[Mirvane][Info] plain.cc:1:F: a\n[Mirvane][Info] :2:F: b\n"
            "[Mirvane][Err] a.cc:1:F: " +
                long_text + "\n");
  const std::string file = ReadFileOrEmpty(DEBUG_LOG_PATH);
  EXPECT_NE(file.find(" threshold.cc:42:ReloadFromPgo(): [Mirvane][Info]value 7\n"),
            std::string::npos)
      << file;
  size_t lines = 0;
  for (size_t at = file.find("[Mirvane]"); at != std::string::npos;
       at = file.find("[Mirvane]", at + 1))
    ++lines;
  EXPECT_EQ(lines, 4u) << file;
  EXPECT_EQ(file.substr(file.find("[Mirvane][Err]")),
            ("[Mirvane][Err]" + long_text).substr(0, 511));
}

TEST(LogPrint, MissingLogDirectoryStillWritesStandardOutput) {
  unlink(DEBUG_LOG_PATH);
  unlink(OPERATION_LOG_PATH);
  rmdir(DEBUG_LOG_DIR);
  ChildResult result = RunInChild([] { LogPrint(kLogInfo, "a.cc", 3, "F", "still here\n"); });
  EXPECT_EQ(result.out, "[Mirvane][Info] a.cc:3:F: still here\n");
  EXPECT_NE(result.err.find("Failed to open fd."), std::string::npos) << result.err;
}

// Writes a file of size bytes at path.
void WriteBytes(const std::string& path, size_t size) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << std::string(size, '.');
}

// Links planted in /tmp, at the log file or at its directory, are never written through.
TEST(LogPrint, NeverWritesThroughALinkAtTheFileOrItsDirectory) {
  mkdir(DEBUG_LOG_DIR, 0755);
  unlink(DEBUG_LOG_PATH);
  WriteBytes("/tmp/victim", 3);
  ASSERT_EQ(symlink("/tmp/victim", DEBUG_LOG_PATH), 0);
  ChildResult result = RunInChild([] { LogPrint(kLogErr, "a.cc", 1, "F", "through the link\n"); });
  EXPECT_EQ(ReadFileOrEmpty("/tmp/victim"), "...");
  EXPECT_EQ(result.out, "[Mirvane][Err] a.cc:1:F: through the link\n") << "stdout still gets it";
  unlink(DEBUG_LOG_PATH);

  ASSERT_EQ(rmdir(DEBUG_LOG_DIR), 0);
  mkdir("/tmp/elsewhere", 0755);
  ASSERT_EQ(symlink("/tmp/elsewhere", "/tmp/log"), 0);
  RunInChild([] {
    CreateLogFile();
    LogPrint(kLogErr, "a.cc", 1, "F", "through the directory\n");
  });
  EXPECT_EQ(access("/tmp/elsewhere/debug.log", F_OK), -1);
  EXPECT_EQ(access("/tmp/elsewhere/operation.log", F_OK), -1);
  unlink("/tmp/log");
}

// A line repeated every frame is written a few times a second; the next one written tells how
// many were dropped. Other lines pass meanwhile.
TEST(LogPrint, ThrottlesIdenticalLinesAndCountsTheDropsInTheNextOneWritten) {
  mkdir(DEBUG_LOG_DIR, 0755);
  unlink(DEBUG_LOG_PATH);
  ChildResult result = RunInChild([] {
    for (int i = 0; i < 10; ++i) {
      LogPrint(kLogErr, "a.cc", 7, "F", "wrong id %d\n", 5);
      LogPrint(kLogInfo, "a.cc", 8, "F", "frame %d\n", i);
    }
    usleep(1100 * 1000);  // the next second
    LogPrint(kLogErr, "a.cc", 7, "F", "wrong id %d\n", 5);
  });
  const std::string repeated = "[Mirvane][Err] a.cc:7:F: wrong id 5\n";
  size_t count = 0;
  for (size_t at = result.out.find(repeated); at != std::string::npos;
       at = result.out.find(repeated, at + 1))
    ++count;
  EXPECT_EQ(count, 3u) << result.out;
  EXPECT_NE(result.out.find("frame 9\n"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("wrong id 5 [7 identical lines dropped]\n"), std::string::npos)
      << result.out;
  EXPECT_NE(ReadFileOrEmpty(DEBUG_LOG_PATH).find("wrong id 5 [7 identical lines dropped]\n"),
            std::string::npos);
}

TEST(LogPrint, MovesAFullDebugLogAsideAndStartsAnew) {
  mkdir(DEBUG_LOG_DIR, 0755);
  WriteBytes(DEBUG_LOG_PATH, 1 << 20);
  const std::string previous = std::string(DEBUG_LOG_PATH) + ".1";
  unlink(previous.c_str());
  RunInChild([] {
    for (int i = 0; i < 40; ++i) LogPrint(kLogInfo, "a.cc", 1, "F", "line %d\n", i);
  });
  struct stat st;
  ASSERT_EQ(stat(previous.c_str(), &st), 0);
  EXPECT_GE(st.st_size, 1 << 20);
  ASSERT_EQ(stat(DEBUG_LOG_PATH, &st), 0);
  EXPECT_LT(st.st_size, 1 << 16);
  EXPECT_NE(ReadFileOrEmpty(DEBUG_LOG_PATH).find("line 39\n"), std::string::npos);
}

}  // namespace
}  // namespace mirvane
