#include "device_memory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "file_util.h"
#include "hd_type.h"

namespace mirvane {
namespace sim {

namespace {

constexpr uint32_t kStateMagic = 0x4d56444d;  // "MDVM"
constexpr uint32_t kStateVersion = 1;
constexpr uint32_t kMaxPools = 32;
constexpr uint32_t kMaxBlocks = 4096;

constexpr uint32_t kWindowBase[3] = {kPoolBase, kVideoBase, kEncoderBase};
constexpr uint32_t kWindowSize[3] = {kPoolWindow, kVideoWindow, kEncoderWindow};

uint32_t AlignUp(uint32_t n, uint32_t to) {
  return (n + to - 1) / to * to;
}

}  // namespace

// The pool table shared by all processes through "mem.state" (fixed-size fields only).
struct SharedPool {
  uint32_t type;
  uint32_t ddr_id;
  uint32_t blk_size;
  uint32_t blk_cnt;
  uint32_t start_pa;
  uint32_t stride;      // distance between blocks (the block size rounded up to a page)
  uint32_t first_slot;  // index of its first block in taken[]
  uint32_t reserved;
};

struct SharedState {
  uint32_t magic;
  uint32_t version;
  uint32_t pool_count;
  uint32_t block_count;
  SharedPool pools[kMaxPools];
  uint8_t taken[kMaxBlocks];
};

DeviceMemory& DeviceMemory::Instance() {
  static DeviceMemory* instance = new DeviceMemory();
  return *instance;
}

DeviceMemory::DeviceMemory() {
  std::shared_ptr<const Settings> settings = CurrentSettings();
  ok_ = Open(settings->state_dir);
  if (!ok_) {
    SimWarn("device memory unavailable in %s: %s", settings->state_dir.c_str(), strerror(errno));
    return;
  }
  const int r = SetPools(settings->pools);
  if (r == HD_ERR_IN_USE) {
    SimWarn("pools of the settings differ from those in %s, where blocks are taken: keeping those",
            settings->state_dir.c_str());
  } else if (r != 0) {
    SimWarn("pools of the settings do not fit the pool window; keeping the previous layout");
  }
}

bool DeviceMemory::Open(const std::string& dir) {
  if (!MakeDirs(dir)) return false;
  state_fd_ = open((dir + "/mem.state").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ddr_fd_ = open((dir + "/ddr.bin").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (state_fd_ < 0 || ddr_fd_ < 0) return false;
  FileLock lock(state_fd_);
  struct stat st;
  if (fstat(state_fd_, &st) != 0) return false;
  if (st.st_size < static_cast<off_t>(sizeof(SharedState)) &&
      ftruncate(state_fd_, sizeof(SharedState)) != 0) {
    return false;
  }
  void* p = mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, state_fd_, 0);
  if (p == MAP_FAILED) return false;
  state_ = static_cast<SharedState*>(p);
  if (state_->magic != kStateMagic || state_->version != kStateVersion) {
    std::memset(state_, 0, sizeof(SharedState));
    state_->magic = kStateMagic;
    state_->version = kStateVersion;
  }
  return true;
}

bool DeviceMemory::GrowFile(uint64_t end_offset) {
  struct stat st;
  if (fstat(ddr_fd_, &st) != 0) return false;
  if (static_cast<uint64_t>(st.st_size) >= end_offset) return true;
  return ftruncate(ddr_fd_, static_cast<off_t>(end_offset)) == 0;
}

uint32_t DeviceMemory::PoolBytesLocked() const {
  if (state_->pool_count == 0) return 0;
  const SharedPool& last = state_->pools[state_->pool_count - 1];
  return last.start_pa - kPoolBase + last.stride * last.blk_cnt;
}

int DeviceMemory::SetPools(const std::vector<PoolSetting>& pools) {
  if (!ok_) return HD_ERR_SYS;
  if (pools.size() > kMaxPools) return HD_ERR_PARAM;
  SharedPool table[kMaxPools] = {};
  uint64_t offset = 0;
  uint32_t slots = 0;
  for (size_t i = 0; i < pools.size(); ++i) {
    const PoolSetting& p = pools[i];
    if (p.type == 0 || p.blk_size == 0 || p.blk_cnt == 0 || p.ddr_id > 7) return HD_ERR_PARAM;
    const uint64_t stride =
        (static_cast<uint64_t>(p.blk_size) + kPageSize - 1) / kPageSize * kPageSize;
    if (slots + static_cast<uint64_t>(p.blk_cnt) > kMaxBlocks) return HD_ERR_PARAM;
    if (offset + stride * p.blk_cnt > kPoolWindow) return HD_ERR_PARAM;
    table[i] = SharedPool{p.type,
                          p.ddr_id,
                          p.blk_size,
                          p.blk_cnt,
                          kPoolBase + static_cast<uint32_t>(offset),
                          static_cast<uint32_t>(stride),
                          slots,
                          0};
    offset += stride * p.blk_cnt;
    slots += p.blk_cnt;
  }

  std::lock_guard<std::mutex> guard(mutex_);
  FileLock lock(state_fd_);
  if (state_->pool_count == pools.size() &&
      std::memcmp(state_->pools, table, sizeof(SharedPool) * pools.size()) == 0) {
    return 0;
  }
  for (uint32_t i = 0; i < state_->block_count; ++i) {
    if (state_->taken[i] != 0) return HD_ERR_IN_USE;
  }
  if (!GrowFile(offset)) return HD_ERR_NOMEM;
  std::memcpy(state_->pools, table, sizeof table);
  state_->pool_count = static_cast<uint32_t>(pools.size());
  state_->block_count = slots;
  std::memset(state_->taken, 0, sizeof state_->taken);
  return 0;
}

int32_t DeviceMemory::GetBlock(uint32_t pool_type, uint32_t size, uint32_t ddr_id) {
  if (!ok_ || size == 0) return -1;
  std::lock_guard<std::mutex> guard(mutex_);
  FileLock lock(state_fd_);
  for (uint32_t p = 0; p < state_->pool_count; ++p) {
    const SharedPool& pool = state_->pools[p];
    if (pool.type != pool_type || pool.ddr_id != ddr_id || pool.blk_size < size) continue;
    for (uint32_t b = 0; b < pool.blk_cnt; ++b) {
      if (state_->taken[pool.first_slot + b] == 0) {
        state_->taken[pool.first_slot + b] = 1;
        return static_cast<int32_t>((p + 1) << 16 | b);
      }
    }
  }
  return -1;
}

int DeviceMemory::ReleaseBlock(int32_t blk) {
  if (!ok_) return HD_ERR_SYS;
  std::lock_guard<std::mutex> guard(mutex_);
  FileLock lock(state_fd_);
  const uint32_t p = (static_cast<uint32_t>(blk) >> 16) - 1;
  const uint32_t b = static_cast<uint32_t>(blk) & 0xffff;
  if (blk <= 0 || p >= state_->pool_count || b >= state_->pools[p].blk_cnt) return HD_ERR_PARAM;
  uint8_t& taken = state_->taken[state_->pools[p].first_slot + b];
  if (taken == 0) return HD_ERR_NOT_USE;
  taken = 0;
  return 0;
}

uint32_t DeviceMemory::BlockAddress(int32_t blk) {
  if (!ok_) return 0;
  std::lock_guard<std::mutex> guard(mutex_);
  FileLock lock(state_fd_);
  const uint32_t p = (static_cast<uint32_t>(blk) >> 16) - 1;
  const uint32_t b = static_cast<uint32_t>(blk) & 0xffff;
  if (blk <= 0 || p >= state_->pool_count || b >= state_->pools[p].blk_cnt) return 0;
  const SharedPool& pool = state_->pools[p];
  if (state_->taken[pool.first_slot + b] == 0) return 0;
  return pool.start_pa + pool.stride * b;
}

bool DeviceMemory::Reserve(Window window, uint32_t size) {
  const int w = static_cast<int>(window);
  if (!ok_ || window == Window::kPool || size > kWindowSize[w]) return false;
  std::lock_guard<std::mutex> guard(mutex_);
  const uint32_t aligned = AlignUp(size, kPageSize);
  if (!GrowFile(static_cast<uint64_t>(kWindowBase[w] - kPoolBase) + aligned)) return false;
  if (aligned > reserved_[w]) reserved_[w] = aligned;
  return true;
}

uint8_t* DeviceMemory::WindowLocked(Window window) {
  const int w = static_cast<int>(window);
  if (windows_[w] == nullptr) {
    void* p = mmap(nullptr, kWindowSize[w], PROT_READ | PROT_WRITE, MAP_SHARED, ddr_fd_,
                   static_cast<off_t>(kWindowBase[w] - kPoolBase));
    if (p == MAP_FAILED) return nullptr;
    windows_[w] = static_cast<uint8_t*>(p);
  }
  return windows_[w];
}

uint8_t* DeviceMemory::View(uint32_t pa, uint32_t size) {
  if (!ok_ || size == 0) return nullptr;
  std::lock_guard<std::mutex> guard(mutex_);
  for (int w = 0; w < 3; ++w) {
    const uint64_t begin = kWindowBase[w];
    if (pa < begin || pa >= begin + kWindowSize[w]) continue;
    uint64_t used = reserved_[w];
    if (w == 0) {
      FileLock lock(state_fd_);
      used = PoolBytesLocked();
    }
    if (static_cast<uint64_t>(pa) + size > begin + used) return nullptr;
    uint8_t* base = WindowLocked(static_cast<Window>(w));
    return base == nullptr ? nullptr : base + (pa - begin);
  }
  return nullptr;
}

void* DeviceMemory::Map(uint32_t pa, uint32_t size) {
  if (View(pa, size) == nullptr) return nullptr;
  const uint32_t page_offset = pa % kPageSize;
  const size_t length = AlignUp(page_offset + size, kPageSize);
  void* base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, ddr_fd_,
                    static_cast<off_t>(pa - page_offset - kPoolBase));
  if (base == MAP_FAILED) return nullptr;
  void* va = static_cast<uint8_t*>(base) + page_offset;
  std::lock_guard<std::mutex> guard(mutex_);
  mappings_[reinterpret_cast<uintptr_t>(va)] = UserMapping{base, length, size};
  return va;
}

int DeviceMemory::Unmap(void* va, uint32_t size) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = mappings_.find(reinterpret_cast<uintptr_t>(va));
  if (it == mappings_.end() || it->second.size != size) return HD_ERR_PARAM;
  munmap(it->second.base, it->second.length);
  mappings_.erase(it);
  return 0;
}

int DeviceMemory::CheckMapped(const void* va, uint32_t size) {
  const uintptr_t begin = reinterpret_cast<uintptr_t>(va);
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = mappings_.upper_bound(begin);
  if (it == mappings_.begin()) return HD_ERR_PARAM;
  --it;
  const uint64_t end = static_cast<uint64_t>(begin) + size;
  return end <= static_cast<uint64_t>(it->first) + it->second.size ? 0 : HD_ERR_PARAM;
}

}  // namespace sim
}  // namespace mirvane
