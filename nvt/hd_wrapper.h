// Scoped owners of the media platform's and the network runtime's resources. Each constructor
// acquires one resource and throws when that fails (std::runtime_error, or FetchError for the
// per-frame pulls); each destructor releases it, logs a failure at the error level and never
// throws. None is copyable; nested lifetimes release in reverse order of acquisition.
//
// Threads: every object belongs to the thread that built it (the pipeline thread).
#ifndef MIRVANE_NVT_HD_WRAPPER_H
#define MIRVANE_NVT_HD_WRAPPER_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "common/sleep.h"
#include "nvt/platform_api.h"

namespace mirvane {

// A frame or bit-stream could not be pulled from the platform.
class FetchError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Where the daemon records the device-memory block it owns, for recovery after an unclean exit.
constexpr const char* kMemBlkIdFilePath = "/tmp/mirvane_blkid";

#define MIRVANE_NO_COPY(Type) \
  Type(const Type&) = delete; \
  Type& operator=(const Type&) = delete

// The platform itself: hd_common_init with up to five attempts (pauses 0, 2, 4, 6, 8 s).
class HdCommon {
 public:
  explicit HdCommon(uint32_t mode);
  ~HdCommon();
  MIRVANE_NO_COPY(HdCommon);
  uint32_t mode() const { return mode_; }

 private:
  uint32_t mode_;
};

// The graphics engine (the scaler).
class HdGfx {
 public:
  HdGfx();
  ~HdGfx();
  MIRVANE_NO_COPY(HdGfx);
};

// Device memory pools; in mode 0 a CNN pool with one block of size is configured.
class HdMem {
 public:
  HdMem(uint32_t size, const HdCommon& common);
  ~HdMem();
  MIRVANE_NO_COPY(HdMem);
  uint32_t size() const { return size_; }

 private:
  uint32_t size_;
};

// One block of the CNN pool. A block left taken by a process that died is released through the
// id in kMemBlkIdFilePath and taken again.
class HdMemBlk {
 public:
  static constexpr uint32_t kNoBlock = 0xFFFFFFFFu;

  explicit HdMemBlk(const HdMem& mem);
  ~HdMemBlk();
  MIRVANE_NO_COPY(HdMemBlk);
  uint32_t id() const { return id_; }
  uint32_t size() const { return size_; }
  uint32_t physical_address() const { return physical_address_; }

 private:
  int MemGet();
  int MemRel();

  uint32_t id_ = kNoBlock;
  uint32_t size_;
  uint32_t physical_address_ = 0;
};

// Releases the block that an HdMemBlk of this process holds, if any, and removes the block-id
// file; for a process that must exit while the pipeline thread, which owns the HdMemBlk, cannot
// return. Any thread; at most one release happens, however often it is called. The HdMemBlk's own
// release afterwards fails and is logged.
void ReleaseOwnedBlockAtExit();

// A mapping of device memory into the process.
class HdMemMapping {
 public:
  HdMemMapping(uint32_t physical_address, uint32_t size);
  ~HdMemMapping();
  MIRVANE_NO_COPY(HdMemMapping);
  uint32_t physical_address() const { return physical_address_; }
  void* virtual_address() const { return virtual_address_; }
  uint32_t size() const { return size_; }

 private:
  uint32_t physical_address_;
  void* virtual_address_ = nullptr;
  uint32_t size_;
};

// The network runtime, on the CPU engine.
class VendorAi {
 public:
  VendorAi();
  ~VendorAi();
  MIRVANE_NO_COPY(VendorAi);
};

// An opened network process.
class VendorAiNet {
 public:
  explicit VendorAiNet(uint32_t proc_id);
  ~VendorAiNet();
  MIRVANE_NO_COPY(VendorAiNet);

 private:
  uint32_t proc_id_;
};

// A started network process.
class VendorAiNetRunner {
 public:
  explicit VendorAiNetRunner(uint32_t proc_id);
  ~VendorAiNetRunner();
  MIRVANE_NO_COPY(VendorAiNetRunner);

 private:
  uint32_t proc_id_;
};

// One frame pulled from a video-processing output (waits without limit); returned on destruction.
class HdVideoProcBuf {
 public:
  explicit HdVideoProcBuf(uint32_t path_id);
  ~HdVideoProcBuf();
  MIRVANE_NO_COPY(HdVideoProcBuf);
  HD_VIDEO_FRAME frame() const { return frame_; }

 private:
  uint32_t path_id_;
  HD_VIDEO_FRAME frame_;
};

// Device memory described by its physical address, virtual address and size.
struct MemMapping {
  uint32_t physical_address = 0;
  uintptr_t virtual_address = 0;
  uint32_t size = 0;
};

// One NV12 picture pushed into the video encoder and its bit-stream pulled; the bit-stream is
// released on destruction.
class HdVideoEncBuf {
 public:
  HdVideoEncBuf(uint32_t path_id, const MemMapping& source, uint32_t picture_word, uint32_t width,
                uint32_t height);
  ~HdVideoEncBuf();
  MIRVANE_NO_COPY(HdVideoEncBuf);
  HD_VIDEOENC_BS bitstream() const { return bitstream_; }

 private:
  uint32_t path_id_;
  MemMapping source_;
  uint32_t picture_word_;
  uint32_t width_;
  uint32_t height_;
  HD_VIDEO_FRAME frame_;
  HD_VIDEOENC_BS bitstream_;
};

}  // namespace mirvane

#undef MIRVANE_NO_COPY

#endif  // MIRVANE_NVT_HD_WRAPPER_H
