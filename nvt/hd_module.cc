#include "nvt/hd_module.h"

#include <string>

#include "common/log.h"

namespace mirvane {
namespace {
constexpr long long kSettleNs = 10000000;  // 10 ms after bring-up
}

HdModule::HdModule()
    : common_(kCommonMode),
      mem_(kBlockSize, common_),
      blk_(mem_),
      mapping_(blk_.physical_address(), blk_.size()),
      cursor_physical_(mapping_.physical_address()),
      cursor_virtual_(reinterpret_cast<uintptr_t>(mapping_.virtual_address())),
      remaining_(mapping_.size()) {
  SleepFully(kSettleNs);
}

MemMapping HdModule::mapping() const {
  return MemMapping{mapping_.physical_address(),
                    reinterpret_cast<uintptr_t>(mapping_.virtual_address()), mapping_.size()};
}

MemMapping HdModule::FetchMemMapping(uint32_t size) {
  if (size > remaining_) {
    throw std::runtime_error("Fetch memory with size[" + std::to_string(size) +
                             "] larger than remain[" + std::to_string(remaining_) + "]");
  }
  const MemMapping result{cursor_physical_, cursor_virtual_, size};
  cursor_physical_ += size;
  cursor_virtual_ += size;
  remaining_ -= size;
  MIRVANE_LOG(kLogDebug, "Fetch mem mapping virtual_address: 0x%lx with size: %lu. remained[%lu]\n",
              static_cast<unsigned long>(result.virtual_address), static_cast<unsigned long>(size),
              static_cast<unsigned long>(remaining_));
  return result;
}

}  // namespace mirvane
