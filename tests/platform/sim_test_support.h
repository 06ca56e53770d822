// Helpers for tests against the host simulation's public C API.
#ifndef MIRVANE_TESTS_PLATFORM_SIM_TEST_SUPPORT_H
#define MIRVANE_TESTS_PLATFORM_SIM_TEST_SUPPORT_H

#include <cstdint>
#include <string>

#include "hdal.h"

namespace mirvane {
namespace testing {

// Writes the simulation's settings file (MIRVANE_SIM_SETTINGS points at it from then on) and
// reloads the settings. The state directory always stays the test namespace's default.
void UseSimSettings(const std::string& json);

// The media platform brought up as the daemon does (common in mode 2, graphics, memory with the
// system's pools), brought down in reverse order. Not copyable.
class PlatformUp {
 public:
  PlatformUp();
  ~PlatformUp();
  PlatformUp(const PlatformUp&) = delete;
  PlatformUp& operator=(const PlatformUp&) = delete;
  bool ok() const { return ok_; }

 private:
  bool ok_ = false;
};

// The CNN pool's 32 MiB block, taken and mapped for a test's duration. Not copyable.
class MappedBlock {
 public:
  MappedBlock();
  ~MappedBlock();
  MappedBlock(const MappedBlock&) = delete;
  MappedBlock& operator=(const MappedBlock&) = delete;

  bool ok() const { return data_ != nullptr; }
  UINT32 pa() const { return pa_; }
  uint8_t* data() const { return data_; }
  static constexpr UINT32 kSize = 32u << 20;

 private:
  HD_COMMON_MEM_VB_BLK blk_ = HD_COMMON_MEM_VB_INVALID_BLK;
  UINT32 pa_ = 0;
  uint8_t* data_ = nullptr;
};

}  // namespace testing
}  // namespace mirvane

#endif  // MIRVANE_TESTS_PLATFORM_SIM_TEST_SUPPORT_H
