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

// What RotateFile keeps of the file, without the line that it appends about itself when the
// rotated file is the debug log.
std::string Lines(const std::string& path) { return ReadFileOrEmpty(path); }

TEST(Categories, AreFoundByExactName) {
  EXPECT_EQ(GetOperationCategoryIndex("Connection"), 0);
  EXPECT_EQ(GetOperationCategoryIndex("Edge Recording"), 3);
  EXPECT_EQ(GetOperationCategoryIndex("Detection"), 9);
  EXPECT_EQ(GetOperationCategoryIndex("detection"), -1);
  EXPECT_EQ(GetOperationCategoryIndex("Unknown"), -1);
}

TEST(WriteLog, PrefixesDependOnTheLogType) {
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

TEST(RotateFile, DropsWholeLinesFromTheHead) {
  const std::string path = "/tmp/rotate-me.log";
  WriteText(path, "first\nsecond\nthird\n");
  EXPECT_EQ(RotateFile(path.c_str(), 1), 6);  // one byte is enough to lose the whole first line
  EXPECT_EQ(Lines(path), "second\nthird\n");
  EXPECT_EQ(RotateFile(path.c_str(), 8), 13);  // 7 bytes of "second\n" are not enough
  EXPECT_EQ(Lines(path), "");
}

TEST(RotateFile, GivesTheLastLineItsLineFeedBack) {
  const std::string path = "/tmp/rotate-tail.log";
  WriteText(path, "a\nno-newline");
  EXPECT_EQ(RotateFile(path.c_str(), 0), 0);
  EXPECT_EQ(Lines(path), "a\nno-newline\n");
}

TEST(RotateLogFileBySize, LeavesASmallFileAloneAndTrimsOneByteOver) {
  CreateLogFile();
  WriteText(OPERATION_LOG_PATH, std::string(1023, 'a') + "\n");
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 0);
  EXPECT_EQ(ReadFileOrEmpty(OPERATION_LOG_PATH).size(), 1024u);

  WriteText(OPERATION_LOG_PATH, "x\n" + std::string(1023, 'a') + "\n");
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 2);
  EXPECT_EQ(ReadFileOrEmpty(OPERATION_LOG_PATH), std::string(1023, 'a') + "\n");
  EXPECT_NE(ReadFileOrEmpty(DEBUG_LOG_PATH).find("Rotate log[" OPERATION_LOG_PATH "], size[2].\n"),
            std::string::npos);
}

TEST(RotateLogFileBySize, MissingFileIsLoggedAndDropsNothing) {
  CreateLogFile();
  unlink(OPERATION_LOG_PATH);
  EXPECT_EQ(RotateLogFileBySize(LOG_TYPE_OPERATION, 1), 0);
  EXPECT_NE(ReadFileOrEmpty(DEBUG_LOG_PATH).find("Failed to stat [" OPERATION_LOG_PATH "].\n"),
            std::string::npos);
}

}  // namespace
