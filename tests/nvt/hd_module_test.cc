// The device-memory arena on the host simulation: bring-up with retries, the block left taken by
// a process that died and its recovery through the block-id file, and the bump allocator.
#include "nvt/hd_module.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "sim_test_support.h"
#include "testing/checks_in_child.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::CountErrorLogLines;
using testing::ReadFileOrEmpty;
using testing::RunChecksInChild;
using testing::UseSimSettings;

// Checks run in a child: the platform's bring-up and the device memory it takes last as long as
// the process.
TEST(HdModule, AStartAfterAnUncleanExitTakesTheBlockBackThroughTheIdFileOnly) {
  const ChildResult killed = RunChecksInChild([] {
    HdModule arena;
    raise(SIGKILL);  // no destructor runs, as with a daemon killed by the watchdog
  });
  ASSERT_EQ(killed.term_signal, SIGKILL) << killed.out << killed.err;
  const std::string left = ReadFileOrEmpty(kMemBlkIdFilePath);
  ASSERT_FALSE(left.empty()) << "the killed process recorded its block";

  ASSERT_EQ(unlink(kMemBlkIdFilePath), 0);
  const ChildResult refused = RunChecksInChild([] {
    try {
      HdModule arena;
      ADD_FAILURE() << "built an arena without a block";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "Fail to read mem blk id file /tmp/mirvane_blkid");
    }
  });
  EXPECT_EQ(refused.exit_code, 0) << refused.out << refused.err;

  std::ofstream(kMemBlkIdFilePath) << left;
  const ChildResult next = RunChecksInChild([] {
    HdModule arena;
    EXPECT_EQ(ReadFileOrEmpty(kMemBlkIdFilePath), std::to_string(arena.block_id()))
        << "the file holds the new id, in decimal without a line end";
    EXPECT_EQ(arena.remaining(), HdModule::kBlockSize);
  });
  EXPECT_EQ(next.exit_code, 0) << next.out << next.err;
  EXPECT_NE(next.out.find("hd_common_mem_get_block fail, try release previous get.\n"), -1);
  EXPECT_EQ(CountErrorLogLines(next.out), 1) << next.out;
  EXPECT_EQ(access(kMemBlkIdFilePath, F_OK), -1) << "a clean exit releases and removes the file";

  const ChildResult clean = RunChecksInChild([] { HdModule arena; });
  EXPECT_EQ(clean.exit_code, 0) << clean.out << clean.err;
  EXPECT_EQ(CountErrorLogLines(clean.out), 0) << "a plain start needs no recovery: " << clean.out;
}

// The id file is replaced whole, never written through a link planted at its path; a process that
// exits without its teardown can still give the block back.
TEST(HdModule, TheIdFileReplacesAPlantedLinkAndAnExitReleaseFreesTheBlock) {
  std::ofstream("/tmp/victim") << "precious";
  unlink(kMemBlkIdFilePath);
  ASSERT_EQ(symlink("/tmp/victim", kMemBlkIdFilePath), 0);
  const ChildResult exited = RunChecksInChild([] {
    HdModule arena;
    struct stat st;
    ASSERT_EQ(lstat(kMemBlkIdFilePath, &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(ReadFileOrEmpty(kMemBlkIdFilePath), std::to_string(arena.block_id()));
    ReleaseOwnedBlockAtExit();
    ReleaseOwnedBlockAtExit();  // once only
    EXPECT_EQ(access(kMemBlkIdFilePath, F_OK), -1);
    raise(SIGKILL);  // no teardown
  });
  ASSERT_EQ(exited.term_signal, SIGKILL) << exited.out << exited.err;
  EXPECT_EQ(ReadFileOrEmpty("/tmp/victim"), "precious");
  const ChildResult next = RunChecksInChild([] { HdModule arena; });
  EXPECT_EQ(next.exit_code, 0) << next.out << next.err;
  EXPECT_EQ(CountErrorLogLines(next.out), 0) << "the block was free again: " << next.out;
}

TEST(HdModule, RetriesAFailingPlatformInit) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(R"({"faults": [{"call": "hd_common_init", "code": -10, "nth": 1}]})");
    HdModule arena;
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("Retry[0] hd_common_init fail=-10\n"), -1) << result.out;
  EXPECT_EQ(CountErrorLogLines(result.out), 1) << result.out;
}

// The text of the error that carving size bytes throws; "" when it does not throw.
std::string FetchError(HdModule& arena, uint32_t size) {
  try {
    arena.FetchMemMapping(size);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "";
}

TEST(HdModule, FetchMemMappingCarvesTheBlockInOrderUntilNothingRemains) {
  const ChildResult result = RunChecksInChild([] {
    HdModule arena;
    const MemMapping whole = arena.mapping();
    EXPECT_EQ(whole.size, HdModule::kBlockSize);
    EXPECT_EQ(FetchError(arena, HdModule::kBlockSize + 1),
              "Fetch memory with size[33554433] larger than remain[33554432]");
    const MemMapping none = arena.FetchMemMapping(0);
    EXPECT_TRUE(none.physical_address == whole.physical_address && none.size == 0);
    arena.FetchMemMapping(1000);
    EXPECT_EQ(arena.remaining(), HdModule::kBlockSize - 1000) << "refusals and 0 take nothing";
    const MemMapping rest = arena.FetchMemMapping(HdModule::kBlockSize - 1000);
    EXPECT_EQ(rest.physical_address, whole.physical_address + 1000);
    EXPECT_EQ(rest.virtual_address, whole.virtual_address + 1000);
    EXPECT_EQ(FetchError(arena, 1), "Fetch memory with size[1] larger than remain[0]");
    auto* bytes = reinterpret_cast<unsigned char*>(rest.virtual_address);
    bytes[0] = 1;  // both ends of the last region are the process's memory
    bytes[rest.size - 1] = 2;
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
}

}  // namespace
}  // namespace mirvane
