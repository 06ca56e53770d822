#include "nvt/hd_wrapper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/file_write.h"
#include "common/log.h"

namespace mirvane {
namespace {

constexpr int kInitAttempts = 5;
constexpr uint32_t kSysconfigType2 = 0x10000;
constexpr uint32_t kSysconfigType2Mask = 0xF0000;
constexpr uint32_t kPixelFormatYuv420 = 0x520c0420;

// The block this process owns, for a release at an exit that cannot wait for the pipeline
// thread's own teardown (ReleaseOwnedBlockAtExit).
std::atomic<uint32_t> g_owned_block{HdMemBlk::kNoBlock};

void SaveMemBlkIdFile(uint32_t id) {
  // Written whole or not at all: a reader after a crash never finds an empty or partial file, and
  // a link planted at the path is replaced, not followed.
  if (!WriteFileAtomically(kMemBlkIdFilePath, std::to_string(id))) {
    const int error = errno;
    MIRVANE_LOG(kLogErr, "Fail to write mem blk id file %s: mem blk id %u not recorded (%s)\n",
                kMemBlkIdFilePath, id, std::strerror(error));
  }
}

uint32_t ReadMemBlkIdFile() {
  // A planted link or FIFO at the path is not followed into: only a regular file is read.
  const int fd = open(kMemBlkIdFilePath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    if (fd >= 0) close(fd);
    throw std::runtime_error(std::string("Fail to read mem blk id file ") + kMemBlkIdFilePath);
  }
  char text[16] = {};
  const ssize_t got = read(fd, text, sizeof(text) - 1);
  close(fd);
  unsigned id = HdMemBlk::kNoBlock;
  // A file without a number names no block; releasing "no block" fails and is logged.
  if (got <= 0 || std::sscanf(text, "%u", &id) != 1) return HdMemBlk::kNoBlock;
  return id;
}

void RemoveMemBlkIdFile() {
  if (std::remove(kMemBlkIdFilePath) != 0) MIRVANE_LOG(kLogErr, "Fail to remove MemBlkIdFile\n");
}

HD_COMMON_MEM_VB_BLK ToBlk(uint32_t id) {
  return static_cast<HD_COMMON_MEM_VB_BLK>(static_cast<int32_t>(id));
}

}  // namespace

void ReleaseOwnedBlockAtExit() {
  const uint32_t id = g_owned_block.exchange(HdMemBlk::kNoBlock);
  if (id == HdMemBlk::kNoBlock) return;
  const int r = hd_common_mem_release_block(ToBlk(id));
  if (r != 0) {
    MIRVANE_LOG(kLogErr, "release hd mem blk fail (%d), the next start recovers it\n", r);
    return;
  }
  RemoveMemBlkIdFile();
  MIRVANE_LOG(kLogInfo, "hd mem blk %u released at exit\n", id);
}

// ---- HdCommon ----

HdCommon::HdCommon(uint32_t mode) : mode_(mode) {
  MIRVANE_LOG(kLogDebug, "hd_common_init(%lu)\n", static_cast<unsigned long>(mode));
  int r = 0;
  for (int i = 0; i < kInitAttempts; ++i) {
    r = hd_common_init(mode);
    if (r == 0) {
      hd_common_sysconfig(0, kSysconfigType2, 0, kSysconfigType2Mask);
      return;
    }
    MIRVANE_LOG(kLogErr, "Retry[%d] hd_common_init fail=%d\n", i, r);
    if (i * 2 > 0) SleepFully(i * 2 * 1000000000LL);
  }
  throw std::runtime_error("hd_common_init fail=" + std::to_string(r));
}

HdCommon::~HdCommon() {
  const int r = hd_common_uninit();
  if (r != 0) MIRVANE_LOG(kLogErr, "hd_common_uninit fail=%d\n", r);
  MIRVANE_LOG(kLogDebug, "hd_common_uninit\n");
}

// ---- HdGfx ----

HdGfx::HdGfx() {
  MIRVANE_LOG(kLogDebug, "hd_gfx_init\n");
  const int r = hd_gfx_init();
  if (r != 0) throw std::runtime_error("hd_gfx_init fail (" + std::to_string(r) + ")");
}

HdGfx::~HdGfx() {
  const int r = hd_gfx_uninit();
  if (r != 0) MIRVANE_LOG(kLogErr, "hd_gfx_uninit fail (%d)\n", r);
  MIRVANE_LOG(kLogDebug, "hd_gfx_uninit\n");
}

// ---- HdMem ----

HdMem::HdMem(uint32_t size, const HdCommon& common) : size_(size) {
  MIRVANE_LOG(kLogDebug, "hd_common_mem_init\n");
  int r;
  if (common.mode() == 0) {
    HD_COMMON_MEM_INIT_CONFIG config;
    std::memset(&config, 0, sizeof(config));
    config.pool_info[0].type = HD_COMMON_MEM_CNN_POOL;
    config.pool_info[0].blk_size = size;
    config.pool_info[0].blk_cnt = 1;
    r = hd_common_mem_init(&config);
  } else {
    r = hd_common_mem_init(nullptr);
  }
  if (r != 0) throw std::runtime_error("hd_common_mem_init err: " + std::to_string(r));
}

HdMem::~HdMem() {
  hd_common_mem_uninit();
  MIRVANE_LOG(kLogDebug, "hd_common_mem_uninit\n");
}

// ---- HdMemBlk ----

HdMemBlk::HdMemBlk(const HdMem& mem) : size_(mem.size()) {
  MIRVANE_LOG(kLogDebug, "hd_common_mem_get_block(%ld)\n", static_cast<long>(size_));
  const int r = MemGet();
  if (r != 0) throw std::runtime_error("Get hd mem blk fail (" + std::to_string(r) + ")!!");
}

HdMemBlk::~HdMemBlk() {
  const int r = MemRel();
  if (r != 0) MIRVANE_LOG(kLogErr, "release hd mem blk fail (%d)\n", r);
  MIRVANE_LOG(kLogDebug, "hd_common_mem_release_block\n");
}

int HdMemBlk::MemGet() {
  HD_COMMON_MEM_VB_BLK blk = hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, size_, DDR_ID0);
  if (blk == HD_COMMON_MEM_VB_INVALID_BLK) {
    MIRVANE_LOG(kLogErr, "hd_common_mem_get_block fail, try release previous get.\n");
    id_ = ReadMemBlkIdFile();
    const int r = MemRel();
    if (r != 0) MIRVANE_LOG(kLogErr, "release hd mem blk fail (%d)\n", r);
    blk = hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, size_, DDR_ID0);
    if (blk == HD_COMMON_MEM_VB_INVALID_BLK) {
      id_ = kNoBlock;
      MIRVANE_LOG(kLogErr, "hd_common_mem_get_block fail\n");
      return -10;
    }
  }
  id_ = static_cast<uint32_t>(blk);
  g_owned_block.store(id_);
  SaveMemBlkIdFile(id_);
  physical_address_ = static_cast<uint32_t>(hd_common_mem_blk2pa(blk));
  if (physical_address_ == 0) {
    MIRVANE_LOG(kLogErr, "not get buffer, physical_address=%08x\n", physical_address_);
    return -51;
  }
  return 0;
}

int HdMemBlk::MemRel() {
  const int r = hd_common_mem_release_block(ToBlk(id_));
  if (r == 0) {
    // Compare-exchange: a block recovered from the file of an earlier run is not ours to forget.
    uint32_t owned = id_;
    g_owned_block.compare_exchange_strong(owned, kNoBlock);
    id_ = kNoBlock;
    RemoveMemBlkIdFile();
  } else {
    MIRVANE_LOG(kLogErr, "mem_uninit : hd_common_mem_release_block fail (%d).\n", r);
  }
  return r;
}

// ---- HdMemMapping ----

HdMemMapping::HdMemMapping(uint32_t physical_address, uint32_t size)
    : physical_address_(physical_address), size_(size) {
  MIRVANE_LOG(kLogDebug, "hd_common_mem_mmap\n");
  virtual_address_ = hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, physical_address, size);
  if (virtual_address_ == nullptr) throw std::runtime_error("hd_common_mem_mmap fail.");
}

HdMemMapping::~HdMemMapping() {
  if (virtual_address_ != nullptr) {
    const int r = hd_common_mem_munmap(virtual_address_, size_);
    if (r != 0) MIRVANE_LOG(kLogErr, "hd_common_mem_munmap fail (%d).\n", r);
  }
  MIRVANE_LOG(kLogDebug, "hd_common_mem_munmap\n");
}

// ---- VendorAi, VendorAiNet, VendorAiNetRunner ----

VendorAi::VendorAi() {
  MIRVANE_LOG(kLogDebug, "vendor_ai_init\n");
  vendor_ai_cfg_set(VENDOR_AI_CFG_PLUGIN_ENGINE, vendor_ai_cpu1_get_engine());
  UINT32 schedule = 0;  // the runtime reads the platform's word type
  vendor_ai_cfg_set(VENDOR_AI_CFG_PROC_SCHD, &schedule);
  const int r = vendor_ai_init();
  if (r != 0) throw std::runtime_error("vendor_ai_init fail=" + std::to_string(r));
}

VendorAi::~VendorAi() {
  const int r = vendor_ai_uninit();
  if (r != 0) MIRVANE_LOG(kLogErr, "vendor_ai_uninit fail=%d\n", r);
  MIRVANE_LOG(kLogDebug, "vendor_ai_uninit\n");
}

VendorAiNet::VendorAiNet(uint32_t proc_id) : proc_id_(proc_id) {
  MIRVANE_LOG(kLogDebug, "vendor_ai_net_open(%lu)\n", static_cast<unsigned long>(proc_id));
  const int r = vendor_ai_net_open(proc_id);
  if (r != 0) throw std::runtime_error("ERR: vendor_ai_net_open fail = " + std::to_string(r));
}

VendorAiNet::~VendorAiNet() {
  const int r = vendor_ai_net_close(proc_id_);
  if (r != 0) {
    MIRVANE_LOG(kLogErr, "proc net id (%lu) close fail (%d) !!\n",
                static_cast<unsigned long>(proc_id_), r);
  }
  MIRVANE_LOG(kLogDebug, "vendor_ai_net_close(%lu)\n", static_cast<unsigned long>(proc_id_));
}

VendorAiNetRunner::VendorAiNetRunner(uint32_t proc_id) : proc_id_(proc_id) {
  MIRVANE_LOG(kLogDebug, "vendor_ai_net_start(%lu)\n", static_cast<unsigned long>(proc_id));
  const int r = vendor_ai_net_start(proc_id);
  if (r != 0) {
    throw std::runtime_error("ERR: run_id(" + std::to_string(proc_id) +
                             ") start fail = " + std::to_string(r));
  }
}

VendorAiNetRunner::~VendorAiNetRunner() {
  const int r = vendor_ai_net_stop(proc_id_);
  if (r != 0) {
    MIRVANE_LOG(kLogErr, "run_id(%lu) stop fail (%d)!!\n", static_cast<unsigned long>(proc_id_), r);
  }
  MIRVANE_LOG(kLogDebug, "vendor_ai_net_stop(%lu)\n", static_cast<unsigned long>(proc_id_));
}

// ---- HdVideoProcBuf ----

HdVideoProcBuf::HdVideoProcBuf(uint32_t path_id) : path_id_(path_id) {
  std::memset(&frame_, 0, sizeof(frame_));
  MIRVANE_LOG(kLogDebug, "hd_videoproc_pull_out_buf(%lu)\n", static_cast<unsigned long>(path_id));
  const int r = hd_videoproc_pull_out_buf(path_id, &frame_, -1);
  if (r != 0) {
    throw FetchError("hd_videoproc_pull_out_buf fail. err[" + std::to_string(r) + "]");
  }
}

HdVideoProcBuf::~HdVideoProcBuf() {
  const int r = hd_videoproc_release_out_buf(path_id_, &frame_);
  if (r != 0) MIRVANE_LOG(kLogErr, "ERR : pd_thread hd_videoproc_release_out_buf fail (%d)\n", r);
  MIRVANE_LOG(kLogDebug, "hd_videoproc_release_out_buf(%lu)\n",
              static_cast<unsigned long>(path_id_));
}

// ---- HdVideoEncBuf ----

HdVideoEncBuf::HdVideoEncBuf(uint32_t path_id, const MemMapping& source, uint32_t picture_word,
                             uint32_t width, uint32_t height)
    : path_id_(path_id),
      source_(source),
      picture_word_(picture_word),
      width_(width),
      height_(height) {
  std::memset(&frame_, 0, sizeof(frame_));
  std::memset(&bitstream_, 0, sizeof(bitstream_));
  frame_.sign = HD_VIDEO_FRAME_SIGN;
  frame_.pxlfmt = static_cast<HD_VIDEO_PXLFMT>(kPixelFormatYuv420);
  frame_.dim.w = width;
  frame_.dim.h = height;
  frame_.phy_addr[0] = source.physical_address;
  frame_.phy_addr[1] = source.physical_address + width * height;
  frame_.loff[0] = width;
  frame_.loff[1] = width;
  // The picture word rides in the first reserved word of the input record.
  frame_.reserved[0] = picture_word;
  MIRVANE_LOG(kLogDebug, "hd_videoenc_push_in_buf(%lu)\n", static_cast<unsigned long>(path_id));
  int r = hd_videoenc_push_in_buf(path_id, &frame_, nullptr, 0);
  if (r != 0) throw std::runtime_error("hd_videoenc_push_in_buf fail=" + std::to_string(r));
  MIRVANE_LOG(kLogDebug, "hd_videoenc_pull_out_buf(%lu)\n", static_cast<unsigned long>(path_id));
  r = hd_videoenc_pull_out_buf(path_id, &bitstream_, -1);
  if (r != 0) throw FetchError("hd_videoenc_pull_out_buf fail. err[" + std::to_string(r) + "]");
}

HdVideoEncBuf::~HdVideoEncBuf() {
  const int r = hd_videoenc_release_out_buf(path_id_, &bitstream_);
  if (r != 0) MIRVANE_LOG(kLogErr, "ERR : pd_thread hd_videoenc_release_out_buf fail (%d)\n", r);
  MIRVANE_LOG(kLogDebug, "hd_videoenc_release_out_buf(%lu)\n",
              static_cast<unsigned long>(path_id_));
}

}  // namespace mirvane
