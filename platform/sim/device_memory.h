// Device memory of the simulated camera: one file-backed region standing for the DDR, shared by
// every process that uses the same state directory, with synthetic physical addresses.
//
// Physical address space (each window backed by the same file "ddr.bin" at offset pa - kPoolBase):
//   kPoolBase    pools of blocks (hd_common_mem_get_block), laid out from the settings or from
//                hd_common_mem_init; which blocks are taken lives in "mem.state" and persists
//                across processes (a process killed while holding a block leaves it taken)
//   kVideoBase   frame buffers of the video output, reserved by the process that runs it
//   kEncoderBase the JPEG encoder's bit-stream buffer, reserved by the process that encodes
//
// Owns the descriptors of both files, the simulation's own mappings of the windows and the
// mappings handed out by Map. One instance per process (Instance); thread-safe.
#ifndef MIRVANE_PLATFORM_SIM_DEVICE_MEMORY_H
#define MIRVANE_PLATFORM_SIM_DEVICE_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sim_settings.h"

namespace mirvane {
namespace sim {

constexpr uint32_t kPoolBase = 0x10000000;
constexpr uint32_t kPoolWindow = 0x10000000;
constexpr uint32_t kVideoBase = 0x20000000;
constexpr uint32_t kVideoWindow = 0x08000000;
constexpr uint32_t kEncoderBase = 0x28000000;
constexpr uint32_t kEncoderWindow = 0x04000000;
constexpr uint32_t kPageSize = 4096;

enum class Window { kPool = 0, kVideo = 1, kEncoder = 2 };

class DeviceMemory {
 public:
  // The process's instance, opened on first use in the state directory of the settings then in
  // force. Never destroyed.
  static DeviceMemory& Instance();

  DeviceMemory(const DeviceMemory&) = delete;
  DeviceMemory& operator=(const DeviceMemory&) = delete;

  bool ok() const { return ok_; }

  // Lays the pools out anew. Returns 0; HD_ERR_PARAM for a bad or oversized layout;
  // HD_ERR_IN_USE when the layout differs and some block is taken.
  int SetPools(const std::vector<PoolSetting>& pools);

  // Takes a free block of a pool of the given type and ddr whose blocks hold size bytes.
  // Returns the block id, or -1.
  int32_t GetBlock(uint32_t pool_type, uint32_t size, uint32_t ddr_id);
  // Returns 0, HD_ERR_PARAM for an unknown id, HD_ERR_NOT_USE for a block that is not taken.
  int ReleaseBlock(int32_t blk);
  // Physical address of a taken block, 0 otherwise.
  uint32_t BlockAddress(int32_t blk);

  // Reserves the first size bytes of the video or encoder window for this process.
  bool Reserve(Window window, uint32_t size);

  // The simulation's own pointer to [pa, pa + size), or nullptr when not all of it is device
  // memory in use (a laid-out pool or a reserved window).
  uint8_t* View(uint32_t pa, uint32_t size);

  // Mappings handed to the platform's users (hd_common_mem_mmap and friends).
  void* Map(uint32_t pa, uint32_t size);
  int Unmap(void* va, uint32_t size);
  // 0 when [va, va + size) lies inside one mapping made by Map, else HD_ERR_PARAM.
  int CheckMapped(const void* va, uint32_t size);

 private:
  struct UserMapping {
    void* base;
    size_t length;
    uint32_t size;
  };

  DeviceMemory();
  bool Open(const std::string& dir);
  bool GrowFile(uint64_t end_offset);
  uint32_t PoolBytesLocked() const;
  uint8_t* WindowLocked(Window window);

  std::mutex mutex_;
  bool ok_ = false;
  int state_fd_ = -1;
  int ddr_fd_ = -1;
  struct SharedState* state_ = nullptr;
  uint8_t* windows_[3] = {nullptr, nullptr, nullptr};
  uint32_t reserved_[3] = {0, 0, 0};
  std::map<uintptr_t, UserMapping> mappings_;  // by the address handed out
};

}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_DEVICE_MEMORY_H
