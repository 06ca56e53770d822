// The media platform and network runtime brought up together, with one 32 MiB block of device
// memory mapped into the process and handed out by a bump allocator. Device buffers (model file,
// network work buffer, input images, snapshot picture) are carved once and never returned.
//
// Owns, in order of construction: HdCommon (mode 2), HdGfx, HdMem, HdMemBlk, HdMemMapping,
// VendorAi; destruction runs in reverse. Threads: the pipeline thread only.
#ifndef MIRVANE_NVT_HD_MODULE_H
#define MIRVANE_NVT_HD_MODULE_H

#include <cstdint>

#include "nvt/hd_wrapper.h"

namespace mirvane {

class HdModule {
 public:
  static constexpr uint32_t kCommonMode = 2;
  static constexpr uint32_t kBlockSize = 0x2000000;  // 32 MiB
  // The video encoder path that makes the snapshots' JPEG pictures.
  static constexpr uint32_t kJpegEncoderPathId = 0x25000000;

  HdModule();
  HdModule(const HdModule&) = delete;
  HdModule& operator=(const HdModule&) = delete;

  // Carves size bytes from the block; throws when fewer remain.
  MemMapping FetchMemMapping(uint32_t size);

  uint32_t block_id() const { return blk_.id(); }
  MemMapping mapping() const;
  uint32_t remaining() const { return remaining_; }
  uint32_t jpeg_encoder_path_id() const { return kJpegEncoderPathId; }

 private:
  HdCommon common_;
  HdGfx gfx_;
  HdMem mem_;
  HdMemBlk blk_;
  HdMemMapping mapping_;
  VendorAi ai_;
  uint32_t cursor_physical_;
  uintptr_t cursor_virtual_;
  uint32_t remaining_;
};

}  // namespace mirvane

#endif  // MIRVANE_NVT_HD_MODULE_H
