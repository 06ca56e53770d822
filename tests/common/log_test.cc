// The log front end in the test's own process, its lines taken by a sink: the level gate under
// the debug switch setting, the standard output form, and the repeat filter. log_file_test.cc
// covers the debug log file and the switch file.
#include "common/log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "testing/log_capture.h"

namespace mirvane {
namespace {

using testing::LogCapture;
using testing::ScopedDebugSwitch;

TEST(IsLogLevelEnabled, DebugFollowsTheSwitchAndTheOtherLevelsAlwaysPass) {
  for (bool on : {false, true, false}) {
    const ScopedDebugSwitch debug(on);
    EXPECT_EQ(IsLogLevelEnabled(kLogDebug), on);
    EXPECT_TRUE(IsLogLevelEnabled(kLogInfo));
    EXPECT_TRUE(IsLogLevelEnabled(kLogErr));
  }
}

// The line is whole, however long, and names the file without its directory.
TEST(LogPrint, WritesTheStandardOutputFormWithTheFileNameWithoutItsDirectory) {
  const std::string long_text(600, 'x');
  const LogCapture log;
  LogPrint(kLogInfo, "/src/bin/threshold.cc", 42, "ReloadFromPgo", "value %d\n", 7);
  LogPrint(kLogInfo, "plain.cc", 1, "F", "a\n");
  LogPrint(kLogInfo, "dir/", 2, "F", "b\n");
  LogPrint(kLogInfo, nullptr, 1, "F", "a\n");  // these three write nothing
  LogPrint(kLogInfo, "a.cc", 1, nullptr, "a\n");
  LogPrint(kLogInfo, "a.cc", 1, "F", nullptr);
  LogPrint(kLogErr, "a.cc", 1, "F", "%s\n", long_text.c_str());
  EXPECT_EQ(log.Text(),
            "[Mirvane][Info] threshold.cc:42:ReloadFromPgo: value 7\n"
            "[Mirvane][Info] plain.cc:1:F: a\n[Mirvane][Info] :2:F: b\n"
            "[Mirvane][Err] a.cc:1:F: " +
                long_text + "\n");
  EXPECT_EQ(log.CountAt(kLogInfo), 3);
  EXPECT_EQ(log.CountAt(kLogErr), 1);
}

// A line repeated every frame is written a few times a second; the next one written tells how
// many were dropped. Other lines pass meanwhile.
TEST(LogPrint, ThrottlesIdenticalLinesAndCountsTheDropsInTheNextOneWritten) {
  const LogCapture log;
  for (int i = 0; i < 10; ++i) {
    LogPrint(kLogErr, "a.cc", 7, "F", "wrong id %d\n", 5);
    LogPrint(kLogInfo, "a.cc", 8, "F", "frame %d\n", i);
  }
  EXPECT_EQ(log.Count("[Mirvane][Err] a.cc:7:F: wrong id 5\n"), 3) << log.Text();
  EXPECT_EQ(log.Count("frame "), 10) << log.Text();
  usleep(1100 * 1000);  // the next second
  LogPrint(kLogErr, "a.cc", 7, "F", "wrong id %d\n", 5);
  EXPECT_TRUE(log.Contains("[Mirvane][Err] a.cc:7:F: wrong id 5 [7 identical lines dropped]\n"))
      << log.Text();
}

}  // namespace
}  // namespace mirvane
