// Test fake: physical address == host pointer (see fake_device_memory.h). Not part of any library.
#include "fake_device_memory.h"

#include <atomic>
#include <cstdint>

extern "C" {
#include "hd_common.h"
}

namespace mirvane {
namespace sim_ai_test {
namespace {
std::atomic<int> g_live{0};
std::atomic<bool> g_refuse{false};
}  // namespace

int LiveMappings() {
  return g_live.load();
}
void RefuseMappings(bool refuse) {
  g_refuse = refuse;
}

}  // namespace sim_ai_test
}  // namespace mirvane

extern "C" {

void* hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE, UINT32 phy_addr, UINT32 size) {
  if (mirvane::sim_ai_test::g_refuse || phy_addr == 0 || size == 0) return nullptr;
  ++mirvane::sim_ai_test::g_live;
  return reinterpret_cast<void*>(static_cast<uintptr_t>(phy_addr));
}

HD_RESULT hd_common_mem_munmap(void* virt_addr, unsigned int) {
  if (virt_addr == nullptr) return HD_ERR_NULL_PTR;
  --mirvane::sim_ai_test::g_live;
  return HD_OK;
}

HD_RESULT hd_common_mem_flush_cache(void* virt_addr, unsigned int) {
  return virt_addr == nullptr ? HD_ERR_NULL_PTR : HD_OK;
}

}  // extern "C"
