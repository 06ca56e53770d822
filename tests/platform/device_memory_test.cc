// Device memory of the host simulation through the platform's C API: block ownership shared by
// processes (a killed owner leaves its block taken), mappings, the order of the calls and their
// error returns, and fault injection.
#include <gtest/gtest.h>
#include <jansson.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hdal.h"
#include "mirvane_sim.h"
#include "sim_test_support.h"
#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::MappedBlock;
using testing::PlatformUp;
using testing::RunInChild;
using testing::UseSimSettings;

constexpr UINT32 kBlockSize = 32u << 20;
constexpr HD_COMMON_MEM_VB_BLK kNoBlock = HD_COMMON_MEM_VB_INVALID_BLK;

HD_COMMON_MEM_VB_BLK TakeCnnBlock(UINT32 size = kBlockSize) {
  return hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, size, DDR_ID0);
}

TEST(DeviceMemory, BlockOfAKilledProcessStaysTakenUntilReleasedById) {
  UseSimSettings("{}");
  const ChildResult killed = RunInChild([] {
    PlatformUp platform;
    std::printf("%ld", static_cast<long>(TakeCnnBlock()));
    std::fflush(stdout);
    raise(SIGKILL);  // no destructor runs, as with a daemon killed by the watchdog
  });
  ASSERT_EQ(killed.term_signal, SIGKILL);
  const long left = std::strtol(killed.out.c_str(), nullptr, 10);
  ASSERT_NE(left, -1) << killed.err;

  const ChildResult next = RunInChild([left] {
    PlatformUp platform;
    const HD_COMMON_MEM_VB_BLK first = TakeCnnBlock();
    const HD_RESULT released = hd_common_mem_release_block(left);
    const HD_COMMON_MEM_VB_BLK second = TakeCnnBlock();
    std::printf("%ld %d %d %d", static_cast<long>(first), released, second == left,
                hd_common_mem_blk2pa(second) != 0);
    hd_common_mem_release_block(second);
  });
  EXPECT_EQ(next.out, "-1 0 1 1") << next.err;
}

TEST(DeviceMemory, MappingsOfABlockInAnyProcessSeeTheSameBytes) {
  UseSimSettings("{}");
  PlatformUp platform;
  MappedBlock block;
  ASSERT_TRUE(block.ok());
  const UINT32 pa = block.pa() + 4096 + 100;  // a second, unaligned mapping inside the block
  auto* window = static_cast<char*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_NONCACHE, pa, 8192));
  ASSERT_NE(window, nullptr);
  std::memcpy(block.data() + 4096 + 100, "through the first", 18);
  EXPECT_STREQ(window, "through the first");
  std::memcpy(window + 1000, "and back", 9);
  EXPECT_STREQ(reinterpret_cast<char*>(block.data() + 4096 + 1100), "and back");
  const ChildResult other = RunInChild([pa] {
    auto* p = static_cast<char*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa, 64));
    std::printf("%s", p != nullptr ? p : "(unmapped)");
  });
  EXPECT_EQ(other.out, "through the first");
  EXPECT_EQ(hd_common_mem_munmap(window, 8192), HD_OK);
}

TEST(DeviceMemory, CallsFollowThePlatformsOrder) {
  UseSimSettings("{}");
  EXPECT_EQ(hd_common_mem_init(nullptr), HD_ERR_UNINIT);
  EXPECT_EQ(hd_gfx_init(), HD_ERR_UNINIT);
  EXPECT_EQ(TakeCnnBlock(), kNoBlock);
  ASSERT_EQ(hd_common_init(2), HD_OK);
  EXPECT_EQ(hd_common_init(2), HD_ERR_INIT);
  EXPECT_EQ(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, 0x10000000, 4096), nullptr);
  ASSERT_EQ(hd_common_mem_init(nullptr), HD_OK);
  EXPECT_EQ(hd_common_uninit(), HD_ERR_STATE);  // memory comes down first
  EXPECT_EQ(hd_common_mem_uninit(), HD_OK);
  EXPECT_EQ(hd_common_mem_uninit(), HD_ERR_UNINIT);
  EXPECT_EQ(hd_common_uninit(), HD_OK);
  EXPECT_EQ(hd_common_uninit(), HD_ERR_UNINIT);
}

TEST(DeviceMemory, RequestsOutsideThePoolsAndMappingsFail) {
  UseSimSettings("{}");
  PlatformUp platform;
  EXPECT_EQ(TakeCnnBlock(kBlockSize + 1), kNoBlock);
  EXPECT_EQ(hd_common_mem_get_block(HD_COMMON_MEM_GFX_POOL, 4096, DDR_ID0), kNoBlock);
  EXPECT_EQ(hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, 4096, DDR_ID1), kNoBlock);
  EXPECT_EQ(hd_common_mem_release_block(12345), HD_ERR_PARAM);
  EXPECT_EQ(hd_common_mem_blk2pa(12345), 0u);
  EXPECT_EQ(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, 0x1000, 4096), nullptr);

  const HD_COMMON_MEM_VB_BLK blk = TakeCnnBlock();
  ASSERT_NE(blk, kNoBlock);
  EXPECT_EQ(TakeCnnBlock(), kNoBlock);  // the pool holds one block
  const UINT32 pa = hd_common_mem_blk2pa(blk);
  EXPECT_EQ(pa % 4096, 0u);
  EXPECT_EQ(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa, kBlockSize + 4096), nullptr);
  auto* va = static_cast<uint8_t*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa, 65536));
  ASSERT_NE(va, nullptr);
  int not_mapped = 0;
  EXPECT_EQ(hd_common_mem_flush_cache(va + 100, 1000), HD_OK);
  EXPECT_EQ(hd_common_mem_flush_cache(va + 65000, 1000), HD_ERR_PARAM);
  EXPECT_EQ(hd_common_mem_flush_cache(&not_mapped, sizeof not_mapped), HD_ERR_PARAM);
  EXPECT_EQ(hd_common_mem_munmap(va, 4096), HD_ERR_PARAM);  // not the size that was mapped
  EXPECT_EQ(hd_common_mem_munmap(va, 65536), HD_OK);
  EXPECT_EQ(hd_common_mem_release_block(blk), HD_OK);
  EXPECT_EQ(hd_common_mem_release_block(blk), HD_ERR_NOT_USE);
  EXPECT_EQ(hd_common_mem_blk2pa(blk), 0u);
}

TEST(DeviceMemory, AConfigurationLaysOutThePoolsOnlyWhileNoBlockIsTaken) {
  UseSimSettings("{}");
  ASSERT_EQ(hd_common_init(0), HD_OK);
  HD_COMMON_MEM_INIT_CONFIG config = {};
  config.pool_info[0] = {DDR_ID0, HD_COMMON_MEM_CNN_POOL, 1 << 20, 2, 0, {}};
  ASSERT_EQ(hd_common_mem_init(&config), HD_OK);
  const HD_COMMON_MEM_VB_BLK a = TakeCnnBlock(1 << 20), b = TakeCnnBlock(1000);
  EXPECT_NE(a, kNoBlock);
  EXPECT_NE(b, kNoBlock);
  EXPECT_NE(hd_common_mem_blk2pa(a), hd_common_mem_blk2pa(b));
  EXPECT_EQ(TakeCnnBlock(1000), kNoBlock);
  ASSERT_EQ(hd_common_mem_uninit(), HD_OK);

  config.pool_info[0].blk_size = kBlockSize;
  config.pool_info[0].blk_cnt = 1;
  EXPECT_EQ(hd_common_mem_init(&config), HD_ERR_IN_USE);
  ASSERT_EQ(hd_common_mem_init(nullptr), HD_OK);  // the system's layout needs no change
  EXPECT_EQ(hd_common_mem_release_block(a), HD_OK);
  EXPECT_EQ(hd_common_mem_release_block(b), HD_OK);
  ASSERT_EQ(hd_common_mem_uninit(), HD_OK);
  EXPECT_EQ(hd_common_mem_init(&config), HD_OK);
  EXPECT_EQ(hd_common_mem_uninit(), HD_OK);
  EXPECT_EQ(hd_common_uninit(), HD_OK);
}

TEST(FaultInjection, FailsTheNthCallForACountOrASeededRateOfCalls) {
  UseSimSettings(R"({"faults": [{"call": "hd_common_mem_get_block", "nth": 2, "count": 2},
                                {"call": "hd_common_sysconfig", "code": -12, "nth": 1}]})");
  std::string got;
  for (int i = 0; i < 4; ++i) got += mirvane_sim_fault("hd_common_mem_get_block") ? '1' : '0';
  EXPECT_EQ(got, "0110");
  PlatformUp platform;
  EXPECT_EQ(hd_common_sysconfig(0, 0x10000, 0, 0xF0000), HD_ERR_DRV);
  EXPECT_EQ(hd_common_sysconfig(0, 0x10000, 0, 0xF0000), HD_OK);  // count defaults to one call

  auto pattern = [] {
    UseSimSettings(R"({"faults": [{"call": "vendor_ai_net_proc", "code": -11, "rate": 0.25,
                                   "seed": 42}]})");  // a reload counts from the first call again
    std::string fails;
    for (int i = 0; i < 400; ++i) fails += mirvane_sim_fault("vendor_ai_net_proc") ? '1' : '0';
    return fails;
  };
  const std::string first = pattern();
  EXPECT_EQ(pattern(), first);
  EXPECT_NEAR(std::count(first.begin(), first.end(), '1'), 100, 40);
  EXPECT_EQ(mirvane_sim_fault("hd_gfx_scale"), 0);  // other calls are untouched
  UseSimSettings("{}");
}

TEST(SimSettings, AnUnusableFileKeepsTheDefaults) {
  UseSimSettings(R"({"video": {"pace": "sometimes"}})");
  EXPECT_EQ(mirvane_sim_reload_settings(), -1);
  UseSimSettings("not json");
  EXPECT_EQ(mirvane_sim_reload_settings(), -1);
  UseSimSettings(R"({"network": {"delay_ms": 3}})");
  EXPECT_EQ(mirvane_sim_reload_settings(), 0);
  json_t* section = mirvane_sim_settings_section("network");
  EXPECT_NE(section, nullptr);  // sections of other parts of the simulation are kept
  json_decref(section);
  UseSimSettings("{}");
}

}  // namespace
}  // namespace mirvane
