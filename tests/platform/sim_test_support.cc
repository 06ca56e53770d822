#include "sim_test_support.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>

#include "mirvane_sim.h"

namespace mirvane {
namespace testing {

namespace {
const char kSettingsDir[] = "/tmp/mirvane-sim-test";
const char kSettingsPath[] = "/tmp/mirvane-sim-test/sim.json";
}  // namespace

void UseSimSettings(const std::string& json) {
  mkdir(kSettingsDir, 0755);
  std::ofstream(kSettingsPath, std::ios::trunc) << json;
  setenv("MIRVANE_SIM_SETTINGS", kSettingsPath, 1);
  mirvane_sim_reload_settings();
}

PlatformUp::PlatformUp() {
  ok_ =
      hd_common_init(2) == HD_OK && hd_gfx_init() == HD_OK && hd_common_mem_init(nullptr) == HD_OK;
}

PlatformUp::~PlatformUp() {
  hd_common_mem_uninit();
  hd_gfx_uninit();
  hd_common_uninit();
}

MappedBlock::MappedBlock() {
  blk_ = hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, kSize, DDR_ID0);
  if (blk_ == HD_COMMON_MEM_VB_INVALID_BLK) return;
  pa_ = hd_common_mem_blk2pa(blk_);
  data_ = static_cast<uint8_t*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa_, kSize));
}

MappedBlock::~MappedBlock() {
  if (data_ != nullptr) hd_common_mem_munmap(data_, kSize);
  if (blk_ != HD_COMMON_MEM_VB_INVALID_BLK) hd_common_mem_release_block(blk_);
}

}  // namespace testing
}  // namespace mirvane
