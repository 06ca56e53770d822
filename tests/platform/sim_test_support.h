// Helpers for tests against the host simulation's public C API. Used from the test's thread.
#ifndef MIRVANE_TESTS_PLATFORM_SIM_TEST_SUPPORT_H
#define MIRVANE_TESTS_PLATFORM_SIM_TEST_SUPPORT_H

#include <stdlib.h>
#include <sys/stat.h>

#include <cstdint>
#include <fstream>
#include <string>

#include "hdal.h"
#include "mirvane_sim.h"

namespace mirvane {
namespace testing {

// Writes the simulation's settings file (MIRVANE_SIM_SETTINGS points at it from then on) and
// reloads the settings. The state directory always stays the test namespace's default.
inline void UseSimSettings(const std::string& json) {
  mkdir("/tmp/mirvane-sim-test", 0755);
  std::ofstream("/tmp/mirvane-sim-test/sim.json", std::ios::trunc) << json;
  setenv("MIRVANE_SIM_SETTINGS", "/tmp/mirvane-sim-test/sim.json", 1);
  mirvane_sim_reload_settings();
}

// Owns the media platform brought up as the daemon does (common in mode 2, graphics, memory with
// the system's pools), brought down in reverse order.
class PlatformUp {
 public:
  PlatformUp()
      : ok_(hd_common_init(2) == HD_OK && hd_gfx_init() == HD_OK &&
            hd_common_mem_init(nullptr) == HD_OK) {}
  ~PlatformUp() {
    hd_common_mem_uninit();
    hd_gfx_uninit();
    hd_common_uninit();
  }
  PlatformUp(const PlatformUp&) = delete;
  PlatformUp& operator=(const PlatformUp&) = delete;
  bool ok() const { return ok_; }

 private:
  bool ok_;
};

// Owns the CNN pool's 32 MiB block, taken and mapped for a test's duration.
class MappedBlock {
 public:
  static constexpr UINT32 kSize = 32u << 20;
  MappedBlock() : blk_(hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, kSize, DDR_ID0)) {
    if (blk_ == HD_COMMON_MEM_VB_INVALID_BLK) return;
    pa_ = hd_common_mem_blk2pa(blk_);
    data_ = static_cast<uint8_t*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa_, kSize));
  }
  ~MappedBlock() {
    if (data_ != nullptr) hd_common_mem_munmap(data_, kSize);
    if (blk_ != HD_COMMON_MEM_VB_INVALID_BLK) hd_common_mem_release_block(blk_);
  }
  MappedBlock(const MappedBlock&) = delete;
  MappedBlock& operator=(const MappedBlock&) = delete;

  bool ok() const { return data_ != nullptr; }
  HD_COMMON_MEM_VB_BLK id() const { return blk_; }
  UINT32 pa() const { return pa_; }
  uint8_t* data() const { return data_; }

 private:
  HD_COMMON_MEM_VB_BLK blk_;
  UINT32 pa_ = 0;
  uint8_t* data_ = nullptr;
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_PLATFORM_SIM_TEST_SUPPORT_H
