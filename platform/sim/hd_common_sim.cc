// hd_common_* and hd_gfx_init/uninit of the host simulation.
//
// Order rules kept from the camera: hd_common_init first; hd_common_mem_init and hd_gfx_init
// after it; each module is brought down before hd_common_uninit; the device-memory calls need
// hd_common_mem_init. Block ownership is shared with other processes (see device_memory.h).
#include <atomic>
#include <mutex>
#include <vector>

#include "device_memory.h"
#include "fault_injector.h"
#include "hd_common.h"
#include "hd_gfx.h"
#include "platform_state.h"
#include "word_range.h"

namespace mirvane {
namespace sim {
namespace {

std::mutex g_mutex;
std::atomic<bool> g_common{false};
std::atomic<bool> g_mem{false};
std::atomic<bool> g_gfx{false};

}  // namespace

bool CommonReady() {
  return g_common.load();
}
bool MemReady() {
  return g_mem.load();
}
bool GfxReady() {
  return g_gfx.load();
}

}  // namespace sim
}  // namespace mirvane

using mirvane::sim::DeviceMemory;
using mirvane::sim::FaultCode;
using mirvane::sim::g_common;
using mirvane::sim::g_gfx;
using mirvane::sim::g_mem;
using mirvane::sim::g_mutex;

extern "C" {

HD_RESULT hd_common_init(UINT32 sys_config_type) {
  (void)sys_config_type;  // the simulation behaves alike in every mode
  if (int code = FaultCode("hd_common_init")) return static_cast<HD_RESULT>(code);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_common) return HD_ERR_INIT;
  if (!DeviceMemory::Instance().ok()) return HD_ERR_SYS;
  g_common = true;
  return HD_OK;
}

HD_RESULT hd_common_sysconfig(UINT32 type1, UINT32 type2, UINT32 type1_mask, UINT32 type2_mask) {
  (void)type1;
  (void)type2;
  (void)type1_mask;
  (void)type2_mask;
  if (int code = FaultCode("hd_common_sysconfig")) return static_cast<HD_RESULT>(code);
  return g_common ? HD_OK : HD_ERR_UNINIT;
}

HD_RESULT hd_common_uninit(void) {
  if (int code = FaultCode("hd_common_uninit")) return static_cast<HD_RESULT>(code);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_common) return HD_ERR_UNINIT;
  if (g_mem || g_gfx) return HD_ERR_STATE;  // modules come down first
  g_common = false;
  return HD_OK;
}

HD_RESULT hd_common_mem_init(HD_COMMON_MEM_INIT_CONFIG* p_mem_config) {
  if (int code = FaultCode("hd_common_mem_init")) return static_cast<HD_RESULT>(code);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_common) return HD_ERR_UNINIT;
  if (g_mem) return HD_ERR_INIT;
  if (p_mem_config != nullptr) {
    std::vector<mirvane::sim::PoolSetting> pools;
    for (const HD_COMMON_MEM_POOL_INFO& info : p_mem_config->pool_info) {
      if (info.type == 0 || info.blk_cnt == 0) continue;
      if (info.blk_size == 0 || !mirvane::sim::FitsU32(info.blk_size) || info.blk_cnt > 0xffffUL ||
          static_cast<unsigned>(info.ddr_id) > 7) {
        return HD_ERR_PARAM;
      }
      pools.push_back(mirvane::sim::PoolSetting{
          static_cast<uint32_t>(info.type), static_cast<uint32_t>(info.blk_size),
          static_cast<uint32_t>(info.blk_cnt), static_cast<uint32_t>(info.ddr_id)});
    }
    if (pools.empty()) return HD_ERR_PARAM;
    const int r = DeviceMemory::Instance().SetPools(pools);
    if (r != 0) return static_cast<HD_RESULT>(r);
  }
  g_mem = true;
  return HD_OK;
}

HD_RESULT hd_common_mem_uninit(void) {
  if (int code = FaultCode("hd_common_mem_uninit")) return static_cast<HD_RESULT>(code);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_mem) return HD_ERR_UNINIT;
  g_mem = false;  // blocks stay taken until released, as on the camera
  return HD_OK;
}

HD_COMMON_MEM_VB_BLK hd_common_mem_get_block(HD_COMMON_MEM_POOL_TYPE pool_type, UINT32 blk_size,
                                             HD_COMMON_MEM_DDR_ID ddr) {
  if (FaultCode("hd_common_mem_get_block") != 0 || !g_mem) return HD_COMMON_MEM_VB_INVALID_BLK;
  if (!mirvane::sim::FitsU32(blk_size)) return HD_COMMON_MEM_VB_INVALID_BLK;
  return DeviceMemory::Instance().GetBlock(static_cast<uint32_t>(pool_type),
                                           static_cast<uint32_t>(blk_size),
                                           static_cast<uint32_t>(ddr));
}

HD_RESULT hd_common_mem_release_block(HD_COMMON_MEM_VB_BLK blk) {
  if (int code = FaultCode("hd_common_mem_release_block")) return static_cast<HD_RESULT>(code);
  if (!g_mem) return HD_ERR_UNINIT;
  if (!mirvane::sim::FitsI32(blk)) return HD_ERR_PARAM;
  return static_cast<HD_RESULT>(DeviceMemory::Instance().ReleaseBlock(static_cast<int32_t>(blk)));
}

UINT32 hd_common_mem_blk2pa(HD_COMMON_MEM_VB_BLK blk) {
  if (FaultCode("hd_common_mem_blk2pa") != 0 || !g_mem) return 0;
  if (!mirvane::sim::FitsI32(blk)) return 0;
  return DeviceMemory::Instance().BlockAddress(static_cast<int32_t>(blk));
}

void* hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE mem_type, UINT32 phy_addr, UINT32 size) {
  if (FaultCode("hd_common_mem_mmap") != 0 || !g_mem) return nullptr;
  if (mem_type != HD_COMMON_MEM_MEM_TYPE_CACHE && mem_type != HD_COMMON_MEM_MEM_TYPE_NONCACHE) {
    return nullptr;
  }
  if (!mirvane::sim::FitsU32(phy_addr) || size == 0 || !mirvane::sim::FitsU32(size)) {
    return nullptr;
  }
  return DeviceMemory::Instance().Map(static_cast<uint32_t>(phy_addr), static_cast<uint32_t>(size));
}

HD_RESULT hd_common_mem_munmap(void* virt_addr, unsigned int size) {
  if (int code = FaultCode("hd_common_mem_munmap")) return static_cast<HD_RESULT>(code);
  if (!g_mem) return HD_ERR_UNINIT;
  if (virt_addr == nullptr) return HD_ERR_NULL_PTR;
  return static_cast<HD_RESULT>(DeviceMemory::Instance().Unmap(virt_addr, size));
}

HD_RESULT hd_common_mem_flush_cache(void* virt_addr, unsigned int size) {
  if (int code = FaultCode("hd_common_mem_flush_cache")) return static_cast<HD_RESULT>(code);
  if (!g_mem) return HD_ERR_UNINIT;
  if (virt_addr == nullptr) return HD_ERR_NULL_PTR;
  // The host's mappings are coherent: the flush only checks that the range was mapped.
  return static_cast<HD_RESULT>(DeviceMemory::Instance().CheckMapped(virt_addr, size));
}

HD_RESULT hd_gfx_init(VOID) {
  if (int code = FaultCode("hd_gfx_init")) return static_cast<HD_RESULT>(code);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_common) return HD_ERR_UNINIT;
  if (g_gfx) return HD_ERR_INIT;
  g_gfx = true;
  return HD_OK;
}

HD_RESULT hd_gfx_uninit(VOID) {
  if (int code = FaultCode("hd_gfx_uninit")) return static_cast<HD_RESULT>(code);
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_gfx) return HD_ERR_UNINIT;
  g_gfx = false;
  return HD_OK;
}

}  // extern "C"
