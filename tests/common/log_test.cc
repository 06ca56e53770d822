// The log front end: the debug switch, the level gate, and the two line forms.
#include "common/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

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

}  // namespace
}  // namespace mirvane
