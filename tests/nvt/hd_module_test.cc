// The device-memory arena on the host simulation: bring-up with retries, the block left taken by
// a process that died and its recovery through the block-id file, and the bump allocator.
#include "nvt/hd_module.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdio>
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

bool Exists(const char* path) {
  struct stat st;
  return stat(path, &st) == 0;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// A process that takes the block through the arena and is killed without running a destructor.
// Returns the block id it left in the block-id file.
std::string KillWhileHoldingTheBlock() {
  const ChildResult killed = RunChecksInChild([] {
    HdModule arena;
    std::fflush(nullptr);
    raise(SIGKILL);
  });
  EXPECT_EQ(killed.term_signal, SIGKILL) << killed.out << killed.err;
  return ReadFileOrEmpty(kMemBlkIdFilePath);
}

TEST(HdModule, AStartAfterAnUncleanExitTakesTheBlockBackThroughTheIdFile) {
  const std::string left = KillWhileHoldingTheBlock();
  ASSERT_FALSE(left.empty()) << "the killed process recorded its block";

  const ChildResult next = RunChecksInChild([] {
    HdModule arena;
    EXPECT_EQ(ReadFileOrEmpty(kMemBlkIdFilePath), std::to_string(arena.block_id()))
        << "the file holds the new id, in decimal without a line end";
    EXPECT_EQ(arena.remaining(), HdModule::kBlockSize);
  });
  EXPECT_EQ(next.exit_code, 0) << next.out << next.err;
  EXPECT_TRUE(Contains(next.out, "hd_common_mem_get_block fail, try release previous get.\n"))
      << next.out;
  EXPECT_EQ(CountErrorLogLines(next.out), 1) << next.out;
  EXPECT_FALSE(Exists(kMemBlkIdFilePath)) << "a clean exit releases the block and removes the file";

  // And the block is free again: a plain start needs no recovery.
  const ChildResult clean = RunChecksInChild([] { HdModule arena; });
  EXPECT_EQ(clean.exit_code, 0) << clean.out << clean.err;
  EXPECT_EQ(CountErrorLogLines(clean.out), 0) << clean.out;
}

TEST(HdModule, ThrowsWhenTheBlockIsTakenAndTheIdFileIsMissing) {
  const std::string left = KillWhileHoldingTheBlock();
  ASSERT_FALSE(left.empty());
  ASSERT_EQ(std::remove(kMemBlkIdFilePath), 0);

  const ChildResult refused = RunChecksInChild([] {
    try {
      HdModule arena;
      ADD_FAILURE() << "built an arena without a block";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "Fail to read mem blk id file /tmp/mirvane_blkid");
    }
  });
  EXPECT_EQ(refused.exit_code, 0) << refused.out << refused.err;

  // With the id back in place the next start recovers (and leaves the pool clean).
  std::FILE* file = std::fopen(kMemBlkIdFilePath, "w");
  ASSERT_NE(file, nullptr);
  std::fputs(left.c_str(), file);
  std::fclose(file);
  const ChildResult recovered = RunChecksInChild([] { HdModule arena; });
  EXPECT_EQ(recovered.exit_code, 0) << recovered.out << recovered.err;
}

TEST(HdModule, RetriesAFailingPlatformInit) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(R"({"faults": [{"call": "hd_common_init", "code": -10, "nth": 1,
                                   "count": 1}]})");
    HdModule arena;
    EXPECT_EQ(arena.remaining(), HdModule::kBlockSize);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_TRUE(Contains(result.out, "Retry[0] hd_common_init fail=-10\n")) << result.out;
  EXPECT_EQ(CountErrorLogLines(result.out), 1) << result.out;
}

TEST(HdModule, FetchMemMappingCarvesTheBlockInOrderUntilNothingRemains) {
  const ChildResult result = RunChecksInChild([] {
    HdModule arena;
    const MemMapping whole = arena.mapping();
    EXPECT_EQ(whole.size, HdModule::kBlockSize);
    EXPECT_NE(whole.physical_address, 0u);
    EXPECT_NE(whole.virtual_address, 0u);

    const MemMapping none = arena.FetchMemMapping(0);
    EXPECT_EQ(none.physical_address, whole.physical_address);
    EXPECT_EQ(none.virtual_address, whole.virtual_address);
    EXPECT_EQ(none.size, 0u);
    EXPECT_EQ(arena.remaining(), HdModule::kBlockSize) << "nothing taken by a request of 0";

    try {
      arena.FetchMemMapping(HdModule::kBlockSize + 1);
      ADD_FAILURE() << "carved more than the block";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "Fetch memory with size[33554433] larger than remain[33554432]");
    }
    EXPECT_EQ(arena.remaining(), HdModule::kBlockSize) << "a refused request takes nothing";

    const MemMapping first = arena.FetchMemMapping(1000);
    const MemMapping rest = arena.FetchMemMapping(HdModule::kBlockSize - 1000);
    EXPECT_EQ(first.physical_address, whole.physical_address);
    EXPECT_EQ(first.size, 1000u);
    EXPECT_EQ(rest.physical_address, whole.physical_address + 1000);
    EXPECT_EQ(rest.virtual_address, whole.virtual_address + 1000);
    EXPECT_EQ(rest.size, HdModule::kBlockSize - 1000);
    EXPECT_EQ(arena.remaining(), 0u);
    // Both ends of the last region are the process's memory.
    auto* bytes = reinterpret_cast<unsigned char*>(rest.virtual_address);
    bytes[0] = 1;
    bytes[rest.size - 1] = 2;

    try {
      arena.FetchMemMapping(1);
      ADD_FAILURE() << "carved past the end";
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "Fetch memory with size[1] larger than remain[0]");
    }
    const MemMapping end = arena.FetchMemMapping(0);
    EXPECT_EQ(end.physical_address, whole.physical_address + HdModule::kBlockSize);
    EXPECT_EQ(end.size, 0u);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
}

}  // namespace
}  // namespace mirvane
