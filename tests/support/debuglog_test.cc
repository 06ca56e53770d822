// The file log: line prefixes, categories, creation and trimming by size.
#include "debugLog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "testing/child_process.h"

namespace {

using mirvane::testing::ReadFileOrEmpty;
using mirvane::testing::RunInChild;

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
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
  auto result = RunInChild([] { WriteLog(LOG_TYPE_DEBUG, "x.c", 1, "Fn", "System", -1, "a\n"); });
  EXPECT_NE(result.err.find("Failed to open fd. ["), std::string::npos) << result.err;
  CreateLogFile();
  struct stat st;
  EXPECT_EQ(stat(DEBUG_LOG_PATH, &st), 0);
  EXPECT_EQ(stat(OPERATION_LOG_PATH, &st), 0);
  CreateLogFile();  // existing files are kept
  WriteLog(LOG_TYPE_DEBUG, "x.c", 1, "Fn", "System", -1, "kept\n");
  CreateLogFile();
  EXPECT_NE(ReadFileOrEmpty(DEBUG_LOG_PATH).find("kept\n"), std::string::npos);
}

TEST(RotateFile, DropsWholeLinesFromTheHeadAndEndsTheLastLine) {
  const struct {
    const char* before;
    int bytes;
    int dropped;
    const char* after;
  } cases[] = {
      {"first\nsecond\nthird\n", 1, 6, "second\nthird\n"},  // one byte costs the whole line
      {"second\nthird\n", 8, 13, ""},                       // 7 bytes of "second\n" are not enough
      {"a\nno-newline", 0, 0, "a\nno-newline\n"},
  };
  const char path[] = "/tmp/rotate-me.log";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before);
    WriteText(path, c.before);
    EXPECT_EQ(RotateFile(path, c.bytes), c.dropped);
    EXPECT_EQ(ReadFileOrEmpty(path), c.after);
  }
}

TEST(RotateLogFileBySize, LeavesASmallOrMissingFileAloneAndTrimsOneByteOver) {
  CreateLogFile();
  WriteText(OPERATION_LOG_PATH, std::string(1023, 'a') + "\n");
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 0);
  EXPECT_EQ(ReadFileOrEmpty(OPERATION_LOG_PATH).size(), 1024u);
  WriteText(OPERATION_LOG_PATH, "x\n" + std::string(1023, 'a') + "\n");
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 2);
  EXPECT_EQ(ReadFileOrEmpty(OPERATION_LOG_PATH), std::string(1023, 'a') + "\n");
  unlink(OPERATION_LOG_PATH);
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 0);
  const std::string debug = ReadFileOrEmpty(DEBUG_LOG_PATH);
  EXPECT_NE(debug.find("Rotate log[" OPERATION_LOG_PATH "], size[2].\n"), std::string::npos);
  EXPECT_NE(debug.find("Failed to stat [" OPERATION_LOG_PATH "].\n"), std::string::npos);
}

}  // namespace
