// The log front end's fixed paths: the debug switch file, the debug log file (its line form,
// rotation, links planted in /tmp) and the process's standard output when no sink is installed.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "common/log.h"
#include "debugLog.h"
#include "testing/checks_in_child.h"
#include "testing/log_capture.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::ReadFileOrEmpty;
using testing::RunChecksInChild;
using testing::RunInChild;

void SetSwitchFile(bool on) {
  mkdir("/tmp/workspace", 0755);
  if (on) std::ofstream(kDebugSwitchPath) << "";
  if (!on) unlink(kDebugSwitchPath);
}

// Writes a file of size bytes at path.
void WriteBytes(const std::string& path, size_t size) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << std::string(size, '.');
}

TEST(DebugSwitch, TheFileEnablesDebugAndIsReadOnceAtTheFirstTestOfAnyLevel) {
  for (bool on : {false, true}) {
    SetSwitchFile(on);
    // In a child each time: the switch file is read once per process.
    const ChildResult result = RunChecksInChild([on] {
      EXPECT_TRUE(IsLogLevelEnabled(kLogErr));
      SetSwitchFile(!on);
      EXPECT_EQ(IsLogLevelEnabled(kLogDebug), on);
      EXPECT_TRUE(IsLogLevelEnabled(kLogInfo));
    });
    EXPECT_EQ(result.exit_code, 0) << on << result.out;
  }
  SetSwitchFile(false);
}

// The file cuts a long message to 511 characters in all, level prefix included, and so without
// its line feed (so it comes last here); a throttled line tells its drops in both outputs.
TEST(LogPrint, WithoutASinkWritesTheFileAndStandardOutput) {
  unlink(DEBUG_LOG_PATH);
  CreateLogFile();
  const std::string long_text(600, 'x');
  // In a child: these are the process's own standard output.
  const ChildResult result = RunInChild([&] {
    LogPrint(kLogInfo, "/src/bin/threshold.cc", 42, "ReloadFromPgo", "value %d\n", 7);
    for (int i = 0; i < 4; ++i) LogPrint(kLogErr, "a.cc", 7, "F", "wrong id %d\n", 5);
    usleep(1100 * 1000);  // the next second
    LogPrint(kLogErr, "a.cc", 7, "F", "wrong id %d\n", 5);
    LogPrint(kLogErr, "a.cc", 1, "F", "%s\n", long_text.c_str());
  });
  const std::string repeat = "[Mirvane][Err] a.cc:7:F: wrong id 5\n";
  EXPECT_EQ(result.out, "[Mirvane][Info] threshold.cc:42:ReloadFromPgo: value 7\n" + repeat +
                            repeat + repeat +
                            "[Mirvane][Err] a.cc:7:F: wrong id 5 [1 identical lines dropped]\n"
                            "[Mirvane][Err] a.cc:1:F: " +
                            long_text + "\n");
  const std::string file = ReadFileOrEmpty(DEBUG_LOG_PATH);
  EXPECT_NE(file.find(" threshold.cc:42:ReloadFromPgo(): [Mirvane][Info]value 7\n"),
            std::string::npos)
      << file;
  EXPECT_NE(file.find(" a.cc:7:F(): [Mirvane][Err]wrong id 5 [1 identical lines dropped]\n"),
            std::string::npos)
      << file;
  const size_t cut = file.find("[Mirvane][Err]x");
  ASSERT_NE(cut, std::string::npos) << file;
  EXPECT_EQ(file.substr(cut), ("[Mirvane][Err]" + long_text).substr(0, 511));
}

TEST(LogPrint, MissingLogDirectoryStillWritesStandardOutput) {
  unlink(DEBUG_LOG_PATH);
  unlink(OPERATION_LOG_PATH);
  rmdir(DEBUG_LOG_DIR);
  // In a child: these are the process's own standard output and error.
  ChildResult result = RunInChild([] { LogPrint(kLogInfo, "a.cc", 3, "F", "still here\n"); });
  EXPECT_EQ(result.out, "[Mirvane][Info] a.cc:3:F: still here\n");
  EXPECT_NE(result.err.find("Failed to open fd."), std::string::npos) << result.err;
}

TEST(LogPrint, ASinkTakesTheLinesInsteadOfTheFileUntilItIsRemoved) {
  mkdir(DEBUG_LOG_DIR, 0755);
  unlink(DEBUG_LOG_PATH);
  {
    const testing::LogCapture log;
    LogPrint(kLogInfo, "a.cc", 4, "F", "to the sink\n");
    EXPECT_EQ(log.Text(), "[Mirvane][Info] a.cc:4:F: to the sink\n");
  }
  LogPrint(kLogInfo, "a.cc", 4, "F", "to the file\n");
  const std::string file = ReadFileOrEmpty(DEBUG_LOG_PATH);
  EXPECT_EQ(file.find("to the sink"), std::string::npos) << file;
  EXPECT_NE(file.find("to the file\n"), std::string::npos) << file;
}

// Links planted in /tmp, at the log file or at its directory, are never written through.
TEST(LogPrint, NeverWritesThroughALinkAtTheFileOrItsDirectory) {
  mkdir(DEBUG_LOG_DIR, 0755);
  unlink(DEBUG_LOG_PATH);
  WriteBytes("/tmp/victim", 3);
  ASSERT_EQ(symlink("/tmp/victim", DEBUG_LOG_PATH), 0);
  LogPrint(kLogErr, "a.cc", 1, "F", "through the link\n");
  EXPECT_EQ(ReadFileOrEmpty("/tmp/victim"), "...");
  unlink(DEBUG_LOG_PATH);

  ASSERT_EQ(rmdir(DEBUG_LOG_DIR), 0);
  mkdir("/tmp/elsewhere", 0755);
  ASSERT_EQ(symlink("/tmp/elsewhere", "/tmp/log"), 0);
  CreateLogFile();
  LogPrint(kLogErr, "a.cc", 1, "F", "through the directory\n");
  EXPECT_EQ(access("/tmp/elsewhere/debug.log", F_OK), -1);
  EXPECT_EQ(access("/tmp/elsewhere/operation.log", F_OK), -1);
  unlink("/tmp/log");
}

TEST(LogPrint, MovesAFullDebugLogAsideAndStartsAnew) {
  mkdir(DEBUG_LOG_DIR, 0755);
  WriteBytes(DEBUG_LOG_PATH, 1 << 20);
  const std::string previous = std::string(DEBUG_LOG_PATH) + ".1";
  unlink(previous.c_str());
  for (int i = 0; i < 40; ++i) LogPrint(kLogInfo, "a.cc", 1, "F", "line %d\n", i);
  struct stat st;
  ASSERT_EQ(stat(previous.c_str(), &st), 0);
  EXPECT_GE(st.st_size, 1 << 20);
  ASSERT_EQ(stat(DEBUG_LOG_PATH, &st), 0);
  EXPECT_LT(st.st_size, 1 << 16);
  EXPECT_NE(ReadFileOrEmpty(DEBUG_LOG_PATH).find("line 39\n"), std::string::npos);
}

// Standard output and error sent to files (as an init script does) stay bounded as the debug log
// does: a full one is emptied, says so, and takes the next lines.
TEST(LogPrint, EmptiesFullStandardOutputAndErrorFiles) {
  mkdir(DEBUG_LOG_DIR, 0755);
  // In a child: these are the process's own standard output and error, files here.
  const ChildResult result = RunInChild([] {
    const std::string megabyte(1 << 20, '.');
    std::fputs(megabyte.c_str(), stdout);
    std::fputs(megabyte.c_str(), stderr);
    for (int i = 0; i < 40; ++i) LogPrint(kLogInfo, "a.cc", 1, "F", "line %d\n", i);
  });
  const std::string emptied = "[Mirvane] output emptied at 1 MiB\n";
  EXPECT_EQ(result.out.rfind(emptied, 0), 0u) << result.out.substr(0, 80);
  EXPECT_LT(result.out.size(), 1u << 12);
  EXPECT_NE(result.out.find("[Mirvane][Info] a.cc:1:F: line 39\n"), std::string::npos);
  EXPECT_EQ(result.err, emptied);
}

}  // namespace
}  // namespace mirvane
